// The engine on the machine's own disk, beside a count made with the C library's tree walk.
#include <ftw.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "TempFolder.h"
#include "factory/EngineTest.h"
#include "platform/Environment.h"

namespace kavaro {
namespace {

struct Totals {
    long files = 0;
    long folders = 0;  // the root not counted
    std::uint64_t logicalSize = 0;
    std::uint64_t physicalSize = 0;
    bool operator==(const Totals&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Totals& totals) {
    return out << totals.files << " files, " << totals.folders << " folders, " << totals.logicalSize << " bytes, "
               << totals.physicalSize << " allocated";
}

Totals walked;  // nftw has no argument of the caller's

// Everything that is not a folder is a file, counted under each of its names; folders have no size of their own.
Totals countedByWalk(const std::string& root) {
    walked = {};
    const auto visit = [](const char*, const struct stat* about, int, struct FTW* place) {
        if (place->level == 0) return 0;
        if (S_ISDIR(about->st_mode)) {
            ++walked.folders;
        } else {
            ++walked.files;
            walked.logicalSize += static_cast<std::uint64_t>(about->st_size);
            walked.physicalSize += static_cast<std::uint64_t>(about->st_blocks) * 512;
        }
        return 0;
    };
    EXPECT_EQ(nftw(root.c_str(), visit, 64, FTW_PHYS), 0);
    return walked;
}

class TuvNodeFactoryDisk : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        ScanSession::setCatalogFactory({});
    }
    // As a client adds up what it was sent.
    Totals counted() {
        Totals totals;
        const auto root = PostedNotifications::folderOf(posted.last("Completed"));
        if (!root) return totals;
        totals.logicalSize = root->logicalSize();
        totals.physicalSize = root->physicalSize();
        totals.files = root->fileCount();
        totals.folders = root->folderCount();
        const auto resolved = posted.resolved();
        for (int i = 0; i < resolved->count(); ++i) {
            totals.files += resolved->folderAtIndex(i)->fileCount();
            totals.folders += resolved->folderAtIndex(i)->folderCount();
        }
        EXPECT_EQ(resolved->count(), totals.folders) << "each folder is sent once";
        return totals;
    }
};

TEST_F(TuvNodeFactoryDisk, aMadeTree) {
    TempFolder tree;
    tree.write("empty", "");
    tree.write("one", "1");
    tree.write("big", std::string(300000, 'b'));
    const std::string below = tree.makeFolder("below");
    tree.write("below/\xff\xfe not text", "bytes");
    ASSERT_EQ(symlink("..", tree.path("below/up").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", tree.path("dangling").c_str()), 0);
    ASSERT_EQ(link(tree.path("big").c_str(), tree.path("below/second name").c_str()), 0);
    ASSERT_EQ(mkfifo(tree.path("below/pipe").c_str(), 0600), 0);
    tree.makeFolder("below/deeper");
    tree.makeFolder("below/deeper/empty");
    const std::string sparse = tree.write("below/deeper/sparse", "");
    ASSERT_EQ(truncate(sparse.c_str(), 50 << 20), 0);
    tree.makeFolder("many");
    for (int i = 0; i < 100; ++i) tree.write("many/" + std::to_string(i), std::string(static_cast<size_t>(i), 'x'));
    ASSERT_TRUE(measure(tree.path()));
    EXPECT_EQ(counted(), countedByWalk(tree.path()));
    EXPECT_THAT(posted.unread(), testing::IsEmpty());
}

// Longer than any path may be: the walk of the C library cannot follow, the count is known.
TEST_F(TuvNodeFactoryDisk, aTreeDeeperThanAPath) {
    TempFolder tree;
    const std::string name(200, 'n');
    std::string start = tree.path();
    ASSERT_EQ(chdir(start.c_str()), 0);
    constexpr int kLevels = 60;
    for (int level = 0; level < kLevels; ++level) {
        ASSERT_EQ(mkdir(name.c_str(), 0755), 0);
        ASSERT_EQ(chdir(name.c_str()), 0);
    }
    ASSERT_EQ(chdir("/"), 0);
    ASSERT_TRUE(measure(tree.path()));
    EXPECT_EQ(counted(), (Totals{0, kLevels, 0, 0}));
    EXPECT_THAT(posted.unread(), testing::IsEmpty());
}

TEST_F(TuvNodeFactoryDisk, theRealUsr) {
    // Files may come and go on a machine that is in use: two counts that agree surround the measurement.
    for (int attempt = 0;; ++attempt) {
        const Totals before = countedByWalk("/usr");
        posted.clear();
        clock.hold();
        engine()->startWorkingAtPath("/usr");
        waitUntilStackIsEmpty();
        clock.go();
        ASSERT_TRUE(runUntilPosted("Completed"));
        const Totals after = countedByWalk("/usr");
        if (!(before == after) && attempt < 5) continue;
        EXPECT_GT(after.files, 1000);
        EXPECT_EQ(counted(), after);
        break;
    }
}

// A job on the home folder makes the user's Trash before it looks.
TEST_F(TuvNodeFactoryDisk, aJobOnTheHomeFolderMakesItsTrash) {
    ASSERT_TRUE(measure(home.path()));
    struct stat about {};
    ASSERT_EQ(stat(home.path(".Trash").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 07777, 0700u);
    const auto started = PostedNotifications::folderOf(posted.last("Started"));
    EXPECT_THAT(PostedNotifications::namesOf(*started->folders()), testing::ElementsAre(".Trash"));
    EXPECT_THAT(posted.resolvedNames(), testing::ElementsAre(".Trash"));
}

}  // namespace
}  // namespace kavaro
