// One job from its start to its end: steps, notifications, log lines.
#include <gmock/gmock.h>

#include "factory/EngineTest.h"
#include "platform/Text.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class TuvNodeFactoryJobs : public EngineTest {
  protected:
    // /r (2) holds the file x and the folders a (with b and c in it) and d.
    void makeTree() {
        fake->addFolder("/r", 2);
        fake->addFile("/r/x", 3, 10, 4096);
        fake->addFolder("/r/a", 4);
        fake->addFolder("/r/a/b", 5);
        fake->addFile("/r/a/b/f", 6, 100, 8192);
        fake->addFolder("/r/a/c", 7);
        fake->addFile("/r/a/c/g", 8, 1000, 12288);
        fake->addFile("/r/a/h", 9, 1, 512);
        fake->addFolder("/r/d", 10);
    }
    std::vector<std::string> infoLines(const LogCapture& log, const std::string& component) {
        std::vector<std::string> texts;
        for (const LogCapture::Line& line : log.lines())
            if (line.level == LogLevel::info && line.component == component) texts.push_back(line.text);
        return texts;
    }
    static int errors(const LogCapture& log) { return log.count(LogLevel::error, ""); }
};

TEST_F(TuvNodeFactoryJobs, isMadeOnceWithItsTwoThreads) {
    LogCapture log;
    durations.setUpPause = 1;
    TuvNodeFactory* factory = engine();
    EXPECT_EQ(TuvNodeFactory::sharedInstance(), factory);
    EXPECT_EQ(log.count(LogLevel::info, "Setting up worker threads"), 1);
    EXPECT_THAT(clock.sleepsOf(FakeClock::kNotificationThread), testing::Each(static_cast<double>(0.15f)));
    // The pause of the calling thread comes after both threads have been started.
    int pauses = 0;
    for (const FakeClock::Sleep& sleep : clock.sleeps()) pauses += sleep.seconds == 1.0;
    EXPECT_EQ(pauses, 1);
    EXPECT_FLOAT_EQ(factory->notificationInterval(), 0.15f);
    EXPECT_TRUE(factory->localWorker());
    EXPECT_EQ(log.count(LogLevel::info, "YES"), 1);
    factory->setLocalWorker(false);
    EXPECT_EQ(log.count(LogLevel::info, "NO"), 1);
    EXPECT_EQ(factory->isWorking(), 0);
    EXPECT_EQ(factory->currentlyWorking(), nullptr);
    EXPECT_EQ(factory->newFromPath("/r"), nullptr);
    EXPECT_EQ(factory->existingFromPath("/r"), nullptr);
    EXPECT_EQ(factory->lastJobMilliseconds(), 0);
}

TEST(TuvNodeFactoryDurations, productionDurationsAreTheEnginesOwn) {
    const TuvNodeFactory::Durations production;
    EXPECT_EQ(production.setUpPause, 1.0);
    EXPECT_EQ(production.notificationInterval, 0.15);
    EXPECT_EQ(production.debugNotificationInterval, 0.5);
    EXPECT_EQ(production.traceNotificationPause, 1.75);
    EXPECT_EQ(production.debugResolvePause, 0.01);
    EXPECT_EQ(production.traceStepPause, 0.25);
}

TEST_F(TuvNodeFactoryJobs, startsThenResolvesDeepestFirstThenCompletes) {
    makeTree();
    ASSERT_TRUE(measure("/r"));

    const auto names = posted.names();
    EXPECT_EQ(names.front(), "Started");
    EXPECT_EQ(names.back(), "Completed");
    EXPECT_EQ(posted.count("Started"), 1);
    EXPECT_EQ(posted.count("Completed"), 1);
    EXPECT_EQ(static_cast<int>(names.size()), posted.count("Resolved") + 2);
    EXPECT_THAT(posted.resolvedNames(), ElementsAre("b", "c", "a", "d"));

    const auto started = PostedNotifications::folderOf(posted.last("Started"));
    ASSERT_TRUE(started);
    EXPECT_EQ(started->fileName(), "/r");
    EXPECT_EQ(started->inode(), 2u);
    EXPECT_FALSE(started->isResolved());
    EXPECT_TRUE(started->hasLoadNodes());
    EXPECT_EQ(started->physicalSize(), 0u);
    EXPECT_THAT(PostedNotifications::namesOf(*started->files()), ElementsAre("x"));
    EXPECT_THAT(PostedNotifications::namesOf(*started->folders()), ElementsAre("a", "d"));
    EXPECT_FALSE(started->folders()->isResolved());

    const auto completed = PostedNotifications::folderOf(posted.last("Completed"));
    ASSERT_TRUE(completed);
    EXPECT_EQ(completed->fileName(), "/r");
    EXPECT_TRUE(completed->isResolved());
    EXPECT_EQ(completed->logicalSize(), 1111u);
    EXPECT_EQ(completed->physicalSize(), 4096u + 8192 + 12288 + 512);
    EXPECT_TRUE(completed->folders()->isResolved());
}

TEST_F(TuvNodeFactoryJobs, sendsEachResolvedFolderWithItsDirectChildren) {
    makeTree();
    ASSERT_TRUE(measure("/r"));
    const auto resolved = posted.resolved();
    ASSERT_EQ(resolved->count(), 4);
    TuvDirNode* a = resolved->folderAtIndex(2);
    EXPECT_TRUE(a->isResolved());
    EXPECT_EQ(a->logicalSize(), 1101u);
    EXPECT_THAT(PostedNotifications::namesOf(*a->files()), ElementsAre("h"));
    EXPECT_THAT(PostedNotifications::namesOf(*a->folders()), ElementsAre("b", "c"));
    EXPECT_EQ(a->folders()->folderAtIndex(1)->logicalSize(), 1000u);
    EXPECT_EQ(a->folders()->folderAtIndex(1)->childrenCount(), 0);
    TuvDirNode* d = resolved->folderAtIndex(3);
    EXPECT_TRUE(d->isResolved());
    EXPECT_EQ(d->childrenCount(), 0);
}

TEST_F(TuvNodeFactoryJobs, batchesWhatWasResolvedSinceTheLastPass) {
    makeTree();
    clock.hold();
    catalog->gate("/r/a/c");
    engine()->startWorkingAtPath("/r");
    catalog->waitUntilReached("/r/a/c");  // b has been handed over
    EXPECT_THAT(posted.names(), ElementsAre("Started"));
    clock.pass();
    ASSERT_TRUE(runUntilPosted("Resolved"));
    EXPECT_THAT(posted.resolvedNames(), ElementsAre("b"));
    clock.waitUntilHeld();
    catalog->gate("/r/d");
    catalog->open("/r/a/c");
    catalog->waitUntilReached("/r/d");
    EXPECT_EQ(posted.count("Resolved"), 1);
    clock.pass();
    ASSERT_TRUE(runUntilPosted("Resolved", 2));
    EXPECT_THAT(posted.resolvedNames(), ElementsAre("b", "c", "a"));
}

TEST_F(TuvNodeFactoryJobs, sendsNoBatchWhenOnlyTheRootWaits) {
    fake->addFolder("/empty", 2);
    ASSERT_TRUE(measure("/empty"));
    EXPECT_THAT(posted.names(), ElementsAre("Started", "Completed"));
    const auto completed = PostedNotifications::folderOf(posted.last("Completed"));
    ASSERT_TRUE(completed);
    EXPECT_TRUE(completed->isResolved());
    EXPECT_EQ(completed->childrenCount(), 0);
}

TEST_F(TuvNodeFactoryJobs, carriesTheDataAsTheObjectForTheOwnProcess) {
    makeTree();
    ASSERT_TRUE(measure("/r"));
    for (const auto& notification : posted.all()) {
        EXPECT_TRUE(notification.local);
        EXPECT_FALSE(notification.hasUserInfo) << notification.name;
        EXPECT_TRUE(notification.data);
    }
    EXPECT_EQ(posted.waits(), 0);
    posted.clear();
    engine()->startWorkingAtPath("/r", std::vector<std::uint32_t>{1, 77});
    ASSERT_TRUE(runUntilPosted("Completed"));
    for (const auto& notification : posted.all()) {
        EXPECT_TRUE(notification.hasUserInfo);
        EXPECT_FALSE(notification.userInfo.serialized) << notification.name;
        EXPECT_EQ(notification.userInfo.parentInodes, (std::vector<std::uint32_t>{1, 77}));
    }
}

TEST_F(TuvNodeFactoryJobs, carriesTheDataAsSerializedForOtherProcesses) {
    makeTree();
    engine(false);
    ASSERT_TRUE(measure("/r"));
    for (const auto& notification : posted.all()) {
        EXPECT_FALSE(notification.local);
        EXPECT_EQ(notification.object, "TuvNodeFactory");
        EXPECT_TRUE(notification.userInfo.serialized) << notification.name;
        EXPECT_FALSE(notification.userInfo.parentInodes);
        EXPECT_FALSE(notification.userInfo.folders);
    }
    EXPECT_THAT(posted.resolvedNames(), ElementsAre("b", "c", "a", "d"));
    engine()->stopSizing();
    EXPECT_FALSE(posted.last("Stopped")->hasUserInfo);
    EXPECT_FALSE(posted.last("Stopped")->data);
}

TEST_F(TuvNodeFactoryJobs, waitsUntilABatchHasLeftBeforeTheNext) {
    makeTree();
    clock.hold();
    catalog->gate("/r/a/c");
    engine(false)->startWorkingAtPath("/r");
    catalog->waitUntilReached("/r/a/c");
    clock.pass();
    ASSERT_TRUE(runUntilPosted("Resolved"));
    clock.waitUntilHeld();
    EXPECT_EQ(posted.waits(), 1);
}

TEST_F(TuvNodeFactoryJobs, attachesParentInodesUntilTheJobIsOver) {
    makeTree();
    LogCapture log;
    engine(false);
    engine()->startWorkingAtPath("/r", std::vector<std::uint32_t>{12, 2147483646});
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_EQ(log.count(LogLevel::info, "/r parentNodes [12, 2147483646]"), 1);
    for (const auto& notification : posted.all())
        EXPECT_EQ(notification.userInfo.parentInodes, (std::vector<std::uint32_t>{12, 2147483646}))
            << notification.name;
    engine()->stopSizing();
    EXPECT_FALSE(posted.last("Stopped")->userInfo.parentInodes);

    posted.clear();
    catalog->gate("/r/a");
    engine()->startWorkingAtPath("/r", std::vector<std::uint32_t>{});
    engine();
    catalog->waitUntilReached("/r/a");
    EXPECT_EQ(posted.last("Started")->userInfo.parentInodes, std::vector<std::uint32_t>());
    catalog->open("/r/a");
    engine()->stopSizing();
    EXPECT_EQ(posted.last("Stopped")->userInfo.parentInodes, std::vector<std::uint32_t>());
    engine()->stopSizing();
    EXPECT_FALSE(posted.last("Stopped")->userInfo.parentInodes);
}

// The root of a job below others goes by its last name, and its path stays whole.
TEST_F(TuvNodeFactoryJobs, namesTheRootAfterItsLastComponentWhenItHasParents) {
    fake->addFolder("/r", 2);
    fake->addFolder("/r/a", 4);
    fake->addFolder("/r/a/b", 5);
    fake->addFile("/r/a/b/f", 6, 1, 1);
    LogCapture log;
    engine()->startWorkingAtPath("/r/a", std::vector<std::uint32_t>{2});
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_EQ(PostedNotifications::folderOf(posted.last("Started"))->fileName(), "a");
    EXPECT_EQ(PostedNotifications::folderOf(posted.last("Completed"))->fileName(), "a");
    EXPECT_EQ(log.count("started: rootPath=\"/r/a\""), 1);
    EXPECT_THAT(fake->listedPaths(), ElementsAre("/r/a", "/r/a/b"));
}

TEST_F(TuvNodeFactoryJobs, logsAJobFromItsStartToItsEnd) {
    fake->addFolder("/r", 2);
    fake->addFile("/r/x", 3, 10, 4096);
    LogCapture log;
    clock.hold();  // the worker's lines first
    clock.setStep(0.25);
    engine()->startWorkingAtPath("/r");
    waitUntilStackIsEmpty();
    clock.pass();
    ASSERT_TRUE(runUntilPosted("Completed"));
    const std::string rule = "------------------------------";
    const auto lines = infoLines(log, "TuvNodeFactory");
    const std::size_t length = posted.last("Started")->data->size();
    const std::string bytes = std::to_string(length) + " bytes";
    ASSERT_EQ(lines.size(), 12u);
    EXPECT_EQ(lines[0], "Setting up worker threads");
    EXPECT_EQ(lines[1], "YES");
    EXPECT_EQ(lines[2], "/r parentNodes []");
    EXPECT_EQ(lines[3], bytes);
    EXPECT_EQ(lines[4], rule);
    EXPECT_EQ(lines[5], "started: rootPath=\"/r\"");
    EXPECT_EQ(lines[6], "completed: rootPath=\"/r\" in   250.000 ms");
    EXPECT_EQ(lines[7].substr(0, 10), "0 hits in ");  // the root was loaded before the job's first step
    EXPECT_EQ(lines[7].substr(lines[7].size() - 3), " ms");
    EXPECT_EQ(lines[8], rule);
    EXPECT_EQ(lines[9], "completed: rootPath=\"/r\"");
    EXPECT_EQ(lines[10], rule);
    EXPECT_EQ(lines[11], bytes);
    EXPECT_EQ(errors(log), 0);
    EXPECT_EQ(engine()->lastJobMilliseconds(), 250);
}

TEST_F(TuvNodeFactoryJobs, countsTheLoadsOfTheWorkerAnewForEachJob) {
    makeTree();
    LogCapture log;
    ASSERT_TRUE(measure("/r"));
    EXPECT_EQ(log.count(LogLevel::info, "4 hits in "), 1);
    ASSERT_TRUE(measure("/r/a"));
    EXPECT_EQ(log.count(LogLevel::info, "2 hits in "), 1);
}

TEST_F(TuvNodeFactoryJobs, refusesAFileAndAMissingPath) {
    fake->addFile("/file", 3, 10, 4096);
    LogCapture log;
    engine()->startWorkingAtPath("/file", std::vector<std::uint32_t>{5, 6});
    EXPECT_EQ(log.count(LogLevel::error, "/file 5, 6 Please pass in a folder path as argument !!!"), 1);
    engine()->startWorkingAtPath("/missing");
    EXPECT_EQ(log.count(LogLevel::error, "/missing  Please pass in a folder path as argument !!!"), 1);
    EXPECT_EQ(log.count(LogLevel::error, "Could not stat(/missing), it is possible the path has been removed."), 1);
    engine()->startWorkingAtPath("");
    EXPECT_EQ(log.count(LogLevel::error, "  Please pass in a folder path as argument !!!"), 2);
    EXPECT_EQ(engine()->isWorking(), 0);
    EXPECT_EQ(engine()->currentlyWorking(), nullptr);
    EXPECT_THAT(posted.names(), IsEmpty());
    EXPECT_EQ(log.count("started: rootPath"), 0);
    // The parent inodes of a start that failed are kept, as those of the job that would have been.
    makeTree();
    ASSERT_TRUE(measure("/r"));
    EXPECT_FALSE(posted.last("Started")->userInfo.parentInodes);
}

// A bad path ends the running job all the same.
TEST_F(TuvNodeFactoryJobs, aRefusedPathEndsTheRunningJob) {
    makeTree();
    clock.hold();
    catalog->gate("/r/a/c");
    engine()->startWorkingAtPath("/r");
    catalog->waitUntilReached("/r/a/c");
    catalog->open("/r/a/c");
    engine()->startWorkingAtPath("/missing");
    EXPECT_EQ(engine()->currentlyWorking(), nullptr);
    clock.go();
    EXPECT_THAT(posted.names(), ElementsAre("Started"));
    ASSERT_TRUE(measure("/r/d"));
    EXPECT_THAT(posted.names(), ElementsAre("Started", "Started", "Completed"));
}

TEST_F(TuvNodeFactoryJobs, logsWhenNothingCanBePosted) {
    makeTree();
    LogCapture log;
    engine(false);
    posted.fail("the bus is gone");
    ASSERT_TRUE(measure("/r"));
    const int posts = static_cast<int>(posted.all().size());
    EXPECT_EQ(log.count(LogLevel::error, "Exception: the bus is gone"), posts);
    // Each with its backtrace.
    int backtraces = 0;
    for (const LogCapture::Line& line : log.lines())
        backtraces += line.level == LogLevel::error && line.text.size() > 2 && line.text.front() == '(' &&
                      line.text.back() == ')';
    EXPECT_EQ(backtraces, posts);
}

TEST_F(TuvNodeFactoryJobs, logsWhenThereIsNoOtherProcess) {
    makeTree();
    LogCapture log;
    TuvNodeFactory::setSurroundings({&clock, durations, nullptr});
    TuvNodeFactory::sharedInstance()->startWorkingAtPath("/r");
    EXPECT_EQ(log.count(LogLevel::error, "Exception: there is no connection to other processes"), 1);
    EXPECT_THAT(posted.names(), IsEmpty());
}

// Both stacks have room for 4096 again after a job that made them larger: the next one has to grow them anew.
TEST_F(TuvNodeFactoryJobs, shrinksItsStacksAfterALargeJob) {
    fake->addFolder("/r", 2);
    for (unsigned i = 0; i < 20000; ++i) fake->addFolder("/r/" + std::to_string(i), 10 + i);
    LogCapture log;
    std::vector<std::string> growth[2];
    for (auto& lines : growth) {
        log.clear();
        clock.hold();
        engine()->startWorkingAtPath("/r");
        waitUntilStackIsEmpty();
        clock.go();
        ASSERT_TRUE(runUntilPosted("Completed", posted.count("Completed") + 1));
        for (const LogCapture::Line& line : log.lines())
            if (line.component == "TuvObjectArray" && line.selector == "setSize") lines.push_back(line.text);
        std::sort(lines.begin(), lines.end());
    }
    EXPECT_EQ(growth[0], growth[1]) << testing::PrintToString(growth[0]);
    // The thread stack and the notification stack: each grows from 4096 by the same steps.
    EXPECT_GE(std::count(growth[0].begin(), growth[0].end(), "oldSize 13312, newSize 17408"), 2);
}

TEST_F(TuvNodeFactoryJobs, logsProgressEachFiftyThousandFolders) {
    constexpr unsigned kFolders = 120000;
    fake->addFolder("/r", 2);
    for (unsigned i = 0; i < kFolders; ++i) fake->addFolder("/r/" + std::to_string(i), 10 + i);
    LogCapture log;
    clock.hold();
    engine()->startWorkingAtPath("/r");
    waitUntilStackIsEmpty();
    clock.go();
    ASSERT_TRUE(runUntilPosted("Completed"));
    // All in one or two passes: the count is that of the folders sent, the root is not among them.
    EXPECT_EQ(log.count(LogLevel::info, "completed: \"120000\" nodes"), 1);
    EXPECT_EQ(log.count(LogLevel::info, "\" nodes"), 1);
    posted.clear();
    // Counted from 0 again; the last mark was 2, so the first pass of the next job says its own.
    fake->addFolder("/small", 400000);
    fake->addFolder("/small/one", 400001);
    ASSERT_TRUE(measure("/small"));
    EXPECT_EQ(log.count(LogLevel::info, "completed: \"1\" nodes") + log.count(LogLevel::info, "completed: \"0\" nodes"),
              1);
}

// The low byte of the number of waiting folders, as a signed number.
TEST_F(TuvNodeFactoryJobs, isWorkingSeesTheLowByteAlone) {
    fake->addFolder("/r", 2);
    for (unsigned i = 0; i < 255; ++i) fake->addFolder("/r/" + std::to_string(i), 10 + i);
    fake->addFolder("/s", 1000);
    for (unsigned i = 0; i < 199; ++i) fake->addFolder("/s/" + std::to_string(i), 1001 + i);
    catalog->gate("/r/0");
    engine()->startWorkingAtPath("/r");
    catalog->waitUntilReached("/r/0");
    EXPECT_EQ(engine()->isWorking(), 0) << "256 wait";
    catalog->gate("/r/1");
    catalog->open("/r/0");
    catalog->waitUntilReached("/r/1");
    EXPECT_EQ(engine()->isWorking(), -1) << "255 wait";
    catalog->open("/r/1");
    catalog->gate("/s/0");
    engine()->startWorkingAtPath("/s");
    catalog->waitUntilReached("/s/0");
    EXPECT_EQ(engine()->isWorking(), static_cast<signed char>(200));
    EXPECT_NE(engine()->isWorking(), 0);
}

// A small tree many times: whatever pass sees the last folder without the root says so, and the job completes.
TEST_F(TuvNodeFactoryJobs, completesHoweverThePassesFall) {
    makeTree();
    LogCapture log;
    for (int i = 0; i < 300; ++i) {
        posted.clear();
        ASSERT_TRUE(measure("/r"));
        ASSERT_THAT(posted.resolvedNames(), ElementsAre("b", "c", "a", "d"));
        ASSERT_EQ(posted.names().back(), "Completed");
    }
    EXPECT_EQ(errors(log), log.count(LogLevel::error, "last node  was not the root node ! \"/r/"));
    EXPECT_EQ(log.count("completed: rootPath=\"/r\" in "), 300);
}

}  // namespace
}  // namespace kavaro
