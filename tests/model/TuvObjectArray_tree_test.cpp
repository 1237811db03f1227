#include <random>

#include "ModelTest.h"

namespace kavaro {
namespace {

using Ids = std::vector<std::uint32_t>;

// Folders as a listing gives them: each with placeholders for its subfolders.
TuvRef<TuvDirNode> listed(std::uint32_t inode, const Ids& subfolders, const std::string& name = "") {
    auto folder = newFolder(inode, name.empty() ? "d" + std::to_string(inode) : name);
    for (std::uint32_t subfolder : subfolders) addFolder(folder.get(), newFolder(subfolder));
    folder->setHasLoadNodes();
    return folder;
}

TuvRef<TuvObjectArray> arrayOf(std::vector<TuvRef<TuvDirNode>> folders) {
    auto array = make<TuvObjectArray>();
    for (auto& folder : folders) array->adoptObject(folder.leak());
    return array;
}

// "inode(subfolders)" all the way down.
std::string shapeOf(const TuvDirNode* folder) {
    std::string shape = std::to_string(folder->inode()) + (folder->hasLoadNodes() ? "" : "?");
    if (folder->folderCount() == 0) return shape;
    shape += "(";
    for (int i = 0; i < folder->folderCount(); ++i) {
        const TuvDirNode* child = folder->folders()->folderAtIndex(i);
        EXPECT_EQ(child->parent(), folder);
        shape += (i ? " " : "") + shapeOf(child);
    }
    return shape + ")";
}

std::string shapeOf(const TuvObjectArray* array) {
    std::string shape;
    for (int i = 0; i < array->count(); ++i) shape += (i ? " " : "") + shapeOf(array->folderAtIndex(i));
    return shape;
}

template <class... Folders>
TuvRef<TuvObjectArray> list(Folders... folders) {
    std::vector<TuvRef<TuvDirNode>> all;
    (all.push_back(std::move(folders)), ...);
    return arrayOf(std::move(all));
}

TEST(TuvObjectArrayTreeTest, RebuildsAListOfChildrenFirst) {
    auto array = list(listed(4, {}), listed(3, {}), listed(2, {3, 4}), listed(9, {10}), listed(1, {2, 5}));
    array->rebuildTree();
    EXPECT_EQ(shapeOf(array.get()), "9(10?) 1(2(3 4) 5?)");
    EXPECT_EQ(array->folderAtIndex(1)->folders()->objectAtIndex(0)->retainCount(), 1u);
}

TEST(TuvObjectArrayTreeTest, RebuildsAListOfParentsFirst) {
    auto array = list(listed(1, {2, 5}), listed(9, {10}), listed(2, {3, 4}), listed(3, {}), listed(4, {}));
    array->rebuildTreeBackWards();
    EXPECT_EQ(shapeOf(array.get()), "1(2(3 4) 5?) 9(10?)");
}

TEST(TuvObjectArrayTreeTest, LooksInOneDirectionOnly) {
    auto forward = list(listed(1, {2}), listed(2, {}));
    forward->rebuildTree();
    EXPECT_EQ(shapeOf(forward.get()), "1(2?) 2");
    auto backward = list(listed(2, {}), listed(1, {2}));
    backward->rebuildTreeBackWards();
    EXPECT_EQ(shapeOf(backward.get()), "2 1(2?)");
}

TEST(TuvObjectArrayTreeTest, TheNearestParentWins) {
    auto forward = list(listed(5, {}), listed(1, {5}), listed(2, {5}));
    forward->rebuildTree();
    EXPECT_EQ(shapeOf(forward.get()), "1(5) 2(5?)");
    auto backward = list(listed(2, {5}), listed(1, {5}), listed(5, {}));
    backward->rebuildTreeBackWards();
    EXPECT_EQ(shapeOf(backward.get()), "2(5?) 1(5)");
}

TEST(TuvObjectArrayTreeTest, FoldersThatNameEachOtherDoNotMakeACircle) {
    auto forward = list(listed(1, {2}), listed(2, {1}));
    forward->rebuildTree();
    EXPECT_EQ(shapeOf(forward.get()), "2(1(2?))");
    auto backward = list(listed(1, {2}), listed(2, {1}));
    backward->rebuildTreeBackWards();
    EXPECT_EQ(shapeOf(backward.get()), "1(2(1?))");
    auto self = list(listed(1, {1}));
    self->rebuildTree();
    EXPECT_EQ(shapeOf(self.get()), "1(1?)");
}

// Tries every pair, as the rules are written.
void naiveRebuild(TuvObjectArray* array, bool backwards) {
    const int step = backwards ? -1 : 1;
    for (int i = backwards ? array->count() - 1 : 0; i >= 0 && i < array->count();) {
        bool attached = false;
        for (int j = i + step; j >= 0 && j < array->count() && !attached; j += step)
            attached = array->folderAtIndex(j)->attachChildNode(array->folderAtIndex(i));
        if (attached) array->removeObjectAtIndex(i);
        if (backwards || !attached) i += step;
    }
}

TEST(TuvObjectArrayTreeTest, RebuildsAsTryingEveryPairDoes) {
    for (unsigned seed = 0; seed < 600; ++seed) {
        std::string shapes[2];
        for (int naive = 0; naive < 2; ++naive) {
            std::mt19937 random(seed);
            const auto upTo = [&](unsigned limit) { return random() % (limit + 1); };
            auto array = make<TuvObjectArray>();
            const unsigned inodes = 3 + upTo(12);
            for (unsigned count = upTo(20); count > 0; --count) {
                Ids subfolders;
                for (unsigned i = upTo(4); i > 0; --i) subfolders.push_back(upTo(inodes));
                array->adoptObject(listed(upTo(inodes), subfolders).leak());
            }
            const bool backwards = seed % 2;
            if (naive)
                naiveRebuild(array.get(), backwards);
            else if (backwards)
                array->rebuildTreeBackWards();
            else
                array->rebuildTree();
            shapes[naive] = shapeOf(array.get());
        }
        ASSERT_EQ(shapes[0], shapes[1]) << "seed " << seed;
    }
    EXPECT_EQ(TuvNode::instanceCount(), 0);
}

TEST(TuvObjectArrayTreeTest, AttachesToARoot) {
    auto root = listed(1, {2, 3, 4});
    auto array = list(listed(3, {7}), listed(8, {}), listed(2, {}), listed(3, {}, "again"));
    array->addObject(root.get());
    array->attachToRootNode(root.get());
    EXPECT_EQ(idsOf(array.get()), (Ids{8, 1}));
    EXPECT_EQ(shapeOf(root.get()), "1(2 3 4?)");
    EXPECT_EQ(root->folders()->nodeAtIndex(1)->fileName(), "again");
}

TEST(TuvObjectArrayTreeTest, PutsUnresolvedSubfoldersInFront) {
    auto folder = listed(1, {2, 3, 4});
    folder->folders()->folderAtIndex(1)->setIsResolved(true);
    auto array = list(listed(9, {}));
    array->insertUnResolvedNodes(folder.get());
    EXPECT_EQ(idsOf(array.get()), (Ids{2, 4, 9}));
    EXPECT_EQ(array->objectAtIndex(0)->retainCount(), 2u);
    ModelLogs logs;
    array->insertUnResolvedNodes(listed(5, {}).get());
    EXPECT_EQ(logs->texts(), std::vector<std::string>{"Empty array argument"});
    EXPECT_EQ(array->count(), 3);
}

TEST(TuvObjectArrayTreeTest, RemovesAFolderAndItsLoadedSubfolders) {
    for (LogLevel level : {LogLevel::info, LogLevel::debug}) {
        ModelLogs logs(level);
        auto root = listed(1, {2, 3}, "root");
        TuvDirNode* two = root->folders()->folderAtIndex(0);
        addFolder(two, newFolder(5, "five"));  // not loaded: its subfolders stay
        auto array = make<TuvObjectArray>();
        for (std::uint32_t inode : {5, 3, 2, 9, 1, 3}) array->adoptObject(newFolder(inode).leak());
        array->removeFoldersFromNodeRecursively(nullptr);
        EXPECT_EQ(array->count(), 6);
        array->removeFoldersFromNodeRecursively(root.get());
        EXPECT_EQ(idsOf(array.get()), (Ids{5, 9, 3}));
        two->setHasLoadNodes();
        array->removeFoldersFromNodeRecursively(two);
        EXPECT_EQ(idsOf(array.get()), (Ids{9, 3}));
        // Subfolders first, each found and then removed.
        if (level == LogLevel::debug) {
            EXPECT_EQ(logs->texts(),
                      (std::vector<std::string>{"d, index 2", "d, index 2", "d, index 1", "d, index 1", "d, index 2",
                                                "d, index 2", "d, index 0", "d, index 0"}));
        } else {
            EXPECT_EQ(logs->texts(), std::vector<std::string>{});
        }
    }
}

TEST(TuvObjectArrayTreeTest, RemovesWhatOnlyTheArrayHolds) {
    auto folder = listed(1, {2, 3});
    auto array = make<TuvObjectArray>();
    array->addObjectsFromArray(folder->folders());
    TuvDirNode* borrowed = folder.get();
    array->adoptObject(folder.leak());
    array->removeFoldersFromNodeRecursively(borrowed);
    EXPECT_EQ(array->count(), 0);
    EXPECT_EQ(TuvNode::instanceCount(), 0);
}

TEST(TuvObjectArrayTreeTest, ManyWaitingSubfoldersLeaveInOnePass) {
    ModelLogs logs(LogLevel::error);
    constexpr int kCount = 200000;
    auto folder = newFolder(1);
    folder->setHasLoadNodes();
    for (int i = 0; i < kCount; ++i) addFolder(folder.get(), newFolder(static_cast<std::uint32_t>(i) + 10));
    auto waiting = make<TuvObjectArray>();
    for (int i = 0; i < kCount; ++i) waiting->adoptObject(newFolder(static_cast<std::uint32_t>(i) + 1000000).leak());
    waiting->addObject(folder.get());
    waiting->insertUnResolvedNodes(folder.get());
    EXPECT_EQ(waiting->count(), 2 * kCount + 1);
    waiting->removeFoldersFromNodeRecursively(folder.get());
    EXPECT_EQ(waiting->count(), kCount);
    EXPECT_EQ(waiting->objectAtIndex(0)->objectID(), 1000000u);
    EXPECT_EQ(waiting->lastObject()->objectID(), 1000000u + kCount - 1);
    // One that waits in front alone leaves without a move of those behind it.
    waiting->insertUnResolvedNodes(folder.get());
    TuvObject* const* const tail = waiting->begin() + kCount;
    auto unlisted = newFolder(2);
    for (int i = 0; i < 1000; ++i) addFolder(unlisted.get(), newFolder(static_cast<std::uint32_t>(i) + 10));
    unlisted->setHasLoadNodes();
    waiting->removeFoldersFromNodeRecursively(unlisted.get());
    EXPECT_EQ(waiting->begin() + kCount - 1000, tail);
}

}  // namespace
}  // namespace kavaro
