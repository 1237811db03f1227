#include "model/TuvDirNode.h"

#include <thread>

#include "ModelTest.h"

namespace kavaro {
namespace {

using Ids = std::vector<std::uint32_t>;
using Lines = std::vector<std::string>;

TEST(TuvDirNodeTest, IsBornAsAPlaceholder) {
    auto folder = make<TuvDirNode>();
    EXPECT_EQ(folder->flags(), 0x02);
    EXPECT_TRUE(folder->isDirectory());
    EXPECT_FALSE(folder->isResolved());
    EXPECT_FALSE(folder->hasLoadNodes());
    EXPECT_EQ(folder->nodeType(), 2);
    EXPECT_EQ(folder->inode(), 0u);
    EXPECT_EQ(folder->logicalSize(), 0u);
    EXPECT_EQ(folder->physicalSize(), 0u);
    EXPECT_FALSE(folder->hasFileName());
    EXPECT_EQ(folder->parent(), nullptr);
    EXPECT_EQ(folder->retainCount(), 1u);
    ASSERT_NE(folder->files(), nullptr);
    ASSERT_NE(folder->folders(), nullptr);
    EXPECT_EQ(folder->files()->count(), 0);
    EXPECT_EQ(folder->folders()->count(), 0);
    EXPECT_EQ(folder->files()->retainCount(), 1u);
    folder->setHasLoadNodes();
    EXPECT_EQ(folder->flags(), 0x22);
    EXPECT_TRUE(folder->hasLoadNodes());
}

TEST(TuvDirNodeTest, SizesAreTheSumsOfTheChildrenWhileResolved) {
    auto folder = newFolder(1);
    for (std::uint64_t size : {10, 20, 30}) addFile(folder.get(), newFile(2, "f", size, size * 2));
    TuvDirNode* inner = addFolder(folder.get(), newFolder(3));
    addFile(inner, newFile(4, "f", 40, 400));
    inner->setIsResolved(true);
    folder->setIsResolved(true);
    EXPECT_EQ(folder->logicalSize(), 100u);
    EXPECT_EQ(folder->physicalSize(), 520u);
    EXPECT_EQ(folder->flags(), 0x12);
    // Sums are those of the moment.
    addFile(folder.get(), newFile(5, "f", 1000, 1000));
    EXPECT_EQ(folder->logicalSize(), 100u);
    folder->setIsResolved(false);
    EXPECT_EQ(folder->logicalSize(), 0u);
    EXPECT_EQ(folder->physicalSize(), 0u);
    EXPECT_EQ(folder->flags(), 0x02);
    EXPECT_EQ(inner->logicalSize(), 40u);
}

TEST(TuvDirNodeTest, ResolvingTravelsToTheRootOnlyWhenAsked) {
    auto root = newFolder(1);
    TuvDirNode* middle = addFolder(root.get(), newFolder(2));
    TuvDirNode* leaf = addFolder(middle, newFolder(3));
    addFile(leaf, newFile(4, "f", 5, 6));
    addFile(root.get(), newFile(5, "f", 100, 200));
    leaf->setIsResolved(true, false);
    EXPECT_FALSE(middle->isResolved());
    leaf->setIsResolved(true, true);
    EXPECT_TRUE(middle->isResolved());
    EXPECT_TRUE(root->isResolved());
    EXPECT_EQ(root->logicalSize(), 105u);
    EXPECT_EQ(root->physicalSize(), 206u);
    leaf->setIsResolved(false, true);
    EXPECT_FALSE(root->isResolved());
    EXPECT_EQ(root->logicalSize(), 0u);
}

TEST(TuvDirNodeTest, CanBeResolved) {
    auto folder = newFolder(1);
    EXPECT_FALSE(folder->canBeResolved());  // not loaded
    folder->setHasLoadNodes();
    EXPECT_TRUE(folder->canBeResolved());  // no subfolders
    addFile(folder.get(), newFile(2));
    TuvDirNode* first = addFolder(folder.get(), newFolder(3));
    TuvDirNode* second = addFolder(folder.get(), newFolder(4));
    first->setIsResolved(true);
    EXPECT_FALSE(folder->canBeResolved());
    second->setIsResolved(true);
    EXPECT_TRUE(folder->canBeResolved());
    second->setIsResolved(false);
    folder->setIsResolved(true);
    EXPECT_TRUE(folder->canBeResolved());  // it is already
    auto unloaded = newFolder(5);
    unloaded->setIsResolved(true);
    EXPECT_TRUE(unloaded->canBeResolved());
}

TEST(TuvDirNodeTest, InodesFromTheStopFolderDown) {
    auto root = newFolder(1, "/r");
    TuvDirNode* middle = addFolder(root.get(), newFolder(2, "m"));
    TuvDirNode* leaf = addFolder(middle, newFolder(3, "l"));
    ModelLogs logs;
    EXPECT_EQ(leaf->parentINodes(*root), (Ids{1, 2, 3}));
    EXPECT_EQ(logs.lines(),
              (Lines{"TuvDirNode parentINodes: [       3l] /r/m/l", "TuvDirNode parentINodes: [       2l] /r/m",
                     "TuvDirNode parentINodes: [       1l] /r"}));
    EXPECT_EQ(logs->count(LogLevel::info, "["), 3);
    EXPECT_EQ(leaf->parentINodes(*middle), (Ids{2, 3}));
    EXPECT_EQ(leaf->parentINodes(*newFolder(77)), (Ids{1, 2, 3}));  // never met: from the root
    EXPECT_EQ(leaf->parentINodes(*leaf), (Ids{1, 2, 3}));           // the stop is looked for above
    EXPECT_EQ(root->parentINodes(*root), (Ids{1}));
    Ids inodes{50, 60};
    leaf->parentINodes(2, inodes);
    EXPECT_EQ(inodes, (Ids{2, 50, 60}));
    root->parentINodes(2, inodes);
    EXPECT_EQ(inodes, (Ids{2, 50, 60}));
}

TEST(TuvDirNodeTest, LoadStatistics) {
    TuvDirNode::resetStatInfo();
    EXPECT_EQ(TuvDirNode::reportStatInfo(), "0 hits in  0.000000 ms");
    TuvDirNode::appendStatInfo(1.5);
    TuvDirNode::appendStatInfo(1000.25);
    EXPECT_EQ(TuvDirNode::reportStatInfo(), "2 hits in 1001.750000 ms");
    TuvDirNode::resetStatInfo();
    EXPECT_EQ(TuvDirNode::reportStatInfo(), "0 hits in  0.000000 ms");
}

TEST(TuvDirNodeTest, DescribesItselfByItsPath) {
    auto root = newFolder(1, "/r");
    EXPECT_EQ(addFolder(root.get(), newFolder(2, "x"))->description(), "/r/x");
}

TEST(TuvDirNodeTest, AChildThatIsRetainedOutlivesItsFolder) {
    auto folder = newFolder(1);
    auto kept = TuvRef<TuvNode>::share(addFile(folder.get(), newFile(2, "kept")));
    auto keptFolder = TuvRef<TuvDirNode>::share(addFolder(folder.get(), newFolder(3)));
    addFile(keptFolder.get(), newFile(4));
    folder = nullptr;
    EXPECT_EQ(TuvNode::instanceCount(), 3);
    EXPECT_EQ(kept->fileName(), "kept");
    EXPECT_EQ(kept->retainCount(), 1u);
    EXPECT_EQ(keptFolder->fileCount(), 1);
    keptFolder = nullptr;
    kept = nullptr;
    EXPECT_EQ(TuvNode::instanceCount(), 0);
}

// A folder whose end takes another tree down, in the middle of the first.
TEST(TuvDirNodeTest, EndsMayNest) {
    struct Holder : TuvNode {
        TuvRef<TuvDirNode> _held;
    };
    auto outer = newFolder(1);
    auto holder = make<Holder>();
    holder->_held = newFolder(2);
    addFile(addFolder(holder->_held.get(), newFolder(3)), newFile(4));
    outer->files()->adoptObject(holder.leak());
    addFolder(outer.get(), newFolder(5));
    outer = nullptr;
    EXPECT_EQ(TuvNode::instanceCount(), 0);
}

// Trees of different threads share the counters of the process and nothing else.
TEST(TuvDirNodeTest, ATreeForEachThread) {
    ModelLogs logs(LogLevel::error);
    const auto work = [] {
        for (int i = 0; i < 2000; ++i) {
            auto root = newFolder(1, "/r");
            TuvDirNode* folder = root.get();
            for (int level = 0; level < 10; ++level) {
                addFile(folder, newFile(2, "f", 1))->filePath();
                folder = addFolder(folder, newFolder(3));
            }
            folder->setIsResolved(true, true);
            root->files()->sortByFunction(TuvNode_sortByName);
            TuvDirNode::appendStatInfo(0);
        }
    };
    TuvDirNode::resetStatInfo();
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
    EXPECT_EQ(TuvNode::instanceCount(), 0);
    EXPECT_EQ(TuvDirNode::reportStatInfo(), "4000 hits in  0.000000 ms");
}

}  // namespace
}  // namespace kavaro
