#include <errno.h>

#include "scan/ScanTest.h"

namespace kavaro {
namespace {

constexpr double kDateOf2001 = 1000000000 + 2082844800.0;  // FakeCatalog::kDefaultDate, counted from 1904

class ListingTest : public ScanTest {
  protected:
    ListingTest() { disk->addFolder("/root", 1); }
    void addFiles(int count) {
        for (int i = 0; i < count; ++i)
            disk->addFile("/root/f" + std::to_string(i), 1000 + static_cast<std::uint32_t>(i), 1, 512);
    }

    TuvRef<TuvDirNode> _root = folderNode("/root");
};

TEST_F(ListingTest, EntriesBecomeNodes) {
    disk->addFile("/root/file", 11, 100, 4096);
    disk->addFolder("/root/folder", 12, FakeCatalog::kDefaultDate + 5);
    ASSERT_TRUE(_root->loadNodes());
    ASSERT_EQ(_root->fileCount(), 1);
    const TuvNode* file = _root->files()->nodeAtIndex(0);
    EXPECT_EQ(file->fileName(), "file");
    EXPECT_EQ(file->filePath(), "/root/file");
    EXPECT_EQ(file->inode(), 11u);
    EXPECT_EQ(file->flags(), TuvNode::kFile | TuvNode::kResolved);
    EXPECT_EQ(file->logicalSize(), 100u);
    EXPECT_EQ(file->physicalSize(), 4096u);
    EXPECT_EQ(file->contentModDate(), kDateOf2001);
    EXPECT_EQ(file->parent(), _root.get());
    EXPECT_EQ(file->retainCount(), 1u);
    ASSERT_EQ(_root->folderCount(), 1);
    const TuvDirNode* folder = _root->folders()->folderAtIndex(0);
    EXPECT_EQ(folder->fileName(), "folder");
    EXPECT_EQ(folder->inode(), 12u);
    EXPECT_EQ(folder->flags(), TuvNode::kFolder);
    EXPECT_EQ(folder->logicalSize(), 0u);
    EXPECT_EQ(folder->physicalSize(), 0u);
    EXPECT_EQ(folder->contentModDate(), kDateOf2001 + 5);
    EXPECT_EQ(folder->parent(), _root.get());
    EXPECT_EQ(folder->childrenCount(), 0);
    EXPECT_EQ(_root->flags(), TuvNode::kFolder | TuvNode::kHasLoaded);
    EXPECT_EQ(_root->logicalSize(), 0u);  // resolving sums
}

TEST_F(ListingTest, SeveralCallsInTheOrderOfTheDisk) {
    for (const bool withTheEnd : {true, false}) {  // the last entries come with the end of the listing, or before it
        disk->addFolder("/root", 1).lastEntriesWithNoMoreItems = withTheEnd;
        disk->folder("/root").entries.clear();
        Texts files, folders;
        for (int i = 0; i < 50; ++i) {
            const std::string name = std::to_string((i * 7) % 50);
            if (i % 5 == 0) {
                disk->addFolder("/root/" + name, 100 + static_cast<std::uint32_t>(i));
            } else {
                disk->addFile("/root/" + name, 100 + static_cast<std::uint32_t>(i), 1, 1);
            }
            (i % 5 == 0 ? folders : files).push_back(name);
        }
        auto root = folderNode("/root");
        ASSERT_TRUE(root->loadNodes());
        EXPECT_EQ(namesOf(root->files()), files);
        EXPECT_EQ(namesOf(root->folders()), folders);
    }
    EXPECT_EQ(disk->openIterators(), 0);
}

TEST_F(ListingTest, NoEntryIsLostAtTheEdgesOfACall) {
    for (int count : {1, 15, 16, 17, 31, 32, 33}) {
        disk->folder("/root").entries.clear();
        addFiles(count);
        auto root = folderNode("/root");
        ASSERT_TRUE(root->loadNodes());
        EXPECT_EQ(root->fileCount(), count);
    }
}

TEST_F(ListingTest, AnEmptyFolderIsLoaded) {
    EXPECT_TRUE(_root->loadNodes());
    EXPECT_TRUE(_root->hasLoadNodes());
    EXPECT_EQ(_root->childrenCount(), 0);
    EXPECT_EQ(missed(), Texts{});
}

TEST_F(ListingTest, ASecondLoadDoesNothing) {
    addFiles(3);
    TuvDirNode::resetStatInfo();
    EXPECT_TRUE(_root->loadNodes());
    EXPECT_FALSE(_root->loadNodes());
    EXPECT_EQ(_root->fileCount(), 3);
    EXPECT_EQ(disk->listedPaths(), Texts{"/root"});
    EXPECT_EQ(TuvDirNode::reportStatInfo().rfind("1 hits in ", 0), 0u);
}

TEST_F(ListingTest, IntoOtherArraysItListsAgainAndAppends) {
    addFiles(2);
    disk->addFolder("/root/sub", 20);
    ASSERT_TRUE(_root->loadNodes());
    TuvDirNode::resetStatInfo();
    auto files = make<TuvObjectArray>();
    auto folders = make<TuvObjectArray>();
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(_root->loadNodes(files.get(), folders.get()));
    EXPECT_EQ(namesOf(files.get()), (Texts{"f0", "f1", "f0", "f1"}));
    EXPECT_EQ(namesOf(folders.get()), (Texts{"sub", "sub"}));
    EXPECT_EQ(files->objectAtIndex(0)->retainCount(), 1u);
    EXPECT_EQ(_root->fileCount(), 2);
    EXPECT_EQ(TuvDirNode::reportStatInfo(), "0 hits in  0.000000 ms");
}

TEST_F(ListingTest, AnErrorPartwayKeepsWhatWasRead) {
    addFiles(40);
    disk->folder("/root").failAfter = 32;
    disk->folder("/root").entriesWithError = 5;  // dropped
    ModelLogs logs;
    EXPECT_TRUE(_root->loadNodes());
    EXPECT_TRUE(_root->hasLoadNodes());
    EXPECT_EQ(_root->fileCount(), 32);
    EXPECT_EQ(textsOf(logs, LogLevel::error), Texts{});
    EXPECT_EQ(missed(), Texts{"/root: read error"});
    EXPECT_EQ(disk->openIterators(), 0);
}

TEST_F(ListingTest, EntriesThatCannotBeReadAreReported) {
    addFiles(3);
    disk->folder("/root").unreadableEntries = 2;
    EXPECT_TRUE(_root->loadNodes());
    EXPECT_EQ(_root->fileCount(), 3);
    EXPECT_EQ(missed(), Texts{"/root: permission"});
    EXPECT_EQ(missed(), Texts{});  // told once
}

TEST_F(ListingTest, WhatIsNoFolderIsLeftAlone) {
    disk->addFile("/root/file", 11, 1, 1);
    auto node = folderNode("/root/file");
    EXPECT_TRUE(node->loadNodes());
    EXPECT_FALSE(node->hasLoadNodes());
    EXPECT_EQ(node->childrenCount(), 0);
}

TEST_F(ListingTest, AMissingFolderIsTriedTwiceAndLoadedEmpty) {
    auto node = folderNode("/root/gone");
    ModelLogs logs;
    EXPECT_TRUE(node->loadNodes());
    EXPECT_TRUE(node->hasLoadNodes());
    EXPECT_EQ(textsOf(logs, LogLevel::info), Texts{"Trying \":root:gone\""});
    EXPECT_EQ(textsOf(logs, LogLevel::error), Texts{"Can't get the FSRef on \":root:gone\". This is bad !!!"});
    EXPECT_EQ(disk->referencePaths(), (Texts{"/root/gone", ":root:gone"}));
    EXPECT_EQ(missed(), Texts{":root:gone: vanished"});
}

TEST_F(ListingTest, ASlashInANameStandsOnTheDiskAsAColon) {
    disk->addFolder("/root/a:b", 12);
    disk->addFile("/root/a:b/file", 13, 1, 1);
    TuvRef<TuvDirNode> node = folderNode("a/b", 12);
    node->setParent(_root.get());
    ModelLogs logs;
    EXPECT_TRUE(node->loadNodes());
    EXPECT_EQ(textsOf(logs, LogLevel::info), Texts{"Trying \"/root/a:b\""});
    EXPECT_EQ(textsOf(logs, LogLevel::error), Texts{});
    EXPECT_EQ(node->fileName(), "a:b");
    EXPECT_EQ(namesOf(node->files()), Texts{"file"});
}

TEST_F(ListingTest, APathBeyondTheLongestIsSaidToBeTooLong) {
    const std::string longest = "/" + std::string(1022, 'x');
    ModelLogs logs;
    auto tooLong = folderNode(longest + "y");
    EXPECT_TRUE(tooLong->loadNodes());
    EXPECT_TRUE(tooLong->hasLoadNodes());
    EXPECT_EQ(textsOf(logs, LogLevel::error), Texts{"Path too long (1024 bytes) !!!"});
    EXPECT_EQ(tooLong->fileName(), longest + "y");
    logs->clear();
    folderNode(longest)->loadNodes();
    EXPECT_EQ(textsOf(logs, LogLevel::info), Texts{"Trying \":" + longest.substr(1) + "\""});
    EXPECT_EQ(textsOf(logs, LogLevel::error),
              Texts{"Can't get the FSRef on \":" + longest.substr(1) + "\". This is bad !!!"});
}

TEST_F(ListingTest, ALongPathThatIsThereIsListed) {
    const std::string path = "/" + std::string(2000, 'x');
    disk->addFolder(path, 5);
    disk->addFile(path + "/file", 6, 1, 1);
    auto node = folderNode(path);
    EXPECT_TRUE(node->loadNodes());
    EXPECT_EQ(node->fileCount(), 1);
}

// A path beyond 4096 bytes is there until the first subfolder has been listed; a shorter one stays.
TEST_F(ListingTest, LongPathsAreNotKept) {
    const std::string longName(5000, 'n');
    disk->addFolder("/r", 1);
    disk->addFolder("/r/" + longName, 2);
    disk->addFolder("/r/" + longName + "/sub", 3);
    const auto root = folderNode("/r");
    root->loadNodes();
    TuvDirNode* deep = root->folders()->folderAtIndex(0);
    deep->loadNodes();
    EXPECT_TRUE(deep->hasCachedFilePath());
    TuvDirNode* sub = deep->folders()->folderAtIndex(0);
    sub->loadNodes();
    EXPECT_FALSE(deep->hasCachedFilePath());
    EXPECT_FALSE(sub->hasCachedFilePath());
    EXPECT_TRUE(root->hasCachedFilePath());
    EXPECT_EQ(sub->filePath(), "/r/" + longName + "/sub");
}

TEST_F(ListingTest, ExcludedFoldersStayEmpty) {
    disk->addExcludedFolder("/root/proc", 12, kReasonPseudoFileSystem);
    ModelLogs logs;
    EXPECT_TRUE(_root->loadNodes());
    TuvDirNode* proc = _root->folders()->folderAtIndex(0);
    EXPECT_TRUE(proc->hasLoadNodes());
    EXPECT_EQ(textsOf(logs, LogLevel::info), Texts{"Not scanned (pseudo file system): \"/root/proc\""});
    EXPECT_EQ(missed(), Texts{"/root/proc: pseudo file system"});
    // Asked for by itself.
    auto alone = folderNode("/root/proc");
    EXPECT_TRUE(alone->loadNodes());
    EXPECT_TRUE(alone->hasLoadNodes());
    EXPECT_EQ(alone->childrenCount(), 0);
    EXPECT_EQ(missed(), Texts{"/root/proc: pseudo file system"});
}

class ListingLogTest : public ListingTest {
  protected:
    // The line less its number of milliseconds, which stands behind `before` and is seven wide or more.
    static std::string withoutTime(std::string text, const std::string& before) {
        const std::size_t start = text.find(before) + before.size();
        const std::size_t end = text.find(" ms", start);
        EXPECT_GE(end - start, 7u) << text;
        EXPECT_EQ(text.find('.', start), end - 4) << text;
        return text.erase(start, end - start);
    }
    Texts infoOfListing() {
        ModelLogs logs;
        EXPECT_TRUE(_root->loadNodes());
        Texts texts = textsOf(logs, LogLevel::info);
        if (!texts.empty()) texts[0] = withoutTime(texts[0], " in ");
        return texts;
    }
};

TEST_F(ListingLogTest, SixteenThousandFilesAreNothingSpecial) {
    addFiles(16000);
    EXPECT_EQ(infoOfListing(), Texts{});
}

TEST_F(ListingLogTest, MoreFilesHaveALineAndAnEmptyOne) {
    addFiles(16001);
    EXPECT_EQ(infoOfListing(), (Texts{"16001 files, 0 folders in  ms at 1 \"/root\"", ""}));
}

TEST_F(ListingLogTest, SoDoMoreThanSixteenHundredFolders) {
    for (std::uint32_t i = 0; i < 1600; ++i) disk->addFolder("/root/d" + std::to_string(i), 100 + i);
    auto first = folderNode("/root");
    ModelLogs logs;
    EXPECT_TRUE(first->loadNodes());
    EXPECT_EQ(textsOf(logs, LogLevel::info), Texts{});
    disk->addFolder("/root/last", 9000);
    EXPECT_EQ(infoOfListing(), (Texts{"0 files, 1601 folders in  ms at 1 \"/root\"", ""}));
}

TEST_F(ListingLogTest, DebugLinesAroundAListing) {
    addFiles(5);
    disk->addFolder("/root/sub", 20);
    ModelLogs logs(LogLevel::debug);
    EXPECT_TRUE(_root->loadNodes());
    Texts texts = textsOf(logs, LogLevel::debug);
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[0], "/root");
    EXPECT_EQ(withoutTime(texts[1], "spent "), "spent  ms, [5/8 files, 1/4 foldes] \"/root\"");
}

TEST_F(ListingLogTest, TraceLineForEachEntry) {
    addFiles(1);
    disk->addFolder("/root/sub", 20);
    ModelLogs logs(LogLevel::trace);
    EXPECT_TRUE(_root->loadNodes());
    EXPECT_EQ(logs->count(LogLevel::trace, "[File] /root/f0"), 1);
    EXPECT_EQ(logs->count(LogLevel::trace, "[Folder] /root/sub"), 1);
}

TEST_F(ListingLogTest, TheCountingReaderMakesNoNodes) {
    addFiles(16001);
    ModelLogs logs;
    const int before = TuvNode::instanceCount();
    _root->loadNodes_debugLowLevel();
    EXPECT_EQ(TuvNode::instanceCount(), before);
    EXPECT_FALSE(_root->hasLoadNodes());
    Texts texts = textsOf(logs, LogLevel::info);
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(withoutTime(texts[0], " in "), "16001 files, 0 folders in  ms at 1 \"/root\"");
    EXPECT_EQ(texts[1], "");
}

TEST_F(ListingLogTest, TheCountingReaderNamesErrorsAndTheFolderWithTheFixedInode) {
    addFiles(20);
    disk->folder("/root").failAfter = 16;
    ModelLogs logs;
    folderNode("/root", 1465874)->loadNodes_debugLowLevel();
    EXPECT_EQ(textsOf(logs, LogLevel::info), (Texts{"/root", "Error Input/output error"}));
    logs->clear();
    folderNode("/gone", 7)->loadNodes_debugLowLevel();
    EXPECT_EQ(textsOf(logs, LogLevel::info), Texts{});
}

}  // namespace
}  // namespace kavaro
