// Changes of a volume that is none: the device is the test's.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "TempFolder.h"
#include "client/commandline/CommandRun.h"
#include "fsevents/EventRecording.h"
#include "fsevents/Records.h"
#include "support/StringHelpers.h"

namespace kavaro {
namespace {

using testing::HasSubstr;

// Gives records at their times, in seconds since it was opened; the run's clock goes on with each read.
class TimedDevice : public EventDevice {
  public:
    struct Portion {
        double time;
        std::string records;
    };
    TimedDevice(CommandRun& run, std::vector<Portion> portions, double end, bool isUnmounted)
        : _run(run), _portions(std::move(portions)), _end(end), _isUnmounted(isUnmounted) {}

    int read(std::uint8_t* buffer, int, double seconds) override {
        const double begin = _run.clock.now - _start;
        double now = begin + seconds;
        std::string records;
        if (_next < _portions.size() && _portions[_next].time <= now) {
            now = std::max(begin, _portions[_next].time);
            records = _portions[_next++].records;
        }
        _run.clock.now = _start + now;
        if (now >= _end && !_isUnmounted) _run.signals = 1;
        std::memcpy(buffer, records.data(), records.size());
        return static_cast<int>(records.size());
    }
    std::uint32_t device() const override { return kTestDevice; }
    bool isGone() const override { return _isUnmounted && _run.clock.now - _start >= _end; }
    int overflows() const override { return 0; }

  private:
    CommandRun& _run;
    const double _start = _run.clock.now;
    const std::vector<Portion> _portions;
    const double _end;
    const bool _isUnmounted;
    std::size_t _next = 0;
};

using Portions = std::vector<TimedDevice::Portion>;

struct EventsRun : CommandRun {
    // Until `end` seconds; then a signal comes or, if so wanted, the volume goes.
    explicit EventsRun(Portions portions = {}, double end = 1e9, bool isUnmounted = false) {
        context.openEventDevice = [this, portions, end, isUnmounted](const std::string& volume, EventDevice::Problem*) {
            volumes.push_back(volume);
            return std::make_unique<TimedDevice>(*this, portions, end, isUnmounted);
        };
    }
    std::vector<std::string> volumes;
};

const std::string kCreated = kernelRecord(0, place("/v/a b", 1)) + kernelRecord(4, place("/v/a b", 1));
const std::string kGone = kernelRecord(0, place("/v/t", 2)) + kernelRecord(1, place("/v/t", 2));

TEST(EventsRecord, everyChangeInBatchesThatCanBeReplayed) {
    const TempFolder temp;
    const std::string odd = "/v/\"\\\n\xFFindex=";
    EventsRun run(Portions{{1, kCreated}, {14, kGone}, {20, kernelRecord(3, place(odd, 3) + place("/v/x", 3))}}, 31);
    EXPECT_EQ(run.run({"events", "record", "--volume", "/v", "--output", temp.path("recording")}), kExitDone);
    EXPECT_EQ(run.volumes, std::vector<std::string>{"/v"});
    EXPECT_EQ(run.output(), "");
    EXPECT_EQ(run.error(), "5 changes in 2 batches recorded.\n");
    const std::string text = temp.read("recording");
    EXPECT_TRUE(
        text.starts_with("\n  index=\"0\"; eventBatch=\"begin\"; batchCount=\"2\"; "
                         "\n  index=\"0\";   inode=\"00000001\"; type=\"CREATE_FILE\"; device=\"2049\"; "
                         "filePath=\"/v/a b\";\n    index=\"1\"; inode=\"00000001\"; type=\"MODIFIED\";"))
        << text;
    EXPECT_TRUE(text.ends_with(kRecordingEnd)) << text;

    TuvFSEvent::setAcceptedDevice(1);  // that of the recording is found out
    CommandRun replay;
    EXPECT_EQ(replay.run({"events", "replay", temp.path("recording")}), kExitDone);
    EXPECT_EQ(replay.error(), "");
    EXPECT_EQ(replay.output(),
              "Batch 1: 4 changes\n"
              "  created   /v/a b\n"
              "    modified  /v/a b\n"
              "  created   /v/t\n"
              "    deleted   /v/t\n"
              "\n"
              "Batch 1, coalesced: 1 change\n"
              "  updated   /v/a b\n"
              "\n"
              "Batch 2: 1 change\n"
              "  renamed   /v/\"\\\\n\\xffindex= -> /v/x\n"
              "\n"
              "Batch 2, coalesced: 1 change\n"
              "  renamed   /v/\"\\\\n\\xffindex= -> /v/x\n"
              "\n"
              "2 batches, 5 changes, 2 changes after coalescing\n");
}

TEST(EventsRecord, whatHappenedBeforeTheSignalIsRecorded) {
    EventsRun run(Portions{{1, kCreated}, {1, kGone}, {1.5, kGone}}, 1);
    EXPECT_EQ(run.run({"events", "record"}), kExitDone);
    EXPECT_EQ(run.error(), "4 changes in 1 batch recorded.\n");
}

TEST(EventsRecord, endsInTimeAndWritesToStandardOutput) {
    EventsRun run(Portions{{1, kCreated}, {5, kGone}, {5, kernelRecord(7, place("/v/folder", 4))}, {6, kGone}});
    EXPECT_EQ(run.run({"events", "record", "--for", "5"}), kExitDone);
    EXPECT_EQ(run.volumes, std::vector<std::string>{"/"});
    EXPECT_THAT(run.output(), HasSubstr("eventBatch=\"end\"; batchCount=\"3\"; " + std::string(kRecordingEnd)));
    EXPECT_EQ(run.error(), "5 changes in 1 batch recorded.\n");
    EXPECT_GE(run.clock.now, 1005);
    EXPECT_LT(run.clock.now, 1006);
    EventsRun quiet;
    EXPECT_EQ(quiet.run({"events", "record", "--for", "40"}), kExitDone);
    EXPECT_EQ(quiet.output(), kRecordingEnd);
    EXPECT_EQ(quiet.error(), "0 changes in 0 batches recorded.\n");
}

TEST(EventsWatch, oneLineAChangeAsTheySettle) {
    const TempFolder temp;
    const std::string file = temp.write("b", std::string(5000, 'x'));
    struct stat info {};
    ASSERT_EQ(stat(file.c_str(), &info), 0);
    const auto inode = static_cast<std::uint32_t>(info.st_ino);
    const std::string there = place(file, inode);
    EventsRun run(Portions{{0.1, kernelRecord(0, there) + kernelRecord(4, there)},
                           {0.2, kGone + kernelRecord(7, place("/v/folder", 4)) + kernelRecord(4, place("/v/\x1B", 3))},
                           {5, kernelRecord(3, place("/v/from", inode) + there) + kernelRecord(4, there)}},
                  5.5);
    EXPECT_EQ(run.run({"events", "watch"}), kExitDone);
    std::string size = compactStringFromSize(static_cast<std::uint64_t>(info.st_blocks) * 512);
    size.insert(0, 10 - size.size(), ' ');
    const std::string none(10, ' ');
    std::vector<std::string> lines = {size + "  updated   " + file + "\n", none + "  modified  /v/\\x1b\n",
                                      none + "  created   /v/folder/\n"};
    std::ranges::sort(lines, {}, [](const std::string& line) { return line.substr(line.find('/')); });
    EXPECT_EQ(run.output(), lines[0] + lines[1] + lines[2] + size + "  renamed   /v/from -> " + file + "\n" + size +
                                "  modified  " + file + "\n");
    EXPECT_EQ(run.error(), "5 changes shown.\n");
}

TEST(EventsWatch, theSizeIsThatOfTheEntryThatChanged) {
    const TempFolder temp;
    const std::string file = temp.write("b", std::string(5000, 'x'));
    struct stat info {};
    ASSERT_EQ(stat(file.c_str(), &info), 0);
    const auto inode = static_cast<std::uint32_t>(info.st_ino);
    EventsRun run(Portions{{0.1, kernelRecord(4, place(file, inode + 1)) + kernelRecord(1, place(file, inode))}}, 2);
    EXPECT_EQ(run.run({"events", "watch"}), kExitDone);
    const std::string none(12, ' ');
    for (const char* word : {"modified  ", "deleted   "})
        EXPECT_THAT(run.output(), HasSubstr(none + word + file + "\n")) << run.output();
}

TEST(EventsWatch, aDeletedFileHidesNoOtherWhoseNameBeginsAlike) {
    EventsRun run(Portions{{0.1, kernelRecord(1, place("/v/data", 1)) + kernelRecord(4, place("/v/data.db", 2)) +
                                     kernelRecord(1, place("/v/data/x", 3)) + kernelRecord(7, place("/v/n", 4)) +
                                     kernelRecord(0, place("/v/n/x", 5)) + kernelRecord(0, place("/v/nx", 6))}},
                  2);
    EXPECT_EQ(run.run({"events", "watch"}), kExitDone);
    const std::string none(12, ' ');
    EXPECT_EQ(run.output(), none + "deleted   /v/data\n" + none + "modified  /v/data.db\n" + none +
                                "created   /v/n/\n" + none + "created   /v/nx\n");
}

// The number of a deleted file's inode belongs to another file at once.
TEST(EventsWatch, oneInodeAfterTheOther) {
    std::string records = kernelRecord(1, place("/v/old", 5)) + kernelRecord(0, place("/v/new", 5));
    for (int i = 0; i < 400; ++i) records += kernelRecord(4, place("/v/new", 5));
    records += kernelRecord(3, place("/v/from", 6) + place("/v/to", 6));
    for (int i = 0; i < 3; ++i) records += kernelRecord(4, place("/v/to", 6));
    EventsRun run(Portions{{0.1, records}}, 2);
    EXPECT_EQ(run.run({"events", "watch"}), kExitDone);
    const std::string none(12, ' ');
    EXPECT_EQ(run.output(), none + "renamed   /v/from -> /v/to\n" + none + "modified  /v/to\n" + none +
                                "deleted   /v/old\n" + none + "updated   /v/new\n");
    EXPECT_EQ(run.error(), "4 changes shown.\n");
}

std::string renamed(const std::string& from, const std::string& to, std::uint32_t inode) {
    return kernelRecord(3, place(from, inode) + place(to, inode));
}

// As a disk gives the number of what was deleted to what is made next.
const std::string kReused = kernelRecord(1, place("/v/old", 5)) + kernelRecord(0, place("/v/t1", 5)) +
                            kernelRecord(1, place("/v/t1", 5)) + kernelRecord(0, place("/v/t2", 5)) +
                            kernelRecord(4, place("/v/t2", 5)) + kernelRecord(1, place("/v/t2", 5));

TEST(EventsWatch, nothingOfAnInodeIsLostOrInvented) {
    const std::string links =
        kernelRecord(0, place("/v/l2", 8)) + kernelRecord(0, place("/v/l1", 8)) + kernelRecord(0, place("/v/l1", 8));
    EventsRun run(Portions{{0.1, kReused + renamed("/v/z", "/v/m", 6) + renamed("/v/m", "/v/b", 6) +
                                     kernelRecord(1, place("/v/x", 7)) + kernelRecord(7, place("/v/x", 7)) +
                                     kernelRecord(1, place("/v/x", 7)) + kernelRecord(0, place("/v/y", 7)) + links}},
                  2);
    EXPECT_EQ(run.run({"events", "watch"}), kExitDone);
    const std::string none(12, ' ');
    EXPECT_EQ(run.output(), none + "created   /v/l2\n" + none + "created   /v/l1\n" + none + "deleted   /v/old\n" +
                                none + "deleted   /v/x\n" + none + "created   /v/y\n" + none +
                                "renamed   /v/z -> /v/m\n" + none + "renamed   /v/m -> /v/b\n");
    EXPECT_EQ(run.error(), "7 changes shown.\n");
}

TEST(EventsRecord, aBatchEndsBeforeAChangeThatWouldBeLeftOut) {
    const TempFolder temp;
    EventsRun run(Portions{{1, kReused + renamed("/v/a", "/v/b", 6) + renamed("/v/b", "/v/c", 6)}}, 20);
    EXPECT_EQ(run.run({"events", "record", "--output", temp.path("recording")}), kExitDone);
    EXPECT_EQ(run.error(), "8 changes in 4 batches recorded.\n");
    CommandRun replay;
    EXPECT_EQ(replay.run({"events", "replay", temp.path("recording")}), kExitDone);
    for (const char* batch : {"Batch 1: 2 changes\n  deleted   /v/old\n    created   /v/t1\n",
                              "Batch 2: 3 changes\n  deleted   /v/t1\n    created   /v/t2\n    modified  /v/t2\n",
                              "Batch 3: 2 changes\n  deleted   /v/t2\n  renamed   /v/a -> /v/b\n",
                              "Batch 4: 1 change\n  renamed   /v/b -> /v/c\n"})
        EXPECT_THAT(replay.output(), HasSubstr(batch));
}

// One name, again and again.
TEST(Events, aStormIsShownAndRecordedWhole) {
    constexpr int kTimes = 25000, kAtOnce = 100;
    std::string piece;
    for (int i = 0; i < kAtOnce; ++i)
        piece += kernelRecord(0, place("/v/a", 5)) + renamed("/v/a", "/v/b", 5) + kernelRecord(1, place("/v/b", 5)) +
                 renamed("/v/c", "/v/d", 6) + renamed("/v/d", "/v/c", 6);
    const Portions portions(kTimes / kAtOnce, {0.1, piece});
    EventsRun watch(portions, 2);
    EXPECT_EQ(watch.run({"events", "watch"}), kExitDone);
    EXPECT_EQ(watch.error(), "50,000 changes shown.\n");
    EventsRun record(portions, 2);
    record.context.output = open("/dev/null", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(record.run({"events", "record"}), kExitDone);
    close(record.context.output);
    EXPECT_THAT(record.error(), testing::StartsWith("125,000 changes in "));
}

TEST(EventsReplay, repeatsAreOneLine) {
    const TempFolder temp;
    std::string records = kernelRecord(1, place("/v/old", 5)) + kernelRecord(0, place("/v/new", 5));
    for (int i = 0; i < 400; ++i) records += kernelRecord(4, place("/v/new", 5));
    EventsRun run(Portions{{0.1, records}}, 2);
    EXPECT_EQ(run.run({"events", "record", "--output", temp.path("recording")}), kExitDone);
    CommandRun replay;
    EXPECT_EQ(replay.run({"events", "replay", temp.path("recording")}), kExitDone);
    EXPECT_THAT(replay.output(), HasSubstr("Batch 1: 402 changes\n"
                                           "  deleted   /v/old\n"
                                           "    created   /v/new\n"
                                           "    modified  /v/new (400 times)\n"
                                           "\n"));
}

TEST(EventsWatch, asJSON) {
    EventsRun run(Portions{{0.1, kernelRecord(3, place("/v/\xFF", 3) + place("/v/to", 3))}}, 2);
    EXPECT_EQ(run.run({"events", "watch", "--json", "--every", "0.5"}), kExitDone);
    EXPECT_EQ(run.output(),
              "{\"time\":\"2023-11-14T22:13:20Z\",\"type\":\"RENAME\",\"path\":\"/v/\xEF\xBF\xBD\",\"pathRaw\":"
              "\"L3Yv/w==\",\"destination\":\"/v/to\",\"inode\":3,\"device\":2049}\n");
    EXPECT_EQ(run.error(), "1 change shown.\n");
}

TEST(Events, theVolumeGoes) {
    EventsRun run(Portions{{0.1, kCreated}}, 3, true);
    EXPECT_EQ(run.run({"events", "watch", "--volume", "/v"}), kExitFailed);
    EXPECT_THAT(run.output(), HasSubstr("updated   /v/a b\n"));
    EXPECT_EQ(run.error(),
              "kavaro: /v: has been unmounted, or another volume hides it: its changes are not followed any more.\n"
              "1 change shown.\n");
}

TEST(Events, withoutRightsAndWithoutAVolume) {
    for (const char* command : {"record", "watch"}) {
        CommandRun rights;
        rights.context.openEventDevice = [](const std::string&, EventDevice::Problem* problem) {
            *problem = {"Operation not permitted", false, true};
            return nullptr;
        };
        EXPECT_EQ(rights.run({"events", command}), kExitFailed);
        EXPECT_EQ(
            rights.error(),
            "kavaro: /: its changes cannot be followed: Operation not permitted. That needs administrator rights: "
            "run it as root, for example with sudo.\n");
        CommandRun volume;
        volume.context.openEventDevice = [](const std::string& path, EventDevice::Problem* problem) {
            *problem = {path + ": No such file or directory", true, false};
            return nullptr;
        };
        EXPECT_EQ(volume.run({"events", command, "--volume", "/none"}), kExitFailed);
        EXPECT_EQ(volume.error(), "kavaro: /none: No such file or directory.\n");
        CommandRun kernel;
        kernel.context.openEventDevice = [](const std::string&, EventDevice::Problem* problem) {
            problem->text = "Invalid argument (Linux 5.17 or newer is needed)";
            return nullptr;
        };
        EXPECT_EQ(kernel.run({"events", command}), kExitFailed);
        EXPECT_EQ(kernel.error(),
                  "kavaro: /: its changes cannot be followed: Invalid argument (Linux 5.17 or newer is needed).\n");
    }
}

TEST(Events, outputsThatCannotBeWritten) {
    const TempFolder temp;
    EventsRun folder;
    EXPECT_EQ(folder.run({"events", "record", "--output", temp.path()}), kExitFailed);
    EXPECT_EQ(folder.error(), "kavaro: " + temp.path() + ": cannot be written: Is a directory.\n");
    EventsRun full(Portions{{0.1, kCreated}});
    EXPECT_EQ(full.run({"events", "record", "--output", "/dev/full"}), kExitFailed);
    EXPECT_EQ(full.error(), "kavaro: /dev/full: cannot be written: No space left on device.\n");
    ASSERT_EQ(mkfifo(temp.path("pipe").c_str(), 0600), 0);
    for (const bool isRead : {false, true}) {
        const int reader = isRead ? open(temp.path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
        EventsRun pipe;
        EXPECT_EQ(pipe.run({"events", "record", "--output", temp.path("pipe")}), kExitFailed);
        EXPECT_EQ(pipe.error(), "kavaro: " + temp.path("pipe") +
                                    ": is neither a file nor a device: a recording cannot be written there.\n");
        if (isRead) close(reader);
    }
    EventsRun null(Portions{{0.1, kCreated}}, 1);
    EXPECT_EQ(null.run({"events", "record", "--output", "/dev/null"}), kExitDone);
    EXPECT_EQ(null.error(), "2 changes in 1 batch recorded.\n");
    EventsRun watch(Portions{{0.1, kCreated}});
    watch.context.output = open("/dev/full", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(watch.run({"events", "watch"}), kExitFailed);
    close(watch.context.output);
    EXPECT_EQ(watch.error(), "kavaro: standard output: cannot be written: No space left on device.\n");
}

TEST(Events, theyEndWhenTheirReaderIsGone) {
    for (const char* command : {"record", "watch"}) {
        signal(SIGPIPE, SIG_IGN);
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        close(ends[0]);
        EventsRun run;  // where nothing happens
        run.context.output = ends[1];
        EXPECT_EQ(run.run({"events", command}), kExitDone);
        close(ends[1]);
        EXPECT_LT(run.clock.now, 1010);
    }
}

TEST(EventsReplay, filesThatAreNoRecordings) {
    const TempFolder temp;
    ASSERT_EQ(mkfifo(temp.path("pipe").c_str(), 0600), 0);
    temp.write("empty", "");
    temp.write("text", "no row in here, long as it is");
    const std::vector<std::pair<std::string, std::string>> files = {
        {temp.path("none"), "cannot be read: No such file or directory"},
        {temp.path("pipe"), "is no regular file"},
        {temp.path(), "is a folder"},
        {temp.path("empty"), "is no recording of changes"},
        {temp.path("text"), "is no recording of changes"}};
    for (const auto& [path, reason] : files) {
        CommandRun run;
        EXPECT_EQ(run.run({"events", "replay", path}), kExitFailed);
        EXPECT_EQ(run.error(),
                  "kavaro: " + path + ": " + reason + ". Name a file that \"kavaro events record\" has written.\n");
        EXPECT_EQ(run.output(), "");
    }
    for (const std::string& text : {std::string("index="), std::string(kRecordingEnd), std::string("index=index=")}) {
        CommandRun quiet;
        EXPECT_EQ(quiet.run({"events", "replay", temp.write("file", text)}), kExitDone) << text;
        EXPECT_THAT(quiet.output(), HasSubstr("0 batches, 0 changes, 0 changes after coalescing\n"));
        EXPECT_THAT(quiet.error(), Not(HasSubstr("no row"))) << text;
    }
}

TEST(EventsReplay, fewOfManyBrokenRowsAreShownAndTheirBeginning) {
    const TempFolder temp;
    const std::string begin = "\n  index=\"0\"; eventBatch=\"begin\"; batchCount=\"1\"; ";
    const std::string end = "\n  index=\"0\"; eventBatch=\"end\"; batchCount=\"1\"; \n  index=\n";
    CommandRun one;
    const std::string path = temp.write("one", begin + "\n  index=\"0\"; inode=\"1" + end);
    EXPECT_EQ(one.run({"events", "replay", path}), kExitDone);
    EXPECT_THAT(one.error(), testing::StartsWith("kavaro: " + path + ": row 2 is left out: "));
    EXPECT_THAT(one.error(), testing::EndsWith("): index=\"0\"; inode=\"1\n"));
    EXPECT_THAT(one.output(), HasSubstr("1 broken row left out\n"));
    EXPECT_THAT(one.output(), Not(HasSubstr("changes left out")));
    std::string rows;
    for (int i = 0; i < 1000; ++i) rows += "\n  index=\"0\"; inode=\"" + std::string(5000, 'x');
    rows += "\n  index=" + std::string(2 << 20, 'y');
    CommandRun many;
    EXPECT_EQ(many.run({"events", "replay", temp.write("many", begin + rows + end)}), kExitDone);
    EXPECT_LT(many.error().size(), 5 * 500u);
    EXPECT_EQ(std::ranges::count(many.error(), '\n'), 5);
    EXPECT_THAT(many.output(), HasSubstr("1,001 broken rows left out, 996 more than were shown\n"));
    const std::string longRow = temp.write("long", "index=\"0\";\n index=" + std::string(2 << 20, 'y') + end);
    CommandRun tooLong;
    EXPECT_EQ(tooLong.run({"events", "replay", longRow}), kExitDone);
    EXPECT_EQ(tooLong.error(), "kavaro: " + longRow + ": row 2 is left out: 2097161 bytes are too long for a row.\n");
}

TEST(EventsReplay, whatIsLeftOutIsSaid) {
    const TempFolder temp;
    const auto change = [](const char* device, const char* path) {
        return std::string("index=0; inode=1; type=MODIFIED; device=") + device + "; filePath=\"" + path + "\";\n";
    };
    const std::string begin = "index=\"0\"; eventBatch=\"begin\"; batchCount=\"1\";\n";
    const std::string end = "index=\"0\"; eventBatch=\"end\"; batchCount=\"1\";\n";
    const std::string broken = "index=\"0\"; eventBatch=;\n";
    CommandRun run;
    EXPECT_EQ(run.run({"events", "replay",
                       temp.write("file", broken + change("39", "/first") + end + begin + change("39", "/a") +
                                              change("40", "/b") + change("39", "/.fseventsd/c") + end + begin +
                                              change("39", "/d") + change("39", "/d") + broken + begin +
                                              change("39", "/e"))}),
              kExitDone);
    EXPECT_EQ(run.output(),
              "Batch 1: 1 change\n  modified  /a\n\nBatch 1, coalesced: 1 change\n  modified  /a\n\n"
              "1 batch, 1 change, 1 change after coalescing\n"
              "2 broken rows left out\n"
              "6 changes left out: 1 without the start of their batch, 3 without its end, 1 of other devices than 39, "
              "1 in folders that are never followed (docs/recordings.md says more)\n");
    for (const char* text : {"kavaro: 1 items up to row 3 are left out: their start row is missing or broken\n",
                             "kavaro: 2 items up to row 13 are left out: this row starts a batch and none ended ",
                             "kavaro: 1 items up to row 14 are left out: the end row is missing or the last row "})
        EXPECT_THAT(run.error(), HasSubstr(text));
}

}  // namespace
}  // namespace kavaro
