#include "server/TuvNodeFactoryServer.h"

#include <gmock/gmock.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "fsevents/TuvFSEvents.h"
#include "platform/UserDefaults.h"
#include "server/ClientProcess.h"
#include "server/ServerTest.h"

namespace kavaro {
namespace {

using testing::ElementsAre;

TEST(ServerDurations, productionDurationsAreTheServersOwn) {
    const TuvNodeFactoryServer::Durations production;
    EXPECT_EQ(production.liveness, 360);
    EXPECT_EQ(production.shutdownDelay, 0.1);
    EXPECT_EQ(production.runSlice, 5.0);
}

TEST_F(ServerTest, RegistersItsNameAndAnswers) {
    ASSERT_NE(server(), nullptr);
    EXPECT_EQ(_client->nameOwner(bus::kServerName), TuvKavaroProxy::defaultConnection()->uniqueName());
    EXPECT_TRUE(_log.contains("Registering server at org.kavaro.Kavaro.server"));
    const BusReply reply = call("versionInfo");
    ASSERT_TRUE(reply.ok()) << reply.error.message;
    for (const char* key : {"version", "versionNumber", "buildNumber", "build"})
        EXPECT_TRUE(reply.values[0].get(key).asString()) << key;
    EXPECT_GT(reply.values[0].get("startDate").asDouble().value_or(0), 1e9);
    call("versionInfo");
    EXPECT_EQ(_log.count("] cached"), 1);
}

TEST_F(ServerTest, IsOneServer) {
    TuvNodeFactoryServer* first = server();
    EXPECT_EQ(server(), first);
    EXPECT_EQ(first->timerCount(), 1);
    first->configureServer();
    EXPECT_EQ(first->timerCount(), 2);
}

// Configured when it is made and when it runs: two timers by the time the loop begins.
TEST_F(ServerTest, StartsInItsOrder) {
    TuvLog::setDefaultLevel(LogLevel::debug);
    TuvNodeFactoryServer* made = server();
    EXPECT_THAT(emptyLines(), ElementsAre("isServerRunning", "configureServer"));
    const std::string timer = std::to_string(made->timer());
    EXPECT_EQ(_log.count(LogLevel::debug,
                         "Did reschedule a new timer (" + timer + ") to fire after (360) seconds [1 invocations]."),
              1);
    RunLoop::main().stop();
    made->runServer();
    EXPECT_EQ(made->timerCount(), 2);
    EXPECT_EQ(_log.count(LogLevel::debug, "seconds [2 invocations]."), 1);
    EXPECT_THAT(emptyLines(), ElementsAre("isServerRunning", "configureServer"));
    EXPECT_EQ(_log.count(LogLevel::info, "Running server ..."), 1);
    EXPECT_EQ(_log.count(LogLevel::info, "Server has been terminated properly"), 1);
}

class AnotherServerTest : public ServerTest {
  protected:
    void SetUp() override {
        ServerTest::SetUp();
        BusError error;
        ASSERT_TRUE(_client->publish(
            bus::kServerPath,
            "<node><interface name='org.kavaro.Kavaro.NodeFactoryServer'><method name='versionInfo'>"
            "<arg type='a{sv}' direction='out'/></method></interface></node>",
            [](const BusCall&) {
                return BusReply{{BusValue::dictionary({{"version", BusValue::string("1")}})}, {}};
            },
            &error));
        ASSERT_TRUE(_client->requestName(bus::kServerName, &error));
    }
};

TEST_F(AnotherServerTest, OneThatAnswersIsLeftAlone) {
    aside([] { EXPECT_EQ(TuvNodeFactoryServer::sharedInstance(), nullptr); });
    EXPECT_EQ(_log.count(LogLevel::error,
                         "We just found an existing server instance in this machine. There can be one server instance "
                         "per machine. This instance will be terminated."),
              1);
    EXPECT_EQ(_log.count(LogLevel::error, ""), 1);
    EXPECT_FALSE(_log.contains("Registering server"));
}

TEST_F(AnotherServerTest, OneThatHangsKeepsItsName) {
    // The other server answers from this process's loop, which the question does not run: it counts as hung, and the
    // name is taken all the same.
    EXPECT_EQ(server(), nullptr);
    EXPECT_TRUE(_log.contains("Exception: "));
    EXPECT_TRUE(
        _log.contains("Could not register with [org.kavaro.Kavaro.server]. Maybe another instance is running. "
                      "But we already checked that !!!"));
    EXPECT_TRUE(_log.contains("This instance will be terminated."));
}

TEST_F(ServerTest, ATimerWithoutClientShutsDown) {
    TuvNodeFactoryServer* made = server();
    made->_checkForUpdatesByTimer(made->timer());
    EXPECT_THAT(emptyLines(),
                ElementsAre("isServerRunning", "configureServer", "_checkForUpdatesByTimer:", "createRemoteEnd"));
    EXPECT_TRUE(_log.contains("NO, _remoteObject is nil !!!"));
    EXPECT_TRUE(_log.contains("try (1) to get proxy to server"));
    EXPECT_TRUE(_log.contains("can't get to the other side"));
    EXPECT_EQ(_log.count("[self]"), 2);
    made->runServer();
    EXPECT_TRUE(_log.contains("The server will shutdown in 0 seconds, all connections will be invalidated ..."));
    EXPECT_TRUE(_log.contains("Waiting 0 second for all events to complete"));
    EXPECT_TRUE(_log.contains("Server has been terminated properly"));
    EXPECT_EQ(_client->nameOwner(bus::kServerName), "");
}

TEST_F(ServerTest, AStaleTimerOnlyReschedules) {
    TuvNodeFactoryServer* made = server();
    const RunLoop::TimerID stale = made->timer();
    made->configureServer();
    const int count = made->timerCount();
    made->_checkForUpdatesByTimer(stale);
    EXPECT_EQ(made->timerCount(), count + 1);
    EXPECT_FALSE(_log.contains("can't get to the other side"));
}

TEST_F(ServerTest, TheTimerFiresByItself) {
    _surroundings.durations.liveness = 0.01;
    use();
    server()->runServer();
    EXPECT_TRUE(_log.contains("can't get to the other side"));
}

TEST_F(ServerTest, WithFileSystemEventsItWaitsForTwentyTimers) {
    UserDefaults::standard().setArguments({"-startFSEvents", "YES"});
    TuvNodeFactoryServer* made = server();
    while (made->timerCount() <= 20) {
        const int count = made->timerCount();
        made->_checkForUpdatesByTimer(made->timer());
        ASSERT_EQ(made->timerCount(), count + 1);
        ASSERT_FALSE(_log.contains("can't get to the other side"));
    }
    EXPECT_EQ(made->timerCount(), 21);
    made->_checkForUpdatesByTimer(made->timer());
    EXPECT_TRUE(_log.contains("can't get to the other side"));
}

// Without rights, or whatever else keeps the listener from its volume, the server works as always.
TEST_F(ServerTest, StartsTheListenerAndGoesOnWithoutIt) {
    UserDefaults::standard().setArguments({"-startFSEvents", "YES", "-fsEventsVolume", "/some volume"});
    TuvFSEvents::Surroundings events;
    events.openDevice = [](const std::string& volume, EventDevice::Problem* problem) {
        problem->text = "no rights for " + volume;
        return nullptr;
    };
    TuvFSEvents::setSurroundings(events);
    TuvNodeFactoryServer* made = server();
    RunLoop::main().stop();
    made->runServer();
    while (!_log.contains("completed")) std::this_thread::yield();
    EXPECT_EQ(_log.count(LogLevel::error, "no rights for /some volume"), 1);
    EXPECT_EQ(_log.count(LogLevel::error, "This code needs to run as administrator ..."), 1);
    EXPECT_EQ(TuvFSEvents::sharedFSEvents()->isListening(), 0);
    EXPECT_EQ(_log.count(LogLevel::info, "Running server ..."), 1);
    EXPECT_EQ(_log.count(LogLevel::info, "Server has been terminated properly"), 1);
}

// A volume on which nothing happens.
class QuietVolume : public EventDevice {
  public:
    int read(std::uint8_t*, int, double) override {
        std::this_thread::yield();
        return 0;
    }
    std::uint32_t device() const override { return 1; }
    bool isGone() const override { return false; }
    int overflows() const override { return 0; }
};

// A whole life without a client: the timers fire by themselves.
TEST_F(ServerTest, StaysForTwentyTimersWhenItListens) {
    UserDefaults::standard().setArguments({"-startFSEvents", "YES"});
    TuvFSEvents::Surroundings events;
    events.openDevice = [](const std::string&, EventDevice::Problem*) { return std::make_unique<QuietVolume>(); };
    TuvFSEvents::setSurroundings(events);
    _surroundings.durations.liveness = 0.01;
    use();
    TuvNodeFactoryServer* made = server();
    made->runServer();
    EXPECT_EQ(made->timerCount(), 21);
    for (int count = 2; count <= 21; ++count)
        EXPECT_EQ(_log.count("try (" + std::to_string(count) + ") to get proxy to server"), 1) << count;
    EXPECT_EQ(_log.count("can't get to the other side"), 1);
    EXPECT_EQ(_log.count("listening ...."), 1);
    EXPECT_EQ(TuvFSEvents::sharedFSEvents()->isListening(), 1);
}

TEST_F(ServerTest, NeverListensUnasked) {
    TuvFSEvents::Surroundings events;
    events.openDevice = [](const std::string&, EventDevice::Problem*) -> std::unique_ptr<EventDevice> {
        ADD_FAILURE() << "listens";
        return nullptr;
    };
    TuvFSEvents::setSurroundings(events);
    TuvNodeFactoryServer* made = server();
    RunLoop::main().stop();
    made->runServer();
    EXPECT_EQ(_log.count("already listening"), 0);
    EXPECT_EQ(TuvFSEvents::sharedFSEvents()->eventLock(), nullptr);
}

class ServerWithClientTest : public ServerTest {
  protected:
    ClientProcess _clientProcess{_bus.address()};
};

TEST_F(ServerWithClientTest, TheClientKeepsItAlive) {
    TuvNodeFactoryServer* made = server();
    EXPECT_FALSE(made->remoteEnd());
    const int count = made->timerCount();
    made->_checkForUpdatesByTimer(made->timer());
    EXPECT_TRUE(_log.contains("try (1) to get proxy to server"));
    EXPECT_TRUE(made->remoteEnd());
    EXPECT_EQ(made->timerCount(), count + 1);
    made->_checkForUpdatesByTimer(made->timer());
    EXPECT_EQ(made->timerCount(), count + 2);
    EXPECT_EQ(_log.count("to get proxy to server"), 1);
    EXPECT_FALSE(_log.contains("can't get to the other side"));

    _clientProcess.end();
    made->_checkForUpdatesByTimer(made->timer());
    EXPECT_FALSE(made->remoteEnd());
    EXPECT_TRUE(_log.contains("can't get to the other side"));
}

TEST_F(ServerTest, ShutdownAnswersBeforeItGoes) {
    TuvNodeFactoryServer* made = server();
    const BusReply reply = call("shutdownServer", {BusValue::string("the test")});
    EXPECT_TRUE(reply.ok());
    EXPECT_EQ(_log.count("[the test]"), 2);
    made->runServer();
    EXPECT_EQ(_client->nameOwner(bus::kServerName), "");
}

// First the delay, and when it is over as long a wait for what is under way.
TEST_F(ServerTest, ShutdownTakesTheDelayTwice) {
    _surroundings.durations.shutdownDelay = 0.05;
    use();
    TuvNodeFactoryServer* made = server();
    const std::size_t sleeps = _clock.sleeps().size();
    made->shutdownServer("the test");
    EXPECT_FALSE(_log.contains("The server will shutdown"));
    made->runServer();
    ASSERT_EQ(_clock.sleeps().size(), sleeps + 1);
    EXPECT_EQ(_clock.sleeps().back(), 0.05);
}

// A second call schedules a second end, which finds nothing more to do.
TEST_F(ServerTest, ShutdownTwiceEndsOnce) {
    TuvNodeFactoryServer* made = server();
    made->shutdownServer("one");
    made->shutdownServer("two");
    made->runServer();
    RunLoop::main().runUntil([] { return false; }, 0.01);
    EXPECT_EQ(_log.count("The server will shutdown in 0 seconds"), 1);
    EXPECT_EQ(_log.count("[one]") + _log.count("[two]"), 4);
}

// Each command says in the log what it was given.
TEST_F(ServerTest, CommandsAreLogged) {
    const std::string tree = _folder.makeFolder("tree");
    ASSERT_NE(server(), nullptr);
    _log.clear();
    const auto linesOfServer = [this] {
        std::vector<std::string> lines;
        for (const LogCapture::Line& line : _log.lines())
            if (line.component == "TuvNodeFactoryServer" && line.level == LogLevel::info)
                lines.push_back(line.selector + " " + line.text);
        _log.clear();
        return lines;
    };
    EXPECT_TRUE(call("stopSizing").ok());
    EXPECT_THAT(linesOfServer(), ElementsAre("stopSizing "));
    EXPECT_TRUE(call("hasFileSytemChanged", {BusValue::path(tree)}).ok());
    EXPECT_THAT(linesOfServer(), ElementsAre("hasFileSytemChanged: [" + tree + "]"));
    EXPECT_TRUE(call("prioritizeNodeWithInodePath", {BusValue::int32(-7), BusValue::path(tree)}).ok());
    EXPECT_THAT(linesOfServer(), ElementsAre("prioritizeNodeWithInode:path: -7 [" + tree + "]"));
    EXPECT_TRUE(call("startWorkingAtPath", {BusValue::path(tree + "/gone")}).ok());
    EXPECT_THAT(linesOfServer(), ElementsAre("startWorkingAtPath: " + tree + "/gone"));
    EXPECT_TRUE(
        call("startWorkingAtPathParentInodes", {BusValue::path(tree + "/gone"), BusValue::uint32s({4, 5})}).ok());
    EXPECT_THAT(linesOfServer(), ElementsAre("startWorkingAtPath:parentInodes: " + tree + "/gone 4, 5"));
    EXPECT_FALSE(call("startWorkingAtPath", {BusValue::path("relative")}).ok());
    EXPECT_EQ(_log.count(LogLevel::error, "the path must be an absolute path without a NUL byte"), 1);
    EXPECT_THAT(linesOfServer(), ElementsAre());
}

TEST_F(ServerTest, ACompletedJobEndsTheServer) {
    const std::string tree = _folder.makeFolder("tree");
    _folder.write("tree/file", "1234");
    _folder.makeFolder("tree/sub");
    TuvNodeFactoryServer* made = server();
    std::vector<std::string> names;
    _client->subscribe({}, bus::kNotificationPath, bus::kNotificationInterface, [&](const BusSignal& signal) {
        names.emplace_back(signal.member);
        EXPECT_EQ(signal.arguments[0].asString(), "TuvNodeFactory");
        EXPECT_TRUE(signal.arguments[1].get("serialized").asData());
        EXPECT_TRUE(signal.arguments[1].get("parentInodes").isNull());
    });
    EXPECT_TRUE(call("startWorkingAtPath", {BusValue::path(tree)}).ok());
    made->runServer();
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return names.size() >= 3; }, kPatience));
    EXPECT_EQ(names,
              (std::vector<std::string>{"TuvNodeFactoryStartedNotification", "TuvNodeFactoryResolvedNotification",
                                        "TuvNodeFactoryCompletedNotification"}));
    EXPECT_TRUE(_log.contains("Server has been terminated properly"));
    EXPECT_EQ(emptyLines().back(), "_completedNode:");
}

TEST_F(ServerTest, AnybodysCompletedNotificationEndsTheServer) {
    TuvNodeFactoryServer* made = server();
    BusError error;
    ASSERT_TRUE(TuvKavaroProxy::defaultConnection()->flush());
    ASSERT_TRUE(_client->emit({}, bus::kNotificationPath, bus::kNotificationInterface,
                              TuvNodeFactoryCompletedNotification,
                              {BusValue::string("TuvNodeFactory"), BusValue::dictionary({})}, &error));
    made->runServer();
    EXPECT_EQ(_log.count("[self]"), 2);
}

TEST_F(ServerTest, ABusThatGoesAwayEndsTheServer) {
    TuvNodeFactoryServer* made = server();
    _bus.end();
    made->runServer();
    EXPECT_TRUE(_log.contains("The bus has closed the connection. The server ends."));
    EXPECT_TRUE(_log.contains("Server has been terminated properly"));
}

TEST_F(ServerTest, RefusesWhatMakesNoSense) {
    ASSERT_NE(server(), nullptr);
    const std::vector<std::pair<std::string, std::vector<BusValue>>> calls = {
        {"startWorkingAtPath", {}},
        {"startWorkingAtPath", {BusValue::string("/tmp")}},
        {"startWorkingAtPath", {BusValue::path("relative")}},
        {"startWorkingAtPath", {BusValue::path("")}},
        {"startWorkingAtPath", {BusValue::data(bytesOf(std::string_view("/a\0b", 4)))}},
        {"startWorkingAtPathParentInodes", {BusValue::path("/tmp")}},
        {"prioritizeNodeWithInodePath", {BusValue::uint32(5), BusValue::path("/tmp")}},
        {"hasFileSytemChanged", {BusValue::int32(5)}},
        {"moveToNowhere", {}},
    };
    for (const auto& [member, arguments] : calls) EXPECT_FALSE(call(member, arguments).ok()) << member;
    EXPECT_TRUE(call("versionInfo").ok());
}

// Peers of the same user, but strange ones: the server stays, and goes on serving.
TEST_F(ServerTest, OutlivesHugeArguments) {
    ASSERT_NE(server(), nullptr);
    constexpr std::size_t kHuge = 2u << 20;
    std::string slashes = "/", dots = "/", deep = "/", name = "/";
    slashes.resize(kHuge, '/');
    while (dots.size() < kHuge) dots += "./";
    while (deep.size() < kHuge) deep += "nothing/";
    name.resize(kHuge, 'n');
    for (const std::string& path : {slashes, dots, deep, name}) {
        for (const char* member : {"startWorkingAtPath", "hasFileSytemChanged"})
            EXPECT_TRUE(call(member, {BusValue::path(path)}).ok());
        EXPECT_TRUE(call("prioritizeNodeWithInodePath", {BusValue::int32(-1), BusValue::path(path)}).ok());
    }
    const BusReply reply = call("startWorkingAtPathParentInodes",
                                {BusValue::path("/"), BusValue::uint32s(std::vector<std::uint32_t>(16u << 20, 7))});
    EXPECT_EQ(reply.error.name, "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_TRUE(call("versionInfo").ok());
    EXPECT_TRUE(call("shutdownServer", {BusValue::string(name)}).ok());
}

TEST_F(ServerTest, GivesNodesOfOneShotRequests) {
    const std::string tree = _folder.makeFolder("tree");
    _folder.write("tree/file", "1234");
    ASSERT_NE(server(), nullptr);
    BusReply reply = call("hasFileSytemChanged", {BusValue::path(tree)});
    ASSERT_TRUE(reply.ok()) << reply.error.message;
    EXPECT_EQ(reply.values[0].type(), "v");
    auto data = reply.values[0].asData();
    ASSERT_TRUE(data);
    TuvRef<TuvDirNode> folder = TuvDirNode::fromBytes(data->view());
    ASSERT_TRUE(folder);
    EXPECT_EQ(folder->fileCount(), 1);
    EXPECT_TRUE(_log.contains("[" + tree + "]"));

    reply = call("hasFileSytemChanged", {BusValue::path(tree + "/file")});
    ASSERT_TRUE(reply.ok());
    data = reply.values[0].asData();
    ASSERT_TRUE(data);
    EXPECT_EQ(data->view().size(), 0u);
    EXPECT_TRUE(_log.contains(tree + "/file, Please pass in a folder path as argument !!!"));

    reply = call("prioritizeNodeWithInodePath", {BusValue::int32(7), BusValue::path(tree)});
    ASSERT_TRUE(reply.ok());
    EXPECT_TRUE(TuvDirNode::fromBytes(reply.values[0].asData()->view()));
    EXPECT_TRUE(_log.contains("7 [" + tree + "]"));
}

// Everything that the introspection data of the tree declares is what the live object shows.
TEST_F(ServerTest, TheLiveObjectIsAsDeclared) {
    ASSERT_NE(server(), nullptr);
    BusReply reply;
    bool done = false;
    _client->callAsync(bus::kServerName, bus::kServerPath, "org.freedesktop.DBus.Introspectable", "Introspect", {},
                       kPatience, [&](BusReply answer) {
                           reply = std::move(answer);
                           done = true;
                       });
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return done; }, kPatience));
    ASSERT_TRUE(reply.ok()) << reply.error.message;

    const auto membersOf = [](const std::string& xml) {
        std::set<std::string> members;
        static const std::regex element("<(interface|method) name=\"([^\"]+)\"|<arg ([^>]*)>");
        std::string interface, method;
        for (std::sregex_iterator it(xml.begin(), xml.end(), element), end; it != end; ++it) {
            if ((*it)[1] == "interface") interface = (*it)[2];
            if (interface != bus::kServerInterface) continue;
            if ((*it)[1] == "method") members.insert(method = (*it)[2]);
            if ((*it)[3].matched) {
                std::set<std::string> words;
                const std::string attributes = (*it)[3];
                static const std::regex word("\\w+=\"[^\"]*\"");
                for (std::sregex_iterator w(attributes.begin(), attributes.end(), word); w != end; ++w)
                    words.insert(w->str());
                std::string line = method;
                for (const std::string& text : words) line += " " + text;
                members.insert(line);
            }
        }
        return members;
    };
    std::ifstream file(KAVARO_SOURCE_DIR "/resources/dbus/org.kavaro.Kavaro.NodeFactoryServer.xml");
    std::stringstream declared;
    declared << file.rdbuf();
    const std::set<std::string> expected = membersOf(declared.str());
    EXPECT_EQ(membersOf(*reply.values[0].asString()), expected);
    EXPECT_TRUE(expected.contains("startWorkingAtPathParentInodes"));

    // Each member has its line in the description of the protocol.
    std::ifstream protocol(KAVARO_SOURCE_DIR "/docs/protocol.md");
    std::stringstream text;
    text << protocol.rdbuf();
    for (const std::string& member : expected) {
        if (member.find(' ') != std::string::npos) continue;
        EXPECT_NE(text.str().find("| `" + member + "` |"), std::string::npos) << member;
    }
}

}  // namespace
}  // namespace kavaro
