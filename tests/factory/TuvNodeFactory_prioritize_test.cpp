// One folder asked for ahead of the others, and folders asked for beside the job.
#include <gmock/gmock.h>

#include <map>

#include "factory/EngineTest.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class TuvNodeFactoryPrioritize : public EngineTest {
  protected:
    // /r (2): a (3) with a1 (4) and a2 (5), b (6) with b1 (7) with b11 (8), c (9)
    void makeTree() {
        fake->addFolder("/r", 2);
        fake->addFolder("/r/a", 3);
        fake->addFolder("/r/a/a1", 4);
        fake->addFolder("/r/a/a2", 5);
        fake->addFolder("/r/b", 6);
        fake->addFolder("/r/b/b1", 7);
        fake->addFolder("/r/b/b1/b11", 8);
        fake->addFile("/r/b/b1/b11/f", 20, 7, 512);
        fake->addFile("/r/b/g", 21, 70, 1024);
        fake->addFolder("/r/c", 9);
    }
    // Starts on /r and stops the worker, which holds no lock then, after so many steps. Needs a capture at trace level.
    void startAndStopAfter(int steps) {
        clock.hold(FakeClock::kWorkerThread);
        engine()->startWorkingAtPath("/r");
        clock.waitUntilHeld(FakeClock::kWorkerThread);
        for (; steps > 1; --steps) {
            clock.pass(FakeClock::kWorkerThread);
            clock.waitUntilHeld(FakeClock::kWorkerThread);
        }
    }
    static TuvRef<TuvDirNode> folderOf(const ByteBuffer& data) {
        return data.isNull() ? nullptr : TuvDirNode::fromBytes(data.view());
    }
};

TEST_F(TuvNodeFactoryPrioritize, movesAWaitingFolderToTheTop) {
    makeTree();
    LogCapture log(LogLevel::trace);
    clock.hold();
    startAndStopAfter(2);  // a1, a2, a, b, c and the root wait
    ASSERT_TRUE(engine()->currentlyWorking());
    EXPECT_EQ(engine()->currentlyWorking()->fileName(), "a1");
    const auto folder = folderOf(engine()->prioritizeNodeWithInode(6, "/r/b"));
    EXPECT_EQ(engine()->currentlyWorking()->fileName(), "b");
    EXPECT_EQ(engine()->isWorking(), 6);
    EXPECT_EQ(log.count(LogLevel::info, "6 [0 on _notificationStack]"), 1);
    clock.go();
    ASSERT_TRUE(folder);
    EXPECT_EQ(folder->fileName(), "b");
    EXPECT_FALSE(folder->isResolved());
    EXPECT_THAT(PostedNotifications::namesOf(*folder->folders()), ElementsAre("b1"));
    EXPECT_THAT(PostedNotifications::namesOf(*folder->files()), ElementsAre("g"));
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_THAT(posted.resolvedNames(), ElementsAre("b11", "b1", "b", "a1", "a2", "a", "c"));
    EXPECT_EQ(PostedNotifications::folderOf(posted.last("Completed"))->logicalSize(), 77u);
    EXPECT_THAT(fake->listedPaths(), SizeIs(8)) << "no folder is listed twice";
}

// Its subfolders wait already: they are taken off, and come back in front of it.
TEST_F(TuvNodeFactoryPrioritize, takesTheSubfoldersAlong) {
    makeTree();
    LogCapture log(LogLevel::trace);
    clock.hold();
    startAndStopAfter(2);
    const auto folder = folderOf(engine()->prioritizeNodeWithInode(3, "/r/a"));
    EXPECT_EQ(engine()->currentlyWorking()->fileName(), "a");
    EXPECT_EQ(engine()->isWorking(), 4) << "a, b, c and the root";
    clock.go();
    ASSERT_TRUE(folder);
    EXPECT_EQ(folder->folderCount(), 2);
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_THAT(posted.resolvedNames(), ElementsAre("a1", "a2", "a", "b11", "b1", "b", "c"));
    EXPECT_THAT(fake->listedPaths(), SizeIs(8)) << "no folder is listed twice";
}

TEST_F(TuvNodeFactoryPrioritize, servesTheRootOfTheJob) {
    makeTree();
    LogCapture log(LogLevel::trace);
    clock.hold();
    startAndStopAfter(3);  // a1 is done
    const auto root = folderOf(engine()->prioritizeNodeWithInode(2, "/r"));
    EXPECT_EQ(engine()->isWorking(), 1);
    clock.go();
    ASSERT_TRUE(root);
    EXPECT_EQ(root->fileName(), "/r");
    EXPECT_EQ(root->folderCount(), 3);
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_THAT(posted.resolvedNames(), ElementsAre("a1", "a2", "a", "b11", "b1", "b", "c"));
    EXPECT_EQ(PostedNotifications::folderOf(posted.last("Completed"))->logicalSize(), 77u);
}

// Again and again, whatever waits: every folder is sent once in the end, after its subfolders.
TEST_F(TuvNodeFactoryPrioritize, anyFolderAtAnyTime) {
    makeTree();
    LogCapture log(LogLevel::trace);
    const std::map<int, std::string> paths{{2, "/r"},   {3, "/r/a"},    {4, "/r/a/a1"},     {5, "/r/a/a2"},
                                           {6, "/r/b"}, {7, "/r/b/b1"}, {8, "/r/b/b1/b11"}, {9, "/r/c"}};
    for (unsigned seed = 0; seed < 60; ++seed) {
        posted.clear();
        clock.hold();
        startAndStopAfter(1);
        for (unsigned turn = 0; engine()->currentlyWorking(); ++turn) {
            const int inode = 2 + static_cast<int>((seed * 7 + turn * 5 + seed / 8) % 8);
            if (turn < 40) {
                EXPECT_FALSE(engine()->prioritizeNodeWithInode(inode, paths.at(inode)).isNull());
                if ((seed + turn) % 3 == 0) continue;
            }
            clock.pass(FakeClock::kWorkerThread);
            clock.waitUntilHeld(FakeClock::kWorkerThread);
        }
        clock.go();
        ASSERT_TRUE(runUntilPosted("Completed"));
        const auto names = posted.resolvedNames();
        ASSERT_THAT(names, testing::UnorderedElementsAre("a1", "a2", "a", "b11", "b1", "b", "c")) << "seed " << seed;
        const auto at = [&](const char* name) { return std::find(names.begin(), names.end(), name); };
        ASSERT_TRUE(at("a1") < at("a") && at("a2") < at("a") && at("b11") < at("b1") && at("b1") < at("b"));
        ASSERT_EQ(PostedNotifications::folderOf(posted.last("Completed"))->logicalSize(), 77u);
    }
}

// A folder that is not waiting is loaded afresh from its path, as it is now, and the job goes on as it was.
TEST_F(TuvNodeFactoryPrioritize, loadsAFolderThatDoesNotWait) {
    makeTree();
    LogCapture log;
    ASSERT_TRUE(measure("/r"));
    const auto folder = folderOf(engine()->prioritizeNodeWithInode(6, "/r/b"));
    ASSERT_TRUE(folder);
    EXPECT_EQ(folder->fileName(), "/r/b");
    EXPECT_EQ(folder->inode(), 6u);
    EXPECT_EQ(folder->childrenCount(), 2);
    EXPECT_EQ(engine()->currentlyWorking(), nullptr);
    EXPECT_EQ(log.count(LogLevel::error, "Please pass in a folder path"), 0);
}

TEST_F(TuvNodeFactoryPrioritize, refusesWhatIsNoFolder) {
    makeTree();
    LogCapture log;
    engine();
    EXPECT_TRUE(engine()->prioritizeNodeWithInode(-5, "/r/b/g").isNull());
    EXPECT_EQ(log.count(LogLevel::error, "-5 [0 on _notificationStack], Please pass in a folder path as argument !!!"),
              1);
    EXPECT_TRUE(engine()->prioritizeNodeWithInode(99, "/r/none").isNull());
    EXPECT_EQ(log.count(LogLevel::error, "99 [0 on _notificationStack], Please pass in a folder path as argument !!!"),
              1);
    EXPECT_EQ(log.count(LogLevel::error, "Could not stat(/r/none)"), 1);
    EXPECT_THAT(posted.names(), IsEmpty());
}

// A folder on the stack whose sizes are known already. The worker leaves none there, so the test makes one.
TEST_F(TuvNodeFactoryPrioritize, answersNothingForAResolvedFolderOnTheStack) {
    makeTree();
    LogCapture log(LogLevel::trace);
    startAndStopAfter(2);
    engine()->currentlyWorking()->setIsResolved(true);
    EXPECT_TRUE(engine()->prioritizeNodeWithInode(4, "/r/a/a1").isNull());
    EXPECT_EQ(log.count(LogLevel::error, "This has been resolved already inode [4]"), 1);
    clock.go();
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_EQ(posted.resolved()->count(), 7);
}

TEST_F(TuvNodeFactoryPrioritize, tellsHowManyWaitToBeSent) {
    makeTree();
    LogCapture log(LogLevel::trace);
    clock.hold();
    startAndStopAfter(5);  // the root, a, and now a1, a2 and a for good
    engine()->prioritizeNodeWithInode(99, "/r/none");
    EXPECT_EQ(log.count(LogLevel::info, "99 [3 on _notificationStack]"), 1);
    EXPECT_EQ(log.count(LogLevel::error, "99 [3 on _notificationStack], Please pass in a folder path as argument !!!"),
              1);
    clock.pass();
    ASSERT_TRUE(runUntilPosted("Resolved"));
    engine()->prioritizeNodeWithInode(99, "/r/none");
    EXPECT_EQ(log.count(LogLevel::info, "99 [0 on _notificationStack]"), 1);
}

TEST_F(TuvNodeFactoryPrioritize, loadsOneFolderBesideTheJob) {
    makeTree();
    LogCapture log;
    const auto folder = folderOf(engine()->hasFileSytemChanged("/r/b"));
    ASSERT_TRUE(folder);
    EXPECT_EQ(folder->fileName(), "/r/b");
    EXPECT_EQ(folder->fileCount(), 1);
    EXPECT_EQ(folder->folderCount(), 1);
    EXPECT_EQ(log.count(LogLevel::info, "/r/b"), 1);
    EXPECT_TRUE(engine()->hasFileSytemChanged("/r/b/g").isNull());
    EXPECT_EQ(log.count(LogLevel::error, "/r/b/g, Please pass in a folder path as argument !!!"), 1);
    EXPECT_TRUE(engine()->hasFileSytemChanged("/none").isNull());
    EXPECT_EQ(log.count(LogLevel::error, "/none, Please pass in a folder path as argument !!!"), 1);
    EXPECT_EQ(TuvNode::instanceCount(), 3) << "the folder read back here, and nothing else";
}

TEST_F(TuvNodeFactoryPrioritize, loadsOneNodeBesideTheJob) {
    makeTree();
    LogCapture log;
    const auto bare = folderOf(engine()->nodeWithPath("/r/b", false));
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->childrenCount(), 0);
    EXPECT_FALSE(bare->hasLoadNodes());
    EXPECT_EQ(log.count(LogLevel::info, "/r/b 0"), 1);
    const auto loaded = folderOf(engine()->nodeWithPath("/r/b", true));
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->childrenCount(), 2);
    EXPECT_EQ(log.count(LogLevel::info, "/r/b 1"), 1);
    const ByteBuffer file = engine()->nodeWithPath("/r/b/g", true);
    auto node = make<TuvNode>();
    ASSERT_TRUE(node->deserialize(file.view()));
    EXPECT_EQ(node->fileName(), "/r/b/g");
    EXPECT_EQ(node->logicalSize(), 70u);
    EXPECT_TRUE(engine()->nodeWithPath("/none", true).isNull());
}

// Requests beside the job do not wait for the worker's step.
TEST_F(TuvNodeFactoryPrioritize, loadsBesideTheJobWhileTheWorkerIsBusy) {
    makeTree();
    catalog->gate("/r/a");
    engine()->startWorkingAtPath("/r");
    catalog->waitUntilReached("/r/a");
    EXPECT_TRUE(folderOf(engine()->hasFileSytemChanged("/r/b")));
    EXPECT_TRUE(folderOf(engine()->nodeWithPath("/r/b/b1", true)));
    catalog->open("/r/a");
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_EQ(posted.resolved()->count(), 7);
}

// Subfolders that were resolved, sent and unloaded stay so: they are not looked into, and not sent again.
TEST_F(TuvNodeFactoryPrioritize, aFolderSomeOfWhoseSubfoldersHaveBeenSent) {
    makeTree();
    LogCapture log(LogLevel::trace);
    clock.hold();
    startAndStopAfter(6);  // a is done with all below it, b is open
    clock.pass();
    ASSERT_TRUE(runUntilPosted("Resolved"));
    EXPECT_THAT(posted.resolvedNames(), ElementsAre("a1", "a2", "a"));
    const auto root = folderOf(engine()->prioritizeNodeWithInode(2, "/r"));
    // Nothing of a waits any more: asked for, it is read from the disk.
    EXPECT_EQ(folderOf(engine()->prioritizeNodeWithInode(3, "/r/a"))->fileName(), "/r/a");
    clock.go();
    ASSERT_TRUE(root);
    EXPECT_TRUE(root->folders()->folderAtIndex(0)->isResolved());
    EXPECT_FALSE(root->folders()->folderAtIndex(1)->isResolved());
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_THAT(posted.resolvedNames(), ElementsAre("a1", "a2", "a", "b11", "b1", "b", "c"));
}

}  // namespace
}  // namespace kavaro
