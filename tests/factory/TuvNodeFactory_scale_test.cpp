// Trees that are very wide, very full or very deep: right, and without a cost that grows with the square.
#include <ctime>

#include "factory/EngineTest.h"
#include "factory/GeneratedCatalog.h"
#include "platform/Environment.h"

namespace kavaro {
namespace {

class TuvNodeFactoryScale : public EngineTest {
  protected:
    // Processor time of a job, whatever else the machine does. Batches are large when the notification thread waits for
    // the worker.
    double secondsOf(GeneratedCatalog::ShapeOf shapeOf) {
        useCatalog(std::make_shared<GeneratedCatalog>(std::move(shapeOf)));
        posted.clear();
        engine();
        clock.hold();
        const std::clock_t start = std::clock();
        engine()->startWorkingAtPath("/r");
        waitUntilStackIsEmpty();
        clock.go();
        EXPECT_TRUE(runUntilPosted("Completed"));
        return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    }
    TuvRef<TuvDirNode> root() { return PostedNotifications::folderOf(posted.last("Completed")); }
    static GeneratedCatalog::ShapeOf wide(int folders, int filesBelow) {
        return [=](const std::string& path) {
            return path == "/r" ? GeneratedCatalog::Shape{folders, 0} : GeneratedCatalog::Shape{0, filesBelow};
        };
    }
};

TEST_F(TuvNodeFactoryScale, aFolderOf200000Subfolders) {
    LogCapture log;
    const double half = secondsOf(wide(100000, 2));
    const double whole = secondsOf(wide(200000, 2));
    EXPECT_EQ(posted.resolved()->count(), 200000);
    EXPECT_EQ(root()->folderCount(), 200000);
    EXPECT_EQ(root()->logicalSize(), 200000u * 2 * 10);
    EXPECT_EQ(root()->physicalSize(), 200000u * 2 * 512);
    // Twice the folders cost twice the time; four times would be the square. Loose.
    EXPECT_LT(whole, half * 3.5 + 0.5);
    EXPECT_EQ(log.count(LogLevel::error, ""), log.count(LogLevel::error, "last node  was not the root node"));
}

TEST_F(TuvNodeFactoryScale, aFolderOf1500000Files) {
    LogCapture log;
    const auto full = [](int files) {
        return [=](const std::string& path) {
            return path == "/r" ? GeneratedCatalog::Shape{1, 1} : GeneratedCatalog::Shape{0, files};
        };
    };
    const double half = secondsOf(full(750000));
    const double whole = secondsOf(full(1500000));
    const auto resolved = posted.resolved();
    ASSERT_EQ(resolved->count(), 1);
    EXPECT_EQ(resolved->folderAtIndex(0)->fileCount(), 1500000);
    EXPECT_EQ(resolved->folderAtIndex(0)->logicalSize(), 15000000u);
    EXPECT_GT(posted.last("Resolved")->data->size(), 64u << 20);
    EXPECT_EQ(root()->physicalSize(), 1500001u * 512);
    EXPECT_LT(whole, half * 3.5 + 0.5);
    EXPECT_EQ(log.count(LogLevel::info, "1500000 files, 0 folders in "), 1);
}

TEST_F(TuvNodeFactoryScale, aTreeOf100000Levels) {
    LogCapture log;
#ifdef __SANITIZE_THREAD__
    constexpr std::size_t kLevels = 20000;  // half of all bytes of all paths are copied: each of them is watched
#else
    constexpr std::size_t kLevels = 100000;
#endif
    const double seconds = secondsOf([](const std::string& path) {
        return GeneratedCatalog::Shape{path.size() < kLevels * 2 ? 1 : 0, 1};
    });
    EXPECT_EQ(posted.resolved()->count(), static_cast<int>(kLevels - 1));
    EXPECT_EQ(root()->logicalSize(), kLevels * 10);
    EXPECT_EQ(root()->physicalSize(), kLevels * 512);
#ifndef __SANITIZE_ADDRESS__  // it keeps what was freed
    EXPECT_LT(peakMemoryOfProcess(0), 1024u * 1024 * 1024) << "paths of folders that wait are not kept";
#endif
    EXPECT_LT(seconds, 100);
    engine()->stopSizing();
    EXPECT_EQ(TuvNode::instanceCount(), 0);
}

}  // namespace
}  // namespace kavaro
