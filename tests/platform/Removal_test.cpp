#include "platform/Removal.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "platform/CatalogListing.h"

namespace kavaro {
namespace {

std::string failureOf(const Removal& removal) {
    return std::to_string(removal.error) + " " + removal.path + ": " + removal.reason;
}

// Makes `levels` folders "d" within each other, each with a file "f".
void makeDeep(const std::string& top, int levels) {
    FileDescriptor folder(open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (int level = 0; level < levels; ++level) {
        ASSERT_EQ(mkdirat(folder.get(), "d", 0755), 0);
        folder.reset(openat(folder.get(), "d", O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (level % 100 == 0) close(openat(folder.get(), "f", O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    }
}

TEST(Removal, TakesATreeAndNothingElse) {
    TempFolder temp;
    temp.makeFolder("tree");
    for (const char* name : {"tree/a", "tree/a/b", "tree/c", "tree/\xff\n\"'"}) temp.makeFolder(name);
    for (const char* name : {"tree/f", "tree/a/f", "tree/a/b/f", "tree/\xff\n\"'/f\n", "treetop"})
        temp.write(name, "x");
    const Removal removal = removeItem(temp.path("tree"), RemovalKind::tree);
    EXPECT_TRUE(removal.ok()) << failureOf(removal);
    EXPECT_FALSE(isThere(temp.path("tree")));
    EXPECT_TRUE(isThere(temp.path("treetop")));
}

TEST(Removal, TakesManyFilesOfOneFolder) {
    TempFolder temp;
    temp.makeFolder("tree");
    for (int number = 0; number < 5000; ++number) temp.write("tree/file" + std::to_string(number), "");
    EXPECT_TRUE(removeItem(temp.path("tree"), RemovalKind::tree).ok());
    EXPECT_FALSE(isThere(temp.path("tree")));
}

TEST(Removal, TakesLinksAndNotWhatTheyLeadTo) {
    TempFolder temp;
    temp.makeFolder("outside");
    temp.write("outside/kept", "x");
    temp.makeFolder("tree");
    ASSERT_EQ(symlink("../outside", temp.path("tree/link").c_str()), 0);
    ASSERT_EQ(symlink("../outside/kept", temp.path("tree/file").c_str()), 0);
    ASSERT_EQ(symlink("outside", temp.path("link").c_str()), 0);
    EXPECT_TRUE(removeItem(temp.path("tree"), RemovalKind::tree).ok());
    EXPECT_TRUE(removeItem(temp.path("link"), RemovalKind::tree).ok());
    EXPECT_FALSE(isThere(temp.path("tree")));
    EXPECT_FALSE(isThere(temp.path("link")));
    EXPECT_TRUE(isThere(temp.path("outside/kept")));

    ASSERT_EQ(symlink("outside", temp.path("link").c_str()), 0);
    const Removal behind = removeItem(temp.path("link/kept"), RemovalKind::tree);
    EXPECT_TRUE(behind.error == ELOOP || behind.error == ENOTDIR) << failureOf(behind);
    EXPECT_NE(behind.reason.find("link"), std::string::npos) << behind.reason;
    EXPECT_TRUE(isThere(temp.path("outside/kept")));
}

TEST(Removal, AFolderThatShouldBeAFileIsRefused) {
    TempFolder temp;
    temp.makeFolder("folder");
    temp.write("file", "");
    const Removal removal = removeItem(temp.path("folder"), RemovalKind::onlyNoFolder);
    EXPECT_EQ(removal.error, EISDIR);
    EXPECT_EQ(removal.reason, "it is a folder, not a file");
    EXPECT_TRUE(isThere(temp.path("folder")));
    EXPECT_TRUE(removeItem(temp.path("file"), RemovalKind::onlyNoFolder).ok());
    EXPECT_EQ(removeItem(temp.path("file"), RemovalKind::onlyNoFolder).error, ENOENT);
    EXPECT_EQ(removeItem(temp.path("absent/file"), RemovalKind::tree).error, ENOENT);
    EXPECT_EQ(removeItem("/", RemovalKind::tree).error, EINVAL);
    EXPECT_EQ(removeItem("relative", RemovalKind::tree).error, EINVAL);
    EXPECT_EQ(removeItem(temp.path("folder/../folder"), RemovalKind::tree).error, EINVAL);
    EXPECT_TRUE(isThere(temp.path("folder")));
}

// With few open files.
TEST(Removal, TakesATreeOf100000Levels) {
    ScopedEnvironment environment;
    if (access("/dev/shm", W_OK) == 0) environment.set("TMPDIR", "/dev/shm");  // some disks need long for a chain
    TempFolder temp;
    temp.makeFolder("tree");
    makeDeep(temp.path("tree"), 100000);
    const std::string text = inChild(false, [&]() -> std::string {
        const rlimit files{40, 40};
        if (setrlimit(RLIMIT_NOFILE, &files) != 0) return "no limit";
        const Removal removal = removeItem(temp.path("tree"), RemovalKind::tree);
        return removal.ok() ? "" : std::to_string(removal.error) + " " + removal.reason;
    });
    EXPECT_EQ(text, "");
    EXPECT_FALSE(isThere(temp.path("tree")));
}

TEST(Removal, HoldsFewFilesOpen) {
    TempFolder temp;
    temp.makeFolder("tree");
    makeDeep(temp.path("tree"), 200);
    const std::string text = inChild(false, [&]() -> std::string {
        const int first = dup(0);
        const rlimit files{static_cast<rlim_t>(first + 20), static_cast<rlim_t>(first + 20)};
        close(first);
        if (setrlimit(RLIMIT_NOFILE, &files) != 0) return "no limit";
        const Removal removal = removeItem(temp.path("tree"), RemovalKind::tree);
        return removal.ok() ? "" : std::to_string(removal.error) + " " + removal.reason;
    });
    EXPECT_EQ(text, "");
}

TEST(Removal, EndsAtWhatMayNotBeRemoved) {
    TempFolder temp;
    ASSERT_EQ(chmod(temp.path().c_str(), 0755), 0);
    temp.makeFolder("tree");
    temp.makeFolder("tree/shut");
    temp.write("tree/shut/file", "");
    if (geteuid() == 0) {
        for (const char* name : {"tree", "tree/shut", "tree/shut/file"})
            ASSERT_EQ(chown(temp.path(name).c_str(), 65534, 65534), 0);
    }
    ASSERT_EQ(chmod(temp.path("tree/shut").c_str(), 0500), 0);
    // What holds it is not the user's either.
    const std::string text = inChild(true, [&]() -> std::string {
        const Removal removal = removeItem(temp.path("tree"), RemovalKind::tree);
        return removal.path + ": " + removal.reason;
    });
    EXPECT_EQ(text, temp.path("tree/shut/file") + ": permission denied");
    EXPECT_TRUE(isThere(temp.path("tree/shut/file")));
    ASSERT_EQ(chmod(temp.path("tree/shut").c_str(), 0000), 0);
    const std::string unreadable = inChild(true, [&]() -> std::string {
        const Removal removal = removeItem(temp.path("tree"), RemovalKind::tree);
        return removal.path + ": " + removal.reason;
    });
    EXPECT_EQ(unreadable, temp.path("tree/shut") + ": permission denied");
    ASSERT_EQ(chmod(temp.path("tree/shut").c_str(), 0700), 0);
    EXPECT_TRUE(removeItem(temp.path("tree"), RemovalKind::tree).ok());
}

// Nothing at all is touched, whatever lies beside the mount.
TEST(Removal, RefusesAFolderInWhichAFileSystemIsMounted) {
    TempFolder temp;
    for (const char* name : {"tree", "tree/a", "tree/a/point", "tree/z"}) temp.makeFolder(name);
    temp.write("tree/file", "");
    const std::string text = inChild(false, [&]() -> std::string {
        const std::string point = temp.path("tree/a/point");
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0)
            return "refused";
        close(open((point + "/kept").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
        Findings findings;
        const Removal whole = removeItem(temp.path("tree"), RemovalKind::tree);
        findings.expect(whole.error == EXDEV, failureOf(whole));
        findings.expect(whole.path == temp.path("tree"), "path " + whole.path);
        findings.expect(whole.reason == "another file system is mounted in it, at " + point, whole.reason);
        const Removal top = removeItem(point, RemovalKind::tree);
        findings.expect(top.error == EBUSY && top.reason == "a file system is mounted there", failureOf(top));
        for (const char* name : {"tree/file", "tree/z", "tree/a/point/kept"})
            findings.expect(isThere(temp.path(name)), std::string(name) + " is gone");
        // A bind mount of a file.
        const std::string file = temp.path("tree/file");
        if (mount((point + "/kept").c_str(), file.c_str(), nullptr, MS_BIND, nullptr) == 0) {
            const Removal bound = removeItem(file, RemovalKind::tree);
            findings.expect(bound.error == EBUSY, failureOf(bound));
        }
        return findings.text();
    });
    if (text == "refused")
        GTEST_SKIP() << "mounts cannot be made here";
    else
        EXPECT_EQ(text, "");
    EXPECT_TRUE(isThere(temp.path("tree/file")));
}

}  // namespace
}  // namespace kavaro
