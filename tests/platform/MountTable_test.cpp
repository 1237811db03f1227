#include "platform/MountTable.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdio>

#include "TempFolder.h"
#include "platform/CatalogListing.h"
#include "platform/EntryStatus.h"

namespace kavaro {
namespace {

TEST(MountTable, LinesAreReadAndNonsenseIsLeftOut) {
    const std::vector<Mount> mounts = MountTable::parse(
        "21 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
        "36 21 0:33 /root /mnt/with\\040blank\\011tab\\012line\\134back rw - tmpfs tmpfs rw\n"
        "x 21 0:33 / /mnt/no-number rw - tmpfs tmpfs rw\n"
        "12x 21 0:33 / /mnt/no-number rw - tmpfs tmpfs rw\n"
        "37 21 0:33 / relative rw - tmpfs tmpfs rw\n"
        "38 21\n"
        "\n"
        "39 21 0:34 / /last\\9 rw");
    ASSERT_EQ(mounts.size(), 3u);
    EXPECT_EQ(mounts[0].id, 21u);
    EXPECT_EQ(mounts[0].point, "/");
    EXPECT_EQ(mounts[1].point, "/mnt/with blank\ttab\nline\\back");
    EXPECT_EQ(mounts[2].point, "/last\\9");
    EXPECT_TRUE(MountTable::parse("").empty());
}

TEST(MountTable, KnowsTheMountOfAFolder) {
    MountTable mounts;
    ASSERT_FALSE(mounts.mounts().empty());
    EntryStatus status;
    ASSERT_EQ(readStatus(AT_FDCWD, "/proc/self", &status), 0);
    const Mount* mount = mounts.withID(status.mount);
    ASSERT_NE(mount, nullptr);
    EXPECT_EQ(mount->point, "/proc");
    EXPECT_EQ(mounts.withID(~std::uint64_t{0}), nullptr);
    EXPECT_TRUE(mounts.firstBelow("/"));
    EXPECT_FALSE(mounts.firstBelow("/pro"));
    TempFolder temp;
    EXPECT_FALSE(mounts.firstBelow(temp.path()));
}

TEST(MountTable, HearsOfWhatIsMountedLater) {
    TempFolder temp;
    temp.makeFolder("inner");
    temp.makeFolder("inner/point");
    const std::string text = inChild(false, [&]() -> std::string {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return "refused";
        MountTable mounts;
        Findings findings;
        findings.expect(!mounts.firstBelow(temp.path("inner")), "nothing is mounted yet");
        const std::string point = temp.path("inner/point");
        if (mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0) return "refused";
        findings.expect(mounts.firstBelow(temp.path("inner")) == point, "the mount is seen");
        findings.expect(!mounts.firstBelow(point), "a mount is not below itself");
        findings.expect(!mounts.firstBelow(temp.path("inn")), "a part of a name is no folder");
        umount(point.c_str());
        findings.expect(!mounts.firstBelow(temp.path("inner")), "its end is seen");
        return findings.text();
    });
    if (text == "refused")
        GTEST_SKIP() << "mounts cannot be made here";
    else
        EXPECT_EQ(text, "");
}

}  // namespace
}  // namespace kavaro
