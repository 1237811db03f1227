#include <gtest/gtest.h>

#include <optional>

#include "PrivateBus.h"
#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "client/FakeServer.h"
#include "client/RemoteMeasurement.h"

// Commands of the server beside measuring.
namespace kavaro {
namespace {

class RemoteCommandTest : public testing::Test {
  protected:
    RemoteCommandTest() {
        _options.bus = _daemon.address();
        _options.serverProgram = "/nonexistent/kavarod";
    }
    void serve(FakeServer::Handler handler) {
        _server = std::make_unique<FakeServer>(_daemon.address(), std::move(handler));
    }
    CommandReply command(const std::function<bool()>& interrupted = [] { return false; }) {
        if (!_source) _source.emplace(_options, _patience);
        return _source->command("hasFileSytemChanged", {BusValue::path("/x")}, interrupted);
    }
    static BusReply answer(std::string_view text) { return {{BusValue::variant(BusValue::data(bytesOf(text)))}, {}}; }

    TempFolder _folder;
    ScopedEnvironment _state{"XDG_STATE_HOME", _folder.path()};
    PrivateBus _daemon;
    ServerConnection::Options _options;
    RemoteMeasurement::Patience _patience;
    std::unique_ptr<FakeServer> _server;
    std::optional<RemoteMeasurement> _source;
};

TEST_F(RemoteCommandTest, GivesTheAnswer) {
    serve([](const BusCall& call) {
        EXPECT_EQ(call.member, "hasFileSytemChanged");
        EXPECT_EQ(call.arguments.at(0).asPath(), "/x");
        return answer("one");
    });
    for (int i = 0; i < 3; ++i) {
        const CommandReply reply = command();
        EXPECT_TRUE(reply.ok()) << reply.failure;
        EXPECT_EQ(textOf(reply.values.at(0).asData()->view()), "one");
    }
    EXPECT_EQ(_server->calls, (std::vector<std::string>{"versionInfo", "hasFileSytemChanged", "hasFileSytemChanged",
                                                        "hasFileSytemChanged"}))
        << "it is asked once whether it is there";
}

TEST_F(RemoteCommandTest, ARefusalIsTold) {
    serve([](const BusCall&) {
        return BusReply{{}, {"org.freedesktop.DBus.Error.AccessDenied", "not \x1b[31mfor you"}};
    });
    const CommandReply reply = command();
    EXPECT_FALSE(reply.ok());
    EXPECT_EQ(reply.failure, "the server refuses it: not \\x1b[31mfor you.");
}

TEST_F(RemoteCommandTest, TheTrashNotificationIsReadMeanwhile) {
    const auto post = [this](std::string_view object, const std::vector<BusValue::Dictionary>& errors) {
        _server->post(TuvNodeFactoryTrashFileNotification,
                      {BusValue::string(object), BusValue::dictionary({{"errors", BusValue::dictionaries(errors)}})});
    };
    serve([&](const BusCall&) {
        post(kNotificationObject, {{{"pathName", BusValue::path("/a\xff")},
                                    {"reason", BusValue::string("Could not move this file to Trash.")},
                                    {"detail", BusValue::string("permission\x1b[2J denied")}},
                                   {{"pathName", BusValue::path("/b")}, {"reason", BusValue::string("Not loaded")}}});
        post("SomethingElse", {{{"pathName", BusValue::path("/c")}}});
        _server->post(TuvNodeFactoryTrashFileNotification, std::vector<BusValue>{});
        return answer("one");
    });
    const CommandReply reply = command();
    EXPECT_TRUE(reply.ok()) << reply.failure;
    ASSERT_EQ(reply.failures.size(), 2u);
    EXPECT_EQ(reply.failures[0].path, "/a\xff");
    EXPECT_EQ(reply.failures[0].reason, "Could not move this file to Trash (permission\\x1b[2J denied)");
    EXPECT_EQ(reply.failures[1].path, "/b");
    EXPECT_EQ(reply.failures[1].reason, "Not loaded");
}

TEST_F(RemoteCommandTest, AServerThatGoesMeanwhileIsTold) {
    serve([this](const BusCall&) {
        _server->vanish();
        // The answer of one that has gone is nobody's.
        return answer("late");
    });
    const CommandReply reply = command();
    if (!reply.ok()) {
        EXPECT_EQ(reply.failure.find("the server went away"), 0u) << reply.failure;
    }
    // Whatever came of the first, the next one looks for another server.
    EXPECT_NE(command().failure.find("/nonexistent/kavarod"), std::string::npos);
}

TEST_F(RemoteCommandTest, NoServerIsTold) {
    EXPECT_NE(command().failure.find("/nonexistent/kavarod: No such file or directory"), std::string::npos);
}

TEST_F(RemoteCommandTest, MayBeInterrupted) {
    bool isAsked = false;
    serve([&](const BusCall&) {
        isAsked = true;
        return answer("one");
    });
    const CommandReply reply = command([&] { return isAsked; });
    EXPECT_TRUE(reply.interrupted || reply.ok());
    EXPECT_EQ(reply.failure, "");
    const CommandReply atOnce = command([] { return true; });
    EXPECT_TRUE(atOnce.interrupted || atOnce.ok());
}

}  // namespace
}  // namespace kavaro
