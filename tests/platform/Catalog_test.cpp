#include "platform/Catalog.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "platform/FileSystemType.h"

namespace kavaro {
namespace {

constexpr std::int64_t k1904 = -2082844800;  // 1904-01-01 00:00:00 UTC

// The way readers of the record form seconds: its eight bytes as one number, without the lowest 16 bits.
std::uint64_t secondsOf(const UTCDateTime& date) {
    unsigned char bytes[8];
    std::memcpy(bytes, &date.highSeconds, 2);
    std::memcpy(bytes + 2, &date.lowSeconds, 4);
    std::memcpy(bytes + 6, &date.fraction, 2);
    std::uint64_t value;
    std::memcpy(&value, bytes, 8);
    return value >> 16;
}

TEST(CatalogDate, countsFrom1904) {
    EXPECT_EQ(secondsOf(catalogDate(0)), 2082844800u);
    EXPECT_EQ(secondsOf(catalogDate(-1)), 2082844799u);
    EXPECT_EQ(secondsOf(catalogDate(1000000000)), 3082844800u);
    EXPECT_EQ(secondsOf(catalogDate(k1904 + 1)), 1u);
    const UTCDateTime date = catalogDate(0);
    EXPECT_EQ(date.lowSeconds, 2082844800u);
    EXPECT_EQ(date.highSeconds, 0u);
    EXPECT_EQ(date.fraction, 0u);
}

TEST(CatalogDate, goesBeyond32Bits) {
    EXPECT_EQ(secondsOf(catalogDate(2212122495)), 0xffffffffu);     // 2040-02-06 06:28:15
    EXPECT_EQ(secondsOf(catalogDate(2212122496)), 0x100000000u);    // one second later
    EXPECT_EQ(secondsOf(catalogDate(4102444800)), 6185289600u);     // 2100-01-01
    EXPECT_EQ(secondsOf(catalogDate(INT64_MAX)), 0xffffffffffffu);  // the last one that fits
}

TEST(CatalogDate, isNeverNoDate) {
    EXPECT_EQ(secondsOf(catalogDate(k1904)), 1u);
    EXPECT_EQ(secondsOf(catalogDate(k1904 - 1)), 1u);
    EXPECT_EQ(secondsOf(catalogDate(INT64_MIN)), 1u);
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

TEST(FileReference, closesItsFileOnce) {
    const int first = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int second = open("/dev/null", O_RDONLY | O_CLOEXEC);
    {
        FileReference a;
        a.fd = first;
        a.isDirectory = true;
        a.openError = 7;
        a.excludedReason = kReasonVanished;
        FileReference b(std::move(a));
        EXPECT_EQ(a.fd, -1);  // NOLINT(bugprone-use-after-move): a reference that was taken is empty
        EXPECT_EQ(b.fd, first);
        EXPECT_TRUE(b.isDirectory);
        EXPECT_EQ(b.openError, 7);
        EXPECT_STREQ(b.excludedReason, kReasonVanished);
        FileReference c;
        c.fd = second;
        c = std::move(b);
        EXPECT_EQ(c.fd, first);
        EXPECT_FALSE(isOpen(second));
        FileReference& self = c;
        c = std::move(self);
        EXPECT_EQ(c.fd, first);
        EXPECT_TRUE(isOpen(first));
    }
    EXPECT_FALSE(isOpen(first));
}

TEST(FileSystemType, tellsPseudoFileSystems) {
    EXPECT_TRUE(isPseudoFileSystemType(0x9fa0));       // proc
    EXPECT_TRUE(isPseudoFileSystemType(0x62656572));   // sysfs
    EXPECT_TRUE(isPseudoFileSystemType(0x63677270));   // cgroup2
    EXPECT_TRUE(isPseudoFileSystemType(0xde5e81e4));   // efivarfs, above 2^31
    EXPECT_FALSE(isPseudoFileSystemType(0x01021994));  // tmpfs, devtmpfs
    EXPECT_FALSE(isPseudoFileSystemType(0x858458f6));  // ramfs
    EXPECT_FALSE(isPseudoFileSystemType(0xef53));      // ext4
    EXPECT_FALSE(isPseudoFileSystemType(0x794c7630));  // overlayfs
    EXPECT_FALSE(isPseudoFileSystemType(0x65735546));  // fuse
    FileReference folder;
    folder.fd = open("/proc", O_PATH | O_CLOEXEC);
    EXPECT_TRUE(isOnPseudoFileSystem(folder.fd));
    EXPECT_FALSE(isOnPseudoFileSystem(-1));
}

}  // namespace
}  // namespace kavaro
