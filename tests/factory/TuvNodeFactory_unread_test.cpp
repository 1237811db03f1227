// Folders whose contents the totals miss, as the client hears of them.
#include <gmock/gmock.h>

#include "factory/EngineTest.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TuvNodeFactoryUnread : public EngineTest {
  protected:
    // Position of the first notification that names the folder, and of the one that carries it as resolved.
    std::size_t positionOfUnread(const std::string& path) {
        for (std::size_t i = 0; i < posted.all().size(); ++i)
            for (const std::string& folder : posted.all()[i].userInfo.folders.value_or(std::vector<std::string>()))
                if (folder == path) return i;
        return std::string::npos;
    }
    std::size_t positionOfResolved(std::string_view name) {
        for (std::size_t i = 0; i < posted.all().size(); ++i) {
            const auto& notification = posted.all()[i];
            if (notification.name != TuvNodeFactoryResolvedNotification) continue;
            const auto names = PostedNotifications::namesOf(*TuvObjectArray::fromBytes(notification.data->view()));
            if (std::find(names.begin(), names.end(), name) != names.end()) return i;
        }
        return std::string::npos;
    }
};

TEST_F(TuvNodeFactoryUnread, everyReason) {
    fake->addFolder("/r", 2);
    fake->addFolder("/r/locked", 3).openError = EACCES;
    fake->addFolder("/r/forbidden", 4).iteratorError = EPERM;
    fake->addFolder("/r/gone", 5);
    fake->addFolder("/r/broken", 6).openError = EIO;
    fake->addExcludedFolder("/r/proc", 7, kReasonPseudoFileSystem);
    fake->addExcludedFolder("/r/mount", 8, kReasonOtherFileSystem);
    fake->addFolder("/r/BACKUPS.backupdb", 9);
    fake->addFile("/r/BACKUPS.backupdb/f", 20, 1, 1);
    fake->addFolder("/r/half", 10);
    fake->addFile("/r/half/f", 11, 5, 512);
    fake->addFile("/r/half/g", 12, 5, 512);
    fake->folder("/r/half").failAfter = 1;
    fake->addFolder("/r/odd", 13).unreadableEntries = 2;
    fake->addFolder("/r/fine", 14);
    fake->vanish("/r/gone");
    ASSERT_TRUE(measure("/r"));
    EXPECT_THAT(posted.unread(),
                testing::UnorderedElementsAre("/r/locked: permission", "/r/forbidden: permission", "/r/gone: vanished",
                                              "/r/broken: read error", "/r/proc: pseudo file system",
                                              "/r/mount: other file system", "/r/BACKUPS.backupdb: backup folder",
                                              "/r/half: read error", "/r/odd: permission"));
    for (const char* name :
         {"locked", "forbidden", "gone", "broken", "proc", "mount", "BACKUPS.backupdb", "half", "odd"})
        EXPECT_LT(positionOfUnread(std::string("/r/") + name), positionOfResolved(name)) << name;
    EXPECT_EQ(PostedNotifications::folderOf(posted.last("Completed"))->logicalSize(), 5u);
    EXPECT_EQ(posted.names().front(), "Started");
    EXPECT_EQ(posted.names().back(), "Completed");
}

TEST_F(TuvNodeFactoryUnread, carriesPathsAndReasonsAndNothingElse) {
    fake->addFolder("/r", 2);
    fake->addFolder("/r/locked", 3).openError = EACCES;
    for (const bool local : {true, false}) {
        posted.clear();
        engine()->setLocalWorker(local);
        ASSERT_TRUE(measure("/r"));
        const auto* unread = posted.last("UnreadFolders");
        ASSERT_TRUE(unread);
        EXPECT_EQ(unread->local, local);
        EXPECT_EQ(unread->object, local ? "" : "TuvNodeFactory");
        EXPECT_FALSE(unread->data);
        EXPECT_TRUE(unread->hasUserInfo);
        EXPECT_FALSE(unread->userInfo.parentInodes);
        EXPECT_EQ(unread->userInfo.folders, std::vector<std::string>{"/r/locked"});
        EXPECT_EQ(unread->userInfo.reasons, std::vector<std::string>{"permission"});
    }
}

TEST_F(TuvNodeFactoryUnread, noneWhenAllWasRead) {
    fake->addFolder("/r", 2);
    fake->addFolder("/r/a", 3);
    ASSERT_TRUE(measure("/r"));
    EXPECT_EQ(posted.count("UnreadFolders"), 0);
}

// The root alone is unreadable: it is in no batch, so its notification comes ahead of Completed.
TEST_F(TuvNodeFactoryUnread, theRootItself) {
    fake->addFolder("/r", 2).openError = EACCES;
    ASSERT_TRUE(measure("/r"));
    EXPECT_THAT(posted.names(), ElementsAre("Started", "UnreadFolders", "Completed"));
    EXPECT_THAT(posted.unread(), ElementsAre("/r: permission"));
}

TEST_F(TuvNodeFactoryUnread, atMostAThousandATime) {
    fake->addFolder("/r", 2);
    for (unsigned i = 0; i < 2500; ++i)
        fake->addExcludedFolder("/r/" + std::to_string(i), 10 + i, kReasonPseudoFileSystem);
    ASSERT_TRUE(measure("/r"));
    std::vector<std::size_t> sizes;
    for (const auto& notification : posted.all())
        if (notification.userInfo.folders) sizes.push_back(notification.userInfo.folders->size());
    EXPECT_THAT(sizes, ElementsAre(1000, 1000, 500));
    auto names = posted.names();
    names.resize(4);
    EXPECT_THAT(names, ElementsAre("Started", "UnreadFolders", "UnreadFolders", "UnreadFolders"));
    EXPECT_EQ(posted.unread().front(), "/r/0: pseudo file system");
    EXPECT_EQ(posted.unread().back(), "/r/2499: pseudo file system");
}

// A message on the bus has its limit, and paths may be long.
TEST_F(TuvNodeFactoryUnread, longPathsAreFewAtATime) {
    fake->addFolder("/r", 2);
    const std::string name(300'000, 'n');
    for (unsigned i = 0; i < 8; ++i)
        fake->addExcludedFolder("/r/" + std::to_string(i) + name, 10 + i, kReasonPseudoFileSystem);
    ASSERT_TRUE(measure("/r"));
    std::vector<std::size_t> sizes;
    for (const auto& notification : posted.all())
        if (notification.userInfo.folders) sizes.push_back(notification.userInfo.folders->size());
    EXPECT_THAT(sizes, ElementsAre(3, 3, 2));
    EXPECT_EQ(posted.unread().back(), "/r/7" + name + ": pseudo file system");
}

// A folder that became a file after it was listed: resolved as empty, and not tried for ever.
TEST_F(TuvNodeFactoryUnread, aFolderThatTurnsIntoAFile) {
    fake->addFolder("/r", 2);
    fake->addFolder("/r/a", 3);
    fake->addFolder("/r/b", 4);
    fake->addFile("/r/c", 5, 10, 512);
    catalog->gate("/r/a");
    engine()->startWorkingAtPath("/r");
    catalog->waitUntilReached("/r/a");
    fake->vanish("/r/b");
    fake->addFile("/r/b", 4, 1000, 4096);
    catalog->open("/r/a");
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_THAT(posted.resolvedNames(), ElementsAre("a", "b"));
    EXPECT_THAT(posted.unread(), ElementsAre("/r/b: vanished"));
    EXPECT_EQ(posted.resolved()->folderAtIndex(1)->childrenCount(), 0);
    EXPECT_EQ(PostedNotifications::folderOf(posted.last("Completed"))->logicalSize(), 10u);
}

// The same between the two questions for the root.
TEST_F(TuvNodeFactoryUnread, aRootThatTurnsIntoAFile) {
    fake->addFolder("/r", 2);
    fake->addFolder("/r/a", 3);
    catalog->gate("/r");
    std::thread changer([this] {
        catalog->waitUntilReached("/r");
        fake->vanish("/r");
        fake->addFile("/r", 2, 1000, 4096);
        catalog->open("/r");
    });
    engine()->startWorkingAtPath("/r");
    changer.join();
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_THAT(posted.names(), ElementsAre("Started", "UnreadFolders", "Completed"));
    EXPECT_EQ(PostedNotifications::folderOf(posted.last("Completed"))->childrenCount(), 0);
}

// What a load beside the job cannot read is not missing from the job's totals.
TEST_F(TuvNodeFactoryUnread, loadsBesideTheJobReportNothing) {
    fake->addFolder("/r", 2);
    fake->addFolder("/r/a", 3);
    fake->addFolder("/other", 4).openError = EACCES;
    catalog->gate("/r/a");
    engine()->startWorkingAtPath("/r");
    catalog->waitUntilReached("/r/a");
    EXPECT_FALSE(engine()->hasFileSytemChanged("/other").isNull());
    EXPECT_FALSE(engine()->nodeWithPath("/other", true).isNull());
    catalog->open("/r/a");
    EXPECT_FALSE(engine()->prioritizeNodeWithInode(4, "/other").isNull());
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_THAT(posted.unread(), IsEmpty());
}

// A folder asked for ahead of the others is part of the job.
TEST_F(TuvNodeFactoryUnread, prioritizedFoldersAreReported) {
    fake->addFolder("/r", 2);
    fake->addFolder("/r/a", 3);
    fake->addFolder("/r/b", 4).openError = EACCES;
    LogCapture log(LogLevel::trace);
    clock.hold(FakeClock::kWorkerThread);
    engine()->startWorkingAtPath("/r");
    clock.waitUntilHeld(FakeClock::kWorkerThread);
    EXPECT_FALSE(engine()->prioritizeNodeWithInode(4, "/r/b").isNull());
    clock.go();
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_THAT(posted.unread(), ElementsAre("/r/b: permission"));
}

TEST_F(TuvNodeFactoryUnread, aStoppedJobLeavesNothingForTheNext) {
    fake->addFolder("/r", 2);
    fake->addFolder("/r/locked", 3).openError = EACCES;
    fake->addFolder("/s", 4);
    clock.hold();
    engine()->startWorkingAtPath("/r");
    waitUntilStackIsEmpty();
    engine()->stopSizing();
    engine()->startWorkingAtPath("/s");
    clock.go();
    ASSERT_TRUE(runUntilPosted("Completed"));
    EXPECT_THAT(posted.unread(), IsEmpty());
}

}  // namespace
}  // namespace kavaro
