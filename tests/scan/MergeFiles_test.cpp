#include <errno.h>

#include "scan/ScanTest.h"

namespace kavaro {
namespace {

// /top (1) holds /top/folder (2), whose files 10, 11 and 12 are on the disk in memory; 3 is a sibling's file.
class MergeFilesTest : public ScanTest {
  protected:
    MergeFilesTest() {
        disk->addFolder("/top", 1);
        disk->addFolder("/top/folder", 2);
        disk->addFile("/top/file", 3, 1000, 4096);
        disk->addFile("/top/folder/a", 12, 100, 4096);
        disk->addFile("/top/folder/b", 10, 200, 4096);
        disk->addFile("/top/folder/c", 11, 300, 8192);
        disk->addFolder("/top/folder/sub", 20);
        EXPECT_TRUE(_top->loadNodes());
        _folder = _top->folders()->folderAtIndex(0);
        EXPECT_TRUE(_folder->loadNodes());
        TuvDirNode* sub = _folder->folders()->folderAtIndex(0);
        sub->setIsResolved(true);
        sub->setLogicalSize(7);
        sub->setPhysicalSize(70);
        _folder->setIsResolved(true, true);
    }

    // Lists the folder again and gives the texts of the log.
    Texts diff(LogLevel level = LogLevel::info) {
        ModelLogs logs;
        EXPECT_TRUE(_folder->diffNodes());
        return textsOf(logs, level);
    }
    void expectSizes(std::uint64_t logical, std::uint64_t physical) const {
        EXPECT_EQ(_folder->logicalSize(), logical);
        EXPECT_EQ(_folder->physicalSize(), physical);
        EXPECT_EQ(_top->logicalSize(), logical + 1000);
        EXPECT_EQ(_top->physicalSize(), physical + 4096);
    }

    TuvRef<TuvDirNode> _top = folderNode("/top");
    TuvDirNode* _folder = nullptr;
};

TEST_F(MergeFilesTest, AnUnchangedFolderKeepsItsTotals) {
    expectSizes(607, 16454);
    EXPECT_EQ(diff(), (Texts{"[/top/folder]", "[/top/folder]", "Merged [/top/folder]"}));
    EXPECT_EQ(idsOf(_folder->files()), (std::vector<std::uint32_t>{10, 11, 12}));
    expectSizes(607, 16454);
    EXPECT_TRUE(_folder->hasLoadNodes());
    EXPECT_EQ(_folder->folderCount(), 1);
}

TEST_F(MergeFilesTest, AddedRemovedAndChangedFilesTravelToTheRoot) {
    TuvNode* kept = _folder->files()->objectWithINode(11);
    disk->remove("/top/folder/b");
    disk->addFile("/top/folder/d", 9, 50, 512);
    FakeCatalog::Entry* changed = disk->entryOf("/top/folder/c");
    changed->logicalSize = 1;
    changed->physicalSize = 4096;
    changed->name = "C";
    // The fresh node has this folder as its parent already.
    EXPECT_EQ(diff(LogLevel::error), Texts{"Same or Null value"});
    EXPECT_EQ(idsOf(_folder->files()),
              (std::vector<std::uint32_t>{11, 12, 9}));  // the added one behind the sorted ones
    EXPECT_EQ(_folder->files()->objectAtIndex(0), kept);
    EXPECT_EQ(kept->fileName(), "C");
    EXPECT_EQ(_folder->files()->nodeAtIndex(2)->parent(), _folder);
    expectSizes(100 + 1 + 50 + 7, 4096 + 4096 + 512 + 70);
}

TEST_F(MergeFilesTest, SaysWhatItDid) {
    disk->remove("/top/folder/b");
    disk->addFile("/top/folder/d", 9, 50, 512);
    disk->entryOf("/top/folder/c")->logicalSize = 1;
    EXPECT_EQ(diff(), (Texts{"[/top/folder]", "[/top/folder]", "Added [/top/folder/d]", "Merged [/top/folder/c]",
                             "Removed [/top/folder/b]", "Merged [/top/folder]"}));
}

TEST_F(MergeFilesTest, AnEmptyFolderThatStaysEmptyIsNotMerged) {
    for (const char* name : {"a", "b", "c"}) disk->remove(std::string("/top/folder/") + name);
    EXPECT_EQ(diff().back(), "Merged [/top/folder]");
    EXPECT_EQ(diff(), (Texts{"[/top/folder]", "[/top/folder]"}));
    expectSizes(7, 70);
}

TEST_F(MergeFilesTest, SubfoldersStayAsTheyAre) {
    TuvDirNode* sub = _folder->folders()->folderAtIndex(0);
    disk->remove("/top/folder/sub");
    disk->addFolder("/top/folder/other", 21);
    diff();
    EXPECT_EQ(_folder->folderCount(), 1);
    EXPECT_EQ(_folder->folders()->objectAtIndex(0), sub);
}

TEST_F(MergeFilesTest, AnUnreadableFolderListsAsAnEmptyOne) {
    disk->folder("/top/folder").openError = EACCES;
    diff();
    EXPECT_EQ(_folder->fileCount(), 0);
    expectSizes(7, 70);
}

TEST_F(MergeFilesTest, RemovalsLeaveTheArraysDebugLines) {
    for (const char* name : {"b", "a"}) disk->remove(std::string("/top/folder/") + name);
    ModelLogs logs(LogLevel::debug);
    _folder->diffNodes();
    Texts texts;
    for (const LogCapture::Line& line : logs->lines())
        if (line.selector == "removeObjectAtIndex") texts.push_back(line.text);
    EXPECT_EQ(texts, (Texts{"/top/folder/b, index 0", "/top/folder/a, index 1"}));
}

}  // namespace
}  // namespace kavaro
