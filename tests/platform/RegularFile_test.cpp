#include "platform/RegularFile.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "TempFolder.h"

namespace kavaro {
namespace {

TEST(RegularFile, IsOpenForReading) {
    TempFolder folder;
    RegularFile file;
    ASSERT_EQ(file.open(folder.write("a", "abc")), 0);
    EXPECT_EQ(file.status().st_size, 3);
    char bytes[4] = "";
    EXPECT_EQ(read(file.fd(), bytes, 4), 3);
    EXPECT_STREQ(bytes, "abc");
    EXPECT_EQ(write(file.fd(), "x", 1), -1);
    ASSERT_EQ(symlink("a", folder.path("link").c_str()), 0);
    EXPECT_EQ(file.open(folder.path("link")), 0);
}

TEST(RegularFile, PathsMayBeOfAnyLength) {
    TempFolder folder;
    std::string path = folder.path();
    for (int i = 0; i < 30; ++i) path += "/" + std::string(200, 'd');
    RegularFile file;
    EXPECT_EQ(file.open(path + "/a"), ENOENT) << "and not ENAMETOOLONG";
}

TEST(RegularFile, WhatIsNoneIsNotOpened) {
    TempFolder folder;
    RegularFile file;
    EXPECT_EQ(file.open(folder.path("absent")), ENOENT);
    EXPECT_EQ(file.open(std::string("a\0b", 3)), ENOENT);
    EXPECT_EQ(file.open(folder.path()), EISDIR);
    EXPECT_EQ(file.open("/dev/null"), EINVAL);
    EXPECT_LT(file.fd(), 0);
    // Who opens a queue for reading lets a writer in: none comes in here.
    ASSERT_EQ(mkfifo(folder.path("queue").c_str(), 0600), 0);
    EXPECT_EQ(file.open(folder.path("queue")), EINVAL);
    EXPECT_EQ(open(folder.path("queue").c_str(), O_WRONLY | O_NONBLOCK), -1);
    EXPECT_EQ(errno, ENXIO) << "nobody has it open for reading";
}

}  // namespace
}  // namespace kavaro
