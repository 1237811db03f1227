#include "ModelTest.h"

namespace kavaro {
namespace {

using Ids = std::vector<std::uint32_t>;

// 1 ─ files 2, 3; folders 10 (files 11; folders 12 (file 13)), 20 (file 21)
class TuvDirNodeChildrenTest : public testing::Test {
  protected:
    TuvDirNodeChildrenTest() {
        addFile(_root.get(), newFile(2, "two", 1, 10));
        addFile(_root.get(), newFile(3, "three", 2, 20));
        addFile(_ten, newFile(11, "eleven", 4, 40));
        addFile(_twelve, newFile(13, "thirteen", 8, 80));
        addFile(_twenty, newFile(21, "twentyone", 16, 160));
        for (TuvDirNode* folder : {_twelve, _ten, _twenty, _root.get()}) folder->setIsResolved(true);
    }

    TuvRef<TuvDirNode> _root = newFolder(1, "/r");
    TuvDirNode* _ten = addFolder(_root.get(), newFolder(10, "ten"));
    TuvDirNode* _twelve = addFolder(_ten, newFolder(12, "twelve"));
    TuvDirNode* _twenty = addFolder(_root.get(), newFolder(20, "twenty"));
};

TEST_F(TuvDirNodeChildrenTest, Counts) {
    EXPECT_EQ(_root->fileCount(), 2);
    EXPECT_EQ(_root->folderCount(), 2);
    EXPECT_EQ(_root->childrenCount(), 4);
    EXPECT_EQ(_root->recursiveFileCount(), 5);
    EXPECT_EQ(_root->recursiveFolderCount(), 3);
    auto folder = newFolder(5);
    addFolder(folder.get(), newFolder(6));
    addFolder(folder.get(), newFolder(7));
    EXPECT_EQ(folder->recursiveFolderCount(), 2);
    EXPECT_EQ(folder->recursiveFileCount(), 0);
}

TEST_F(TuvDirNodeChildrenTest, Collections) {
    auto children = _root->children();
    EXPECT_EQ(idsOf(children.get()), (Ids{2, 3, 10, 20}));
    EXPECT_EQ(children->size(), 5);
    EXPECT_EQ(children->retainCount(), 1u);
    EXPECT_EQ(_ten->retainCount(), 2u);
    auto all = _root->recursiveChildren();
    EXPECT_EQ(idsOf(all.get()), (Ids{2, 3, 10, 20, 11, 12, 13, 21}));
    EXPECT_EQ(all->size(), 9);
    auto appended = make<TuvObjectArray>();
    appended->adoptObject(newFile(99).leak());
    _root->children(appended.get(), false);
    _ten->children(appended.get(), true);
    EXPECT_EQ(idsOf(appended.get()), (Ids{99, 2, 3, 10, 20, 11, 12, 13}));
    EXPECT_EQ(newFolder(1)->children()->count(), 0);
    EXPECT_EQ(newFolder(1)->recursiveChildren()->size(), 1);
}

TEST_F(TuvDirNodeChildrenTest, FindsByName) {
    EXPECT_EQ(_root->folderWithFileName("twenty"), _twenty);
    EXPECT_EQ(_root->folderWithFileName("Twenty"), nullptr);
    EXPECT_EQ(_root->folderWithFileName("twelve"), nullptr);  // not a child
    EXPECT_EQ(_root->folderWithFileName("two"), nullptr);     // a file
    auto twin = addFolder(_root.get(), newFolder(30, "twenty"));
    EXPECT_EQ(_root->folderWithFileName("twenty"), _twenty);
    _twenty->setFileName(std::string_view());
    EXPECT_EQ(_root->folderWithFileName("twenty"), twin);
    EXPECT_EQ(_root->folderWithFileName("No File Name !!!"), nullptr);
}

TEST_F(TuvDirNodeChildrenTest, FindsByInode) {
    EXPECT_EQ(_root->childWithINode(10, false, false), _ten);
    EXPECT_EQ(_root->childWithINode(2, false, true), nullptr);
    EXPECT_EQ(_root->childWithINode(2, true, false), _root->files()->objectAtIndex(0));
    EXPECT_EQ(_root->childWithINode(12, false, false), nullptr);
    EXPECT_EQ(_root->childWithINode(12, false, true), _twelve);
    EXPECT_EQ(_root->childWithINode(13, true, true), _twelve->files()->objectAtIndex(0));
    EXPECT_EQ(_root->childWithINode(13, false, true), nullptr);
    EXPECT_EQ(_root->childWithINode(1, true, true), nullptr);  // it does not find itself
    // Folders before files, and a folder's children before those of the next.
    TuvDirNode* folder = addFolder(_root.get(), newFolder(2));
    EXPECT_EQ(_root->childWithINode(2, true, true), folder);
    TuvNode* deep = addFile(_twelve, newFile(21, "deep"));
    EXPECT_EQ(_root->childWithINode(21, true, true), deep);
}

TEST_F(TuvDirNodeChildrenTest, AttachesInPlaceOfAPlaceholder) {
    auto fresh = newFolder(20, "fresh");
    EXPECT_TRUE(_root->attachChildNode(fresh.get()));
    EXPECT_EQ(_root->folders()->objectAtIndex(1), fresh.get());
    EXPECT_EQ(fresh->parent(), _root.get());
    EXPECT_EQ(fresh->retainCount(), 2u);
    auto stranger = newFolder(77);
    auto deeper = newFolder(12, "deeper");
    for (TuvDirNode* folder : {stranger.get(), deeper.get()}) {
        EXPECT_FALSE(_root->attachChildNode(folder));
        EXPECT_EQ(folder->parent(), nullptr);
        EXPECT_EQ(folder->retainCount(), 1u);
    }
    EXPECT_FALSE(_root->attachChildNode(newFolder(2).get()));  // a file has this inode
    EXPECT_FALSE(_root->attachChildNode(nullptr));
    addFolder(_root.get(), newFolder(1));
    EXPECT_FALSE(_root->attachChildNode(_root.get()));  // never below itself
    EXPECT_TRUE(_root->attachChildNodeRecursively(deeper.get()));
    EXPECT_EQ(deeper->parent(), _ten);
    EXPECT_EQ(_ten->folders()->objectAtIndex(0), deeper.get());
    EXPECT_FALSE(_root->attachChildNodeRecursively(stranger.get()));
    EXPECT_EQ(stranger->parent(), nullptr);
}

TEST_F(TuvDirNodeChildrenTest, AttachesAtTheFirstPlaceholderDepthFirst) {
    addFolder(_twelve, newFolder(50));
    addFolder(_twenty, newFolder(50));
    auto fresh = newFolder(50);
    EXPECT_TRUE(_root->attachChildNodeRecursively(fresh.get()));
    EXPECT_EQ(fresh->parent(), _twelve);
    addFolder(_root.get(), newFolder(50));
    auto other = newFolder(50);
    EXPECT_TRUE(_root->attachChildNodeRecursively(other.get()));
    EXPECT_EQ(other->parent(), _root.get());
}

TEST_F(TuvDirNodeChildrenTest, RemovesAChild) {
    EXPECT_TRUE(_ten->removeChildNode(newFile(12).get()));
    EXPECT_EQ(_ten->folderCount(), 0);
    EXPECT_EQ(_ten->logicalSize(), 4u);
    EXPECT_EQ(_root->logicalSize(), 23u);
    EXPECT_EQ(_root->physicalSize(), 230u);
    EXPECT_TRUE(_root->removeChildNode(_root->files()->nodeAtIndex(1)));
    EXPECT_EQ(_root->logicalSize(), 21u);
    // Files come first.
    addFolder(_root.get(), newFolder(2));
    EXPECT_TRUE(_root->removeChildNode(newFile(2).get()));
    EXPECT_EQ(_root->fileCount(), 0);
    EXPECT_EQ(_root->folderCount(), 3);
}

TEST_F(TuvDirNodeChildrenTest, RemovingAStrangerChangesNothing) {
    _root->setLogicalSize(12345);
    EXPECT_FALSE(_root->removeChildNode(newFile(13).get()));
    EXPECT_FALSE(_root->removeChildNode(nullptr));
    EXPECT_EQ(_root->logicalSize(), 12345u);
    EXPECT_EQ(_root->childrenCount(), 4);
}

TEST_F(TuvDirNodeChildrenTest, RemovesAListWhereverItLies) {
    TuvDirNode* deepest = addFolder(_twelve, newFolder(14));
    addFile(deepest, newFile(15, "f", 1000, 1000));
    auto list = make<TuvObjectArray>();
    list->adoptObject(newFile(15).leak());
    list->adoptObject(newFile(2).leak());
    for (TuvDirNode* folder : {deepest, _twelve, _ten, _twenty, _root.get()}) {
        folder->setLogicalSize(7);
        folder->setFlags(0x02);
    }
    _twenty->setIsResolved(true);
    ModelLogs logs;
    _root->removeChildNodes(list.get());
    EXPECT_EQ(idsOf(list.get()), (Ids{15, 2}));  // untouched
    EXPECT_EQ(idsOf(_root->recursiveChildren().get()), (Ids{3, 10, 20, 11, 12, 13, 14, 21}));
    EXPECT_EQ(deepest->logicalSize(), 0u);
    EXPECT_EQ(_twelve->logicalSize(), 8u);
    EXPECT_EQ(_ten->logicalSize(), 12u);
    EXPECT_EQ(_root->logicalSize(), 30u);
    EXPECT_EQ(_root->physicalSize(), 300u);
    for (TuvDirNode* folder : {deepest, _twelve, _ten, _root.get()}) EXPECT_TRUE(folder->isResolved());
    ASSERT_EQ(logs.lines().size(), 1u);
    EXPECT_EQ(logs.lines()[0].rfind("TuvDirNode removeChildNodes: removed 2 Nodes in ", 0), 0u);
    EXPECT_EQ(logs->count(LogLevel::info, " ms"), 1);
}

TEST_F(TuvDirNodeChildrenTest, AnEmptyListRemovesNothingAndSaysSo) {
    _root->setLogicalSize(12345);
    ModelLogs logs;
    auto none = make<TuvObjectArray>();
    _root->removeChildNodesRecursive(none.get());
    EXPECT_EQ(logs->count(""), 0);
    _root->removeChildNodes(none.get());
    EXPECT_EQ(logs->count("removed 0 Nodes in "), 1);
    EXPECT_EQ(_root->logicalSize(), 12345u);
}

TEST_F(TuvDirNodeChildrenTest, EachEntryIsUsedUpOnce) {
    addFile(_twenty, newFile(2, "again", 32, 0));
    auto list = make<TuvObjectArray>();
    for (std::uint32_t inode : {2, 12, 77}) list->adoptObject(newFile(inode).leak());
    _root->removeChildNodesRecursive(list.get());
    EXPECT_EQ(idsOf(list.get()), Ids{77});
    EXPECT_EQ(idsOf(_root->recursiveChildren().get()), (Ids{3, 10, 20, 11, 21, 2}));
    // Two entries take two away; what is in a removed folder does not count.
    list->removeAllObjects();
    for (std::uint32_t inode : {2, 2, 11, 20}) list->adoptObject(newFile(inode).leak());
    list->sortByFunction(TuvNode_sortByInode);
    _root->removeChildNodesRecursive(list.get());
    EXPECT_EQ(idsOf(list.get()), (Ids{2, 2}));
    EXPECT_EQ(idsOf(_root->recursiveChildren().get()), (Ids{3, 10}));
}

TEST_F(TuvDirNodeChildrenTest, SumsGoOnAboveTheFolderThatWasAsked) {
    auto list = make<TuvObjectArray>();
    list->adoptObject(newFile(13).leak());
    ModelLogs logs;
    _ten->removeChildNodes(list.get());
    EXPECT_EQ(_ten->logicalSize(), 4u);
    EXPECT_EQ(_root->logicalSize(), 23u);
}

}  // namespace
}  // namespace kavaro
