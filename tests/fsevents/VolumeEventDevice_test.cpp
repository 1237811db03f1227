// Changes of a real volume through records to events. Needs administrator rights; without them, that is said.
#include "fsevents/VolumeEventDevice.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>

#include "LogCapture.h"
#include "TempFolder.h"
#include "fsevents/KernelRecord.h"
#include "fsevents/Records.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

std::string encoded(const FileSystemChange& change, std::vector<std::size_t>* ends) {
    ByteBuffer records;
    VolumeEventDevice::encode(change, kTestDevice, records, *ends);
    return std::string(textOf(records.view()));
}

FileSystemChange changeOf(std::uint32_t what) {
    FileSystemChange change;
    change.what = what;
    change.process = 77;
    change.inode = 0x500000005;  // its low half goes into the record
    change.path = "/a";
    change.destination = "/b";
    return change;
}

TEST(VolumeEventDevice, recordsByteForByte) {
    std::vector<std::size_t> ends;
    const std::string a = place("/a", 5), b = place("/b", 5);
    EXPECT_EQ(encoded(changeOf(0x1F), &ends), kernelRecord(0, a) + kernelRecord(4, a) + kernelRecord(2, a) +
                                                  kernelRecord(3, a + b) + kernelRecord(1, a));
    const std::size_t one = kernelRecord(0, a).size();
    EXPECT_THAT(ends, ElementsAre(one, 2 * one, 3 * one, 4 * one + b.size(), 5 * one + b.size()));
    FileSystemChange folder = changeOf(FileSystemChange::kCreated);
    folder.isFolder = true;
    EXPECT_EQ(encoded(folder, &ends), kernelRecord(7, a));
    FileSystemChange again = changeOf(FileSystemChange::kCreated | FileSystemChange::kDeleted);
    again.isThereAgain = true;
    EXPECT_EQ(encoded(again, &ends), kernelRecord(1, a) + kernelRecord(0, a));
}

// Does `body` in another process: what this one does is left out.
void elsewhere(const std::function<bool()>& body) {
    const pid_t child = fork();
    if (child == 0) _exit(body() ? 0 : 1);
    int status = 1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

class VolumeEvents : public testing::Test {
  protected:
    void SetUp() override {
        // A volume that nobody else uses: events of an inode meet, and a disk gives numbers of what is gone again.
        isMounted = unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                    mount("tmpfs", temp.path().c_str(), "tmpfs", 0, "size=64m") == 0;
        EventDevice::Problem problem;
        device = VolumeEventDevice::open(temp.path(), &problem);
        if (device) {
            TuvFSEvent::setAcceptedDevice(device->device());
            return;
        }
        EXPECT_EQ(problem.text, "Operation not permitted");
        EXPECT_FALSE(problem.isVolume);
        EXPECT_TRUE(problem.needsRights);
        [] { GTEST_SKIP() << "no rights to watch here: only the refusal was checked"; }();
    }
    void TearDown() override { EXPECT_TRUE(!isMounted || umount2(temp.path().c_str(), MNT_DETACH) == 0); }
    // Reads, a few bytes at a time, until the folder named last has been created, and gives what waits below the
    // test's folder with that folder left out.
    std::vector<std::string> events(int length) {
        const std::string end = temp.path("end");
        elsewhere([&] { return mkdir(end.c_str(), 0755) == 0; });
        std::vector<std::uint8_t> buffer(static_cast<std::size_t>(length));
        struct stat info {};
        EXPECT_EQ(stat(end.c_str(), &info), 0);
        const auto inode = static_cast<std::uint32_t>(info.st_ino);
        while (!reader.listener.events().eventWithInode(inode)) {
            const int got = device->read(buffer.data(), length, 20);
            EXPECT_FALSE(device->isGone());
            EXPECT_LE(got, length);
            TuvFSEvents_print_event(&reader.listener, buffer.data(), got);
        }
        std::vector<std::string> texts;
        for (std::string& text : reader.events()) {
            if (text.find(temp.path() + "/") == std::string::npos || text.ends_with("/end")) continue;
            for (std::size_t at; (at = text.find(temp.path())) != std::string::npos;)
                text.erase(at, temp.path().size());
            texts.push_back(text);
        }
        rmdir(end.c_str());
        return texts;
    }
    std::string inode(const char* name) const {
        struct stat info {};
        EXPECT_EQ(lstat(temp.path(name).c_str(), &info), 0) << name;
        return std::to_string(info.st_ino);
    }

    TempFolder temp;
    bool isMounted = false;
    std::unique_ptr<EventDevice> device;
    RecordReader reader;
};

TEST_F(VolumeEvents, arriveWithTypePathInodeAndDestination) {
    if (!device) return;
    elsewhere([&] {
        const auto at = [&](const char* name) { return temp.path(name); };
        return mkdir(at("folder").c_str(), 0755) == 0 && symlink("x", at("made").c_str()) == 0 &&
               symlink("x", at("folder/1").c_str()) == 0 && rename(at("folder/1").c_str(), at("2").c_str()) == 0 &&
               symlink("x", at("gone").c_str()) == 0 && unlink(at("gone").c_str()) == 0;
    });
    const std::string moved = inode("2");
    EXPECT_THAT(events(record::kReadSize), UnorderedElementsAre("CREATE_DIR " + inode("folder") + " /folder",
                                                                "CREATE_FILE " + inode("made") + " /made",
                                                                "CREATE_FILE " + moved + " /folder/1 + RENAME"));
    elsewhere([&] { return rename(temp.path("2").c_str(), temp.path("folder/3").c_str()) == 0; });
    // A buffer that takes one record.
    EXPECT_THAT(events(300), ElementsAre("RENAME " + moved + " /2 -> " + moved + " /folder/3"));
}

TEST_F(VolumeEvents, ownChangesAndOwnOutputAreLeftOut) {
    if (!device) return;
    const int before = dup(STDERR_FILENO);
    const int log = open(temp.path("log").c_str(), O_CREAT | O_RDWR | O_APPEND | O_CLOEXEC, 0644);
    ASSERT_GE(log, 0);
    dup2(log, STDERR_FILENO);
    EventDevice::Problem problem;
    device = VolumeEventDevice::open(temp.path(), &problem);
    elsewhere([&] { return write(log, "line\n", 5) == 5; });
    temp.write("mine", "x");
    elsewhere([&] { return symlink("x", temp.path("theirs").c_str()) == 0; });
    dup2(before, STDERR_FILENO);
    EXPECT_THAT(events(record::kReadSize), ElementsAre("CREATE_FILE " + inode("theirs") + " /theirs"));
    close(before);
    close(log);
}

TEST_F(VolumeEvents, aFullQueueIsAnError) {
    if (!device) return;
    int most = 0;
    std::ifstream("/proc/sys/fs/fanotify/max_queued_events") >> most;
    ASSERT_GT(most, 0);
    if (most > 100'000) {
        [] { GTEST_SKIP() << "the queue of this system is too long to fill"; }();
        return;
    }
    LogCapture log;
    FileSystemWatch::Options options;
    options.unlimitedQueue = false;
    FileSystemWatch::Problem problem;
    VolumeEventDevice limited(FileSystemWatch::open(temp.path(), options, &problem));
    for (int i = 0; i <= most; ++i) ASSERT_EQ(symlink("x", temp.path(std::to_string(i)).c_str()), 0);
    std::uint8_t buffer[record::kReadSize];
    while (limited.read(buffer, sizeof buffer, 0) > 0) {
    }
    EXPECT_EQ(limited.overflows(), 1);
    EXPECT_EQ(log.count(LogLevel::error, "The kernel's queue of events was full: changes of " + temp.path()), 1);
}

TEST(VolumeEventDevice, aVolumeThatIsNotThere) {
    EventDevice::Problem problem;
    EXPECT_EQ(VolumeEventDevice::open("/none at all", &problem), nullptr);
    EXPECT_EQ(problem.text, "/none at all: No such file or directory");
    EXPECT_TRUE(problem.isVolume);
}

}  // namespace
}  // namespace kavaro
