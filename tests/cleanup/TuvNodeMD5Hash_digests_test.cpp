#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>

#include "TempFolder.h"
#include "cleanup/DuplicatesTest.h"
#include "platform/MD5.h"
#include "support/StringHelpers.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string digestOf(std::string_view content) {
    return md5Text(md5Of(bytesOf(content)));
}

TuvRef<TuvObjectArray> recordsAt(const std::vector<std::string>& paths) {
    auto records = make<TuvObjectArray>();
    std::uint32_t inode = 1;
    for (const std::string& path : paths) records->adoptObject(newRecord(inode++, "", 0, path).leak());
    return records;
}

std::vector<std::string> digestsOf(const TuvObjectArray* records) {
    std::vector<std::string> digests;
    for (int i = 0; i < records->count(); ++i) digests.push_back(recordAt(records, i)->md5Hash());
    return digests;
}

TEST(MD5Tool, WritesWhatTheProgramWrites) {
    TempFolder folder;
    const std::string a = folder.write("a", "abc"), b = folder.write("b b", "");
    const std::string ofA = digestOf("abc"), ofB = digestOf("");
    EXPECT_EQ(md5ToolOutput({a, b}), "MD5 (" + a + ") = " + ofA + "\nMD5 (" + b + ") = " + ofB + "\n");
    EXPECT_EQ(md5ToolOutput({b, folder.path("none"), folder.path(), a}),
              "MD5 (" + b + ") = " + ofB + "\nMD5 (" + a + ") = " + ofA + "\n");
    EXPECT_EQ(md5ToolOutput({"-q", a, b}), ofA + "\n" + ofB + "\n");
    EXPECT_EQ(md5ToolOutput({"-q", folder.path("none")}), "");
    EXPECT_EQ(md5ToolOutput({}), "");
    EXPECT_EQ(md5ToolOutput({"-q"}), "");
}

TEST(MD5Tool, StandsInForAMissingProgram) {
    ASSERT_NE(access(kMD5Tool, X_OK), 0);
    TempFolder folder;
    const std::string file = folder.write("file", "abc");
    registerMD5Tool();
    EXPECT_EQ(stringFromTask(kMD5Tool, {"-q", file}), digestOf("abc") + "\n");
}

TEST(Digests, OfOneFile) {
    TempFolder folder;
    auto record = newRecord(1, "old", 0, folder.write("file", "abc"));
    record->loadMD5Hash();
    EXPECT_EQ(record->md5Hash(), digestOf("abc"));
    record->setFilePath(folder.path("none"));
    record->loadMD5Hash();
    EXPECT_EQ(record->md5Hash(), "");
    record->setFilePath(std::nullopt);
    record->loadMD5Hash();
    EXPECT_EQ(record->md5Hash(), "");
}

TEST(Digests, OfManyFilesInBatches) {
    TempFolder folder;
    std::vector<std::string> paths, wanted;
    for (int i = 0; i < 45; ++i) {
        const std::string content(static_cast<std::size_t>(i) * 100, static_cast<char>('a' + i % 26));
        // Against the order of the paths.
        paths.push_back(folder.write((i % 2 ? "B" : "a") + std::to_string(99 - i), content));
        wanted.push_back(digestOf(content));
    }
    const auto records = recordsAt(paths);
    DuplicatesLogs log(LogLevel::debug);
    TuvNodeMD5Hash::loadMD5Hash(records.get());
    EXPECT_EQ(digestsOf(records.get()), wanted);
    std::vector<std::string> order;
    for (TuvObject* record : *records) order.push_back(static_cast<TuvNodeMD5Hash*>(record)->filePath().value());
    EXPECT_EQ(order, paths) << "only the batches are sorted";
    std::vector<std::string> own;
    for (const std::string& line : log.lines())
        if (line.starts_with("TuvNodeMD5Hash loadMD5Hash")) own.push_back(line);
    EXPECT_THAT(own, ElementsAre("TuvNodeMD5Hash loadMD5Hash: 45 files, 3 batches of 20",
                                 "TuvNodeMD5Hash loadMD5Hash: Loaded 45 md5 hash values in ? ms"));
}

TEST(Digests, OfNoFiles) {
    DuplicatesLogs log;
    TuvNodeMD5Hash::loadMD5Hash(nullptr);
    TuvNodeMD5Hash::loadMD5Hash(make<TuvObjectArray>().get());
    EXPECT_THAT(log.texts(), ElementsAre("Loaded 0 md5 hash values in ? ms", "Loaded 0 md5 hash values in ? ms"));
}

TEST(Digests, AFileThatCannotBeReadDoesNotShiftTheOthers) {
    TempFolder folder;
    const std::string a = folder.write("a", "1"), b = folder.path("b"), c = folder.write("c", "3"),
                      d = folder.makeFolder("d");
    const auto records = recordsAt({a, b, c, d});
    recordAt(records.get(), 1)->setMD5Hash("from before");
    DuplicatesLogs log;
    TuvNodeMD5Hash::loadMD5Hash(records.get());
    EXPECT_THAT(digestsOf(records.get()), ElementsAre(digestOf("1"), "", digestOf("3"), ""));
    EXPECT_EQ(log->count(LogLevel::error, "no hash for [" + b + "]"), 1);
    EXPECT_EQ(log->count(LogLevel::error, "no hash for [" + d + "]"), 1);
    EXPECT_EQ(log->count(LogLevel::error, ""), 2);
}

TEST(Digests, NamesThatLookLikeTheToolsLinesDoNotShiftTheOthers) {
    TempFolder folder;
    const std::vector<std::string> names = {
        "a",
        "line\nend",
        "line\n",
        "\n",
        "MD5 (x) = y\nMD5 (z) = w",
        "b) = MD5 (c",
        "b",  // not there: the name before this one begins with its line
        "c",
        " blanks\t ",
        "\"quotes'`$(x)",
        "bytes \xff\xfe",
        "return\r",
        "-q",
        "z",
    };
    std::vector<std::string> paths, wanted;
    for (const std::string& name : names) {
        paths.push_back(folder.path(name));
        if (name != "b") folder.write(name, "content of " + name);
        wanted.push_back(name == "b" ? "" : digestOf("content of " + name));
    }
    const auto records = recordsAt(paths);
    DuplicatesLogs log;
    TuvNodeMD5Hash::loadMD5Hash(records.get());
    EXPECT_EQ(digestsOf(records.get()), wanted);
    EXPECT_EQ(log->count(LogLevel::error, "no hash for"), 1);
}

TEST(Digests, NamesThatCannotExistDoNotStandForOthers) {
    TempFolder folder;
    const std::string a = folder.write("a", "1"), b = folder.write("b", "2");
    const auto records = recordsAt({a, a + std::string(1, '\0') + "x", b, ""});
    recordAt(records.get(), 1)->setMD5Hash("from before");
    TuvNodeMD5Hash::loadMD5Hash(records.get());
    EXPECT_THAT(digestsOf(records.get()), ElementsAre(digestOf("1"), "", digestOf("2"), ""));
}

std::vector<std::vector<std::string>> asked;

TEST(Digests, TheToolIsAskedForSortedBatchesAndForMisleadingNamesAlone) {
    FakeMD5Tool tool([](const std::vector<std::string>& arguments) {
        asked.push_back(arguments);
        return arguments[0] == "-q" ? std::string(" 12345\n\n") : std::string();
    });
    asked.clear();
    const auto records = recordsAt({"/b", "/A", "/x\ny", "/c"});
    DuplicatesLogs log;
    TuvNodeMD5Hash::loadMD5Hash(records.get());
    EXPECT_THAT(asked, ElementsAre(ElementsAre("-q", "/x\ny"), ElementsAre("/A", "/b", "/c")));
    EXPECT_EQ(recordAt(records.get(), 2)->md5Hash(), "12345");
    EXPECT_EQ(log->count(LogLevel::error, "no hash for"), 3);
    asked.clear();
    TuvNodeMD5Hash::loadMD5Hash(recordsAt({"/x\ny"}).get());
    EXPECT_EQ(asked.size(), 1u) << "without a name it would read its standard input";
}

TEST(Digests, ATextOfTheToolForTheSecondOfThreeIsMissing) {
    FakeMD5Tool tool(
        [](const std::vector<std::string>&) { return std::string("  MD5 (/a) = 111 \r\nMD5 (/c) = 333\n"); });
    const auto records = recordsAt({"/a", "/b", "/c"});
    TuvNodeMD5Hash::loadMD5Hash(records.get());
    EXPECT_THAT(digestsOf(records.get()), ElementsAre("111", "", "333"));
}

TEST(Digests, MessagesOfTheToolAreNone) {
    FakeMD5Tool tool([](const std::vector<std::string>& arguments) {
        if (arguments[0] == "-q") return std::string("md5: /a: Is a directory\n");
        return std::string("MD5 (/a) = error reading\nMD5 (/b) = 222");
    });
    const auto records = recordsAt({"/a", "/b"});
    DuplicatesLogs log;
    TuvNodeMD5Hash::loadMD5Hash(records.get());
    EXPECT_THAT(digestsOf(records.get()), ElementsAre("", "222"));
    EXPECT_TRUE(log->contains("error reading, md5Hash=\"error\", filePath=\"/a\""));
    auto record = newRecord(1, "x", 0, "/a");
    record->loadMD5Hash();
    EXPECT_EQ(record->md5Hash(), "");
    EXPECT_TRUE(log->contains("md5: /a: Is a directory, md5Hash=\"error: is a directory (link)\", filePath=\"/a\""));
}

}  // namespace
}  // namespace kavaro
