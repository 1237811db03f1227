#include "platform/FileContent.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TempFolder.h"

namespace kavaro {
namespace {

TEST(FileContent, AFileIsReadWhole) {
    TempFolder temp;
    const std::string text = std::string("a\0b", 3) + std::string(100000, 'x');
    std::string content = "old";
    EXPECT_EQ(readFileAtPath(temp.write("file", text), 1 << 20, &content), 0);
    EXPECT_EQ(content, text);
    EXPECT_EQ(readFileAtPath(temp.write("empty", ""), 0, &content), 0);
    EXPECT_EQ(content, "");
}

TEST(FileContent, OneByteTooManyIsRefused) {
    TempFolder temp;
    const std::string path = temp.write("file", std::string(50000, 'x'));
    std::string content;
    EXPECT_EQ(readFileAtPath(path, 50000, &content), 0);
    EXPECT_EQ(readFileAtPath(path, 49999, &content), EFBIG);
    EXPECT_EQ(readFileAtPath("/proc/self/maps", 1, &content), EFBIG);
}

TEST(FileContent, AFolderThatCannotBeMadeHasTheReason) {
    TempFolder temp;
    EXPECT_EQ(makePrivateFolder(temp.path("a/b")), 0);
    EXPECT_EQ(makePrivateFolder(temp.path("a/b")), 0);
    EXPECT_EQ(makePrivateFolder(temp.write("file", "")), ENOTDIR);
    EXPECT_EQ(makePrivateFolder(temp.path("file/a")), ENOTDIR);
    // Where nobody makes folders, with a reason that is not that there is none.
    ASSERT_EQ(mkdir("/sys/kavaro", 0700), -1);
    const int error = errno;
    EXPECT_NE(error, ENOENT);
    EXPECT_EQ(makePrivateFolder("/sys/kavaro"), error);
}

TEST(FileContent, AFileInPieces) {
    TempFolder temp;
    std::string text;
    for (int line = 0; line < 50000; ++line) text += std::to_string(line) + "\n";
    std::string content;
    int pieces = 0;
    const auto take = [&](std::string_view piece) {
        content += piece;
        ++pieces;
    };
    EXPECT_EQ(readFileInPieces(temp.write("file", text), take), 0);
    EXPECT_EQ(content, text);
    EXPECT_GT(pieces, 1);
    pieces = 0;
    EXPECT_EQ(readFileInPieces(temp.write("empty", ""), take), 0);
    EXPECT_EQ(readFileInPieces(temp.path("missing"), take), ENOENT);
    EXPECT_EQ(readFileInPieces("/dev/zero", take), EINVAL);
    EXPECT_EQ(pieces, 0);
}

// None of these is waited for.
TEST(FileContent, WhatIsNoRegularFileIsRefused) {
    TempFolder temp;
    std::string content;
    ASSERT_EQ(mkfifo(temp.path("pipe").c_str(), 0666), 0);
    EXPECT_EQ(readFileAtPath(temp.path("pipe"), 100, &content), EINVAL);
    EXPECT_EQ(readFileAtPath("/dev/zero", 100, &content), EINVAL);
    EXPECT_EQ(readFileAtPath(temp.makeFolder("folder"), 100, &content), EISDIR);
    EXPECT_EQ(readFileAtPath(temp.path("absent"), 100, &content), ENOENT);
    EXPECT_EQ(readFileAtPath("", 100, &content), ENOENT);
    EXPECT_EQ(readFileAtPath(temp.write("file", "") + std::string("\0x", 2), 100, &content), ENOENT);
}

TEST(FileContent, LinksAreFollowed) {
    TempFolder temp;
    temp.write("file", "text");
    ASSERT_EQ(symlink("file", temp.path("link").c_str()), 0);
    ASSERT_EQ(symlink("loop", temp.path("loop").c_str()), 0);
    std::string content;
    EXPECT_EQ(readFileAtPath(temp.path("link"), 100, &content), 0);
    EXPECT_EQ(content, "text");
    EXPECT_EQ(readFileAtPath(temp.path("loop"), 100, &content), ELOOP);
}

TEST(FileContent, APathMayBeLongerThanASystemCallTakes) {
    TempFolder temp;
    const std::string name(200, 'n');
    std::string path = temp.path();
    int folder = open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    while (path.size() < PATH_MAX + 100) {
        ASSERT_EQ(mkdirat(folder, name.c_str(), 0777), 0);
        const int next = openat(folder, name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        close(folder);
        folder = next;
        path += "/" + name;
    }
    const int file = openat(folder, "file", O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
    ASSERT_EQ(write(file, "deep", 4), 4);
    close(file);
    close(folder);
    std::string content;
    EXPECT_EQ(readFileAtPath(path + "/file", 100, &content), 0);
    EXPECT_EQ(content, "deep");
}

}  // namespace
}  // namespace kavaro
