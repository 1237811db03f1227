#include "EventTest.h"
#include "LogCapture.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A batch as it is taken: through the rules of arrival.
class CoalescingTest : public testing::Test {
  protected:
    void add(TuvRef<TuvFSEvent> event) { TuvFSEvent::addEvent(event.leak(), batch.get(), nullptr); }
    std::vector<std::string> deleted() {
        TuvFSEvent::coalesce_DELETE(batch.get());
        return textsOf(*batch);
    }
    std::vector<std::string> createdFolders() {
        TuvFSEvent::coalesce_CREATE_DIR(batch.get());
        return textsOf(*batch);
    }
    std::vector<std::string> updated() {
        TuvFSEvent::coalesce_CREATE_MODIFY_RENAME(batch.get());
        return textsOf(*batch);
    }

    TuvRef<TuvObjectArray> batch = make<TuvObjectArray>();
};

TEST_F(CoalescingTest, EmptyBatches) {
    EXPECT_THAT(deleted(), IsEmpty());
    EXPECT_THAT(createdFolders(), IsEmpty());
    EXPECT_THAT(updated(), IsEmpty());
    TuvFSEvent::processItems(batch.get());
}

TEST_F(CoalescingTest, ADeletedFolderTakesWhatWasBelowIt) {
    add(newEvent("DELETE", 9, "/a/b"));
    add(newEvent("DELETE", 1, "/a/b/c"));
    add(newEvent("MODIFIED", 2, "/a/b/d"));
    add(newEvent("CREATE_FILE", 3, "/a/bc"));  // begins alike
    add(newEvent("MODIFIED", 4, "/a"));
    add(newEvent("MODIFIED", 5, "/A/b/c"));  // another case
    EXPECT_THAT(deleted(), ElementsAre("MODIFIED 4 /a", "MODIFIED 5 /A/b/c", "DELETE 9 /a/b"));
}

// For who wants to know of every entry that is still there.
TEST_F(CoalescingTest, FoldersThatStandForWhatIsWithinThemAlone) {
    add(newEvent("DELETE", 9, "/a/b"));
    add(newEvent("DELETE", 1, "/a/b/c"));
    add(newEvent("DELETE", 2, "/a/b.db"));
    add(newEvent("MODIFIED", 3, "/a/bc"));
    add(newEvent("MODIFIED", 4, "/a/b"));  // made again
    add(newRename(5, "/a/b/e", "/a/e"));
    add(newEvent("CREATE_FILE", 6, "/a/b/f"));
    add(newEvent("CREATE_DIR", 10, "/n"));
    add(newEvent("CREATE_FILE", 11, "/n/o"));
    add(newEvent("CREATE_FILE", 12, "/no"));
    add(newEvent("CREATE_FILE", 13, "/n/p"));
    add(newRename(13, "/n/p", "/p"));
    add(newEvent("MODIFIED", 13, "/p"));
    add(newRename(14, "/n/q", "/n/r"));
    add(newEvent("CREATE_DIR", 15, "/"));
    add(newEvent("CREATE_DIR", 16, "/s"));
    TuvFSEvent::coalesce_DELETE(batch.get(), TuvFSEvent::Covers::within);
    TuvFSEvent::coalesce_CREATE_DIR(batch.get(), TuvFSEvent::Covers::within);
    EXPECT_THAT(textsOf(*batch),
                ElementsAre("DELETE 2 /a/b.db", "MODIFIED 3 /a/bc", "MODIFIED 4 /a/b", "RENAME 5 /a/b/e -> /a/e",
                            "CREATE_FILE 6 /a/b/f", "DELETE 9 /a/b", "CREATE_DIR 10 /n", "CREATE_FILE 12 /no",
                            "CREATE_FILE 13 /n/p [RENAME 13 /n/p -> /p, MODIFIED 13 /p]", "CREATE_DIR 15 /"));
}

TEST_F(CoalescingTest, ADeletionWithChildrenTakesNothing) {
    add(newEvent("DELETE", 1, "/a"));
    add(newEvent("CREATE_DIR", 1, "/a"));
    add(newEvent("DELETE", 2, "/a/b"));
    add(newEvent("DELETE", 3, "/a/b/c"));
    EXPECT_THAT(deleted(), ElementsAre("DELETE 1 /a [CREATE_DIR 1 /a]", "DELETE 2 /a/b"));
}

TEST_F(CoalescingTest, DeletedFoldersWithinEachOther) {
    for (std::uint32_t depth = 1; depth <= 20; ++depth) {
        std::string path;
        for (std::uint32_t level = 0; level < depth; ++level) path += "/d";
        add(newEvent("DELETE", 100 - depth, path));
    }
    EXPECT_THAT(deleted(), ElementsAre("DELETE 99 /d"));
}

TEST_F(CoalescingTest, EventsWithoutAPathStay) {
    add(newEvent("DELETE", 1, {}));
    add(newEvent("DELETE", 2, {}));
    add(newEvent("MODIFIED", 3, {}));
    EXPECT_EQ(deleted().size(), 3u);
}

TEST_F(CoalescingTest, TheEmptyPathIsTheBeginningOfAll) {
    add(newEvent("MODIFIED", 1, "/a"));
    add(newEvent("DELETE", 2, ""));
    EXPECT_THAT(deleted(), ElementsAre("DELETE 2 "));
}

TEST_F(CoalescingTest, ABatchIsByInodeAgain) {
    for (std::uint32_t inode : {3u, 0x80000001u, 1u, 2u}) batch->addObject(newEvent("MODIFIED", inode, "/a").get());
    EXPECT_THAT(deleted(), ElementsAre("MODIFIED 2147483649 /a", "MODIFIED 1 /a", "MODIFIED 2 /a", "MODIFIED 3 /a"));
}

TEST_F(CoalescingTest, ACreatedFolderTakesWhatComesBehindIt) {
    add(newEvent("CREATE_FILE", 1, "/a/first"));  // before the folder, by inode
    add(newEvent("CREATE_DIR", 2, "/a"));
    add(newEvent("CREATE_FILE", 3, "/a/second"));
    add(newEvent("DELETE", 4, "/a/third"));
    add(newEvent("CREATE_DIR", 5, "/b"));
    add(newEvent("MODIFIED", 5, "/b"));
    add(newEvent("CREATE_FILE", 6, "/b/file"));
    EXPECT_THAT(createdFolders(), ElementsAre("CREATE_FILE 1 /a/first", "CREATE_DIR 2 /a",
                                              "CREATE_DIR 5 /b [MODIFIED 5 /b]", "CREATE_FILE 6 /b/file"));
}

TEST_F(CoalescingTest, CreatedAndModifiedIsUpdated) {
    add(newEvent("CREATE_FILE", 1, "/a"));
    add(newEvent("MODIFIED", 1, "/b"));
    add(newEvent("MODIFIED", 1, "/c"));
    EXPECT_THAT(updated(), ElementsAre("UPDATED 1 /c"));
    EXPECT_EQ(eventAt(*batch, 0)->type(), 100);
    EXPECT_EQ(eventAt(*batch, 0)->childEvents(), nullptr);
}

TEST_F(CoalescingTest, CreatedAndRenamedIsUpdatedAtTheDestination) {
    add(newEvent("CREATE_DIR", 1, "/a"));
    add(newEvent("MODIFIED", 1, "/a"));
    add(newRename(1, "/a", "/b"));
    EXPECT_THAT(updated(), ElementsAre("UPDATED 1 /b"));
}

TEST_F(CoalescingTest, TheRestIsLeftAsItIs) {
    add(newEvent("MODIFIED", 1, "/a"));
    add(newEvent("MODIFIED", 1, "/a"));
    add(newEvent("CREATE_FILE", 2, "/b"));
    add(newRename(3, "/c", "/d"));
    add(newEvent("MODIFIED", 3, "/d"));
    add(newEvent("CREATE_FILE", 4, "/e"));
    auto unknown = make<TuvFSEvent>(9);
    unknown->setInode(4);
    unknown->setDevice(kDevice);
    add(std::move(unknown));
    EXPECT_THAT(updated(), ElementsAre("MODIFIED 1 /a", "CREATE_FILE 2 /b", "RENAME 3 /c -> /d [MODIFIED 3 /d]",
                                       "CREATE_FILE 4 /e [? 4 ]"));
}

TEST_F(CoalescingTest, ARenameWithoutDestinationLeavesNoPath) {
    add(newEvent("CREATE_FILE", 1, "/a"));
    add(newEvent("RENAME", 1, "/a"));
    EXPECT_THAT(updated(), ElementsAre("UPDATED 1 "));
    EXPECT_EQ(eventAt(*batch, 0)->filePath().data(), nullptr);
}

// A plain walk from each parent to the end would take hours.
TEST_F(CoalescingTest, ManyParentsThatTakeNothing) {
    constexpr std::uint32_t kEvents = 200000;
    for (std::uint32_t inode = 0; inode < kEvents; ++inode) {
        std::string path = "/";
        for (int bit = 0; bit < 18; ++bit) path += inode >> bit & 1 ? 'X' : 'x';
        batch->adoptObject(newEvent("DELETE", inode, path).leak());
    }
    EXPECT_EQ(deleted().size(), kEvents);
}

TEST(CoalescingLogTest, WhatPassesSay) {
    LogCapture capture(LogLevel::trace);
    auto batch = make<TuvObjectArray>();
    auto add = [&](TuvRef<TuvFSEvent> event) { TuvFSEvent::addEvent(event.leak(), batch.get(), nullptr); };
    add(newEvent("DELETE", 1, "/a"));
    add(newEvent("DELETE", 2, "/a/b"));
    add(newEvent("CREATE_DIR", 3, "/c"));
    add(newEvent("CREATE_FILE", 4, "/c/d"));
    add(newEvent("CREATE_FILE", 5, "/e"));
    add(newEvent("MODIFIED", 5, "/e"));
    capture.clear();
    TuvFSEvent::coalesce_DELETE(batch.get());
    TuvFSEvent::coalesce_CREATE_DIR(batch.get());
    TuvFSEvent::coalesce_CREATE_MODIFY_RENAME(batch.get());
    TuvFSEvent::processItems(batch.get());
    std::vector<std::string> texts;
    for (const LogCapture::Line& line : capture.lines())
        if (line.component == "TuvFSEvent" && line.level > LogLevel::trace) texts.push_back(line.text.substr(0, 22));
    EXPECT_THAT(texts,
                ElementsAre("5 events", "Parent: TuvFSEvent ino", "Found parent for: TuvF", "removed 1",
                            testing::StartsWith("4 left, in "), "4 events", "Parent: TuvFSEvent ino",
                            "Found parent for: TuvF", "removed 1", testing::StartsWith("3 left, in "), "3 events",
                            testing::StartsWith("3 left, in "), testing::StartsWith("3 items, 0 child items")));
    EXPECT_EQ(capture.count(LogLevel::trace, "type=\"UPDATED\";"), 1);
}

}  // namespace
}  // namespace kavaro
