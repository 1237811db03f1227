#include <fcntl.h>
#include <unistd.h>

#include "ModelTest.h"

namespace kavaro {
namespace {

constexpr int kDepth = 100000;

// A tree of 100,000 levels, each with one file and one folder, on a thread with a small stack. The folder of level n
// has the inode n, its file the inode n + 1,000,000.
class DeepTreeTest : public testing::Test {
  protected:
    struct Tree {
        TuvRef<TuvDirNode> root = newFolder(0, "/");
        std::vector<TuvDirNode*> levels{root.get()};
        TuvDirNode* leaf() const { return levels.back(); }
        explicit Tree(int depth = kDepth) {
            for (int i = 1; i < depth; ++i)
                levels.push_back(addFolder(levels.back(), newFolder(static_cast<std::uint32_t>(i))));
            for (TuvDirNode* folder : levels) addFile(folder, newFile(folder->inode() + 1000000, "f", 1, 2));
        }
    };

    static void onSmallStack(const std::function<void()>& body) {
        ModelLogs logs(LogLevel::error);  // lines with paths of such length are not what is tested
        runOnSmallStack(body);
        EXPECT_EQ(TuvNode::instanceCount(), 0);
    }
};

TEST_F(DeepTreeTest, GoesDown) {
    onSmallStack([] {
        Tree tree;
        EXPECT_EQ(TuvNode::instanceCount(), 2 * kDepth);
        tree.root = nullptr;
        EXPECT_EQ(TuvNode::instanceCount(), 0);
    });
}

TEST_F(DeepTreeTest, GoesDownFromWithinAnArray) {
    onSmallStack([] {
        auto array = make<TuvObjectArray>();
        array->adoptObject(Tree().root.leak());
        array->replaceObject(newFolder(0).get());
        EXPECT_EQ(TuvNode::instanceCount(), 1);
    });
}

TEST_F(DeepTreeTest, Counts) {
    onSmallStack([] {
        Tree tree;
        EXPECT_EQ(tree.root->recursiveFileCount(), kDepth);
        EXPECT_EQ(tree.root->recursiveFolderCount(), kDepth - 1);
        EXPECT_EQ(tree.root->folders()->recursiveFileCount(), kDepth - 1);
        EXPECT_EQ(tree.root->folders()->recursiveFolderCount(), kDepth - 2);
    });
}

TEST_F(DeepTreeTest, Collects) {
    onSmallStack([] {
        Tree tree;
        auto all = tree.root->recursiveChildren();
        ASSERT_EQ(all->count(), 2 * kDepth - 1);
        EXPECT_EQ(all->objectAtIndex(0)->objectID(), 1000000u);
        EXPECT_EQ(all->objectAtIndex(1)->objectID(), 1u);
        EXPECT_EQ(all->objectAtIndex(3)->objectID(), 2u);
        EXPECT_EQ(all->lastObject()->objectID(), 1000000u + kDepth - 1);
    });
}

TEST_F(DeepTreeTest, Finds) {
    onSmallStack([] {
        Tree tree;
        EXPECT_EQ(tree.root->childWithINode(kDepth - 1, true, true), tree.leaf());
        EXPECT_EQ(tree.root->childWithINode(1000000 + kDepth - 1, true, true), tree.leaf()->files()->objectAtIndex(0));
        EXPECT_EQ(tree.root->childWithINode(999999999, true, true), nullptr);
    });
}

TEST_F(DeepTreeTest, Attaches) {
    onSmallStack([] {
        Tree tree;
        auto fresh = newFolder(kDepth - 1, "fresh");
        EXPECT_TRUE(tree.root->attachChildNodeRecursively(fresh.get()));
        EXPECT_EQ(fresh->parent(), tree.levels[kDepth - 2]);
        EXPECT_FALSE(tree.root->attachChildNodeRecursively(newFolder(999999999).get()));
    });
}

TEST_F(DeepTreeTest, Resolves) {
    onSmallStack([] {
        Tree tree;
        for (auto folder = tree.levels.rbegin(); folder != tree.levels.rend(); ++folder) (*folder)->setIsResolved(true);
        tree.leaf()->setIsResolved(true, true);
        EXPECT_EQ(tree.root->logicalSize(), static_cast<std::uint64_t>(kDepth));
        EXPECT_EQ(tree.root->physicalSize(), static_cast<std::uint64_t>(2 * kDepth));
        EXPECT_TRUE(tree.root->canBeResolved());
        tree.leaf()->setIsResolved(false, true);
        EXPECT_FALSE(tree.root->isResolved());
    });
}

TEST_F(DeepTreeTest, Removes) {
    onSmallStack([] {
        Tree tree;
        for (auto folder = tree.levels.rbegin(); folder != tree.levels.rend(); ++folder) (*folder)->setIsResolved(true);
        EXPECT_TRUE(tree.leaf()->removeChildNode(tree.leaf()->files()->nodeAtIndex(0)));
        EXPECT_EQ(tree.root->logicalSize(), static_cast<std::uint64_t>(kDepth - 1));
        // Every file but one; each folder is summed once.
        auto list = make<TuvObjectArray>();
        for (std::uint32_t i = 1; i < kDepth - 1; ++i) list->adoptObject(newFile(i + 1000000).leak());
        tree.root->removeChildNodes(list.get());
        EXPECT_EQ(tree.root->logicalSize(), 1u);
        EXPECT_EQ(tree.root->recursiveFileCount(), 1);
        // The folder in the middle, with all that is below it.
        list->removeAllObjects();
        list->adoptObject(newFile(kDepth / 2).leak());
        tree.root->removeChildNodes(list.get());
        EXPECT_EQ(tree.root->recursiveFolderCount(), kDepth / 2 - 1);
    });
}

TEST_F(DeepTreeTest, Unloads) {
    onSmallStack([] {
        Tree tree;
        auto array = make<TuvObjectArray>();
        array->addObject(tree.root.get());
        array->unloadNodes();
        EXPECT_EQ(TuvNode::instanceCount(), 1);
    });
}

TEST_F(DeepTreeTest, Paths) {
    onSmallStack([] {
        Tree tree;
        TuvNode* file = tree.leaf()->files()->nodeAtIndex(0);
        const std::string_view path = file->filePath();
        EXPECT_EQ(path.size(), static_cast<std::size_t>(2 * kDepth));  // "/d" each but for the root, and "/f"
        EXPECT_EQ(path.substr(path.size() - 4), "/d/f");
        std::size_t kept = 0;
        for (TuvDirNode* folder : tree.levels)
            if (folder->hasCachedFilePath()) ++kept;
        EXPECT_EQ(kept, TuvNode::kCachedAncestorPathLimit / 2 + 1);
        EXPECT_EQ(file->filePathRelativeOfNode(tree.levels[1]).size(), path.size() - 2);
        auto whole = newFile(1, tree.leaf()->description() + "/x");
        whole->setParent(tree.leaf());
        whole->setFileNameAsChildOfParent();
        EXPECT_EQ(whole->fileName(), "x");
    });
}

TEST_F(DeepTreeTest, Chains) {
    onSmallStack([] {
        Tree tree;
        auto chain = tree.leaf()->parentChain(tree.root.get(), true);
        EXPECT_EQ(chain->count(), kDepth);
        EXPECT_EQ(chain->objectAtIndex(1), tree.levels[1]);
        const auto inodes = tree.leaf()->parentINodes(*tree.root);
        ASSERT_EQ(inodes.size(), static_cast<std::size_t>(kDepth));
        EXPECT_EQ(inodes.front(), 0u);
        EXPECT_EQ(inodes.back(), static_cast<std::uint32_t>(kDepth - 1));
    });
}

TEST_F(DeepTreeTest, LeavesAWaitingList) {
    onSmallStack([] {
        Tree tree;
        auto waiting = make<TuvObjectArray>();
        for (TuvDirNode* folder : tree.levels) {
            folder->setHasLoadNodes();
            waiting->insertUnResolvedNodes(folder);
        }
        waiting->addObject(tree.root.get());
        waiting->adoptObject(newFolder(999999999).leak());
        waiting->removeFoldersFromNodeRecursively(tree.root.get());
        EXPECT_EQ(idsOf(waiting.get()), std::vector<std::uint32_t>{999999999});
    });
}

TEST_F(DeepTreeTest, IsRebuiltFromAList) {
    for (bool backwards : {false, true})
        onSmallStack([backwards] {
            auto list = make<TuvObjectArray>();
            for (std::uint32_t i = 0; i < kDepth; ++i) {
                const std::uint32_t inode = backwards ? i : kDepth - 1 - i;
                auto folder = newFolder(inode);
                addFolder(folder.get(), newFolder(inode + 1));
                list->adoptObject(folder.leak());
            }
            if (backwards)
                list->rebuildTreeBackWards();
            else
                list->rebuildTree();
            ASSERT_EQ(list->count(), 1);
            EXPECT_EQ(list->nodeAtIndex(0)->recursiveFolderCount(), kDepth);
        });
}

// Each line of a level is as long as the level is deep, so the text of 100,000 levels would not end.
TEST_F(DeepTreeTest, Prints) {
    const int out = dup(2);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(null, 0);
    std::fflush(stderr);
    dup2(null, 2);
    onSmallStack([] {
        Tree tree(2500);
        tree.root->debug();
        tree.root->folders()->debug(0, 1 << 20);
    });
    std::fflush(stderr);
    dup2(out, 2);
    close(out);
    close(null);
}

}  // namespace
}  // namespace kavaro
