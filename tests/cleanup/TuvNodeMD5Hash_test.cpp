#include "cleanup/TuvNodeMD5Hash.h"

#include <gmock/gmock.h>

#include <limits>

#include "cleanup/DuplicatesTest.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kDate = 3786912000.0;  // 2024-01-01 00:00:00 UTC

TEST(HashRecord, OfANodeHasItsInodePathAndDate) {
    auto root = newFolder(1, "/r");
    TuvNode* file = addFile(root.get(), newFile(42, "a:b"));
    file->setContentModDate(kDate);
    const auto record = make<TuvNodeMD5Hash>(file);
    EXPECT_EQ(record->inode(), 42u);
    EXPECT_EQ(record->objectID(), 42u);
    EXPECT_EQ(record->filePath(), "/r/a:b");
    EXPECT_EQ(record->modified(), kDate);
    EXPECT_EQ(record->md5Hash(), "");
    // A slash in a name, which only other systems have, stands as a colon in the path.
    EXPECT_EQ(make<TuvNodeMD5Hash>(addFile(root.get(), newFile(43, "c/d")))->filePath(), "/r/c:d");
    EXPECT_EQ(make<TuvNodeMD5Hash>(newFile(44, "/alone/f").get())->filePath(), "/alone/f");
}

TEST(HashRecord, EmptyHasNothing) {
    const auto record = make<TuvNodeMD5Hash>();
    EXPECT_EQ(record->inode(), 0u);
    EXPECT_FALSE(record->filePath());
    EXPECT_EQ(record->md5Hash(), "");
    record->setFilePath("/x");
    EXPECT_EQ(record->filePath(), "/x");
    record->setFilePath(std::nullopt);
    EXPECT_FALSE(record->filePath());
}

TEST(HashRecord, DescribesItself) {
    EXPECT_EQ(newRecord(42, "abc", kDate, "/r/x")->description(),
              "inode=\"000042\", md5Hash=\"abc\", modified=\"2024-01-01 00:00:00 +0000\", filePath=\"/r/x\"");
    EXPECT_EQ(make<TuvNodeMD5Hash>()->description(),
              "inode=\"000000\", md5Hash=\"\", modified=\"1904-01-01 00:00:00 +0000\", filePath=\"(null)\"");
}

TEST(HashRecord, TellsOfItselfWhenMade) {
    DuplicatesLogs log(LogLevel::trace);
    make<TuvNodeMD5Hash>();
    const auto lines = log.lines();
    EXPECT_THAT(lines, testing::Contains("TuvNodeMD5Hash init:: " + make<TuvNodeMD5Hash>()->description()));
}

TEST(HashRecord, RefusesMessagesOfTheTool) {
    auto record = newRecord(5, "0123", 0, "/r/x");
    DuplicatesLogs log;
    record->setMD5Hash("md5: /r/x: No such file");
    EXPECT_EQ(record->md5Hash(), "");
    record->setMD5Hash("0123");
    record->setMD5Hash("md5: /r/x: Is a directory");
    EXPECT_EQ(record->md5Hash(), "");
    record->setMD5Hash("error");
    record->setMD5Hash("error: directory");
    EXPECT_EQ(record->md5Hash(), "");
    EXPECT_THAT(
        log.lines(),
        ElementsAre("TuvNodeMD5Hash setMD5Hash: md5: /r/x: No such file, md5Hash=\"error\", filePath=\"/r/x\"",
                    "TuvNodeMD5Hash setMD5Hash: md5: /r/x: Is a directory, md5Hash=\"error: is a directory (link)\", "
                    "filePath=\"/r/x\"",
                    "TuvNodeMD5Hash setMD5Hash: error, md5Hash=\"error\", filePath=\"/r/x\"",
                    "TuvNodeMD5Hash setMD5Hash: error: directory, md5Hash=\"error: is a directory (link)\", "
                    "filePath=\"/r/x\""));
    for (const LogCapture::Line& line : log->lines()) EXPECT_EQ(line.level, LogLevel::error);
    record->setMD5Hash("MD5 in capitals is no message");
    EXPECT_EQ(record->md5Hash(), "MD5 in capitals is no message");
    record->setMD5Hash("");
    EXPECT_EQ(record->md5Hash(), "");
}

TEST(HashRecord, ManyAreLoggedOnRequest) {
    const auto records = recordsOf(newRecord(1, "a"), newRecord(2, "b"));
    DuplicatesLogs log;
    TuvNodeMD5Hash::debugDuplicates(records.get(), "here:");
    EXPECT_THAT(log.lines(), ElementsAre("TuvNodeMD5Hash here:: " + recordAt(records.get(), 0)->description(),
                                         "TuvNodeMD5Hash here:: " + recordAt(records.get(), 1)->description(),
                                         "TuvNodeMD5Hash here:: "));
}

TEST(HashRecordOrder, ByInodeTheNewestFirst) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    const auto records = recordsOf(newRecord(9, "a", 1), newRecord(3, "b", 5), newRecord(9, "c", none),
                                   newRecord(9, "d", 7), newRecord(3, "e", 5), newRecord(0, "f", 1));
    records->sortByFunction(TuvNodeMD5Hash_sortByInode);
    EXPECT_EQ(idsOf(records.get()), (std::vector<std::uint32_t>{0, 3, 3, 9, 9, 9}));
    EXPECT_EQ(recordAt(records.get(), 3)->md5Hash(), "d");
    EXPECT_EQ(recordAt(records.get(), 4)->md5Hash(), "a");
    EXPECT_EQ(recordAt(records.get(), 5)->md5Hash(), "c");
    TuvObject* equal[] = {recordAt(records.get(), 1), recordAt(records.get(), 2)};
    EXPECT_EQ(TuvNodeMD5Hash_sortByInode(&equal[0], &equal[1]), 0);
}

TEST(HashRecordOrder, ByPathWhateverTheCase) {
    const auto records = recordsOf(newRecord(1, "", 0, "/b"), newRecord(2, "", 0, "/A"),
                                   newRecord(3, "", 0, "/\xc3\x84"), newRecord(4, "", 0, "/C"));
    records->sortByFunction(TuvNodeMD5Hash_sortByFilePath);
    EXPECT_EQ(idsOf(records.get()), (std::vector<std::uint32_t>{2, 1, 4, 3}));
    TuvObject* upper = recordAt(records.get(), 0);
    const auto lower = newRecord(5, "", 0, "/a");
    TuvObject* other = lower.get();
    EXPECT_EQ(TuvNodeMD5Hash_sortByFilePath(&upper, &other), 0);
    lower->setFilePath(std::nullopt);
    EXPECT_EQ(TuvNodeMD5Hash_sortByFilePath(&upper, &other), 0);
    EXPECT_EQ(TuvNodeMD5Hash_sortByFilePath(&other, &upper), 0);
}

TEST(HashRecords, OfNodesStandInTheirOrder) {
    auto root = newFolder(1, "/r");
    TuvNode* a = addFile(root.get(), newFile(5, "a"));
    TuvNode* b = addFile(root.get(), newFile(3, "b"));
    DuplicatesLogs log(LogLevel::debug);
    const auto records = TuvNodeMD5Hash::md5HashesFromTuvNodes(arrayOfAll({a, b}).get());
    EXPECT_EQ(idsOf(records.get()), (std::vector<std::uint32_t>{5, 3}));
    EXPECT_EQ(recordAt(records.get(), 1)->filePath(), "/r/b");
    EXPECT_THAT(log.texts(), testing::Contains("2 files"));
}

TEST(HashRecords, FlatGroupsShareTheirMembers) {
    const auto a = newFile(5), b = newFile(3), c = newFile(4);
    auto groups = make<TuvObjectArray>();
    groups->adoptObject(arrayOfAll({a.get(), b.get()}).leak());
    groups->adoptObject(make<TuvObjectArray>().leak());
    groups->adoptObject(arrayOfAll({c.get()}).leak());
    DuplicatesLogs log;
    const auto flat = TuvNodeMD5Hash::flatenArray(groups.get());
    EXPECT_EQ(idsOf(flat.get()), (std::vector<std::uint32_t>{5, 3, 4}));
    EXPECT_EQ(flat->objectAtIndex(0), a.get());
    EXPECT_THAT(log.lines(),
                ElementsAre("TuvNodeMD5Hash flatenArray: 3 chunks of files", "TuvNodeMD5Hash flatenArray: 3 files"));
}

TEST(HashRecords, AreUsedAgainUnlessTheFileIsNewer) {
    const auto same = newFile(5), older = newFile(3), newer = newFile(4), unknown = newFile(9);
    same->setContentModDate(100);
    older->setContentModDate(99);
    newer->setContentModDate(100.5);
    const auto records = recordsOf(newRecord(3, "a", 100), newRecord(4, "b", 100), newRecord(5, "c", 100));
    DuplicatesLogs log;
    const auto nodes = arrayOfAll({unknown.get(), same.get(), newer.get(), older.get()});
    const auto stale = TuvNodeMD5Hash::fileNodesToReload(nodes.get(), records.get());
    EXPECT_EQ(idsOf(stale.get()), (std::vector<std::uint32_t>{9, 4}));
    EXPECT_THAT(log.lines(), ElementsAre("TuvObjectArray fileNodesToReload: Need to figure out 2 hashes out of 4 files "
                                         "in ? ms"));
    EXPECT_EQ(TuvNodeMD5Hash::fileNodesToReload(nodes.get(), make<TuvObjectArray>().get())->count(), 4);
}

TEST(HashRecords, CleaningKeepsTheNewestOfEachInode) {
    const auto records = recordsOf(newRecord(3, "new", 9), newRecord(3, "old", 8), newRecord(3, "older", 7),
                                   newRecord(4, "", 9), newRecord(4, "lost", 8), newRecord(5, "five"));
    DuplicatesLogs log(LogLevel::trace);
    const std::string newest = recordAt(records.get(), 0)->description(),
                      old = recordAt(records.get(), 1)->description();
    log->clear();
    EXPECT_EQ(TuvNodeMD5Hash::cleanedArray(records.get()), 4);
    EXPECT_EQ(idsOf(records.get()), (std::vector<std::uint32_t>{3, 5}));
    EXPECT_EQ(recordAt(records.get(), 0)->md5Hash(), "new");
    std::vector<std::string> own;
    for (const LogCapture::Line& line : log->lines())
        if (line.selector == "cleanedArray") own.push_back(line.text);
    ASSERT_EQ(own.size(), 8u);
    EXPECT_EQ(own[0], "recent inode  ,  " + newest);
    EXPECT_EQ(own[1], "same old inode,  " + old);
    EXPECT_EQ(own[2], "recent inode  ,  " + newest);
    EXPECT_TRUE(own[4].starts_with("no hash for [inode=\"000004\""));
    EXPECT_EQ(own[5], "recent inode  ,  " + newest);
    EXPECT_EQ(own[7], "removed 4 from 6 files");
}

TEST(HashRecords, CleaningTakesALeadingInodeOfZeroForARepeat) {
    const auto records = recordsOf(newRecord(0, "zero"), newRecord(0, "zero"), newRecord(1, "one"));
    EXPECT_EQ(TuvNodeMD5Hash::cleanedArray(records.get()), 2);
    EXPECT_EQ(idsOf(records.get()), (std::vector<std::uint32_t>{1}));
    DuplicatesLogs log;
    EXPECT_EQ(TuvNodeMD5Hash::cleanedArray(records.get()), 0);
    EXPECT_EQ(TuvNodeMD5Hash::cleanedArray(make<TuvObjectArray>().get()), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
}  // namespace kavaro
