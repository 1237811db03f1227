#include <gmock/gmock.h>

#include <cmath>
#include <cstdio>
#include <limits>

#include "cleanup/DuplicatesTest.h"

namespace kavaro {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kDate = 3786912000.0;  // 2024-01-01 00:00:00 UTC
constexpr const char* kDigest = "900150983cd24fb0d6963f7d28e17f72";

std::string hexOf(ByteView bytes) {
    std::string text;
    for (std::uint8_t byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

MD5HashHeader headerOf(std::size_t count, std::size_t size) {
    return {{"instanceCount", std::to_string(count)}, {"dataSize", std::to_string(size)}};
}

std::string bytesOfRecord(const TuvNodeMD5Hash& record, signed char compact) {
    ByteBuffer data;
    record.serialize(data, compact);
    return std::string(textOf(data.view()));
}

// The record's bytes field by field.
std::string golden(bool full) {
    return std::string("2a000000")                                                   // inode 42
           + "39303031353039383363643234666230643639363366376432386531376637320000"  // digest, NUL and rest
           + "0000"                                                                  // padding
           + "00000020f636ec41"                                                      // date
           + (full ? std::string("04000000") + "2fc3a961" : std::string());          // path length, path
}

TEST(HashRecordBytes, Full) {
    const auto record = newRecord(42, kDigest, kDate,
                                  "/\xc3\xa9"
                                  "a");
    ByteBuffer data;
    record->serialize(data, 0);
    EXPECT_EQ(hexOf(data.view()), golden(true));
}

TEST(HashRecordBytes, Compact) {
    const auto record = newRecord(42, kDigest, kDate,
                                  "/\xc3\xa9"
                                  "a");
    ByteBuffer data;
    record->serialize(data, 1);
    EXPECT_EQ(hexOf(data.view()), golden(false));
    EXPECT_EQ(data.size(), TuvNodeMD5HashCompactDataSize);
}

TEST(HashRecordBytes, AreAppended) {
    ByteBuffer data;
    data.append("xyz", 3);
    make<TuvNodeMD5Hash>()->serialize(data, 0);
    EXPECT_EQ(data.size(), 3 + TuvNodeMD5HashDataSize);
    EXPECT_EQ(hexOf(data.view().subspan(3)), std::string(2 * TuvNodeMD5HashDataSize, '0'));
}

TEST(HashRecordBytes, ALongDigestIsCut) {
    const std::string longest(33, 'a');
    const auto fits = newRecord(7, longest);
    const auto isCut = newRecord(7, longest + "bc");
    DuplicatesLogs log;
    const std::string bytes = bytesOfRecord(*fits, 1);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(bytesOfRecord(*isCut, 1), bytes);
    EXPECT_THAT(log.lines(), ElementsAre("TuvNodeMD5Hash serialize: 35 is larger than what we can handle(34), inode=7, "
                                         "md5Hash=" +
                                         longest + "bc"));
    EXPECT_EQ(bytes.substr(4, 34), longest + '\0');
}

TEST(HashRecordBytes, OfThreeRecordsAddUp) {
    const auto records = recordsOf(newRecord(1, kDigest, 1, "/234567890"), newRecord(2, kDigest, 2, "x"),
                                   newRecord(3, "", 3, "/" + std::string(599, 'p')));
    recordAt(records.get(), 1)->setFilePath("");
    MD5HashHeader header;
    ByteBuffer full, compact;
    TuvNodeMD5Hash::serialize_TuvObjectArray(records.get(), &header, full);
    EXPECT_EQ(full.size(), 3u * 52 + 610);
    EXPECT_EQ(header, headerOf(3, full.size()));
    TuvNodeMD5Hash::serializeCompact_TuvObjectArray(records.get(), &header, compact, 1);
    EXPECT_EQ(compact.size(), 3u * 48);
    EXPECT_EQ(header, headerOf(3, compact.size()));

    const auto read = TuvNodeMD5Hash::deserialize_TuvObjectArray(headerOf(3, full.size()), full.view());
    ASSERT_TRUE(read);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(recordAt(read.get(), i)->description(), recordAt(records.get(), i)->description());
    const auto readCompact = TuvNodeMD5Hash::deserializeCompact_TuvObjectArray(header, compact.view(), 1);
    ASSERT_TRUE(readCompact);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(recordAt(readCompact.get(), i)->inode(), recordAt(records.get(), i)->inode());
        EXPECT_EQ(recordAt(readCompact.get(), i)->md5Hash(), recordAt(records.get(), i)->md5Hash());
        EXPECT_EQ(recordAt(readCompact.get(), i)->modified(), recordAt(records.get(), i)->modified());
        EXPECT_FALSE(recordAt(readCompact.get(), i)->filePath());
    }
}

TEST(HashRecordBytes, OfNothingAreNotWritten) {
    MD5HashHeader header = {{"instanceCount", "as it was"}};
    ByteBuffer data;
    DuplicatesLogs log;
    TuvNodeMD5Hash::serialize_TuvObjectArray(make<TuvObjectArray>().get(), &header, data);
    TuvNodeMD5Hash::serialize_TuvObjectArray(nullptr, &header, data);
    EXPECT_EQ(header, (MD5HashHeader{{"instanceCount", "as it was"}}));
    EXPECT_TRUE(data.isNull());
    EXPECT_EQ(TuvNodeMD5Hash::deserialize_TuvObjectArray(headerOf(0, 0), data.view()).get(), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre("TuvNodeMD5Hash serializeCompact_TuvObjectArray: Can't serialze 0 objects",
                                         "TuvNodeMD5Hash serializeCompact_TuvObjectArray: Can't serialze 0 objects",
                                         "TuvNodeMD5Hash deserializeCompact_TuvObjectArray: Can't serialze 0 bytes"));
}

TEST(HashRecordBytes, BehindOthersCountThem) {
    const auto records = recordsOf(newRecord(1, kDigest, 1, "/a"));
    MD5HashHeader header;
    ByteBuffer data;
    const std::string before = bytesOfRecord(*newRecord(9, "9", 9, "/b"), 0);
    data.append(before.data(), before.size());
    TuvNodeMD5Hash::serialize_TuvObjectArray(records.get(), &header, data);
    EXPECT_EQ(header, headerOf(1, 2 * before.size()));
    const auto read = TuvNodeMD5Hash::deserialize_TuvObjectArray(header, data.view());
    ASSERT_TRUE(read);
    EXPECT_EQ(idsOf(read.get()), (std::vector<std::uint32_t>{9}));
}

TEST(HashRecordBytes, LargeArraysAreTold) {
    auto records = make<TuvObjectArray>();
    for (std::uint32_t i = 0; i < 8001; ++i) records->adoptObject(newRecord(i, "").leak());
    MD5HashHeader header;
    ByteBuffer data;
    DuplicatesLogs log;
    TuvNodeMD5Hash::serializeCompact_TuvObjectArray(records.get(), &header, data, 1);
    EXPECT_THAT(log.texts(), Contains("large array with 8001 rows, 384048 bytes"));
    records->removeLastObject();
    log->clear();
    data.clear();
    TuvNodeMD5Hash::serializeCompact_TuvObjectArray(records.get(), &header, data, 1);
    EXPECT_FALSE(log->contains("large array"));
}

// "level selector text" of the lines of a class that has one.
std::vector<std::string> wholeLines(DuplicatesLogs& log) {
    static constexpr const char* kLevels[] = {"trace", "debug", "info", "error", "off"};
    std::vector<std::string> lines;
    for (const LogCapture::Line& line : log->lines())
        if (line.component == "TuvNodeMD5Hash")
            lines.push_back(std::string(kLevels[static_cast<int>(line.level)]) + " " + line.selector + " " + line.text);
    return lines;
}

TEST(HashRecordBytes, TellTheirStepsAtTheirLevels) {
    auto records = make<TuvObjectArray>();
    records->addObject(newRecord(7, kDigest, 1, "/a").get());
    DuplicatesLogs log(LogLevel::trace);
    MD5HashHeader header;
    ByteBuffer data;
    TuvNodeMD5Hash::serialize_TuvObjectArray(records.get(), &header, data);
    const std::string writer = "serializeCompact_TuvObjectArray", reader = "deserializeCompact_TuvObjectArray";
    const std::string record = "trace serialize inode=7, md5Hash=" + std::string(kDigest);
    EXPECT_THAT(wholeLines(log),
                ElementsAre("debug " + writer + " 1 objects", record, record, "debug " + writer + " 54 bytes"));
    log->clear();
    const auto read = TuvNodeMD5Hash::deserialize_TuvObjectArray(header, data.view());
    ASSERT_TRUE(read);
    const std::string text = read->objectAtIndex(0)->description();
    const std::vector<std::string> lines = wholeLines(log);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "debug " + reader + " 54 bytes");
    EXPECT_TRUE(lines[1].starts_with("trace init: inode=\"000000\"")) << lines[1];
    EXPECT_EQ(lines[2], "trace deserialize 54 bytes");
    EXPECT_EQ(lines[3], "trace deserialize " + text);
    EXPECT_EQ(lines[4], "debug " + reader + " 1 items");
    log->clear();
    TuvNodeMD5Hash::serialize_TuvObjectArray(nullptr, &header, data);
    EXPECT_THAT(wholeLines(log),
                ElementsAre("debug " + writer + " 0 objects", "error " + writer + " Can't serialze 0 objects"));
    log->clear();
    EXPECT_FALSE(TuvNodeMD5Hash::deserialize_TuvObjectArray(headerOf(1, 53), data.view()));
    EXPECT_EQ(wholeLines(log).back(), "error " + reader + " We got 54 bytes, but the header says 53.");
    EXPECT_FALSE(TuvNodeMD5Hash::deserialize_TuvObjectArray(headerOf(0, 54), data.view()));
    EXPECT_EQ(wholeLines(log).back(), "error " + reader + " What's the number of items ? We got 54 bytes.");
}

TEST(HashRecordReader, ChecksTheHeader) {
    const std::string bytes = bytesOfRecord(*newRecord(1, kDigest, 1, "/a"), 0);
    const ByteView data = bytesOf(bytes);
    const auto read = [&](const MD5HashHeader& header) {
        return static_cast<bool>(TuvNodeMD5Hash::deserialize_TuvObjectArray(header, data));
    };
    DuplicatesLogs log;
    EXPECT_TRUE(read(headerOf(1, 54)));
    EXPECT_TRUE(read({{"instanceCount", " 1"}, {"dataSize", "54 bytes"}, {"more", "x"}}));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_FALSE(read(headerOf(1, 53)));
    EXPECT_FALSE(read({{"instanceCount", "1"}}));
    EXPECT_FALSE(read({{"instanceCount", "1"}, {"dataSize", "-54"}}));
    EXPECT_FALSE(read({{"instanceCount", "1"}, {"dataSize", "99999999999999999999"}}));
    EXPECT_FALSE(read({{"dataSize", "54"}}));
    EXPECT_FALSE(read({{"dataSize", "54"}, {"instanceCount", "-1"}}));
    EXPECT_FALSE(read({{"dataSize", "54"}, {"instanceCount", "one"}}));
    EXPECT_THAT(
        log.texts(),
        ElementsAre("We got 54 bytes, but the header says 53.", "We got 54 bytes, but the header says 0.",
                    "We got 54 bytes, but the header says -54.", "We got 54 bytes, but the header says 2147483647.",
                    "What's the number of items ? We got 54 bytes.", "What's the number of items ? We got 54 bytes.",
                    "What's the number of items ? We got 54 bytes."));
    EXPECT_FALSE(read(headerOf(2, 54)));
    EXPECT_FALSE(read(headerOf(2147483647, 54)));
}

TEST(HashRecordReader, RefusesMessagesInTheDigest) {
    const std::string bytes = bytesOfRecord(*newRecord(1, "Error", 1, "/a"), 0);
    std::string message = bytes;
    message[4] = 'e';
    DuplicatesLogs log;
    const auto read = TuvNodeMD5Hash::deserialize_TuvObjectArray(headerOf(1, bytes.size()), bytesOf(message));
    ASSERT_TRUE(read);
    EXPECT_EQ(recordAt(read.get(), 0)->md5Hash(), "");
    EXPECT_EQ(log->count(LogLevel::error, "error, md5Hash=\"error\""), 1);
}

TEST(HashRecordReader, IgnoresWhatFollowsTheDigestsEnd) {
    std::string bytes = bytesOfRecord(*newRecord(1, "12", 1, "/a"), 0);
    for (std::size_t i = 7; i < 40; ++i) bytes[i] = 'x';
    auto read = TuvNodeMD5Hash::deserialize_TuvObjectArray(headerOf(1, bytes.size()), bytesOf(bytes));
    ASSERT_TRUE(read);
    EXPECT_EQ(recordAt(read.get(), 0)->md5Hash(), "12");
    // Without an end: the field and no more.
    for (std::size_t i = 4; i < 38; ++i) bytes[i] = 'x';
    read = TuvNodeMD5Hash::deserialize_TuvObjectArray(headerOf(1, bytes.size()), bytesOf(bytes));
    ASSERT_TRUE(read);
    EXPECT_EQ(recordAt(read.get(), 0)->md5Hash(), std::string(34, 'x'));
    bytes[5] = '\xff';
    read = TuvNodeMD5Hash::deserialize_TuvObjectArray(headerOf(1, bytes.size()), bytesOf(bytes));
    ASSERT_TRUE(read);
    EXPECT_EQ(recordAt(read.get(), 0)->md5Hash(), "") << "no text";
}

// One record a line, so that all or nothing is seen.
std::string described(const TuvRef<TuvObjectArray>& records) {
    if (!records) return "none";
    std::string text;
    for (TuvObject* record : *records) text += record->description() + "\n";
    return text;
}

TEST(HashRecordReader, GivesAllRecordsOrNone) {
    for (signed char compact = 0; compact < 2; ++compact) {
        const auto records = recordsOf(newRecord(1, kDigest, 1, "/first"), newRecord(2, "", 2, "/2"),
                                       newRecord(3, kDigest, 3, "/" + std::string(600, 'p')));
        MD5HashHeader header;
        ByteBuffer data;
        TuvNodeMD5Hash::serializeCompact_TuvObjectArray(records.get(), &header, data, compact);
        LogCapture log;
        for (std::size_t length = 0; length < data.size(); ++length) {
            const std::vector<std::uint8_t> cut(data.data(), data.data() + length);
            const auto read = TuvNodeMD5Hash::deserializeCompact_TuvObjectArray(headerOf(3, length), cut, compact);
            EXPECT_EQ(described(read), "none") << length;
        }
        EXPECT_EQ(log.count("leads past the end of") > 0, !compact);
    }
}

TEST(HashRecordReader, ABitThatTurnedHurtsNobody) {
    const auto records = recordsOf(newRecord(1, kDigest, 1, "/first"), newRecord(2, "", 2, "/2"));
    MD5HashHeader header;
    ByteBuffer data;
    TuvNodeMD5Hash::serialize_TuvObjectArray(records.get(), &header, data);
    LogCapture log;
    int none = 0;
    for (std::size_t bit = 0; bit < 8 * data.size(); ++bit) {
        std::vector<std::uint8_t> altered(data.data(), data.data() + data.size());
        altered[bit / 8] = static_cast<std::uint8_t>(altered[bit / 8] ^ (1u << bit % 8));
        const auto read = TuvNodeMD5Hash::deserialize_TuvObjectArray(header, altered);
        if (read)
            EXPECT_EQ(read->count(), 2) << bit;
        else
            ++none;
    }
    EXPECT_GT(none, 30) << "most of the bits of the two lengths";
}

TEST(HashRecordReader, AdvancesTheCursorPastARecord) {
    const std::string bytes = "##" + bytesOfRecord(*newRecord(7, "d", 2, "/abc"), 0) + "##";
    int cursor = 2;
    auto record = make<TuvNodeMD5Hash>();
    ASSERT_TRUE(record->deserialize(bytesOf(bytes), &cursor, 0));
    EXPECT_EQ(cursor, 2 + 56);
    EXPECT_EQ(record->filePath(), "/abc");
    EXPECT_EQ(record->inode(), 7u);
    cursor = 2;
    ASSERT_TRUE(record->deserialize(bytesOf(bytes), &cursor, 1));
    EXPECT_EQ(cursor, 2 + 48);
    for (int from : {-1, 60, 61, 1000}) {
        cursor = from;
        EXPECT_FALSE(record->deserialize(bytesOf(bytes), &cursor, 1)) << from;
    }
}

TEST(HashRecordReader, KeepsAnyBytesOfAPathAndAnyDate) {
    const std::string path("/a\0b\n\xff", 6);
    for (double date : {0.0, -1.5, 1e300, std::numeric_limits<double>::infinity(), std::nan("")}) {
        const std::string bytes = bytesOfRecord(*newRecord(0xffffffff, "d", date, path), 0);
        const auto read = TuvNodeMD5Hash::deserialize_TuvObjectArray(headerOf(1, bytes.size()), bytesOf(bytes));
        ASSERT_TRUE(read);
        EXPECT_EQ(recordAt(read.get(), 0)->filePath(), path);
        EXPECT_EQ(recordAt(read.get(), 0)->inode(), 0xffffffff);
        EXPECT_EQ(bytesOfRecord(*recordAt(read.get(), 0), 0), bytes);
    }
}

}  // namespace
}  // namespace kavaro
