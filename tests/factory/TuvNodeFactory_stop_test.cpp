// Jobs that are stopped or replaced: nothing of the old one may reach the client of the new one.
#include <gmock/gmock.h>

#include "factory/EngineTest.h"

namespace kavaro {
namespace {

using testing::ElementsAre;

class TuvNodeFactoryStop : public EngineTest {
  protected:
    // Two trees of the same shape: /one and /two with `folders` folders, each with a subfolder and a file.
    void makeTrees(unsigned folders) {
        unsigned id = 10;
        for (const std::string root : {"/one", "/two"}) {
            fake->addFolder(root, id++);
            for (unsigned i = 0; i < folders; ++i) {
                const std::string folder = root + "/" + root.substr(1) + std::to_string(i);
                fake->addFolder(folder, id++);
                fake->addFolder(folder + "/" + root.substr(1) + "below", id++);
                fake->addFile(folder + "/file", id++, 1, 512);
            }
        }
    }
    // What is wrong with the notifications from the last Started on; empty when they are those of `root` alone.
    std::string faultSinceStart(const std::string& root) {
        const auto& all = posted.all();
        std::size_t start = all.size();
        while (start > 0 && all[start - 1].name != TuvNodeFactoryStartedNotification) --start;
        if (start == 0) return "no Started";
        if (PostedNotifications::folderOf(&all[start - 1])->fileName() != "/" + root) return "Started of another job";
        for (std::size_t i = start; i < all.size(); ++i) {
            if (all[i].name == TuvNodeFactoryCompletedNotification &&
                PostedNotifications::folderOf(&all[i])->fileName() != "/" + root)
                return "Completed of another job";
            if (all[i].name != TuvNodeFactoryResolvedNotification) continue;
            const auto batch = TuvObjectArray::fromBytes(all[i].data->view());
            for (int k = 0; k < batch->count(); ++k)
                if (batch->nodeAtIndex(k)->fileName().substr(0, root.size()) != root)
                    return "Resolved of another job: " + std::string(batch->nodeAtIndex(k)->fileName());
        }
        return {};
    }
};

TEST_F(TuvNodeFactoryStop, postsStoppedAndNothingMore) {
    makeTrees(3);
    LogCapture log;
    clock.hold();
    catalog->gate("/one/one1");
    engine()->startWorkingAtPath("/one");
    catalog->waitUntilReached("/one/one1");
    catalog->open("/one/one1");
    engine()->stopSizing();
    EXPECT_EQ(engine()->isWorking(), 0);
    EXPECT_EQ(engine()->currentlyWorking(), nullptr);
    clock.go();
    EXPECT_THAT(posted.names(), ElementsAre("Started", "Stopped"));
    EXPECT_FALSE(posted.last("Stopped")->data);
    EXPECT_FALSE(posted.last("Stopped")->hasUserInfo);
    // An empty line at info level; with debug off none says that it stops.
    int empty = 0;
    for (const LogCapture::Line& line : log.lines())
        empty += line.level == LogLevel::info && line.selector == "_stopedFileNotificationAppkit:" && line.text.empty();
    EXPECT_EQ(empty, 1);
    EXPECT_EQ(log.count("stopping ..."), 0);
    ASSERT_TRUE(measure("/two"));
    EXPECT_EQ(faultSinceStart("two"), "");
}

// The batch is on its way to the main thread when the job is stopped there.
TEST_F(TuvNodeFactoryStop, dropsABatchThatIsOnItsWay) {
    makeTrees(3);
    clock.hold();
    catalog->gate("/one/one1");
    engine()->startWorkingAtPath("/one");
    catalog->waitUntilReached("/one/one1");
    clock.pass();
    // The loop does not run: the pass ends up waiting for the main thread. It comes when the lock is free again.
    catalog->open("/one/one1");
    engine()->stopSizing();
    clock.go();
    engine()->startWorkingAtPath("/two");
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_EQ(posted.names()[1], "Stopped");
    EXPECT_EQ(posted.names()[2], "Started");
    EXPECT_EQ(faultSinceStart("two"), "");
}

TEST_F(TuvNodeFactoryStop, mayBeCalledWithoutAJobAndTwice) {
    makeTrees(1);
    engine()->stopSizing();
    engine()->stopSizing();
    EXPECT_THAT(posted.names(), ElementsAre("Stopped", "Stopped"));
    ASSERT_TRUE(measure("/one"));
    engine()->stopSizing();
    EXPECT_EQ(posted.names().back(), "Stopped");
    ASSERT_TRUE(measure("/one"));
    EXPECT_EQ(faultSinceStart("one"), "");
}

TEST_F(TuvNodeFactoryStop, aSecondStartReplacesTheJob) {
    makeTrees(3);
    clock.hold();
    catalog->gate("/one/one1");
    engine()->startWorkingAtPath("/one", std::vector<std::uint32_t>{5});
    catalog->waitUntilReached("/one/one1");
    catalog->open("/one/one1");
    engine()->startWorkingAtPath("/two");
    clock.go();
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_EQ(posted.names()[0], "Started");
    EXPECT_EQ(posted.names()[1], "Started");
    EXPECT_EQ(faultSinceStart("two"), "");
    EXPECT_EQ(posted.resolved()->count(), 6);
    EXPECT_FALSE(posted.last("Started")->userInfo.parentInodes);
}

// The start time of a job that is replaced or stopped is kept: the log has one "started" line for both.
TEST_F(TuvNodeFactoryStop, keepsTheStartTimeOfAJobThatDidNotComplete) {
    makeTrees(3);
    LogCapture log(LogLevel::trace);  // the worker can be held after a step
    clock.hold(FakeClock::kWorkerThread);
    engine()->startWorkingAtPath("/one");
    clock.waitUntilHeld(FakeClock::kWorkerThread);
    engine()->startWorkingAtPath("/two");
    clock.pass(FakeClock::kWorkerThread);
    clock.waitUntilHeld(FakeClock::kWorkerThread);
    engine()->stopSizing();
    clock.go();
    ASSERT_TRUE(measure("/two"));
    EXPECT_EQ(log.count("started: rootPath="), 1);
    EXPECT_EQ(log.count("started: rootPath=\"/one\""), 1);
    EXPECT_EQ(log.count("completed: rootPath=\"/two\" in "), 1);
    ASSERT_TRUE(measure("/one"));
    EXPECT_EQ(log.count("started: rootPath="), 2);
}

// A stop between a step and the worker's look at the stack: the worker takes the empty stack for the end of the job and
// says what is odd about it. The client hears Stopped alone.
TEST_F(TuvNodeFactoryStop, aStopMayLookLikeTheEndToTheWorker) {
    makeTrees(3);
    LogCapture log;
    for (int i = 0; i < 500; ++i) {
        engine()->startWorkingAtPath("/one");
        engine()->stopSizing();
        ASSERT_EQ(posted.names().back(), "Stopped");
    }
    clock.go();
    EXPECT_EQ(posted.count("Completed"), 0);
    EXPECT_EQ(posted.count("Resolved"), 0);
    // The worker is past all of them once it has done this one.
    ASSERT_TRUE(measure("/two"));
    EXPECT_EQ(faultSinceStart("two"), "");
    // Whether it happens is a matter of luck; when it does, each such end has one of these two lines. The path is empty
    // when the stop came after the worker's step.
    const int odd = log.count(LogLevel::error, "Not the root node !, \"\"") +
                    log.count(LogLevel::error, "The root node, but not resolved yet ...");
    EXPECT_EQ(log.count(LogLevel::error, ""), odd);
    EXPECT_LE(odd, log.count(LogLevel::info, "completed: rootPath=\"/one\" in ") +
                       log.count(LogLevel::info, "completed: rootPath=\"\" in "));
}

TEST_F(TuvNodeFactoryStop, hundredsOfRestartsLeaveNothingOfTheOldJobs) {
    makeTrees(20);
    const int instances = TuvNode::instanceCount();
    for (int i = 0; i < 600; ++i) {
        const std::string root = i % 2 ? "one" : "two";
        engine()->startWorkingAtPath("/" + root);
        // A different moment each time, from at once to long after the job has completed.
        for (int turn = 0; turn < i % 40; ++turn) RunLoop::main().runUntil([] { return false; }, 0);
        ASSERT_EQ(faultSinceStart(root), "") << "restart " << i;
        if (i % 7 == 0) {
            engine()->stopSizing();
            ASSERT_EQ(posted.names().back(), "Stopped");
        }
        posted.clear();
    }
    ASSERT_TRUE(measure("/one"));
    EXPECT_EQ(faultSinceStart("one"), "");
    EXPECT_EQ(posted.resolved()->count(), 40);
    // The trees of all jobs are gone.
    EXPECT_EQ(TuvNode::instanceCount(), instances);
}

// The same for the smallest of jobs, whose root is resolved by the worker's first step.
TEST_F(TuvNodeFactoryStop, restartsOfAnEmptyRoot) {
    fake->addFolder("/one", 2);
    fake->addFolder("/two", 3);
    for (int i = 0; i < 1000; ++i) {
        engine()->startWorkingAtPath(i % 2 ? "/one" : "/two");
        if (i % 3 == 0) RunLoop::main().runUntil([] { return false; }, 0);
        ASSERT_EQ(faultSinceStart(i % 2 ? "one" : "two"), "") << "restart " << i;
    }
    ASSERT_TRUE(measure("/one"));
    EXPECT_EQ(faultSinceStart("one"), "");
}

// The root stays until the next job starts.
TEST_F(TuvNodeFactoryStop, keepsTheRootOfAStoppedJob) {
    makeTrees(3);
    engine();
    const int instances = TuvNode::instanceCount();
    catalog->gate("/one/one1");
    engine()->startWorkingAtPath("/one");
    catalog->waitUntilReached("/one/one1");
    catalog->open("/one/one1");
    engine()->stopSizing();
    EXPECT_GT(TuvNode::instanceCount(), instances);
    engine()->startWorkingAtPath("/missing");
    // The folder of the worker's last step goes when the worker gets to it.
    while (TuvNode::instanceCount() != instances) RunLoop::main().runUntil([] { return false; }, 0.001);
}

TEST_F(TuvNodeFactoryStop, anObserverMayStopTheJob) {
    makeTrees(3);
    posted.onPost = [this](const PostedNotifications::Posted& notification) {
        if (notification.name == TuvNodeFactoryResolvedNotification) engine()->stopSizing();
    };
    engine()->startWorkingAtPath("/one");
    ASSERT_TRUE(runUntilPosted("Stopped"));
    posted.onPost = nullptr;
    const std::vector<std::string> before = posted.names();
    EXPECT_EQ(before.back(), "Stopped");
    ASSERT_TRUE(measure("/two"));
    EXPECT_EQ(posted.names()[before.size()], "Started") << "nothing of the stopped job comes after it";
    EXPECT_EQ(faultSinceStart("two"), "");
}

TEST_F(TuvNodeFactoryStop, anObserverOfTheEndMayStartTheNextJob) {
    makeTrees(3);
    const std::vector<std::uint32_t> parents{1};
    for (const std::string end : {"Completed", "Stopped"}) {
        posted.clear();
        posted.onPost = [&](const PostedNotifications::Posted& notification) {
            if (PostedNotifications::shortName(notification.name) != end) return;
            posted.onPost = nullptr;
            engine()->startWorkingAtPath("/two", parents);
        };
        engine()->startWorkingAtPath("/one");
        if (end == "Stopped") engine()->stopSizing();
        ASSERT_TRUE(runUntil([&] {
            const auto* last = posted.last("Completed");
            return last && PostedNotifications::folderOf(last)->fileName() == "two";
        })) << end;
        EXPECT_EQ(posted.last("Completed")->userInfo.parentInodes, parents) << end;
    }
}

}  // namespace
}  // namespace kavaro
