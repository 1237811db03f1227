// A server on a bus that users share: who may call it, who hears of it, and what ends it.
#include <gmock/gmock.h>

#include "server/FakeAuthority.h"
#include "server/ServerTest.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kDenied = "org.freedesktop.DBus.Error.AccessDenied";

class SharedBusTest : public ServerTest {
  protected:
    void SetUp() override {
        ServerTest::SetUp();
        _surroundings.busKind = "system";
        use();
        _authority = std::make_unique<FakeAuthority>(_bus.address());
        _other = connect();
        listen(*_client, _heard);
        listen(*_other, _heardByOther);
        _folder.makeFolder("tree");
        _folder.makeFolder("tree/sub");
    }
    std::unique_ptr<Bus> connect() {
        BusError error;
        auto bus = Bus::open(_bus.address(), &error);
        EXPECT_TRUE(bus) << error.message;
        return bus;
    }
    static void listen(Bus& bus, std::vector<std::string>& heard) {
        bus.subscribe({}, bus::kNotificationPath, bus::kNotificationInterface,
                      [&heard](const BusSignal& signal) { heard.emplace_back(signal.member); });
        ASSERT_TRUE(bus.flush());
    }
    BusReply startFrom(Bus& caller) {
        return callFrom(caller, "startWorkingAtPath", {BusValue::path(_folder.path("tree"))});
    }
    bool hasCompleted() const {
        return !_heard.empty() && _heard.back() == std::string(TuvNodeFactoryCompletedNotification);
    }

    std::unique_ptr<FakeAuthority> _authority;
    std::unique_ptr<Bus> _other;
    std::vector<std::string> _heard, _heardByOther;
};

TEST_F(SharedBusTest, ACompletedJobEndsTheServer) {
    TuvNodeFactoryServer* made = server();
    ASSERT_TRUE(startFrom(*_client).ok());
    made->runServer();
    ASSERT_TRUE(runUntil([this] { return hasCompleted(); }));
    EXPECT_THAT(_heard, ElementsAre("TuvNodeFactoryStartedNotification", "TuvNodeFactoryResolvedNotification",
                                    "TuvNodeFactoryCompletedNotification"));
    EXPECT_TRUE(_log.contains("Server has been terminated properly"));
    EXPECT_EQ(_client->nameOwner(bus::kServerName), "");
    // What was for him would have come before this.
    EXPECT_FALSE(callFrom(*_other, "versionInfo").ok());
    EXPECT_THAT(_heardByOther, IsEmpty());
}

TEST_F(SharedBusTest, AnybodysCompletedNotificationDoesNotEndIt) {
    ASSERT_NE(server(), nullptr);
    BusError error;
    for (const std::string& destination : {std::string(), TuvKavaroProxy::defaultConnection()->uniqueName()})
        ASSERT_TRUE(_other->emit(destination, bus::kNotificationPath, bus::kNotificationInterface,
                                 TuvNodeFactoryCompletedNotification,
                                 {BusValue::string("TuvNodeFactory"), BusValue::dictionary({})}, &error));
    EXPECT_TRUE(callFrom(*_other, "versionInfo").ok()) << "behind both of them";
    EXPECT_FALSE(_log.contains("[self]"));
}

TEST_F(SharedBusTest, WhatIsRefusedIsNotDone) {
    ASSERT_NE(server(), nullptr);
    _authority->verdict = FakeAuthority::verdictOf(false);
    const BusReply reply = startFrom(*_client);
    EXPECT_EQ(reply.error.name, kDenied);
    EXPECT_EQ(reply.error.message, "you are not allowed org.kavaro.Kavaro.read-sizes");
    EXPECT_EQ(call("shutdownServer", {BusValue::string("the test")}).error.name, kDenied);
    EXPECT_EQ(call("versionInfo").error.name, kDenied);
    EXPECT_FALSE(TuvNodeFactory::hasSharedInstance());
    EXPECT_FALSE(_log.contains("[the test]"));
    EXPECT_EQ(_log.count(LogLevel::error, "startWorkingAtPath refused to " + _client->uniqueName() +
                                              ": you are not allowed org.kavaro.Kavaro.read-sizes"),
              1);
    // The other's job is none of the refused one's business.
    _authority->verdict = FakeAuthority::verdictOf(true);
    ASSERT_TRUE(startFrom(*_other).ok());
    ASSERT_TRUE(runUntil([this] {
        return !_heardByOther.empty() && _heardByOther.back() == std::string(TuvNodeFactoryCompletedNotification);
    }));
    EXPECT_FALSE(callFrom(*_client, "nothing").ok());
    EXPECT_THAT(_heard, IsEmpty());
}

TEST_F(SharedBusTest, WhoMayOnlyShutItDownHearsNothing) {
    _surroundings.durations.shutdownDelay = 3600;
    use();
    ASSERT_NE(server(), nullptr);
    ASSERT_TRUE(callFrom(*_other, "shutdownServer", {BusValue::string("later")}).ok());
    ASSERT_TRUE(startFrom(*_client).ok());
    ASSERT_TRUE(runUntil([this] { return hasCompleted(); }));
    _authority->verdict = FakeAuthority::verdictOf(false);
    EXPECT_FALSE(callFrom(*_other, "versionInfo").ok());
    EXPECT_THAT(_heardByOther, IsEmpty());
}

TEST_F(SharedBusTest, WhileOneCallIsUndecidedOthersAreServed) {
    ASSERT_NE(server(), nullptr);
    _authority->holds = true;
    bool isAnswered = false;
    _client->callAsync(bus::kServerName, bus::kServerPath, bus::kServerInterface, "versionInfo", {}, kPatience,
                       [&](const BusReply& reply) { isAnswered = reply.ok(); });
    ASSERT_TRUE(runUntil([this] { return _authority->held.size() == 1; }));
    _authority->holds = false;
    EXPECT_TRUE(callFrom(*_other, "versionInfo").ok());
    EXPECT_FALSE(isAnswered);
    _authority->held[0](FakeAuthority::verdictOf(true));
    EXPECT_TRUE(runUntil([&] { return isAnswered; }));
}

TEST_F(SharedBusTest, AServerMayEndWhileCallsAreUndecided) {
    TuvNodeFactoryServer* made = server();
    _authority->holds = true;
    std::string answer;
    _client->callAsync(bus::kServerName, bus::kServerPath, bus::kServerInterface, "versionInfo", {}, kPatience,
                       [&](const BusReply& reply) { answer = reply.ok() ? "ok" : reply.error.name; });
    ASSERT_TRUE(runUntil([this] { return _authority->held.size() == 1; }));
    made->shutdownServer("the test");
    made->runServer();
    TuvKavaroProxy::defaultConnection()->close();
    EXPECT_TRUE(runUntil([&] { return !answer.empty(); }));
    EXPECT_EQ(answer, "org.freedesktop.DBus.Error.NoReply");
}

// Root alone may own the client's name there, so a caller that was allowed counts as long as it is on the bus.
TEST_F(SharedBusTest, AnAllowedCallerKeepsItAlive) {
    TuvNodeFactoryServer* made = server();
    ASSERT_TRUE(call("versionInfo").ok());
    _authority->verdict = FakeAuthority::verdictOf(false);
    ASSERT_FALSE(callFrom(*_other, "versionInfo").ok());
    const int count = made->timerCount();
    made->_checkForUpdatesByTimer(made->timer());
    EXPECT_EQ(made->timerCount(), count + 1);
    EXPECT_FALSE(_log.contains("can't get to the other side"));
    const std::string left = _client->uniqueName();
    _client.reset();
    while (!_other->nameOwner(left).empty()) std::this_thread::yield();
    made->_checkForUpdatesByTimer(made->timer());
    EXPECT_TRUE(_log.contains("can't get to the other side"));
}

}  // namespace
}  // namespace kavaro
