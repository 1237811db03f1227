#include "platform/RemovalObstacle.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TempFolder.h"
#include "platform/CatalogListing.h"

namespace kavaro {
namespace {

TEST(RemovalObstacle, NothingStandsInTheWayOfOnesOwn) {
    TempFolder temp;
    temp.makeFolder("tree");
    temp.makeFolder("tree/sub");
    temp.write("tree/sub/file", "");
    EXPECT_EQ(removalObstacle(temp.path("tree"), RemovalKind::tree, true), "");
    EXPECT_EQ(removalObstacle(temp.path("tree/sub/file"), RemovalKind::onlyNoFolder, true), "");
    EXPECT_EQ(removalObstacle(temp.path("tree"), RemovalKind::onlyNoFolder, true), "it is a folder, not a file");
    EXPECT_EQ(removalObstacle(temp.path("absent"), RemovalKind::tree, true), removalErrorText(ENOENT));
    ASSERT_EQ(symlink("tree", temp.path("link").c_str()), 0);
    EXPECT_NE(removalObstacle(temp.path("link/sub"), RemovalKind::tree, true).find("link"), std::string::npos);
    EXPECT_EQ(removalObstacle(temp.path("link"), RemovalKind::tree, true), "");
    EXPECT_EQ(removalObstacle("/proc", RemovalKind::tree, true), removalErrorText(EBUSY));
}

TEST(RemovalObstacle, ARewriteNeedsRoomAndAFolderThatTakesIt) {
    TempFolder temp;
    ASSERT_EQ(chmod(temp.path().c_str(), 0755), 0);
    const std::string file = temp.write("file", "x");
    EXPECT_EQ(rewriteObstacle(file, 1), "");
    EXPECT_EQ(rewriteObstacle(file, std::uint64_t{1} << 62), "no space is left for the new file beside it");
    EXPECT_EQ(rewriteObstacle(temp.path("absent"), 1), removalErrorText(ENOENT));
    // A file of the kernel's that not even root may write, in a folder that takes no other.
    EXPECT_NE(rewriteObstacle("/sys/kernel/uevent_seqnum", 1), "");
}

TEST(RemovalObstacle, PermissionsAreLookedAtAllTheWayDown) {
    TempFolder temp;
    ASSERT_EQ(chmod(temp.path().c_str(), 0755), 0);
    for (const char* name : {"mine", "mine/sub", "mine/empty", "sticky"}) temp.makeFolder(name);
    temp.write("mine/sub/file", "");
    temp.write("sticky/file", "");
    temp.makeFolder("theirs");
    temp.write("theirs/file", "");
    ASSERT_EQ(chmod(temp.path("sticky").c_str(), 01777), 0);
    ASSERT_EQ(chmod(temp.path("theirs").c_str(), 0555), 0);
    if (geteuid() == 0) {
        for (const char* name : {"mine", "mine/sub", "mine/empty"})
            ASSERT_EQ(chown(temp.path(name).c_str(), 65534, 65534), 0);
    }
    ASSERT_EQ(chmod(temp.path("mine/sub").c_str(), 0500), 0);
    ASSERT_EQ(chmod(temp.path("mine/empty").c_str(), 0500), 0);
    const bool isRoot = geteuid() == 0;
    const std::string text = inChild(true, [&]() -> std::string {
        Findings findings;
        const auto expect = [&](const std::string& name, const std::string& expected) {
            const std::string obstacle = removalObstacle(temp.path(name), RemovalKind::tree, true);
            findings.expect(obstacle == expected, name + ": " + obstacle);
        };
        expect("mine/sub/file", "permission denied");
        expect("mine/empty", "");
        expect("theirs/file", "permission denied");
        if (isRoot) {
            expect("sticky/file", "permission denied");
            expect("mine", "permission denied");  // the folder that holds it
        } else {
            expect("mine", "mine/sub: permission denied");
        }
        findings.expect(removalObstacle(temp.path("theirs/file"), RemovalKind::tree, false).empty(),
                        "somebody else may be allowed");
        return findings.text();
    });
    EXPECT_EQ(text, "");
    ASSERT_EQ(chmod(temp.path("mine/sub").c_str(), 0700), 0);
}

}  // namespace
}  // namespace kavaro
