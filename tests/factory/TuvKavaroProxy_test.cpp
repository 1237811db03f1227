// Both ends of a pair, on a bus of the test's own.
#include "factory/TuvKavaroProxy.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "PrivateBus.h"
#include "platform/RunLoop.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Texts = std::vector<std::string>;

constexpr double kPatience = 60;  // seconds

constexpr std::string_view kLocal = "org.kavaro.test.local";
constexpr std::string_view kRemote = "org.kavaro.test.remote";
constexpr std::string_view kPath = "/org/kavaro/test/end";
constexpr std::string_view kInterface = "org.kavaro.test.End";
constexpr std::string_view kXml =
    "<node><interface name='org.kavaro.test.End'><method name='versionInfo'><arg type='a{sv}' "
    "direction='out'/></method>"
    "<method name='other'/></interface></node>";

class End final : public TuvKavaroProxy {
  public:
    std::string_view localName() const override { return kLocal; }
    std::string_view remoteName() const override { return kRemote; }
    void leave() { unregisterLocalEnd(); }

  protected:
    std::string_view localPath() const override { return kPath; }
    std::string_view localIntrospection() const override { return kXml; }
    std::string_view remotePath() const override { return kPath; }
    std::string_view remoteInterface() const override { return kInterface; }
};

class TuvKavaroProxyTest : public testing::Test {
  protected:
    void SetUp() override {
        TuvKavaroProxy::setDefaultConnection(connect());
        other = connect();
        end = std::make_unique<End>();
    }
    void TearDown() override {
        end = nullptr;
        TuvKavaroProxy::setDefaultConnection(nullptr);
    }
    std::shared_ptr<Bus> connect() {
        BusError error;
        std::shared_ptr<Bus> bus = Bus::open(daemon.address(), &error);
        EXPECT_TRUE(bus) << error.message;
        return bus;
    }
    // The other process: its end answers from this process's loop.
    void publishRemote(const BusReply& answer = {{BusValue::dictionary({{"version", BusValue::string("1")}})}, {}}) {
        BusError error;
        ASSERT_TRUE(other->publish(
            kPath, kXml, [answer](const BusCall&) { return answer; }, &error))
            << error.message;
        ASSERT_TRUE(other->requestName(kRemote, &error));
    }
    // For questions that wait for an answer of that end: from another thread, while the loop runs.
    template <class T>
    static T aside(const std::function<T()>& question) {
        T result{};
        std::atomic<bool> done{false};
        std::thread thread([&] {
            result = question();
            done = true;
            RunLoop::main().performOnMain([] {});
        });
        EXPECT_TRUE(RunLoop::main().runUntil([&] { return done.load(); }, kPatience));
        thread.join();
        return result;
    }
    bool isAlive() {
        return aside<bool>([this] { return end->isRemoteEndAlive(); });
    }
    std::string found() {
        return aside<std::string>([this] { return end->createRemoteEnd().value_or("none"); });
    }
    BusReply ask(std::string_view member) {
        BusReply result;
        bool answered = false;
        other->callAsync(kLocal, kPath, kInterface, member, {}, kPatience, [&](BusReply reply) {
            result = std::move(reply);
            answered = true;
        });
        EXPECT_TRUE(RunLoop::main().runUntil([&] { return answered; }, kPatience));
        return result;
    }
    Texts texts(LogLevel level) const {
        Texts texts;
        for (const LogCapture::Line& line : log.lines())
            if (line.level == level) texts.push_back(line.text);
        return texts;
    }

    LogCapture log;
    PrivateBus daemon;
    std::shared_ptr<Bus> other;
    std::unique_ptr<End> end;
};

TEST_F(TuvKavaroProxyTest, TheBaseHasNoNames) {
    TuvKavaroProxy base;
    EXPECT_EQ(base.localName(), "");
    EXPECT_EQ(base.remoteName(), "");
    EXPECT_FALSE(base.remoteEnd());
    base.shutdownServer("the test");
    EXPECT_THAT(texts(LogLevel::info), ElementsAre("the test"));
    EXPECT_FALSE(base.registerLocalEnd());
    EXPECT_FALSE(base.createRemoteEnd());
}

TEST_F(TuvKavaroProxyTest, RegistersAndAnswers) {
    ASSERT_TRUE(end->registerLocalEnd());
    EXPECT_THAT(texts(LogLevel::info), ElementsAre("Registering server at org.kavaro.test.local"));
    EXPECT_EQ(other->nameOwner(kLocal), TuvKavaroProxy::defaultConnection()->uniqueName());
    EXPECT_TRUE(ask("versionInfo").ok());
    EXPECT_EQ(ask("other").error.name, "org.freedesktop.DBus.Error.UnknownMethod");
    end->leave();
    end->leave();
    EXPECT_EQ(other->nameOwner(kLocal), "");
    EXPECT_TRUE(end->registerLocalEnd()) << "nothing of the first time is in the way";
}

TEST_F(TuvKavaroProxyTest, ATakenNameIsSaidAndLeavesNothingBehind) {
    BusError error;
    ASSERT_TRUE(other->requestName(kLocal, &error));
    EXPECT_FALSE(end->registerLocalEnd());
    EXPECT_THAT(
        texts(LogLevel::error),
        ElementsAre("Could not register with [org.kavaro.test.local]. Maybe another instance is running. But we "
                    "already checked that !!!"));
    other->releaseName(kLocal);
    EXPECT_TRUE(end->registerLocalEnd());
}

TEST_F(TuvKavaroProxyTest, WithoutABusNothingIsRegistered) {
    TuvKavaroProxy::defaultConnection()->close();
    EXPECT_FALSE(end->registerLocalEnd());
    EXPECT_EQ(log.count(LogLevel::error, "Exception: "), 1);
    EXPECT_EQ(log.count(LogLevel::error, "Could not register with [org.kavaro.test.local]."), 1);
    EXPECT_FALSE(end->createRemoteEnd());
    TuvKavaroProxy::setDefaultConnection(nullptr);
    EXPECT_FALSE(end->registerLocalEnd());
    EXPECT_EQ(log.count(LogLevel::error, "Could not register with [org.kavaro.test.local]."), 2);
    EXPECT_FALSE(end->createRemoteEnd());
    EXPECT_EQ(log.count(LogLevel::error, "NO, _remoteObject is nil !!!"), 2);
}

TEST_F(TuvKavaroProxyTest, TheVersionRecordIsBuiltOnce) {
    const BusValue::Dictionary record = end->versionInfo();
    Texts keys;
    for (const auto& [key, value] : record) keys.push_back(key);
    EXPECT_THAT(keys, ElementsAre("version", "versionNumber", "buildNumber", "build", "startDate"));
    for (std::size_t i = 0; i < 4; ++i) EXPECT_NE(record[i].second.asString().value_or(""), "") << keys[i];
    EXPECT_EQ(&end->versionInfo(), &end->versionInfo());
    const Texts lines = texts(LogLevel::info);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].substr(0, 14), "[{ version = \"");
    EXPECT_EQ(lines[0].substr(lines[0].size() - 11), "; }] cached");
    // The date is that of the process, not of the object.
    End second;
    EXPECT_EQ(second.versionInfo()[4].second.asDouble(), record[4].second.asDouble());
    EXPECT_GT(record[4].second.asDouble().value_or(0), 1e9);
    EXPECT_EQ(log.count("] cached"), 2);
}

TEST_F(TuvKavaroProxyTest, WithoutARemoteEndNothingIsAlive) {
    TuvLog::setDefaultLevel(LogLevel::debug);
    EXPECT_FALSE(end->isRemoteEndAlive());
    EXPECT_THAT(texts(LogLevel::error), ElementsAre("NO, _remoteObject is nil !!!"));
    EXPECT_EQ(texts(LogLevel::debug).size(), 1u);
    EXPECT_EQ(texts(LogLevel::debug)[0].substr(0, 2), "0x");
    log.clear();
    EXPECT_FALSE(end->createRemoteEnd());
    EXPECT_FALSE(end->remoteEnd());
    EXPECT_THAT(texts(LogLevel::info), ElementsAre(""));
    EXPECT_THAT(texts(LogLevel::error), ElementsAre("NO, _remoteObject is nil !!!"));
}

TEST_F(TuvKavaroProxyTest, ARemoteEndIsFoundAndKept) {
    TuvLog::setDefaultLevel(LogLevel::debug);
    publishRemote();
    EXPECT_EQ(found(), other->uniqueName());
    EXPECT_EQ(end->remoteEnd(), other->uniqueName());
    EXPECT_EQ(log.count(LogLevel::debug, "Checking version info ..."), 1);
    EXPECT_TRUE(isAlive());
    EXPECT_EQ(log.count(LogLevel::debug, "Checking version info ..."), 2);
    // A known one is given without being asked.
    EXPECT_EQ(end->createRemoteEnd(), other->uniqueName());
    EXPECT_EQ(log.count(LogLevel::debug, "Checking version info ..."), 2);
    EXPECT_THAT(texts(LogLevel::error), IsEmpty());
}

TEST_F(TuvKavaroProxyTest, ARemoteEndThatRefusesIsDead) {
    publishRemote({{}, {"org.kavaro.Error.Refused", "not today"}});
    EXPECT_EQ(found(), "none");
    EXPECT_FALSE(end->remoteEnd());
    const Texts errors = texts(LogLevel::error);
    ASSERT_EQ(errors.size(), 3u);
    EXPECT_EQ(errors[0], "Exception: not today");
    EXPECT_EQ(errors[1].front(), '[');
    EXPECT_EQ(errors[1].back(), ']');
    EXPECT_EQ(errors[2], "NO, _remoteObject is nil !!!");
}

TEST_F(TuvKavaroProxyTest, ARemoteEndThatGoesIsForgottenAndItsSuccessorFound) {
    publishRemote();
    EXPECT_EQ(found(), other->uniqueName());
    other.reset();
    EXPECT_FALSE(isAlive());
    EXPECT_FALSE(end->remoteEnd());
    EXPECT_EQ(log.count(LogLevel::error, "Exception: "), 1);
    EXPECT_EQ(log.count(LogLevel::error, "NO, _remoteObject is nil !!!"), 1);
    other = connect();
    publishRemote();
    EXPECT_EQ(found(), other->uniqueName());
}

}  // namespace
}  // namespace kavaro
