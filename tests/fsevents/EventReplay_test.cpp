#include "fsevents/EventReplay.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "EventTest.h"
#include "LogCapture.h"
#include "TempFolder.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kBegin = "index=\"0\"; eventBatch=\"begin\"; batchCount=\"3\";\n";
constexpr const char* kEnd = "index=\"0\"; eventBatch=\"end\"; batchCount=\"3\";\n";

std::string row(const char* type, int inode, const char* path) {
    return "index=\"0\"; inode=\"" + std::to_string(inode) + "\"; type=\"" + type +
           "\"; device=\"234881044\"; filePath=\"" + path + "\";\n";
}

class EventReplayTest : public testing::Test {
  protected:
    void replay(std::string_view text) { newReplay().replayText(text); }
    EventReplay& newReplay() {
        _replay.emplace(clock, [this](TuvRef<TuvObjectArray> batch) { batches.push_back(textsOf(*batch)); });
        return *_replay;
    }
    const EventReplay::Totals& totals() { return _replay->totals(); }

    PauseClock clock;
    std::vector<std::vector<std::string>> batches;

  private:
    std::optional<EventReplay> _replay;
};

TEST_F(EventReplayTest, ABatch) {
    LogCapture capture;
    replay(kBegin + row("CREATE_FILE", 3, "/c") + row("DELETE", 1, "/a") + row("MODIFIED", 2, "/b") + kEnd + "index=");
    EXPECT_THAT(batches, ElementsAre(ElementsAre("DELETE 1 /a", "MODIFIED 2 /b", "CREATE_FILE 3 /c")));
    EXPECT_EQ(totals().rows, 3);
    EXPECT_EQ(totals().batches, 1);
    EXPECT_THAT(capture.texts(), ElementsAre("starting batch with 3 items",
                                             "got 3 items (3 top level added) for batch with 3 items, in     0.000 ms",
                                             "parsing items from file ...", "completed"));
    EXPECT_THAT(clock.sleeps(), ElementsAre(1.5));
}

TEST_F(EventReplayTest, TheLastRowIsNotReplayed) {
    LogCapture capture;
    replay(kBegin + row("DELETE", 1, "/a") + kEnd);
    EXPECT_THAT(batches, IsEmpty());
    EXPECT_EQ(totals().withoutEnd, 1);
    const char* text = "1 items up to row 3 are left out: the end row is missing or the last row of the text";
    EXPECT_EQ(capture.count(LogLevel::error, text), 1);
    EXPECT_EQ(capture.texts().back(), "completed");
}

TEST_F(EventReplayTest, RowsOfOneInodeMeet) {
    replay(kBegin + row("CREATE_FILE", 1, "/a") + row("MODIFIED", 1, "/a") + row("MODIFIED", 2, "/b") +
           row("MODIFIED", 2, "/b") + row("CREATE_FILE", 3, "/c") + row("DELETE", 3, "/c") + kEnd + "index=");
    EXPECT_THAT(batches, ElementsAre(ElementsAre("CREATE_FILE 1 /a [MODIFIED 1 /a]", "MODIFIED 2 /b")));
    EXPECT_EQ(totals().rows, 6);
}

TEST_F(EventReplayTest, BrokenRowsAreSaidAndSkipped) {
    LogCapture capture;
    replay(kBegin + row("DELETE", 1, "/a") + "index=\"0\"; inode=;\n" + row("DELETE", 2, "/b") + kEnd + "index=");
    EXPECT_THAT(batches, ElementsAre(ElementsAre("DELETE 1 /a", "DELETE 2 /b")));
    EXPECT_EQ(totals().brokenRows, 1);
    EXPECT_EQ(totals().rows, 2);
    EXPECT_EQ(capture.count(LogLevel::error, "rowString: index=\"0\"; inode=;"), 1);
    EXPECT_EQ(capture.count(LogLevel::error, "Exception: a character that needs quotation marks (line 1, column 18)"),
              1);
    EXPECT_EQ(capture.count(LogLevel::error, "("), 2);  // the second one is the call stack
}

TEST_F(EventReplayTest, ShortTexts) {
    for (std::string_view text : {"", "i", "index=", "123456"}) {
        LogCapture capture;
        replay(text);
        EXPECT_THAT(capture.texts(), ElementsAre("completed")) << text;
    }
    EXPECT_THAT(clock.sleeps(), IsEmpty());
    EXPECT_THAT(batches, IsEmpty());
}

TEST_F(EventReplayTest, TextsWithoutARow) {
    LogCapture capture;
    replay("index=\"0\"; and no second one");
    EXPECT_THAT(capture.texts(), ElementsAre("parsing items from file ...", "no row in 28 bytes", "completed"));
    EXPECT_THAT(batches, IsEmpty());
}

// What is never read counts, too, unless it is what closes a recording.
TEST_F(EventReplayTest, RecordingsThatWereCut) {
    LogCapture capture;
    const std::string text = kBegin + row("CREATE_FILE", 1, "/a") + row("DELETE", 1, "/a");
    for (const std::string& cut : {text, text + "index=\"0\"; ", text.substr(0, text.size() - 3)}) {
        replay(cut);
        EXPECT_EQ(totals().withoutEnd, 2) << cut;
    }
    replay(text.substr(0, 5) + row("DELETE", 1, "/a"));
    EXPECT_EQ(totals().withoutStart, 1);
    EXPECT_EQ(totals().leftOut(), 1);
    EXPECT_THAT(batches, IsEmpty());
    EXPECT_EQ(capture.count(LogLevel::error, "2 items up to row 3 are left out: the end row is missing or"), 2);
}

TEST_F(EventReplayTest, RowsOutsideOfBatches) {
    LogCapture capture;
    replay(row("DELETE", 1, "/a") + kEnd + row("DELETE", 2, "/b") + kBegin + row("DELETE", 3, "/c") + kEnd +
           row("DELETE", 4, "/d") + kEnd + "index=");
    EXPECT_THAT(batches, ElementsAre(ElementsAre("DELETE 3 /c"), ElementsAre("DELETE 4 /d")));
    EXPECT_EQ(totals().rows, 2);
    EXPECT_EQ(totals().withoutStart, 2);
    EXPECT_EQ(totals().leftOut(), 2);
    const char* reason = "are left out: their start row is missing or broken";
    EXPECT_EQ(capture.count(LogLevel::error, std::string("1 items up to row 2 ") + reason), 1);
    EXPECT_EQ(capture.count(LogLevel::error, std::string("1 items up to row 4 ") + reason), 1);
}

TEST_F(EventReplayTest, ABatchThatBeginsAgainIsForgotten) {
    LogCapture capture;
    replay(kBegin + row("DELETE", 1, "/a") + row("MODIFIED", 1, "/a") + kBegin + row("DELETE", 2, "/b") + kEnd +
           "index=\"0\";\n" + row("DELETE", 3, "/c") + kBegin + kEnd + "index=");
    EXPECT_THAT(batches, ElementsAre(ElementsAre("DELETE 2 /b"), IsEmpty()));
    EXPECT_EQ(totals().withoutEnd, 3);
    EXPECT_EQ(totals().leftOut(), 3);
    const char* reason = "are left out: this row starts a batch and none ended theirs";
    EXPECT_EQ(capture.count(LogLevel::error, std::string("2 items up to row 4 ") + reason), 1);
    EXPECT_EQ(capture.count(LogLevel::error, std::string("1 items up to row 9 ") + reason), 1);
}

TEST_F(EventReplayTest, SizesOfBatchesAreHints) {
    for (const char* count : {"0", "-5", "2147483647", "99999999999999999999", "x", "1"}) {
        replay(std::string("index=\"0\"; eventBatch=\"begin\"; batchCount=\"") + count + "\";\n" +
               row("DELETE", 1, "/a") + row("DELETE", 2, "/b") + kEnd + "index=");
        ASSERT_EQ(batches.back().size(), 2u) << count;
    }
    replay("index=\"0\"; eventBatch=\"begin\";\n" + row("DELETE", 1, "/a") + kEnd + "index=");
    EXPECT_EQ(batches.back().size(), 1u);
}

TEST_F(EventReplayTest, EventsThatDoNotPassAreDropped) {
    replay(std::string(kBegin) + "index=\"0\"; inode=\"1\"; type=\"DELETE\"; device=\"5\"; filePath=\"/a\";\n" +
           row("DELETE", 2, "/.fseventsd/x") + kEnd + "index=");
    EXPECT_THAT(batches, ElementsAre(IsEmpty()));
    EXPECT_EQ(totals().rows, 2);
    EXPECT_EQ(totals().ofOtherDevices, 1);
    EXPECT_EQ(totals().inOtherFolders, 1);
    EXPECT_EQ(totals().leftOut(), 2);
}

TEST_F(EventReplayTest, TheDeviceOfTheRecording) {
    const std::string rows = std::string("index=0; inode=; device=\"5\";\n") + kBegin +
                             "index=0; inode=1; type=DELETE; device=39; filePath=\"/a device=\\\"7\\\"\";\n" +
                             row("DELETE", 2, "/b") + kEnd + "index=";
    EventReplay& replay = newReplay();
    replay.acceptDeviceOfRecording();
    replay.replayText(rows);
    EXPECT_EQ(TuvFSEvent::acceptedDevice(), 39u);
    EXPECT_EQ(totals().ofOtherDevices, 1);
    newReplay().replayText(rows);
    EXPECT_THAT(batches, ElementsAre(ElementsAre("DELETE 1 /a device=\"7\""), ElementsAre("DELETE 1 /a device=\"7\"")));
    TuvFSEvent::setAcceptedDevice(kDevice);
}

TEST_F(EventReplayTest, EventsOfRows) {
    LogCapture capture;
    auto read = [](std::string_view text) {
        return textOf(*TuvFSEvent::eventFromString(*EventReplay::plistFromRow(text), false));
    };
    EXPECT_EQ(read("index=\"0\"; inode=\"00000012\"; type=\"DELETE\"; filePath=\"/a\";"), "DELETE 12 /a");
    EXPECT_EQ(read("inode=-1; type=RENAME; filePath=/a; inodeDestination=3; filePathDestination=/b;"),
              "RENAME 4294967295 /a -> /b");
    EXPECT_EQ(read("type=DELETE; filePath=/a; filePathDestination=/b;"), "DELETE 0 /a");
    EXPECT_EQ(read("type=RENAME; filePathDestination=/b;"), "RENAME 0  -> /b");
    EXPECT_EQ(read("type=\"DELETE     \"; filePath=(a, b);"), "? 0 ");
    EXPECT_EQ(read(""), "? 0 ");
    const auto row = EventReplay::plistFromRow("inode=5; type=MODIFIED; filePath=\"/a\";\n    ---\n ");
    ASSERT_TRUE(row);
    TuvFSEvent::eventFromString(*row, true);
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0].component, "MAIN");
    EXPECT_THAT(capture.lines()[0].text, testing::StartsWith("item=[\n  index=\"0\";   inode=\"00000005\";"));
}

TEST_F(EventReplayTest, AnyTextBesideRows) {
    LogCapture capture;
    const std::string good = kBegin + row("DELETE", 1, "/a") + kEnd + "index=\"0\";\n";
    for (std::size_t length = 0; length <= good.size(); ++length) {  // cut short
        replay(good.substr(0, length));
        ASSERT_LE(batches.size(), 1u);
        for (const auto& batch : batches) ASSERT_THAT(batch, ElementsAre("DELETE 1 /a"));
        batches.clear();
    }
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {  // with a bit flipped
        std::string text = good;
        text[bit / 8] = static_cast<char>(text[bit / 8] ^ 1 << bit % 8);
        replay(text);
        ASSERT_LE(batches.size(), 1u) << bit;
        for (const auto& batch : batches) ASSERT_LE(batch.size(), 1u) << bit;
        batches.clear();
    }
}

TEST_F(EventReplayTest, FilesThatCannotBeRead) {
    TempFolder folder;
    LogCapture capture;
    EXPECT_EQ(newReplay().replayFile(folder.path() + "/missing"), ENOENT);
    EXPECT_THAT(capture.texts(), ElementsAre(folder.path() + "/missing: No such file or directory", "completed"));
    EXPECT_EQ(newReplay().replayFile(folder.path()), EISDIR);
    const std::string pipe = folder.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    capture.clear();
    EXPECT_EQ(newReplay().replayFile(pipe), EINVAL);
    EXPECT_THAT(capture.texts(), ElementsAre(pipe + ": is no regular file", "completed"));
    EXPECT_EQ(newReplay().replayFile(""), ENOENT);
    EXPECT_EQ(newReplay().replayFile(folder.write("empty", "")), 0);
    EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(EventReplayTest, AFile) {
    TempFolder folder;
    const std::string text = kBegin + row("DELETE", 1, "/a") + kEnd + "index=";
    EXPECT_EQ(newReplay().replayFile(folder.write("recording", text)), 0);
    EXPECT_THAT(batches, ElementsAre(ElementsAre("DELETE 1 /a")));
}

long peakKilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST_F(EventReplayTest, AGigabyteWithoutARow) {
    TempFolder folder;
    const std::string path = folder.write("sparse", "index=\"0\"; ");
    ASSERT_EQ(truncate(path.c_str(), 1 << 30), 0);
    LogCapture capture;
    const long before = peakKilobytes();
    EXPECT_EQ(newReplay().replayFile(path), 0);
    EXPECT_LT(peakKilobytes() - before, 64 * 1024);
    EXPECT_TRUE(capture.contains("no row in 1073741824 bytes"));
}

TEST_F(EventReplayTest, ARowThatIsTooLong) {
    LogCapture capture;
    replay(kBegin + row("DELETE", 1, std::string(2 << 20, 'x').c_str()) + row("DELETE", 2, "/b") + kEnd + "index=");
    EXPECT_THAT(batches, ElementsAre(ElementsAre("DELETE 2 /b")));
    EXPECT_EQ(totals().brokenRows, 1);
    EXPECT_EQ(capture.count(LogLevel::error, "is too long and skipped"), 1);
}

class DeliveryTest : public testing::Test {
  protected:
    void add(TuvRef<TuvFSEvent> event) { TuvFSEvent::addEvent(event.leak(), &events, &lock); }

    WaitingEvents events;
    ConditionLock lock{0};
    PauseClock clock;
};

TEST_F(DeliveryTest, ABatchWaitsUntilTheLastOneIsTaken) {
    std::vector<std::vector<std::string>> taken;
    clock.during = [&](double seconds) {
        if (seconds != EventReplay::kDeliveryPause || clock.sleeps().size() % 3 != 0) return;
        lock.lockWhenCondition(1);
        taken.push_back(textsOf(*events.takeAll()));
        lock.unlockWithCondition(0);
    };
    add(newEvent("DELETE", 9, "/live"));
    EventReplay replay(clock, EventReplay::toWaitingEvents(events, lock, clock));
    replay.replayText(kBegin + row("DELETE", 1, "/a") + kEnd + kBegin + row("DELETE", 2, "/b") + kEnd + "index=");
    EXPECT_THAT(taken, ElementsAre(ElementsAre("DELETE 9 /live"), ElementsAre("DELETE 1 /a")));
    EXPECT_THAT(clock.sleeps(), ElementsAre(0.1, 0.1, 0.1, 0.1, 0.1, 0.1, 1.5));
    EXPECT_THAT(textsOf(*events.takeAll()), ElementsAre("DELETE 2 /b"));
}

TEST_F(DeliveryTest, AnEmptyBatchWakesNobody) {
    const auto deliver = EventReplay::toWaitingEvents(events, lock, clock);
    EventReplay(clock, deliver).replayText(std::string(kBegin) + kEnd + "index=");
    EXPECT_EQ(lock.condition(), 0);
    EventReplay(clock, deliver).replayText(kBegin + row("DELETE", 1, "/a") + kEnd + "index=");
    EXPECT_EQ(lock.condition(), 1);
}

}  // namespace
}  // namespace kavaro
