#include "platform/FileRewrite.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "TempFolder.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class FileRewriteTest : public testing::Test {
  protected:
    std::string path() const { return folder.path("file"); }
    // Gives the file `content`. The reason, or nothing.
    std::string rewrite(std::string_view content, const std::string& path) {
        FileRewrite file;
        const bool ok =
            file.open(path) && file.create() && file.write(0, content.data(), content.size()) && file.commit();
        EXPECT_EQ(ok, file.reason().empty());
        return file.reason();
    }
    static struct stat statusOf(const std::string& path) {
        struct stat info {};
        EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
        return info;
    }
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            names.push_back(entry.path().filename());
        return names;
    }

    TempFolder folder;
};

TEST_F(FileRewriteTest, GivesNewContent) {
    folder.write("file", "old content");
    const ino_t inode = statusOf(path()).st_ino;
    FileRewrite file;
    ASSERT_TRUE(file.open(path())) << file.reason();
    EXPECT_EQ(file.size(), 11u);
    char word[3];
    ASSERT_TRUE(file.read(4, word, sizeof word));
    EXPECT_EQ(std::string_view(word, 3), "con");
    ASSERT_TRUE(file.create());
    ASSERT_TRUE(file.write(0, "new", 3));
    ASSERT_TRUE(file.copy(3, 6, 8));
    EXPECT_EQ(folder.read("file"), "old content");
    EXPECT_THAT(entries(), ElementsAre("file")) << "the new file has no name yet";
    ASSERT_TRUE(file.commit()) << file.reason();
    EXPECT_EQ(folder.read("file"), std::string("new\0\0\0 content", 14));
    EXPECT_THAT(entries(), ElementsAre("file"));
    EXPECT_NE(statusOf(path()).st_ino, inode);
}

// Terabytes of holes must not become terabytes on the disk.
TEST_F(FileRewriteTest, HolesStayHoles) {
    constexpr std::uint64_t kFar = std::uint64_t{1} << 40;
    folder.write("file", "start");
    ASSERT_EQ(truncate(path().c_str(), static_cast<off_t>(kFar)), 0);
    std::ofstream(path(), std::ios::app) << "middle";
    ASSERT_EQ(truncate(path().c_str(), static_cast<off_t>(kFar + (1 << 20))), 0);
    FileRewrite file;
    ASSERT_TRUE(file.open(path()) && file.create() && file.write(0, "new", 3)) << file.reason();
    ASSERT_TRUE(file.copy(0, 100, kFar + (1 << 20))) << file.reason();
    ASSERT_TRUE(file.commit()) << file.reason();
    const struct stat info = statusOf(path());
    EXPECT_EQ(info.st_size, static_cast<off_t>(kFar + (1 << 20) + 100));
    EXPECT_LT(info.st_blocks, 1024);
    std::ifstream stream(path(), std::ios::binary);
    char bytes[8] = {};
    EXPECT_TRUE(stream.seekg(100).read(bytes, 6));
    EXPECT_EQ(std::string(bytes, 6), std::string("start\0", 6));
    EXPECT_TRUE(stream.seekg(static_cast<off_t>(kFar) + 99).read(bytes, 8));
    EXPECT_EQ(std::string(bytes, 8), std::string("\0middle\0", 8));
}

TEST_F(FileRewriteTest, IsGivenUpWithoutATrace) {
    folder.write("file", "old");
    {
        FileRewrite file;
        ASSERT_TRUE(file.open(path()) && file.create() && file.write(0, "new", 3));
    }
    EXPECT_EQ(folder.read("file"), "old");
    EXPECT_THAT(entries(), ElementsAre("file"));
}

TEST_F(FileRewriteTest, ReadsWhatIsThereAndNoMore) {
    folder.write("file", "old");
    FileRewrite file;
    char bytes[8];
    ASSERT_TRUE(file.open(path()));
    EXPECT_FALSE(file.read(0, bytes, 4));
    EXPECT_EQ(file.reason(), "it is shorter than it was");
}

TEST_F(FileRewriteTest, KeepsModeTimesAndExtendedAttributes) {
    folder.write("file", "old");
    ASSERT_EQ(chmod(path().c_str(), 04751), 0);
    const timespec times[2] = {{1000000000, 123456789}, {1100000000, 987654321}};
    ASSERT_EQ(setxattr(path().c_str(), "user.color", "blue\0green", 10, 0), 0);
    ASSERT_EQ(setxattr(path().c_str(), "user.empty", "", 0, 0), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, path().c_str(), times, 0), 0);
    EXPECT_EQ(rewrite("new", path()), "");
    const struct stat info = statusOf(path());
    EXPECT_EQ(info.st_mode, S_IFREG | 04751u);
    EXPECT_EQ(info.st_atim.tv_sec, 1000000000);
    EXPECT_EQ(info.st_atim.tv_nsec, 123456789);
    EXPECT_EQ(info.st_mtim.tv_sec, 1100000000);
    EXPECT_EQ(info.st_mtim.tv_nsec, 987654321);
    char value[32];
    EXPECT_EQ(getxattr(path().c_str(), "user.color", value, sizeof value), 10);
    EXPECT_EQ(std::string_view(value, 10), std::string_view("blue\0green", 10));
    EXPECT_EQ(getxattr(path().c_str(), "user.empty", value, sizeof value), 0);
    EXPECT_EQ(folder.read("file"), "new");
}

// Access lists as the kernel stores them: version 2, then tag, permissions and ID of each entry.
const std::string kAccessList(
    "\2\0\0\0"
    "\1\0\6\0\xff\xff\xff\xff"
    "\2\0\4\0\xe8\3\0\0"
    "\4\0\4\0\xff\xff\xff\xff"
    "\x10\0\4\0\xff\xff\xff\xff"
    "\x20\0\0\0\xff\xff\xff\xff",
    44);

TEST_F(FileRewriteTest, KeepsAccessListsAndTakesNoneFromTheFolder) {
    constexpr const char* kAccess = "system.posix_acl_access";
    folder.write("file", "old");
    folder.write("plain", "old");
    if (setxattr(path().c_str(), kAccess, kAccessList.data(), kAccessList.size(), 0) != 0 && errno == ENOTSUP)
        GTEST_SKIP() << "this file system has no access lists";
    ASSERT_EQ(setxattr(folder.path().c_str(), "system.posix_acl_default", kAccessList.data(), kAccessList.size(), 0),
              0);
    EXPECT_EQ(rewrite("new", path()), "");
    EXPECT_EQ(rewrite("new", folder.path("plain")), "");
    char value[128];
    ASSERT_EQ(getxattr(path().c_str(), kAccess, value, sizeof value), 44);
    EXPECT_EQ(std::string(value, 44), kAccessList);
    EXPECT_EQ(getxattr(folder.path("plain").c_str(), kAccess, value, sizeof value), -1);
    EXPECT_EQ(errno, ENODATA);
    removexattr(folder.path().c_str(), "system.posix_acl_default");
}

TEST_F(FileRewriteTest, KeepsOwnerAndGroup) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may give files away";
    folder.write("file", "old");
    ASSERT_EQ(chown(path().c_str(), 1234, 2345), 0);
    ASSERT_EQ(chmod(path().c_str(), 06755), 0);
    EXPECT_EQ(rewrite("new", path()), "");
    const struct stat info = statusOf(path());
    EXPECT_EQ(info.st_uid, 1234u);
    EXPECT_EQ(info.st_gid, 2345u);
    EXPECT_EQ(info.st_mode, S_IFREG | 06755u);
}

TEST_F(FileRewriteTest, Refusals) {
    EXPECT_EQ(rewrite("new", path()), "it does not exist any more");
    EXPECT_EQ(rewrite("new", "relative"), "its path does not lead to one entry");
    EXPECT_EQ(rewrite("new", folder.path("x/../file")), "its path does not lead to one entry");
    folder.makeFolder("folder");
    EXPECT_EQ(rewrite("new", folder.path("folder")), "it is no file");
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(rewrite("new", folder.path("pipe")), "it is no file");
    folder.write("file", "old");
    ASSERT_EQ(symlink("file", folder.path("link").c_str()), 0);
    EXPECT_EQ(rewrite("new", folder.path("link")), "it is a link, which is not followed");
    ASSERT_EQ(link(path().c_str(), folder.path("second").c_str()), 0);
    EXPECT_EQ(rewrite("new", path()), "it has 2 names (hard links), and the others would keep the old content");
    EXPECT_EQ(folder.read("file"), "old");
}

TEST_F(FileRewriteTest, WhatChangesMeanwhileIsLeftAlone) {
    const auto afterwards = [this](const std::function<void()>& change) {
        folder.write("file", "old");
        FileRewrite file;
        EXPECT_TRUE(file.open(path()) && file.create() && file.write(0, "new", 3)) << file.reason();
        change();
        EXPECT_FALSE(file.commit());
        return file.reason();
    };
    EXPECT_EQ(afterwards([this] { chmod(path().c_str(), 0640); }), "it was changed meanwhile");
    EXPECT_EQ(statusOf(path()).st_mode, S_IFREG | 0640u);
    EXPECT_EQ(afterwards([this] { link(path().c_str(), folder.path("second").c_str()); }), "it was changed meanwhile");
    unlink(folder.path("second").c_str());
    EXPECT_EQ(afterwards([this] {
                  folder.write("another", "another");
                  rename(folder.path("another").c_str(), path().c_str());
              }),
              "it was changed meanwhile")
        << "the old one has no name any more";
    EXPECT_EQ(folder.read("file"), "another");
    // Moving a file changes its times, which may be too coarse to tell.
    EXPECT_THAT(afterwards([this] {
                    rename(path().c_str(), folder.path("moved").c_str());
                    folder.write("file", "another");
                }),
                testing::AnyOf("it was changed meanwhile", "another file took its place meanwhile"));
    EXPECT_EQ(folder.read("file"), "another");
    EXPECT_EQ(folder.read("moved"), "old");
}

// Who wants to write gets a refusal while the file is being rewritten, and the rewriting ends.
TEST_F(FileRewriteTest, AWriterComesMeanwhile) {
    folder.write("file", std::string(3 << 20, 'o'));
    std::string reason;
    {
        FileRewrite file;
        ASSERT_TRUE(file.open(path()) && file.create());
        EXPECT_EQ(open(path().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), -1);
        EXPECT_EQ(errno, EWOULDBLOCK);
        EXPECT_FALSE(file.copy(0, 0, 3 << 20));
        reason = file.reason();
    }
    EXPECT_EQ(reason, "another program opens it for writing");
    const int writer = open(path().c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_GE(writer, 0);
    EXPECT_EQ(rewrite("new", path()), "another program has it open for writing");
    close(writer);
    EXPECT_EQ(rewrite("new", path()), "");
}

// Neither by the kernel's signal at the limit, nor by the one that tells of a writer.
TEST_F(FileRewriteTest, NoSignalEndsTheProcess) {
    folder.write("file", "old");
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{2, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const std::string reason = rewrite("new content", path());
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(reason, "the new file cannot be written: File too large");
    EXPECT_EQ(folder.read("file"), "old");
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGXFSZ), 0);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGXFSZ), 0);
}

TEST_F(FileRewriteTest, AFullDisk) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may mount a small disk";
    const std::string disk = folder.makeFolder("disk");
    if (mount("none", disk.c_str(), "tmpfs", 0, "size=256k") != 0) GTEST_SKIP() << "mounting is not allowed here";
    const std::string old(150'000, 'o');
    folder.write("disk/file", old);
    const std::string reason = rewrite(std::string(150'000, 'n'), disk + "/file");
    const std::string left = folder.read("disk/file");
    const auto entries = std::distance(std::filesystem::directory_iterator(disk), {});
    const std::string fits = rewrite(std::string(50'000, 'n'), disk + "/file");
    EXPECT_EQ(umount(disk.c_str()), 0);
    EXPECT_EQ(reason, "the new file cannot be written: No space left on device");
    EXPECT_EQ(left, old);
    EXPECT_EQ(entries, 1);
    EXPECT_EQ(fits, "");
}

// A part of the path becomes a link to a folder outside, again and again: nothing there may change.
TEST_F(FileRewriteTest, NoLinkIsFollowedThatComesMeanwhile) {
    folder.makeFolder("outside");
    folder.makeFolder("inside");
    folder.write("outside/file", "precious");
    folder.write("inside/file", "0");
    std::atomic<bool> ends{false};
    std::thread swapper([&] {
        ASSERT_EQ(symlink("outside", folder.path("link").c_str()), 0);
        while (!ends) {
            rename(folder.path("inside").c_str(), folder.path("aside").c_str());
            rename(folder.path("link").c_str(), folder.path("inside").c_str());
            rename(folder.path("inside").c_str(), folder.path("link").c_str());
            rename(folder.path("aside").c_str(), folder.path("inside").c_str());
        }
    });
    int done = 0;
    for (int i = 0; i < 1'000'000 && done < 50; ++i) {
        if (rewrite(std::to_string(i), folder.path("inside/file")).empty())
            ++done;
        else
            std::this_thread::yield();  // the folder may be away until the other thread comes on again
    }
    ends = true;
    swapper.join();
    EXPECT_GT(done, 0);
    EXPECT_EQ(folder.read("outside/file"), "precious");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path("outside")), {}), 1);
}

}  // namespace
}  // namespace kavaro
