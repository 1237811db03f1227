// A reader that does not keep up: the worker waits, and everybody else is served.
#include <gmock/gmock.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "factory/EngineTest.h"
#include "factory/GeneratedCatalog.h"

namespace kavaro {
namespace {

// Stops the notification thread in waitUntilWritten(), as a reader that reads nothing does.
class Blocker {
  public:
    void wait() {
        std::unique_lock lock(_mutex);
        _waiting = true;
        _changed.notify_all();
        _changed.wait(lock, [this] { return _open; });
        _waiting = false;
    }
    void waitUntilReached() {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [this] { return _waiting; });
    }
    void open() {
        std::lock_guard lock(_mutex);
        _open = true;
        _changed.notify_all();
    }

  private:
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _open = false;
    bool _waiting = false;
};

class TuvNodeFactoryPressure : public EngineTest {
  protected:
    static constexpr int kMany = static_cast<int>(TuvNodeFactory::kUnsentNodesLimit);

    void SetUp() override {
        EngineTest::SetUp();
        posted.onWait = [&outlives = blocker] { outlives.wait(); };
    }
    void TearDown() override {
        blocker.open();
        EngineTest::TearDown();
    }
    // /r/0 holds `files` files, /r/1 nothing, /r/2 nothing.
    void useTree(int files) {
        useCatalog(std::make_shared<GeneratedCatalog>([files](const std::string& path) {
            return path == "/r" ? GeneratedCatalog::Shape{3, 0}
                                : GeneratedCatalog::Shape{0, path == "/r/0" ? files : 0};
        }));
    }
    // Until the folder on top of the stack is the one that is so named.
    bool waitForTop(std::string_view name) {
        for (int turn = 0; turn < 100000; ++turn) {
            TuvDirNode* top = engine()->currentlyWorking();
            if (top && top->fileName() == name) return true;
            if (!top) return false;
            RunLoop::main().runUntil([] { return false; }, 0.001);
        }
        return false;
    }
    // Far longer than the worker needs for a step.
    void giveTheWorkerTime() {
        RunLoop::main().runUntil([] { return false; }, 0.3);
    }

    Blocker& blocker = *new Blocker;
};

TEST_F(TuvNodeFactoryPressure, theWorkerWaitsWhileTooMuchIsUnsent) {
    useTree(kMany);
    engine(false)->startWorkingAtPath("/r");
    ASSERT_TRUE(waitForTop("1"));
    ASSERT_TRUE(runUntilPosted("Resolved"));
    blocker.waitUntilReached();
    giveTheWorkerTime();
    ASSERT_TRUE(engine()->currentlyWorking());
    EXPECT_EQ(engine()->currentlyWorking()->fileName(), "1") << "nothing more was resolved";
    EXPECT_EQ(posted.count("Resolved"), 1);
    blocker.open();
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_EQ(posted.resolved()->count(), 3);
    EXPECT_EQ(PostedNotifications::folderOf(posted.last("Completed"))->logicalSize(), 10u * kMany);
}

// The folder itself is a node too: with one file less, the limit is not passed.
TEST_F(TuvNodeFactoryPressure, theWorkerGoesOnBelowTheLimit) {
    useTree(kMany - 4);
    engine(false)->startWorkingAtPath("/r");
    waitUntilStackIsEmpty();
    EXPECT_FALSE(posted.last("Completed"));
    blocker.open();
    ASSERT_TRUE(runUntilPosted("Completed"));
}

TEST_F(TuvNodeFactoryPressure, requestsAreServedWhileTheWorkerWaits) {
    useTree(kMany);
    engine(false)->startWorkingAtPath("/r");
    ASSERT_TRUE(waitForTop("1"));
    ASSERT_TRUE(runUntilPosted("Resolved"));
    blocker.waitUntilReached();
    const int inode = static_cast<int>(engine()->currentlyWorking()->parent()->folders()->folderAtIndex(2)->inode());
    EXPECT_FALSE(engine()->prioritizeNodeWithInode(inode, "/r/2").isNull());
    EXPECT_EQ(engine()->currentlyWorking()->fileName(), "2");
    EXPECT_FALSE(engine()->hasFileSytemChanged("/r/1").isNull());
    engine()->stopSizing();
    EXPECT_EQ(posted.names().back(), "Stopped");
    EXPECT_EQ(engine()->currentlyWorking(), nullptr);
    // The next job starts at once. Its worker waits for the same reader.
    engine()->startWorkingAtPath("/r");
    EXPECT_EQ(posted.names().back(), "Started");
    giveTheWorkerTime();
    EXPECT_EQ(engine()->currentlyWorking()->fileName(), "/r");
    blocker.open();
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_EQ(PostedNotifications::folderOf(posted.last("Completed"))->logicalSize(), 10u * kMany);
}

// What was never sent is forgotten with its job, and does not hold up the next one.
TEST_F(TuvNodeFactoryPressure, aStoppedJobGivesItsShareBack) {
    useTree(kMany);
    blocker.open();
    clock.hold();
    engine(false)->startWorkingAtPath("/r");
    ASSERT_TRUE(waitForTop("1"));
    giveTheWorkerTime();
    EXPECT_EQ(engine()->currentlyWorking()->fileName(), "1");
    engine()->stopSizing();
    engine()->startWorkingAtPath("/r/1");
    waitUntilStackIsEmpty();
    clock.go();
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_EQ(posted.count("Resolved"), 0);
}

// One folder larger than the limit passes all the same.
TEST_F(TuvNodeFactoryPressure, aFolderBeyondTheLimitPasses) {
    useTree(kMany + kMany / 4);
    blocker.open();
    engine(false)->startWorkingAtPath("/r");
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_EQ(posted.resolved()->count(), 3);
}

// The worker stands between two steps while 200,000 folders wait: a request for the folder above them is quick.
TEST_F(TuvNodeFactoryPressure, aFolderWithManyWaitingSubfoldersIsPrioritized) {
    constexpr int kFolders = 200000;
    useCatalog(std::make_shared<GeneratedCatalog>([](const std::string& path) {
        if (path == "/r") return GeneratedCatalog::Shape{1, 0};
        if (path == "/r/0") return GeneratedCatalog::Shape{kFolders, 0};
        return GeneratedCatalog::Shape{0, path == "/r/0/0" ? kMany : 0};
    }));
    blocker.open();
    clock.hold();
    engine(false)->startWorkingAtPath("/r");
    ASSERT_TRUE(waitForTop("1"));
    const int inode = static_cast<int>(engine()->currentlyWorking()->parent()->inode());
    const auto start = std::chrono::steady_clock::now();
    const ByteBuffer data = engine()->prioritizeNodeWithInode(inode, "/r/0");
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
    EXPECT_LT(spent.count(), 5) << "a busy machine; the square of the subfolders takes minutes";
    EXPECT_EQ(engine()->isWorking(), 2) << "the folder and the root";
    const auto folder = TuvDirNode::fromBytes(data.view());
    ASSERT_TRUE(folder);
    EXPECT_EQ(folder->folderCount(), kFolders);
    clock.pass();
    ASSERT_TRUE(runUntilPosted("Resolved"));
    waitUntilStackIsEmpty();
    clock.go();
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_EQ(posted.resolved()->count(), kFolders + 1);
}

}  // namespace
}  // namespace kavaro
