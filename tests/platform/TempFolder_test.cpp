#include "TempFolder.h"

#include "ScopedEnvironment.h"

namespace kavaro {
namespace {

bool exists(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0;
}

TEST(TempFolder, GoesWithAllItHolds) {
    std::string path;
    {
        TempFolder folder;
        path = folder.path();
        folder.makeFolder("a");
        folder.makeFolder("a/b");
        folder.write("a/b/file", "content");
        EXPECT_EQ(folder.read("a/b/file"), "content");
    }
    EXPECT_FALSE(exists(path));
}

TEST(TempFolder, DoesNotFollowLinks) {
    TempFolder outside;
    std::string kept = outside.write("kept", "x");
    {
        TempFolder folder;
        ASSERT_EQ(symlink(outside.path().c_str(), folder.path("link").c_str()), 0);
    }
    EXPECT_TRUE(exists(kept));
}

TEST(TempFolder, RemovesATreeThatIsDeeperThanAPathMayBe) {
    std::string path;
    {
        TempFolder folder;
        path = folder.path();
        int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        for (int level = 0; level < 5000; level++) {
            ASSERT_EQ(mkdirat(fd, "level", 0700), 0);
            int next = openat(fd, "level", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            ASSERT_GE(next, 0);
            close(fd);
            fd = next;
        }
        close(fd);
    }
    EXPECT_FALSE(exists(path));
}

TEST(TempFolder, RemovesFoldersThatMayNotBeReadOrWritten) {
    // Root may read everything: the test is one only as somebody else.
    bool root = geteuid() == 0;
    ScopedEnvironment environment("TMPDIR", "/tmp");
    if (root) {
        ASSERT_EQ(seteuid(65534), 0);
    }
    std::string path;
    {
        TempFolder folder;
        path = folder.path();
        folder.makeFolder("closed");
        folder.write("closed/file", "");
        folder.makeFolder("closed/inner");
        folder.write("closed/inner/file", "");
        EXPECT_EQ(chmod(folder.path("closed/inner").c_str(), 0500), 0);
        EXPECT_EQ(chmod(folder.path("closed").c_str(), 0), 0);
    }
    EXPECT_FALSE(exists(path));
    if (root) {
        EXPECT_EQ(seteuid(0), 0);
    }
}

TEST(ScopedEnvironment, PutsTheOldValuesBack) {
    ScopedEnvironment outer("KAVARO_TEST_VALUE", "outer");
    outer.unset("KAVARO_TEST_ABSENT");
    {
        ScopedEnvironment inner("KAVARO_TEST_VALUE", "inner");
        inner.set("KAVARO_TEST_VALUE", "again");
        inner.set("KAVARO_TEST_ABSENT", "there");
        EXPECT_STREQ(std::getenv("KAVARO_TEST_VALUE"), "again");
        EXPECT_STREQ(std::getenv("KAVARO_TEST_ABSENT"), "there");
    }
    EXPECT_STREQ(std::getenv("KAVARO_TEST_VALUE"), "outer");
    EXPECT_EQ(std::getenv("KAVARO_TEST_ABSENT"), nullptr);
}

}  // namespace
}  // namespace kavaro
