#include <gmock/gmock.h>
#include <unistd.h>

#include "TempFolder.h"
#include "factory/EngineTest.h"
#include "factory/FakeWorkspace.h"
#include "platform/UserDefaults.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// On the real disk, with a desktop of the test's own.
class TuvNodeFactoryTrash : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        ScanSession::setCatalogFactory({});
        workspace = &desktop;
    }
    void moveRemotely(const std::vector<std::string>& paths) { engine(false)->moveToTrash(paths); }
    const std::vector<TrashError>& errors() {
        static const std::vector<TrashError> none;
        const auto* last = posted.last("TrashFile");
        return last && last->userInfo.errors ? *last->userInfo.errors : none;
    }
    // Names of the nodes of the last notification.
    std::vector<std::string> nodes() {
        const auto* last = posted.last("TrashFile");
        if (!last || !last->data) return {"no data"};
        const auto array = TuvObjectArray::fromBytes(last->data->view());
        return array ? PostedNotifications::namesOf(*array) : std::vector<std::string>{"no array"};
    }
    std::vector<std::string> lines(std::string_view selector) const {
        std::vector<std::string> texts;
        for (const LogCapture::Line& line : log.lines())
            if (line.selector == selector && line.component == "TuvNodeFactory")
                texts.push_back((line.level == LogLevel::error ? "error: " : "") + line.text);
        return texts;
    }

    LogCapture log;
    FakeWorkspace& desktop = lasting<FakeWorkspace>();
    TempFolder temp;
    ScopedEnvironment _languages{"LC_ALL", "C"};
};

TEST_F(TuvNodeFactoryTrash, RemoteMovesAtOnceAndTellsOfNodes) {
    const std::string file = temp.write("file", "four");
    const std::string folder = temp.makeFolder("folder");
    temp.write("folder/inner", "");
    moveRemotely({file, folder});
    ASSERT_EQ(posted.names(), std::vector<std::string>{"TrashFile"});
    const PostedNotifications::Posted& note = posted.all()[0];
    EXPECT_FALSE(note.local);
    EXPECT_EQ(note.name, "TuvNodeFactoryTrashFileNotification");
    EXPECT_EQ(note.object, "TuvNodeFactory");
    EXPECT_TRUE(note.userInfo.serialized);
    EXPECT_FALSE(note.userInfo.parentInodes);
    ASSERT_TRUE(note.userInfo.errors);
    EXPECT_THAT(*note.userInfo.errors, IsEmpty());
    EXPECT_THAT(nodes(), ElementsAre(file, folder));
    const auto array = TuvObjectArray::fromBytes(note.data->view());
    EXPECT_EQ(array->nodeAtIndex(0)->logicalSize(), 4u);
    EXPECT_TRUE(array->nodeAtIndex(1)->isDirectory());
    EXPECT_THAT(desktop.asked, ElementsAre(temp.path() + "|file", temp.path() + "|folder"));
    EXPECT_EQ(desktop.firstTag, -1);
    EXPECT_EQ(desktop.changes, 1);
    EXPECT_THAT(lines("moveToTrash:"), ElementsAre("2 files, isRemote"));
    EXPECT_THAT(lines("_moveToTrash:"), ElementsAre("2 nodes"));
    EXPECT_THAT(lines("_moveToTrash:userInfo:"),
                ElementsAre(file, "It worked, recycle tag is 0", folder, "It worked, recycle tag is 0"));
    EXPECT_THAT(lines("_moveToTrashNotification:userInfo:"), IsEmpty()) << "at debug level alone";
}

TEST_F(TuvNodeFactoryTrash, LocalMovesAMomentLater) {
    const std::string file = temp.write("file", "");
    engine(true)->moveToTrash({file});
    EXPECT_THAT(desktop.asked, IsEmpty());
    ASSERT_TRUE(runUntilPosted("TrashFile"));
    const PostedNotifications::Posted& note = posted.all()[0];
    EXPECT_TRUE(note.local);
    EXPECT_TRUE(note.data) << "the data is the object";
    EXPECT_FALSE(note.userInfo.serialized);
    EXPECT_TRUE(note.userInfo.errors);
    EXPECT_THAT(nodes(), ElementsAre(file));
    EXPECT_THAT(lines("moveToTrash:"), ElementsAre("1 files, isLocal"));
}

TEST_F(TuvNodeFactoryTrash, ALaterLocalCallTakesThePlaceOfAPendingOne) {
    const std::string first = temp.write("first", "");
    const std::string second = temp.write("second", "");
    engine(true)->moveToTrash({first});
    engine(true)->moveToTrash({second});
    ASSERT_TRUE(runUntilPosted("TrashFile"));
    RunLoop::main().runUntil([] { return false; }, 0.05);
    EXPECT_EQ(posted.count("TrashFile"), 1);
    EXPECT_THAT(desktop.asked, ElementsAre(temp.path() + "|second"));
    engine(true)->moveToTrash({first});
    ASSERT_TRUE(runUntilPosted("TrashFile", 2));
    EXPECT_EQ(desktop.asked.size(), 2u);
}

TEST_F(TuvNodeFactoryTrash, WhatIsInATrashIsSkipped) {
    temp.makeFolder(".Trash");
    temp.makeFolder("my.Trashcan");
    const std::string inner = temp.write(".Trash/file", "");
    const std::string similar = temp.write("my.Trashcan/file", "");
    moveRemotely({inner, similar, "/nowhere/.Trash-0/x"});
    EXPECT_THAT(desktop.asked, IsEmpty());
    EXPECT_EQ(desktop.changes, 0);
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THAT(lines("_moveToTrash:"),
                ElementsAre("3 nodes", "Already in Trash [" + inner + "]", "Already in Trash [" + similar + "]",
                            "Already in Trash [/nowhere/.Trash-0/x]"));
    ASSERT_TRUE(posted.last("TrashFile")->data);
    EXPECT_EQ(posted.last("TrashFile")->data->size(), 0u) << "no node is no data, but the key is there";
}

TEST_F(TuvNodeFactoryTrash, APathThatCannotBeLoadedIsAnErrorWithoutANode) {
    const std::string file = temp.write("file", "");
    moveRemotely({temp.path("absent"), file});
    ASSERT_THAT(errors(), SizeIs(1));
    EXPECT_EQ(errors()[0].reason, "Could not load node form path");
    EXPECT_EQ(errors()[0].pathName, temp.path("absent"));
    EXPECT_TRUE(errors()[0].attributes.isNull());
    EXPECT_EQ(errors()[0].detail, "");
    EXPECT_THAT(nodes(), ElementsAre(file));
    EXPECT_THAT(desktop.asked, SizeIs(1));
}

TEST_F(TuvNodeFactoryTrash, AFailureIsAnErrorAndANode) {
    const std::string file = temp.write("file", "four");
    desktop.answer = [](const std::string&) { return FakeWorkspace::Answer{false, -1, "permission denied"}; };
    moveRemotely({file});
    ASSERT_THAT(errors(), SizeIs(1));
    EXPECT_EQ(errors()[0].reason, "Could not move this file to Trash.");
    EXPECT_EQ(errors()[0].pathName, file);
    EXPECT_EQ(errors()[0].detail, "permission denied");
    ASSERT_NE(errors()[0].attributes.get("NSFileSize"), nullptr);
    EXPECT_EQ(errors()[0].attributes.get("NSFileSize")->intValue(), 4);
    EXPECT_THAT(nodes(), ElementsAre(file));
    EXPECT_EQ(desktop.changes, 1);
    EXPECT_THAT(lines("_moveToTrash:userInfo:"),
                ElementsAre(file, "It did not work, recycle tag is -1", "error: Could not move this file to Trash.",
                            "error: " + file + ": permission denied"));
}

// Success that is reported with a tag below 0 is none.
TEST_F(TuvNodeFactoryTrash, TheTagDecidesToo) {
    const std::string file = temp.write("file", "");
    desktop.answer = [](const std::string&) { return FakeWorkspace::Answer{true, -1, ""}; };
    moveRemotely({file});
    ASSERT_THAT(errors(), SizeIs(1));
    EXPECT_EQ(errors()[0].detail, "");
    EXPECT_EQ(log.count("It worked, recycle tag is -1"), 1);
    desktop.answer = [](const std::string&) { return FakeWorkspace::Answer{false, 0, ""}; };
    moveRemotely({file});
    EXPECT_THAT(errors(), SizeIs(1));
    desktop.answer = [](const std::string&) { return FakeWorkspace::Answer{true, 7, ""}; };
    moveRemotely({file});
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(TuvNodeFactoryTrash, AFileOfSomebodyElseIsSaidToBe) {
    const std::string file = temp.write("file", "");
    const std::string ghost = temp.write("ghost", "");
    desktop.answer = [](const std::string&) { return FakeWorkspace::Answer{false, -1, ""}; };
    if (geteuid() != 0) {
        moveRemotely({"/etc/passwd"});
        ASSERT_THAT(errors(), SizeIs(1));
        EXPECT_EQ(errors()[0].reason, "Could not move this file to Trash. The file is owned by user root.");
        return;
    }
    ASSERT_EQ(chown(file.c_str(), 65534, 65534), 0);
    ASSERT_EQ(chown(ghost.c_str(), 3999999997, 65534), 0);
    moveRemotely({file, ghost});
    ASSERT_THAT(errors(), SizeIs(2));
    EXPECT_EQ(errors()[0].reason, "Could not move this file to Trash. The file is owned by user nobody.");
    EXPECT_EQ(errors()[1].reason, "Could not move this file to Trash. The file is owned by user Unknown.");
}

TEST_F(TuvNodeFactoryTrash, AFileThatVanishesMeanwhileIsNobodyElses) {
    const std::string file = temp.write("file", "");
    desktop.answer = [](const std::string& path) {
        unlink(path.c_str());
        return FakeWorkspace::Answer{false, -1, "it does not exist any more"};
    };
    moveRemotely({file});
    ASSERT_THAT(errors(), SizeIs(1));
    EXPECT_EQ(errors()[0].reason, "Could not move this file to Trash.");
    EXPECT_TRUE(errors()[0].attributes.isNull());
}

// Node IDs of an entry are those of its own volume, whatever else is in the call.
TEST_F(TuvNodeFactoryTrash, EachPathIsLookedAtByItself) {
    auto& looked = lasting<std::vector<std::string>>();
    ScanSession::setCatalogFactory([this, &looked](const std::string& path) {
        looked.push_back(path);
        return fake;
    });
    fake->addFolder("/r", 2);
    moveRemotely({"/r", "/absent"});
    EXPECT_THAT(looked, ElementsAre("/r", "/absent"));
    EXPECT_THAT(nodes(), ElementsAre("/r"));
    ScanSession::setCatalogFactory({});
}

TEST_F(TuvNodeFactoryTrash, TheSizeOfTheDataIsLoggedForDebugging) {
    TuvLog::setDefaultLevel(LogLevel::debug);
    moveRemotely({temp.write("file", "")});
    const auto* last = posted.last("TrashFile");
    ASSERT_TRUE(last && last->data);
    EXPECT_THAT(lines("_moveToTrashNotification:userInfo:"),
                ElementsAre(std::to_string(last->data->view().size()) + " bytes"));
    for (const LogCapture::Line& line : log.lines()) {
        if (line.selector == "_moveToTrashNotification:userInfo:") {
            EXPECT_EQ(line.level, LogLevel::debug);
        }
    }
}

TEST_F(TuvNodeFactoryTrash, NoPathsAreANotificationToo) {
    moveRemotely({});
    EXPECT_EQ(posted.names(), std::vector<std::string>{"TrashFile"});
    EXPECT_EQ(desktop.changes, 0);
    EXPECT_THAT(lines("moveToTrash:"), ElementsAre("0 files, isRemote"));
}

TEST_F(TuvNodeFactoryTrash, ParentInodesAreNeverAdded) {
    temp.makeFolder("job");
    engine(false)->startWorkingAtPath(temp.path("job"), std::vector<std::uint32_t>{7});
    moveRemotely({temp.write("file", "")});
    EXPECT_FALSE(posted.last("TrashFile")->userInfo.parentInodes);
    EXPECT_TRUE(runUntilPosted("Completed"));
}

// More than one message holds: in portions, and nothing is lost.
TEST_F(TuvNodeFactoryTrash, AHundredThousandFailuresComeInPortions) {
    std::vector<std::string> paths;
    for (int number = 0; number < 100000; ++number)
        paths.push_back(temp.path("absent " + std::to_string(number) + std::string(100, 'x')));
    moveRemotely(paths);
    std::size_t count = 0;
    bool inOrder = true;
    for (const PostedNotifications::Posted& note : posted.all()) {
        std::size_t bytes = 0;
        EXPECT_EQ(note.userInfo.serialized != nullptr, count == 0) << "with the first alone";
        ASSERT_TRUE(note.userInfo.errors);
        for (const TrashError& error : *note.userInfo.errors) {
            inOrder = inOrder && error.pathName == paths[count];
            ++count;
            bytes += error.pathName.size() + error.reason.size();
        }
        EXPECT_LT(bytes, 9u << 20);
    }
    EXPECT_EQ(count, paths.size());
    EXPECT_TRUE(inOrder);
    EXPECT_GT(posted.count("TrashFile"), 1);
}

TEST_F(TuvNodeFactoryTrash, TheRealTrashTakesThem) {
    workspace = &Workspace::shared();
    const ScopedEnvironment data("XDG_DATA_HOME", temp.path("data"));
    const std::string odd = temp.write("odd \n\"\xff", "x");
    ASSERT_EQ(symlink("odd \n\"\xff", temp.path("link").c_str()), 0);
    moveRemotely({odd, temp.path("link"), "/"});
    EXPECT_FALSE(isThere(odd));
    EXPECT_TRUE(isThere(temp.path("data/Trash/files/odd \n\"\xff")));
    ASSERT_THAT(errors(), SizeIs(2));  // the link leads nowhere by then, and "/" is no entry
    EXPECT_EQ(errors()[0].reason, "Could not load node form path");
    EXPECT_EQ(errors()[0].detail, "it is a link that leads nowhere");
    EXPECT_TRUE(isThere(temp.path("link")));
    EXPECT_EQ(errors()[1].detail, "its path does not lead to one entry");
    EXPECT_THAT(nodes(), ElementsAre(odd, "/"));
}

class SafePaths : public TuvNodeFactoryTrash {
  protected:
    bool isSafe(const std::vector<std::string>& paths) { return TuvNodeFactory::isSafeToTashPathsAsSudo(paths); }
    ScopedEnvironment _home{"HOME", "/somewhere/me"};
};

TEST_F(SafePaths, AreThoseInUsersFolders) {
    EXPECT_TRUE(isSafe({"/Users/a/file", "/home/b", "/somewhere/me/x", "/Users"}));
    EXPECT_THAT(lines("isSafeToTashPathsAsSudo:"), ElementsAre("4 folders YES"));
    log.clear();
    EXPECT_FALSE(isSafe({"/Users/a", "/etc/passwd", "/usr"}));
    EXPECT_THAT(lines("isSafeToTashPathsAsSudo:"), ElementsAre("/etc/passwd", "3 folders NO"));
    EXPECT_FALSE(isSafe({"/Usershere/x"}));
    EXPECT_FALSE(isSafe({"/homework/x"}));
    EXPECT_FALSE(isSafe({"/somewhere/meadow"}));
    EXPECT_TRUE(isSafe({}));
}

TEST_F(SafePaths, AHomeAtTheTopMakesNothingSafe) {
    for (const char* folder : {"/", "//"}) {
        const ScopedEnvironment top("HOME", folder);
        EXPECT_FALSE(isSafe({"/etc/passwd"})) << folder;
    }
}

TEST_F(SafePaths, AreAllWithTheSettingToRemoveAsRoot) {
    TuvNode::setRemoveAsSudo(true);
    log.clear();
    EXPECT_TRUE(isSafe({"/etc/passwd"}));
    EXPECT_THAT(lines("isSafeToTashPathsAsSudo:"), IsEmpty());
    TuvNode::setRemoveAsSudo(false);
    EXPECT_FALSE(isSafe({"/etc/passwd"}));
}

}  // namespace
}  // namespace kavaro
