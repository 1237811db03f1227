#include "client/RemoteMeasurement.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>

#include "PrivateBus.h"
#include "ScopedEnvironment.h"
#include "client/FakeServer.h"
#include "platform/BusMessage.h"
#include "platform/Clock.h"

namespace kavaro {
namespace {

const std::string kPath = "/random";  // of the trees by chance
const std::string kNoFurther = "/nonexistent/kavarod";

class RemoteMeasurementTest : public testing::Test {
  protected:
    RemoteMeasurementTest() {
        _options.bus = _daemon.address();
        _options.serverProgram = kNoFurther;
        std::mt19937 random(1);
        _delivery.emplace(TreeDelivery::randomTree(random, 30));
    }

    // A server that does `work` when it is told to start.
    void serve(std::function<void(FakeServer&)> work) {
        _server = std::make_unique<FakeServer>(_daemon.address(), [this, work](const BusCall& call) {
            if (call.member == "startWorkingAtPath") {
                EXPECT_EQ(call.arguments.at(0).asPath(), kPath);
                work(*_server);
            } else if (call.member == "stopSizing") {
                _server->postStopped();
            }
            return BusReply{};
        });
    }
    void serveWholeJob() {
        serve([this](FakeServer& server) {
            server.postStarted(*_delivery);
            for (std::size_t i = 0; i < count(); i += 7) server.postResolved(*_delivery, i, std::min(count(), i + 7));
            server.postCompleted(*_delivery);
        });
    }
    // Started and some batches, then what the test wants.
    void serveHalf(std::function<void(FakeServer&)> then) {
        serve([this, then](FakeServer& server) {
            server.postStarted(*_delivery);
            server.postResolved(*_delivery, 0, kHalf);
            then(server);
        });
    }
    std::size_t count() const { return _delivery->order().size(); }

    RemoteMeasurement& source() {
        if (!_source) _source.emplace(_options, _patience);
        return *_source;
    }
    Measurement measure(std::function<bool()> interrupted = [] { return false; }) {
        MeasurementSource::Callbacks callbacks;
        callbacks.interrupted = std::move(interrupted);
        callbacks.progress = [](const MeasurementProgress&) {};
        callbacks.showsPart = _showsPart;
        return source().measure(kPath, callbacks);
    }
    // A failure that says `text`, and all of the first half.
    void expectHalf(const Measurement& measurement, const std::string& text) const {
        EXPECT_NE(measurement.failure.find(text), std::string::npos) << measurement.failure;
        EXPECT_EQ(measurement.failure.find(kPath + ": "), 0u) << measurement.failure;
        EXPECT_TRUE(measurement.partial);
        ASSERT_TRUE(measurement.root);
        EXPECT_EQ(TreeTotals(*measurement.root, 0).ofRoot().files, heldByFirst(*_delivery, kHalf).files);
    }
    // A program that stays until it is ended and takes no name.
    std::string idleProgram() {
        const std::string path = _folder.write("idle", "#!/bin/sh\nexec sleep 600\n");
        EXPECT_EQ(chmod(path.c_str(), 0700), 0);
        return path;
    }

    std::vector<std::string> logs() const {
        std::vector<std::string> names;
        std::error_code none;
        for (const auto& entry : std::filesystem::directory_iterator(_folder.path("kavaro"), none))
            names.push_back(entry.path().filename());
        return names;
    }

    static constexpr std::size_t kHalf = 15;
    TempFolder _folder;
    ScopedEnvironment _state{"XDG_STATE_HOME", _folder.path()};
    PrivateBus _daemon;
    ServerConnection::Options _options;
    bool _showsPart = true;
    RemoteMeasurement::Patience _patience;
    std::optional<TreeDelivery> _delivery;
    std::unique_ptr<FakeServer> _server;
    std::optional<RemoteMeasurement> _source;
};

TEST_F(RemoteMeasurementTest, MeasuresThroughTheServerThatRuns) {
    serveWholeJob();
    const Measurement measurement = measure();
    EXPECT_EQ(measurement.failure, "");
    EXPECT_FALSE(measurement.partial);
    ASSERT_TRUE(measurement.root);
    EXPECT_EQ(linesOf(*measurement.root), linesOf(_delivery->root()));
    EXPECT_EQ(_server->calls, (std::vector<std::string>{"versionInfo", "startWorkingAtPath"}));
}

TEST_F(RemoteMeasurementTest, OthersMayNotSpeakForTheServer) {
    BusError error;
    std::unique_ptr<Bus> stranger = Bus::open(_daemon.address(), &error);
    ASSERT_TRUE(stranger);
    const auto shout = [&](std::string_view name, const ByteBuffer& data) {
        EXPECT_TRUE(stranger->emit({}, bus::kNotificationPath, bus::kNotificationInterface, name,
                                   {BusValue::string(kNotificationObject),
                                    BusValue::dictionary({{std::string(kSerializedKey), BusValue::data(data.view())}})},
                                   &error));
    };
    serveHalf([&](FakeServer& server) {
        const std::uint8_t absurd[] = {1, 2, 3};
        ByteBuffer bytes(3);
        bytes.append(absurd, sizeof absurd);
        for (const auto name : {TuvNodeFactoryStartedNotification, TuvNodeFactoryResolvedNotification,
                                TuvNodeFactoryCompletedNotification, TuvNodeFactoryStoppedNotification})
            shout(name, bytes);
        shout(TuvNodeFactoryCompletedNotification, _delivery->rootBytes());
        stranger->flush();
        server.postResolved(*_delivery, kHalf, count());
        server.postCompleted(*_delivery);
    });
    const Measurement measurement = measure();
    EXPECT_EQ(measurement.failure, "");
    ASSERT_TRUE(measurement.root);
    EXPECT_EQ(linesOf(*measurement.root), linesOf(_delivery->root()));
}

// Each ends the job with a text that says so, tells the server to stop, and loses nothing.
TEST_F(RemoteMeasurementTest, HostileNotifications) {
    const ByteBuffer batch = _delivery->batch(kHalf, count());
    const auto serialized = [](const BusValue& value) {
        return std::vector<BusValue>{BusValue::string(kNotificationObject),
                                     BusValue::dictionary({{std::string(kSerializedKey), value}})};
    };
    const auto openFile = [&](unsigned seals) {
        const int fd = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
        EXPECT_EQ(::write(fd, batch.view().data(), batch.size()), static_cast<ssize_t>(batch.size()));
        EXPECT_EQ(fcntl(fd, F_ADD_SEALS, seals), 0);
        return makeBusValue(sinkVariant(g_variant_new_handle(0)),
                            std::make_shared<const FileList>(FileList{std::make_shared<const FileHandle>(fd)}));
    };
    const std::uint8_t absurd[] = {0xff, 0xff, 0xff, 0x7f, 1, 0, 0, 0};
    const std::vector<BusValue> cases = {
        BusValue::data(batch.view().subspan(0, batch.size() - 1)),
        BusValue::data({absurd, sizeof absurd}),
        BusValue::data(ByteView()),
        BusValue::string("text"),
        BusValue::dictionary({}),
        openFile(0),
        openFile(F_SEAL_SHRINK | F_SEAL_GROW),
        makeBusValue(sinkVariant(g_variant_new_handle(7))),  // no such file in the message
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        _server = nullptr;
        _source.reset();
        serveHalf([&](FakeServer& server) { server.post(TuvNodeFactoryResolvedNotification, serialized(cases[i])); });
        const Measurement measurement = measure();
        expectHalf(measurement, "cannot be read (TuvNodeFactoryResolvedNotification)");
        EXPECT_TRUE(RunLoop::main().runUntil([&] { return _server->wasAsked("stopSizing"); }, 60));
    }
}

TEST_F(RemoteMeasurementTest, AFileThatIsSealedIsRead) {
    serveHalf([&](FakeServer& server) {
        const ByteBuffer batch = _delivery->batch(kHalf, count());
        auto file = makeSealedFile(batch.view());
        ASSERT_TRUE(file);
        server.post(TuvNodeFactoryResolvedNotification,
                    {BusValue::string(kNotificationObject),
                     BusValue::dictionary({{std::string(kSerializedKey),
                                            makeBusValue(sinkVariant(g_variant_new_handle(0)),
                                                         std::make_shared<const FileList>(FileList{file}))}})});
        server.postCompleted(*_delivery);
    });
    const Measurement measurement = measure();
    EXPECT_EQ(measurement.failure, "");
    EXPECT_EQ(linesOf(*measurement.root), linesOf(_delivery->root()));
}

TEST_F(RemoteMeasurementTest, AServerThatStartsNothing) {
    serve([this](FakeServer& server) { server.postCompleted(*_delivery); });
    const Measurement measurement = measure();
    EXPECT_NE(measurement.failure.find("/random: the server does not measure it: it is no folder any more"),
              std::string::npos)
        << measurement.failure;
    EXPECT_FALSE(measurement.root);
}

TEST_F(RemoteMeasurementTest, AServerThatRefuses) {
    _server = std::make_unique<FakeServer>(_daemon.address(), [](const BusCall&) {
        return BusReply{{}, {"org.freedesktop.DBus.Error.AccessDenied", "not \x1b[31mfor you"}};
    });
    const Measurement measurement = measure();
    EXPECT_NE(measurement.failure.find("not \\x1b[31mfor you"), std::string::npos) << measurement.failure;
}

TEST_F(RemoteMeasurementTest, WhatIsNotShownIsNotPromised) {
    _showsPart = false;
    serveHalf([](FakeServer& server) { server.vanish(); });
    expectHalf(measure(), "the server went away in the middle of the job. Run the command again");
}

TEST_F(RemoteMeasurementTest, AServerThatVanishesInTheMiddle) {
    serveHalf([](FakeServer& server) { server.vanish(); });
    expectHalf(measure(), "the middle of the job. What was measured until then is shown; run the command again");
    EXPECT_FALSE(_server->wasAsked("stopSizing"));
}

// It was about to end when it was found: the job gets a server of its own.
TEST_F(RemoteMeasurementTest, AServerThatVanishesBeforeItHasDoneAnything) {
    serve([this](FakeServer& server) {
        server.postStarted(*_delivery);
        server.vanish();
    });
    Measurement measurement = measure();
    EXPECT_NE(measurement.failure.find(kNoFurther), std::string::npos) << measurement.failure;

    _source.reset();
    _options.serverProgram = idleProgram();
    int starts = 0;
    _server = nullptr;
    serve([&](FakeServer& server) {
        if (++starts == 1) {
            server.vanish();
            RunLoop::main().schedule(0.1, [&] { server.takeName(); });
            return;
        }
        server.postStarted(*_delivery);
        server.postResolved(*_delivery, 0, count());
        server.postCompleted(*_delivery);
    });
    measurement = measure();
    EXPECT_EQ(measurement.failure, "");
    EXPECT_EQ(starts, 2);
    EXPECT_FALSE(measurement.partial);
}

TEST_F(RemoteMeasurementTest, ServersThatCannotBeStarted) {
    Measurement measurement = measure();
    EXPECT_NE(measurement.failure.find(kNoFurther + ": No such file or directory"), std::string::npos)
        << measurement.failure;
    _source.reset();
    EXPECT_EQ(logs(), std::vector<std::string>());
    _options.serverProgram = _folder.write("broken", "#!/bin/sh\necho it is broken >&2\nexit 3\n");
    ASSERT_EQ(chmod(_options.serverProgram.c_str(), 0700), 0);
    for (int i = 0; i < 2; ++i) {
        measurement = measure();
        EXPECT_NE(measurement.failure.find("broken: the server ended at once. Its log is " + _folder.path("kavaro")),
                  std::string::npos)
            << measurement.failure;
    }
    _source.reset();
    // Both are kept, because the user was told of them.
    ASSERT_EQ(logs().size(), 2u);
    for (const std::string& name : logs()) EXPECT_EQ(_folder.read("kavaro/" + name), "it is broken\n");
    EXPECT_FALSE(measurement.root);
}

// All messages stand still: for the client it is as if the server hung.
TEST_F(RemoteMeasurementTest, AServerThatHangsWhenItIsFound) {
    _options.answerSeconds = 0.05;
    serveWholeJob();
    _server->onVersionInfo = [this] { _daemon.suspend(); };
    const Measurement measurement = measure();
    EXPECT_NE(measurement.failure.find("the server does not answer"), std::string::npos) << measurement.failure;
    _daemon.resume();
}

TEST_F(RemoteMeasurementTest, AServerThatHangsInTheMiddle) {
    _patience.quiet = 0.05;
    _patience.answer = 0.05;
    _patience.stop = 0.05;
    int asked = 0;
    serveHalf([](FakeServer&) {});
    _server->onVersionInfo = [&] {
        if (++asked == 3) _daemon.suspend();  // once when it is found, once in the middle
    };
    expectHalf(measure(), "the server does not answer any more");
    _daemon.resume();
    EXPECT_EQ(asked, 3);
}

TEST_F(RemoteMeasurementTest, AServerThatIsSlowIsWaitedFor) {
    _patience.quiet = 0.02;
    serveHalf([](FakeServer&) {});
    int asked = 0;
    _server->onVersionInfo = [&] {
        if (++asked != 5) return;
        _server->postResolved(*_delivery, kHalf, count());
        _server->postCompleted(*_delivery);
    };
    EXPECT_EQ(measure().failure, "");
}

TEST_F(RemoteMeasurementTest, ABusThatGoesAway) {
    serveHalf([this](FakeServer& server) {
        // What was posted goes out first.
        RunLoop::main().schedule(0.1, [this] { _daemon.end(); });
        static_cast<void>(server);
    });
    expectHalf(measure(), "the message bus went away");
}

TEST_F(RemoteMeasurementTest, Interrupted) {
    serveHalf([](FakeServer&) {});
    const Measurement measurement = measure([this] { return _server->calls.size() >= 2; });
    EXPECT_TRUE(measurement.interrupted);
    EXPECT_TRUE(measurement.partial);
    EXPECT_EQ(measurement.failure, "");
    EXPECT_TRUE(_server->wasAsked("stopSizing"));
    ASSERT_TRUE(measurement.root);
    EXPECT_EQ(TreeTotals(*measurement.root, 0).ofRoot().files, heldByFirst(*_delivery, kHalf).files);
}

TEST_F(RemoteMeasurementTest, InterruptedBeforeThereIsAServer) {
    _options.serverProgram = idleProgram();
    const Measurement measurement = measure([] { return true; });
    EXPECT_TRUE(measurement.interrupted);
    EXPECT_EQ(measurement.failure, "");
    EXPECT_FALSE(measurement.root);
}

TEST_F(RemoteMeasurementTest, AStopByAnotherClient) {
    serveHalf([](FakeServer& server) { server.postStopped(); });
    expectHalf(measure(), "another client stopped the job");
}

TEST_F(RemoteMeasurementTest, AJobOfAnotherClient) {
    TreeDelivery other(smallTree());
    serveHalf([&](FakeServer& server) { server.postStarted(other); });
    expectHalf(measure(), "another client has started a job");
    EXPECT_FALSE(_server->wasAsked("stopSizing")) << "that job is not ours";
}

// The answer to the first start comes when its job is long over.
TEST_F(RemoteMeasurementTest, AReplyThatComesLate) {
    _patience.stop = 0.01;
    serveHalf([](FakeServer& server) { server.vanish(); });
    expectHalf(measure(), "went away");
    _server->takeName();
    expectHalf(measure(), "went away");
    RunLoop::main().runUntil([] { return false; }, 0.05);
}

TEST_F(RemoteMeasurementTest, TheNextFolderWaitsForTheLastServersEnd) {
    _options.serverProgram = idleProgram();
    serveWholeJob();
    EXPECT_EQ(measure().failure, "");
    RunLoop::main().schedule(0.05, [this] { _server->vanish(); });
    RunLoop::main().schedule(0.2, [this] { _server->takeName(); });
    EXPECT_EQ(measure().failure, "");
    _patience.serverEnd = 0.05;
    _source.reset();
    EXPECT_EQ(measure().failure, "");
    EXPECT_NE(measure().failure.find("does not end"), std::string::npos);
}

TEST_F(RemoteMeasurementTest, AFolderThatIsRefusedLeavesTheServerForTheNext) {
    serve([](FakeServer&) {});
    EXPECT_NE(measure().failure, "");
    EXPECT_NE(measure().failure, "");
    EXPECT_EQ(std::count(_server->calls.begin(), _server->calls.end(), "startWorkingAtPath"), 2);
}

TEST_F(RemoteMeasurementTest, AServerStartedWithoutOurOptionsIsNotUsed) {
    serveWholeJob();
    _options.serverArguments = {"-sameFileSystemOnly", "1"};
    const Measurement measurement = measure();
    EXPECT_EQ(measurement.failure.find(kPath + ": bus \"" + _daemon.address() +
                                       "\": the server that runs there was "
                                       "started without the options asked for here."),
              0u)
        << measurement.failure;
    EXPECT_FALSE(measurement.root);
    EXPECT_EQ(_server->calls, std::vector<std::string>());
}

TEST_F(RemoteMeasurementTest, OptionsOnASessionBusWithAServerTakeABusOfTheirOwn) {
    ScopedEnvironment session("DBUS_SESSION_BUS_ADDRESS", _daemon.address());
    serveWholeJob();
    _options.bus = "session";
    _options.serverArguments = {"-sameFileSystemOnly", "1"};
    const Measurement measurement = measure();
    EXPECT_EQ(measurement.failure.find(kPath + ": " + kNoFurther + ": "), 0u) << measurement.failure;
    EXPECT_EQ(_server->calls, std::vector<std::string>());
    // Without options it is the server to ask.
    _options.serverArguments.clear();
    _source.reset();
    EXPECT_EQ(measure().failure, "");
}

TEST_F(RemoteMeasurementTest, ABusWithAnotherClient) {
    BusError error;
    std::unique_ptr<Bus> other = Bus::open(_daemon.address(), &error);
    ASSERT_TRUE(other && other->requestName(bus::kClientName, &error));
    const Measurement measurement = measure();
    EXPECT_NE(measurement.failure.find("another client is at work there"), std::string::npos) << measurement.failure;
}

TEST_F(RemoteMeasurementTest, ABusThatIsNotThere) {
    _options.bus = "unix:path=" + _folder.path("nothing");
    const Measurement measurement = measure();
    EXPECT_NE(measurement.failure.find("/random: bus \"" + _options.bus + "\": "), std::string::npos)
        << measurement.failure;
}

}  // namespace
}  // namespace kavaro
