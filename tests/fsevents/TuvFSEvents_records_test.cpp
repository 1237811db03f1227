#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <random>

#include "LogCapture.h"
#include "fsevents/Records.h"

namespace kavaro {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// One argument alone, in memory of exactly its size. Without an event when `event` is null.
int dump(const std::string& bytes, int* consumed, TuvFSEvent* event) {
    const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
    return TuvFSEvents_dump_entry(exact.data(), static_cast<int>(exact.size()), consumed, event);
}

TEST(Records, oneByteAfterTheOther) {
    const unsigned char golden[] = {0, 0, 0, 0, 0x4D, 0,    0,    0,                  // create a file, process 77
                                    2, 0, 5, 0, '/',  'a',  '/',  'b',  0,            // path
                                    7, 0, 4, 0, 0x78, 0x56, 0x34, 0x12,               // inode
                                    9, 0, 4, 0, 0x01, 0x08, 0,    0,    0x3F, 0xB3};  // device, end
    RecordReader reader;
    TuvFSEvents_print_event(&reader.listener, golden, sizeof golden);
    EXPECT_THAT(reader.events(), ElementsAre("CREATE_FILE 305419896 /a/b"));
}

TEST(Records, severalInOneBufferInTheirOrder) {
    RecordReader reader;
    reader.read(kernelRecord(0, place("/one", 1)) + kernelRecord(7, place("/two", 2)) +
                kernelRecord(4, place("/one", 1)) + kernelRecord(1, place("/three", 3)) +
                kernelRecord(9, place("/four", 4)));
    EXPECT_THAT(reader.events(),
                ElementsAre("CREATE_FILE 1 /one + MODIFIED", "CREATE_DIR 2 /two", "DELETE 3 /three", "? 4 /four"));
    EXPECT_EQ(reader.listener.eventCount(), 5u);
}

TEST(Records, aRenameHasSourceThenDestination) {
    RecordReader reader;
    reader.read(kernelRecord(3, place("/from", 5) + place("/to", 6, 99)));
    const TuvRef<TuvObjectArray> batch = reader.listener.events().takeAll();
    ASSERT_EQ(batch->count(), 1);
    const auto* event = static_cast<const TuvFSEvent*>(batch->objectAtIndex(0));
    EXPECT_EQ(RecordReader::textOf(*event), "RENAME 5 /from -> 6 /to");
    EXPECT_EQ(event->device(), kTestDevice);
    EXPECT_EQ(event->deviceDestination(), 99u);
}

TEST(Records, typesThatAreNotHandledMakeNoEvent) {
    RecordReader reader;
    for (const int type : {2, 5, 6, 8})
        reader.read(kernelRecord(type, place("/a", 1)) + kernelRecord(0, place("/b", 2)));
    EXPECT_THAT(reader.events(), ElementsAre("CREATE_FILE 2 /b"));
    EXPECT_EQ(reader.listener.eventCount(), 4u);
}

TEST(Records, anUnknownTypeEndsTheBuffer) {
    RecordReader reader;
    for (const int type : {10, 100, -1, 0x7FFFFFFF}) {
        reader.read(kernelRecord(0, place("/a", 1)) + kernelRecord(type, place("/b", 2)) +
                    kernelRecord(0, place("/c", 3)));
        EXPECT_THAT(reader.events(), ElementsAre("CREATE_FILE 1 /a")) << type;
    }
}

TEST(Records, everyArgumentIsTraced) {
    LogCapture log(LogLevel::trace);
    RecordReader reader;
    const std::string user = std::to_string(4'000'000'000u);
    reader.read(kernelRecord(8, argument(1, std::string("/v\0", 3)) + argument(2, std::string("/s\0", 3)) +
                                    argument(3, std::string("/p\0", 3)) + argument(4, bytes32(0xFFFFFFFE)) +
                                    argument(5, bytes32(0xFFFFFFFF) + bytes32(1)) + argument(7, bytes32(42)) +
                                    argument(8, bytes32(0)) + argument(9, bytes32(0x0E000014)) +
                                    argument(10, bytes32(0100644)) + argument(11, bytes32(0)) +
                                    argument(8, bytes32(4'000'000'000u))));
    std::vector<std::string> texts;
    for (const LogCapture::Line& line : log.lines())
        if (line.text.find(" = ") != std::string::npos) texts.push_back(line.text);
    EXPECT_THAT(texts, ElementsAre("vnode = /v", "string = /s", "path = /p", "int32 = -2 (0xfffffffe)",
                                   "int64 = 8589934591 (0x00000001ffffffff)", "inode = 42", "uid = 0 (root)",
                                   "device = 0x0e000014", "mode = 0x81a4", "gid = 0 (root)",
                                   "uid = -294967296 (" + user + ")"));
    EXPECT_THAT(log.texts(), Contains("99 bytes"));
    EXPECT_THAT(log.texts(), Contains("---------------------------------"));
    EXPECT_THAT(log.texts(), Contains("7 bytes, 84 remaining"));
    EXPECT_THAT(reader.events(), IsEmpty());
}

TEST(Records, bytesWithoutAMeaningAreShown) {
    testing::internal::CaptureStdout();
    RecordReader reader;
    reader.read(kernelRecord(
        0, argument(6, std::string("\x01\xFE\0", 3)) + argument(12, "\x10") + argument(6, "") + place("/a", 1)));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "dump_entry() raw    = 01 fe 00 \ndump_entry() finfo   = 10 \ndump_entry() raw    = \n");
    EXPECT_THAT(reader.events(), ElementsAre("CREATE_FILE 1 /a"));
}

TEST(Records, unknownArgumentsAreSkipped) {
    LogCapture log;
    RecordReader reader;
    reader.read(kernelRecord(0, argument(0, "ab") + argument(13, "") + argument(0xFFFF, "c") + place("/a", 1)));
    EXPECT_THAT(log.texts(), ElementsAre("error: entry->type too big 0", "error: entry->type too big 13",
                                         "error: entry->type too big 65535"));
    EXPECT_THAT(reader.events(), ElementsAre("CREATE_FILE 1 /a"));
}

TEST(Records, anArgumentThatIsTooLongEndsItsRecord) {
    LogCapture log;
    RecordReader reader;
    reader.read(kernelRecord(0, place("/a", 1)) + bytes32(0) + bytes32(1) + place("/b", 2) + bytes16(2) + bytes16(500) +
                "/c");
    EXPECT_THAT(log.texts(), ElementsAre("error: entry->len too big 500"));
    EXPECT_THAT(reader.events(), ElementsAre("CREATE_FILE 1 /a", "CREATE_FILE 2 /b"));
    // Data that begins within the bytes that remain and ends behind them.
    int consumed = 0;
    TuvRef<TuvFSEvent> event = make<TuvFSEvent>(0);
    EXPECT_EQ(dump(bytes16(7) + bytes16(4) + "\x01\x02", &consumed, event.get()), -1);
    EXPECT_EQ(consumed, 8);
    EXPECT_EQ(event->inode(), 0u);
}

TEST(Records, oneArgumentAlone) {
    int consumed = 0;
    TuvRef<TuvFSEvent> event = make<TuvFSEvent>(0);
    EXPECT_EQ(dump("\x3F\xB3 and more", &consumed, event.get()), 0xB33F);
    EXPECT_EQ(consumed, 2);
    EXPECT_EQ(dump(argument(7, bytes32(9)) + "more", &consumed, event.get()), 7);
    EXPECT_EQ(consumed, 8);
    EXPECT_EQ(event->inode(), 9u);
    EXPECT_EQ(dump(argument(7, bytes32(9)), &consumed, nullptr), 7);
    EXPECT_EQ(dump(argument(13, "xyz"), &consumed, event.get()), 13);
    EXPECT_EQ(consumed, 7);
    // Numbers that are shorter than they should be.
    EXPECT_EQ(dump(argument(9, "\x05"), &consumed, event.get()), 9);
    EXPECT_EQ(event->device(), 5u);
    for (std::size_t length = 0; length < 8; ++length)
        EXPECT_EQ(dump(argument(7, bytes32(1)).substr(0, length), &consumed, nullptr), -1) << length;
}

TEST(Records, namesAreBytesAndEndWithNUL) {
    LogCapture log;
    RecordReader reader;
    reader.read(kernelRecord(0, place("/\xFF\xFE\n\"", 1)));
    EXPECT_THAT(reader.events(), ElementsAre("CREATE_FILE 1 /\xFF\xFE\n\""));
    EXPECT_THAT(log.texts(), IsEmpty());
    reader.read(kernelRecord(0, place("/a", 1) + argument(2, "/open")));
    reader.read(kernelRecord(0, place("/a", 2) + argument(1, "")));
    EXPECT_THAT(log.texts(), ElementsAre("could not create NSString from cstring = /open",
                                         "could not create NSString from cstring = "));
    EXPECT_THAT(reader.events(), ElementsAre("CREATE_FILE 1 (none)", "CREATE_FILE 2 (none)"));
    reader.read(kernelRecord(0, argument(2, std::string("/a\0/b\0", 6)) + place("", 3).substr(5)));
    EXPECT_THAT(reader.events(), ElementsAre("CREATE_FILE 3 /a"));
}

TEST(Records, cutAtEveryByte) {
    LogCapture log;
    const std::string first = kernelRecord(0, place("/one", 1));
    const std::string whole = first + kernelRecord(3, place("/two", 2) + place("/three", 2));
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        RecordReader reader;
        reader.read(whole.substr(0, length));
        const std::vector<std::string> events = reader.events();
        if (length + 2 >= first.size()) {
            ASSERT_FALSE(events.empty()) << length;
            EXPECT_EQ(events[0], "CREATE_FILE 1 /one") << length;
        }
        if (length + 2 >= whole.size()) {
            ASSERT_EQ(events.size(), 2u) << length;
            EXPECT_EQ(events[1], "RENAME 2 /two -> 2 /three") << length;
        }
    }
}

TEST(Records, flippedBitsAndRandomBytesDoNoHarm) {
    LogCapture log(LogLevel::error);
    testing::internal::CaptureStdout();
    const std::string whole = kernelRecord(7, place("/one", 1) + argument(6, "raw") + argument(10, bytes32(1))) +
                              kernelRecord(3, place("/two", 2) + place("/three", 2));
    for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
        RecordReader reader;
        std::string bytes = whole;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
        reader.read(bytes);
        EXPECT_LE(reader.events().size(), 4u);
    }
    std::mt19937 random(1);
    for (int round = 0; round < 5000; ++round) {
        RecordReader reader;
        std::string bytes = whole;
        for (int changes = 0; changes < 4; ++changes)
            bytes[random() % bytes.size()] = static_cast<char>(random() % 2 ? random() % 14 : random());
        reader.read(bytes.substr(0, random() % 2 ? bytes.size() : random() % bytes.size()));
    }
    testing::internal::GetCapturedStdout();
}

TEST(Records, aHundredThousandInOneBuffer) {
    RecordReader reader;
    std::string bytes;
    for (std::uint32_t inode = 1; inode <= 100'000; ++inode) bytes += kernelRecord(0, place("/f", inode));
    reader.read(bytes);
    EXPECT_EQ(reader.listener.events().count(), 100'000);
}

TEST(Records, processesHaveNames) {
    std::ifstream stream("/proc/self/comm");
    std::string own;
    std::getline(stream, own);
    ASSERT_NE(own, "");
    EXPECT_STREQ(TuvFSEvents_name_from_pid(getpid()), own.c_str());
    EXPECT_EQ(TuvFSEvents_name_from_pid(0), nullptr);
    EXPECT_EQ(TuvFSEvents_name_from_pid(-1), nullptr);
    EXPECT_EQ(TuvFSEvents_name_from_pid(0x7FFFFFFF), nullptr);
}

}  // namespace
}  // namespace kavaro
