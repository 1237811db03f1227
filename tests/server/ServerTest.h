#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "PrivateBus.h"
#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "server/TuvNodeFactoryServer.h"
#include "support/ProtocolNames.h"

namespace kavaro {

inline constexpr double kPatience = 60;  // seconds

// Sleeping costs nothing; that of the thread that made the clock is written down.
class RecordingClock final : public Clock {
  public:
    double monotonicSeconds() override { return Clock::system().monotonicSeconds(); }
    double wallSeconds() override { return Clock::system().wallSeconds(); }
    void sleep(double seconds) override {
        if (std::this_thread::get_id() == _thread) _sleeps.push_back(seconds);
    }
    const std::vector<double>& sleeps() const { return _sleeps; }

  private:
    const std::thread::id _thread = std::this_thread::get_id();
    std::vector<double> _sleeps;
};

// A bus of the test's own, with the server's connection and one of a client.
class ServerTest : public testing::Test {
  protected:
    void SetUp() override {
        BusError error;
        std::shared_ptr<Bus> connection = Bus::open(_bus.address(), &error);
        ASSERT_TRUE(connection) << error.message;
        TuvKavaroProxy::setDefaultConnection(connection);
        _client = Bus::open(_bus.address(), &error);
        ASSERT_TRUE(_client) << error.message;
        _surroundings.clock = &_clock;
        _surroundings.durations.liveness = 3600;
        _surroundings.durations.shutdownDelay = 0.001;
        _surroundings.factoryDurations.setUpPause = 0;
        _surroundings.factoryDurations.notificationInterval = 0;
        use();
    }
    void use() { TuvNodeFactoryServer::setSurroundings(_surroundings); }

    TuvNodeFactoryServer* server() { return TuvNodeFactoryServer::sharedInstance(); }

    static bool runUntil(const std::function<bool()>& done) { return RunLoop::main().runUntil(done, kPatience); }

    BusReply call(std::string_view member, const std::vector<BusValue>& arguments = {}) {
        return callFrom(*_client, member, arguments);
    }
    static BusReply callFrom(Bus& caller, std::string_view member, const std::vector<BusValue>& arguments = {}) {
        BusReply result;
        bool done = false;
        caller.callAsync(bus::kServerName, bus::kServerPath, bus::kServerInterface, member, arguments, kPatience,
                         [&](BusReply reply) {
                             result = std::move(reply);
                             done = true;
                         });
        EXPECT_TRUE(runUntil([&] { return done; }));
        return result;
    }
    // For what waits for an answer from this process's own loop.
    static void aside(const std::function<void()>& action) {
        std::atomic<bool> done{false};
        std::thread thread([&] {
            action();
            done = true;
            RunLoop::main().performOnMain([] {});
        });
        EXPECT_TRUE(runUntil([&] { return done.load(); }));
        thread.join();
    }
    // The selectors of the empty lines at info level, in order.
    std::vector<std::string> emptyLines() const {
        std::vector<std::string> selectors;
        for (const LogCapture::Line& line : _log.lines())
            if (line.level == LogLevel::info && line.text.empty()) selectors.push_back(line.selector);
        return selectors;
    }

    TempFolder _folder;
    ScopedEnvironment _home{"XDG_CONFIG_HOME", _folder.path()};
    LogCapture _log;
    PrivateBus _bus;
    // The engine's threads outlive the test, and so does what they look at.
    static inline RecordingClock& _clock = *new RecordingClock;
    TuvNodeFactoryServer::Surroundings _surroundings;
    std::unique_ptr<Bus> _client;
};

}  // namespace kavaro
