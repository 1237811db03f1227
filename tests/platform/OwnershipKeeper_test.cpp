#include "platform/OwnershipKeeper.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "TempFolder.h"

namespace kavaro {
namespace {

class OwnershipKeeperTest : public testing::Test {
  protected:
    OwnershipKeeperTest() {
        _folder.write("file", "x");
        setMode("file", 0640);
    }
    std::string path(const std::string& name = "file") const { return _folder.path(name); }
    void setMode(const std::string& name, mode_t mode) { ASSERT_EQ(chmod(path(name).c_str(), mode), 0) << name; }
    mode_t modeOf(const std::string& name = "file") const {
        struct stat info {};
        EXPECT_EQ(lstat(path(name).c_str(), &info), 0);
        return info.st_mode & 07777;
    }
    void move(const std::string& from, const std::string& to) {
        ASSERT_EQ(std::rename(path(from).c_str(), path(to).c_str()), 0);
    }
    bool keepsBirthTimes() const {
        struct statx record {};
        return statx(0, path().c_str(), 0, STATX_BTIME, &record) == 0 && (record.stx_mask & STATX_BTIME) != 0;
    }

    // File times go in steps of some milliseconds.
    static void waitForTheNextFileTime() {
        const auto tick = [] {
            timespec now{};
            clock_gettime(CLOCK_REALTIME_COARSE, &now);
            return std::pair(now.tv_sec, now.tv_nsec);
        };
        const auto start = tick();
        while (tick() == start) {
        }
    }

    TempFolder _folder;
};

TEST_F(OwnershipKeeperTest, TheSameFileGetsItBack) {
    const bool isRoot = geteuid() == 0;
    if (isRoot) {
        ASSERT_EQ(chown(path().c_str(), 1234, 2345), 0);
    }
    setMode("file", 04711);
    const OwnershipKeeper kept(path());
    if (isRoot) {
        ASSERT_EQ(chown(path().c_str(), 0, 0), 0);
    }
    setMode("file", 0777);
    EXPECT_EQ(kept.now()->permissions, 0777u);
    ASSERT_EQ(kept.giveBack(), 0);
    EXPECT_EQ(modeOf(), 04711u);
    EXPECT_EQ(kept.now()->owner, kept.before()->owner);
    EXPECT_EQ(kept.now()->group, kept.before()->group);
    EXPECT_EQ(kept.now()->owner, isRoot ? 1234u : geteuid());
}

TEST_F(OwnershipKeeperTest, AFileMadeSinceThenGetsIt) {
    const OwnershipKeeper kept(path());
    _folder.write("new", "y");
    setMode("new", 0777);
    move("new", "file");
    const int error = kept.giveBack();
    EXPECT_EQ(error, keepsBirthTimes() ? 0 : EPERM);
    EXPECT_EQ(modeOf(), keepsBirthTimes() ? 0640u : 0777u);
}

// The content may be somebody else's.
TEST_F(OwnershipKeeperTest, SetIDBitsGoToTheSameFileAlone) {
    setMode("file", 04755);
    const OwnershipKeeper kept(path());
    _folder.write("new", "y");
    setMode("new", 0700);
    move("new", "file");
    EXPECT_EQ(kept.giveBack(), EPERM);
    EXPECT_EQ(modeOf(), 0700u);
}

// Somebody who may rename entries there would have it given what is not its own.
TEST_F(OwnershipKeeperTest, AFileThatWasThereBeforeGetsNothing) {
    _folder.write("other", "y");
    setMode("other", 0600);
    waitForTheNextFileTime();
    const OwnershipKeeper kept(path());
    move("other", "file");
    EXPECT_EQ(kept.giveBack(), EPERM);
    EXPECT_EQ(modeOf(), 0600u);
}

TEST_F(OwnershipKeeperTest, AFileOfSomebodyElseGetsNothing) {
    if (geteuid() != 0) return;  // nobody else can give files away
    const OwnershipKeeper kept(path());
    _folder.write("theirs", "y");
    ASSERT_EQ(chown(path("theirs").c_str(), 1234, 1234), 0);
    setMode("theirs", 0755);
    move("theirs", "file");
    EXPECT_EQ(kept.giveBack(), EPERM);
    EXPECT_EQ(kept.now()->owner, 1234u);
}

TEST_F(OwnershipKeeperTest, LinksAreNotFollowed) {
    _folder.makeFolder("real");
    _folder.write("real/file", "x");
    setMode("real/file", 0600);
    ASSERT_EQ(symlink("real", path("way").c_str()), 0);
    const OwnershipKeeper onTheWay(path("way/file"));
    EXPECT_FALSE(onTheWay.before());
    EXPECT_FALSE(onTheWay.now());
    EXPECT_NE(onTheWay.giveBack(), 0);
    const OwnershipKeeper kept(path());
    ASSERT_EQ(unlink(path().c_str()), 0);
    ASSERT_EQ(symlink("real/file", path().c_str()), 0);
    EXPECT_EQ(kept.giveBack(), ELOOP);
    EXPECT_EQ(modeOf("real/file"), 0600u);
}

// The folder that was looked at is the one that counts, wherever its path leads by then.
TEST_F(OwnershipKeeperTest, TheFolderStays) {
    _folder.makeFolder("here");
    _folder.write("here/file", "x");
    setMode("here/file", 0640);
    _folder.makeFolder("precious");
    _folder.write("precious/file", "x");
    setMode("precious/file", 0600);
    const OwnershipKeeper kept(path("here/file"));
    setMode("here/file", 0777);
    move("here", "there");
    ASSERT_EQ(symlink("precious", path("here").c_str()), 0);
    EXPECT_EQ(kept.giveBack(), 0);
    EXPECT_EQ(modeOf("there/file"), 0640u);
    EXPECT_EQ(modeOf("precious/file"), 0600u);
}

TEST_F(OwnershipKeeperTest, FilesWithSeveralNamesAndOtherEntriesGetNothing) {
    const OwnershipKeeper kept(path());
    ASSERT_EQ(link(path().c_str(), path("second").c_str()), 0);
    EXPECT_EQ(kept.giveBack(), EMLINK);
    ASSERT_EQ(unlink(path().c_str()), 0);
    EXPECT_EQ(kept.giveBack(), ENOENT);
    EXPECT_FALSE(kept.now());
    _folder.makeFolder("file");
    EXPECT_EQ(kept.giveBack(), EINVAL);
    const OwnershipKeeper absent(path("absent"));
    EXPECT_FALSE(absent.before());
    EXPECT_EQ(absent.giveBack(), ENOENT);
}

}  // namespace
}  // namespace kavaro
