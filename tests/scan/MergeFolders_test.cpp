#include "scan/ScanTest.h"

namespace kavaro {
namespace {

// /top (1) / folder (2) with the subfolders 12, 10 and 11 of 100, 200 and 300 bytes, and a file of 7.
class MergeFoldersTest : public ScanTest {
  protected:
    MergeFoldersTest() {
        for (const std::uint32_t inode : {12u, 10u, 11u}) {
            TuvDirNode* sub = addFolder(_folder, newFolder(inode, "sub" + std::to_string(inode)));
            addFile(sub, newFile(inode + 100, "inside", (inode == 12 ? 1u : inode - 8u) * 100, 4096));
            sub->setIsResolved(true);
        }
        addFile(_folder, newFile(3, "file", 7, 512));
        addFile(_top.get(), newFile(4, "above", 1000, 1024));
        _folder->setIsResolved(true, true);
        expectSizes(607, 12800, 1607, 13824);
    }

    void expectSizes(std::uint64_t logical, std::uint64_t physical, std::uint64_t topLogical,
                     std::uint64_t topPhysical) const {
        EXPECT_EQ(_folder->logicalSize(), logical);
        EXPECT_EQ(_folder->physicalSize(), physical);
        EXPECT_EQ(_top->logicalSize(), topLogical);
        EXPECT_EQ(_top->physicalSize(), topPhysical);
    }
    // Merges a listing of folders with these inodes and gives the texts of the log.
    Texts merge(const std::vector<std::uint32_t>& inodes, bool expected) {
        auto fresh = make<TuvObjectArray>();
        for (const std::uint32_t inode : inodes) {
            auto folder = newFolder(inode, "fresh" + std::to_string(inode));
            folder->setParent(_folder);
            fresh->adoptObject(folder.leak());
        }
        ModelLogs logs;
        EXPECT_EQ(_folder->mergeFolders(fresh.get()), expected);
        return textsOf(logs, LogLevel::info);
    }

    TuvRef<TuvDirNode> _top = folderNode("/top");
    TuvDirNode* _folder = addFolder(_top.get(), newFolder(2, "folder"));
};

TEST_F(MergeFoldersTest, ThoseThatStayKeepTheirNodesAndNames) {
    TuvDirNode* kept = _folder->folders()->folderAtIndex(0);
    EXPECT_EQ(merge({10, 12, 11}, true), (Texts{"[/top/folder]", "Merge [/top/folder/fresh10]",
                                                "Merge [/top/folder/fresh11]", "Merge [/top/folder/fresh12]"}));
    EXPECT_EQ(idsOf(_folder->folders()), (std::vector<std::uint32_t>{10, 11, 12}));
    EXPECT_EQ(_folder->folders()->objectAtIndex(2), kept);
    EXPECT_EQ(kept->fileName(), "sub12");
    EXPECT_EQ(kept->fileCount(), 1);
    expectSizes(607, 12800, 1607, 13824);
    EXPECT_TRUE(_top->isResolved());
}

TEST_F(MergeFoldersTest, ARemovedOneMovesFolderAndAncestorsInOppositeDirections) {
    EXPECT_EQ(merge({10, 12}, true),
              (Texts{"[/top/folder]", "Merge [/top/folder/fresh10]", "Merge [/top/folder/fresh12]",
                     "Removed [/top/folder/sub11]", "Merged [/top/folder]"}));
    EXPECT_EQ(idsOf(_folder->folders()), (std::vector<std::uint32_t>{10, 12}));
    expectSizes(607 + 300, 12800 + 4096, 1607 - 300, 13824 - 4096);
    EXPECT_TRUE(_folder->isResolved());
    // Resolving the folder brings both in line again.
    _folder->setIsResolved(true, true);
    expectSizes(307, 8704, 1307, 9728);
}

TEST_F(MergeFoldersTest, AnAddedOneLeavesAllAboveItUnresolved) {
    EXPECT_EQ(merge({10, 9, 12, 11, 13}, false),
              (Texts{"[/top/folder]", "Added [/top/folder/fresh9]", "Merge [/top/folder/fresh10]",
                     "Merge [/top/folder/fresh11]", "Merge [/top/folder/fresh12]", "Added [/top/folder/fresh13]",
                     "Merged [/top/folder]"}));
    // Behind the sorted ones.
    EXPECT_EQ(idsOf(_folder->folders()), (std::vector<std::uint32_t>{10, 11, 12, 9, 13}));
    EXPECT_EQ(_folder->folders()->nodeAtIndex(3)->parent(), _folder);
    EXPECT_FALSE(_folder->isResolved());
    EXPECT_FALSE(_top->isResolved());
    expectSizes(0, 0, 0, 0);
}

TEST_F(MergeFoldersTest, AddedAndRemovedAtOnce) {
    merge({13}, false);
    EXPECT_EQ(idsOf(_folder->folders()), std::vector<std::uint32_t>{13});
    EXPECT_FALSE(_top->isResolved());
    expectSizes(0, 0, 0, 0);
}

TEST_F(MergeFoldersTest, AListingOfNoneRemovesAll) {
    EXPECT_EQ(merge({}, true).back(), "Merged [/top/folder]");
    EXPECT_EQ(_folder->folderCount(), 0);
    expectSizes(607 + 600, 12800 + 12288, 1607 - 600, 13824 - 12288);
    EXPECT_EQ(merge({}, true), Texts{"[/top/folder]"});
}

TEST_F(MergeFoldersTest, AFolderWithoutAParentIsMergedToo) {
    auto alone = folderNode("/alone");
    addFolder(alone.get(), newFolder(5, "sub"));
    auto fresh = make<TuvObjectArray>();
    fresh->adoptObject(newFolder(6, "new").leak());
    ModelLogs logs;
    EXPECT_FALSE(alone->mergeFolders(fresh.get()));
    EXPECT_EQ(textsOf(logs, LogLevel::info),
              (Texts{"[/alone]", "Added [new]", "Removed [/alone/sub]", "Merged [/alone]"}));
    EXPECT_EQ(alone->folders()->nodeAtIndex(0)->filePath(), "/alone/new");
}

}  // namespace
}  // namespace kavaro
