#include "fsevents/EventRecording.h"

#include <random>

#include "EventTest.h"
#include "LogCapture.h"
#include "fsevents/EventReplay.h"
#include "platform/Text.h"

namespace kavaro {
namespace {

using testing::ElementsAre;

TuvRef<TuvObjectArray> batchOf(std::vector<TuvRef<TuvFSEvent>> events) {
    auto batch = make<TuvObjectArray>();
    for (auto& event : events) TuvFSEvent::addEvent(event.leak(), batch.get(), nullptr);
    return batch;
}

template <class... Events>
TuvRef<TuvObjectArray> batchOf(Events... events) {
    std::vector<TuvRef<TuvFSEvent>> list;
    (list.push_back(std::move(events)), ...);
    return batchOf(std::move(list));
}

std::vector<std::vector<std::string>> replayed(std::string_view text) {
    std::vector<std::vector<std::string>> batches;
    PauseClock clock;
    EventReplay replay(clock, [&](TuvRef<TuvObjectArray> batch) { batches.push_back(textsOf(*batch)); });
    replay.replayText(text);
    EXPECT_EQ(replay.totals().brokenRows, 0);
    EXPECT_EQ(replay.totals().leftOut(), 0);
    return batches;
}

TEST(EventRecordingTest, Golden) {
    auto batch = batchOf(newEvent("CREATE_FILE", 7, "/a"), newEvent("MODIFIED", 7, "/a"),
                         newRename(7, "/a", "/b \"c\""), newEvent("DELETE", 123456789, "/d"));
    EXPECT_EQ(recordingOf(*batch),
              "\n  index=\"0\"; eventBatch=\"begin\"; batchCount=\"2\"; "
              "\n  index=\"0\";   inode=\"00000007\"; type=\"CREATE_FILE\"; device=\"234881044\"; filePath=\"/a\";"
              "\n    index=\"1\"; inode=\"00000007\"; type=\"MODIFIED\";    device=\"234881044\"; filePath=\"/a\";"
              "\n    index=\"2\"; inode=\"00000007\"; type=\"RENAME\";      device=\"234881044\"; filePath=\"/a\";"
              " inodeDestination=\"7\"; deviceDestination=\"234881044\"; filePathDestination=\"/b \\\"c\\\"\";"
              "\n    ---"
              "\n  index=\"0\";   inode=\"123456789\"; type=\"DELETE\";      device=\"234881044\"; filePath=\"/d\";"
              "\n  index=\"0\"; eventBatch=\"end\"; batchCount=\"2\"; ");
}

TEST(EventRecordingTest, RowsWithoutChildren) {
    auto event = newEvent("CREATE_FILE", 7, "/a");
    EXPECT_EQ(event->descriptionInOneLine(true), event->descriptionInOneLine(false));
    event->addChildEvent(newEvent("MODIFIED", 7, "/a").get());
    EXPECT_THAT(event->descriptionInOneLine(true), testing::StartsWith(event->descriptionInOneLine(false)));
    EXPECT_THAT(event->descriptionInOneLine(true), testing::EndsWith("\n    ---"));
}

TEST(EventRecordingTest, EscapedPaths) {
    const std::pair<std::string_view, std::string_view> pairs[] = {
        {"/plain path/\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80", "/plain path/\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"},
        {"/a\"b\\c\nd\te\x7f", "/a\\\"b\\\\c\\nd\\011e\\177"},
        {"/\xff\xc3", "/\\377\\303"},
        {"/\xed\xa0\x80", "/\\355\\240\\200"},  // half a character of UTF-16
        {"/index=5/index=", "/\\151ndex=5/\\151ndex="},
        {"/index", "/index"},
        {"", ""},
    };
    for (const auto& [path, text] : pairs) EXPECT_EQ(escapedPath(path), text);
}

TEST(EventRecordingTest, WhatIsWrittenIsRead) {
    CollectorMode collector;
    const std::string_view paths[] = {"/a",
                                      "/",
                                      "",
                                      "/a \"b\" \\ 'c' {d} (e) <f>; // g /* h */ = i",
                                      "/line\nend\r\t\x01\x1f\x7f",
                                      "/index=\"0\"; eventBatch=\"end\"; batchCount=\"1\"; ",
                                      "index=index=indexindex=",
                                      "/\\151ndex= \\n \\\\ \\U0041",
                                      "/\xff\xfe\x80/\xc3\xa4\xc3",
                                      "/a\n    ---",
                                      "---",
                                      "\n  index=",
                                      "/%@ %d %s",
                                      std::string_view("/nul\0byte", 9)};
    std::uint32_t inode = 0x7ffffff0;
    std::vector<TuvRef<TuvFSEvent>> events;
    for (std::string_view path : paths) {
        ++inode;
        events.push_back(newEvent("CREATE_FILE", inode, path));
        events.push_back(newRename(inode, path, paths[inode % std::size(paths)]));
        events.push_back(newEvent("DELETE", inode, path));
    }
    events.push_back(newEvent("MODIFIED", 1, {}));
    auto batch = batchOf(std::move(events));
    const std::string text = recordingOf(*batch) + std::string(kRecordingEnd);
    EXPECT_TRUE(isValidUTF8(text));
    EXPECT_EQ(text.find('\x01'), std::string::npos);
    EXPECT_THAT(replayed(text), ElementsAre(textsOf(*batch)));
}

TEST(EventRecordingTest, RandomBatchesThereAndBack) {
    CollectorMode collector;
    std::mt19937 random(7);
    std::string text;
    std::vector<std::vector<std::string>> expected;
    for (int round = 0; round < 60; ++round) {
        auto batch = make<TuvObjectArray>();
        for (int count = static_cast<int>(random() % 60); count > 0; --count) {
            std::string path = "/";
            for (std::size_t length = random() % 40; length > 0; --length)
                path += random() % 3 ? "index=\"\\;-\n{}"[random() % 13] : static_cast<char>(random());
            const std::uint32_t inode = random() % 20 * 0x0ccccccc;
            auto event = random() % 4 == 0 ? newRename(inode + 1, path, path + "=\xfd")
                                           : newEvent(random() % 2 ? "MODIFIED" : "DELETE", inode, path);
            TuvFSEvent::addEvent(event.leak(), batch.get(), nullptr);
        }
        text += recordingOf(*batch);
        expected.push_back(textsOf(*batch));
    }
    EXPECT_EQ(replayed(text + std::string(kRecordingEnd)), expected);
}

TEST(EventRecordingTest, RecordingsOneBehindAnother) {
    const std::string one = recordingOf(*batchOf(newEvent("DELETE", 1, "/a"))) + std::string(kRecordingEnd);
    EXPECT_THAT(replayed(one + one), ElementsAre(ElementsAre("DELETE 1 /a"), ElementsAre("DELETE 1 /a")));
}

TEST(EventRecordingTest, PiecesOf1001Events) {
    for (int count : {0, 1, 1000, 1001, 1002, 2002, 2003}) {
        auto batch = make<TuvObjectArray>();
        for (int i = 0; i < count; ++i)
            batch->adoptObject(newEvent("DELETE", static_cast<std::uint32_t>(i), "/a").leak());
        std::vector<std::string> pieces;
        writeBatch(*batch, [&](std::string_view piece) { pieces.emplace_back(piece); });
        EXPECT_EQ(pieces.size(), 1u + static_cast<std::size_t>(count <= 1001 ? 1 : (count + 1000) / 1001)) << count;
        EXPECT_THAT(pieces.back(), testing::HasSubstr("eventBatch=\"end\""));
    }
}

TEST(EventRecordingTest, TheLogListsABatch) {
    LogCapture capture(LogLevel::debug);
    auto batch = batchOf(newEvent("DELETE", 1, "/a"));
    TuvFSEvent::debugEvents(batch.get());
    std::vector<std::string> texts;
    for (const LogCapture::Line& line : capture.lines())
        if (line.component == "TuvFSEvent") texts.push_back(line.text);
    ASSERT_EQ(texts.size(), 3u);
    EXPECT_EQ(texts[0], "1 items");
    EXPECT_EQ(texts[1] + texts[2], recordingOf(*batch));
}

TEST(EventRecordingTest, NothingIsListedAboveDebug) {
    LogCapture capture(LogLevel::info);
    TuvFSEvent::debugEvents(batchOf(newEvent("DELETE", 1, "/a")).get());
    EXPECT_THAT(capture.texts(), testing::IsEmpty());
}

}  // namespace
}  // namespace kavaro
