#include "platform/FileStatus.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "TempFolder.h"

namespace kavaro {
namespace {

TEST(FileStatus, IsThatOfTheFileOrLinkItself) {
    TempFolder folder;
    folder.write("file", "1234");
    ASSERT_EQ(symlink("file", folder.path("link").c_str()), 0);
    struct stat status {};
    ASSERT_EQ(fileStatusAtPath(folder.path("file"), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(status.st_size, 4);
    ASSERT_EQ(fileStatusAtPath(folder.path("link"), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_EQ(fileStatusAtPath(folder.path("none"), &status), ENOENT);
    EXPECT_EQ(fileStatusAtPath(folder.path("file/below"), &status), ENOTDIR);
    EXPECT_EQ(fileStatusAtPath(folder.path("file") + std::string(1, '\0'), &status), ENOENT);
}

TEST(FileStatus, OfAFolderIsThatOfWhereLinksLead) {
    TempFolder folder;
    folder.makeFolder("folder");
    folder.write("file", "");
    ASSERT_EQ(symlink("folder", folder.path("link").c_str()), 0);
    struct stat direct {};
    struct stat behindLink {};
    ASSERT_EQ(fileStatusAtPath(folder.path("folder"), &direct), 0);
    ASSERT_EQ(folderStatusAtPath(folder.path("link"), &behindLink), 0);
    EXPECT_EQ(behindLink.st_ino, direct.st_ino);
    EXPECT_EQ(folderStatusAtPath(folder.path("file"), &direct), ENOTDIR);
    EXPECT_EQ(folderStatusAtPath(folder.path("none"), &direct), ENOENT);
    EXPECT_EQ(folderStatusAtPath(folder.path("folder") + std::string(1, '\0'), &direct), ENOENT);
}

TEST(FileStatus, OfAPathThatIsTooLongForTheKernel) {
    TempFolder folder;
    const std::string name(200, 'd');
    std::string path = folder.path();
    int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < 30; ++level) {
        ASSERT_EQ(mkdirat(fd, name.c_str(), 0700), 0);
        const int next = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
        close(fd);
        ASSERT_GE(fd = next, 0);
        path += "/" + name;
    }
    ASSERT_EQ(symlinkat("nowhere", fd, "link"), 0);
    close(fd);
    struct stat status {};
    ASSERT_EQ(fileStatusAtPath(path + "/link", &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_EQ(fileStatusAtPath(path + "/none", &status), ENOENT);
}

}  // namespace
}  // namespace kavaro
