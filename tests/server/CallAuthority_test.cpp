// Who may call, on a bus of the test's own that counts as the system's.
#include "server/CallAuthority.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "LogCapture.h"
#include "PrivateBus.h"
#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "platform/RunLoop.h"
#include "server/FakeAuthority.h"

namespace kavaro {
namespace {

using Texts = std::vector<std::string>;

constexpr double kPatience = 60;

const std::string kAllowed = "allowed";
const std::string kDenied = "org.freedesktop.DBus.Error.AccessDenied";

std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_FALSE(text.str().empty()) << path;
    return text.str();
}

class CallAuthorityTest : public testing::Test {
  protected:
    void SetUp() override {
        server = connect();
        caller = connect();
        authority = CallAuthority::forBus("system", server);
        ASSERT_TRUE(authority->isRestricted());
    }
    std::shared_ptr<Bus> connect() {
        BusError error;
        std::shared_ptr<Bus> bus = Bus::open(daemon.address(), &error);
        EXPECT_TRUE(bus) << error.message;
        return bus;
    }
    static bool runUntil(const std::function<bool()>& done) { return RunLoop::main().runUntil(done, kPatience); }

    // Asks for a decision; it arrives in `decisions`.
    void request(std::string_view member, std::string sender = {}, bool mayAskUser = false) {
        if (sender.empty()) sender = caller->uniqueName();
        authority->decide({member, sender, {}, mayAskUser},
                          [this, name = std::string(member)](const BusError& refusal) {
                              decisions.push_back(name + ": " + (refusal.isSet() ? refusal.name : kAllowed));
                              lastRefusal = refusal;
                          });
    }
    // Asks for one and waits for it.
    std::string decisionOn(std::string_view member, const std::string& sender = {}, bool mayAskUser = false) {
        decisions.clear();
        request(member, sender, mayAskUser);
        EXPECT_TRUE(decisions.empty()) << "decided before anybody was asked";
        EXPECT_TRUE(runUntil([this] { return !decisions.empty(); }));
        EXPECT_EQ(decisions.size(), 1u);
        return decisions.empty() ? "none" : decisions[0].substr(member.size() + 2);
    }
    // What becomes of a call of the test's own user where nobody decides.
    static std::string withoutAuthority() { return geteuid() == 0 ? kAllowed : kDenied; }

    LogCapture log;
    PrivateBus daemon;
    std::shared_ptr<Bus> server, caller;
    std::unique_ptr<CallAuthority> authority;
    Texts decisions;
    BusError lastRefusal;
};

TEST_F(CallAuthorityTest, ABusOfOneUserRestrictsNothing) {
    for (const std::string& kind : {std::string("session"), daemon.address()}) {
        authority = CallAuthority::forBus(kind, server);
        EXPECT_FALSE(authority->isRestricted()) << kind;
        request("shutdownServer", ":9.999");
        EXPECT_EQ(decisions, Texts{"shutdownServer: allowed"}) << "at once";
        decisions.clear();
    }
}

TEST_F(CallAuthorityTest, TheAuthorityAllows) {
    FakeAuthority fake(daemon.address());
    EXPECT_EQ(decisionOn("startWorkingAtPath"), kAllowed);
    EXPECT_EQ(decisionOn("moveToTrash"), kAllowed);
    EXPECT_EQ(decisionOn("shutdownServer"), kAllowed);
    ASSERT_EQ(fake.questions.size(), 3u);
    for (const FakeAuthority::Question& question : fake.questions) {
        EXPECT_EQ(question.subjectKind, "system-bus-name");
        EXPECT_EQ(question.subjectName, caller->uniqueName());
        EXPECT_EQ(question.flags, 0);
    }
    EXPECT_EQ(fake.questions[0].action, "org.kavaro.Kavaro.read-sizes");
    EXPECT_EQ(fake.questions[1].action, "org.kavaro.Kavaro.remove");
    EXPECT_EQ(fake.questions[2].action, "org.kavaro.Kavaro.shut-down");
}

TEST_F(CallAuthorityTest, TheAuthorityRefusesWhoeverCalls) {
    FakeAuthority fake(daemon.address());
    fake.verdict = FakeAuthority::verdictOf(false);
    EXPECT_EQ(decisionOn("startWorkingAtPath"), kDenied);
    EXPECT_EQ(lastRefusal.message, "you are not allowed org.kavaro.Kavaro.read-sizes");
    EXPECT_EQ(fake.questions.size(), 1u);
    fake.verdict = FakeAuthority::verdictOf(true);
    EXPECT_EQ(decisionOn("startWorkingAtPath"), kAllowed) << "nothing is remembered";
}

TEST_F(CallAuthorityTest, APasswordIsAskedForWhenTheCallerWaitsForIt) {
    FakeAuthority fake(daemon.address());
    fake.verdict = FakeAuthority::verdictOf(false, true);
    EXPECT_EQ(decisionOn("startWorkingAtPath"), "org.freedesktop.DBus.Error.InteractiveAuthorizationRequired");
    EXPECT_EQ(decisionOn("startWorkingAtPath", {}, true), kDenied) << "there was nobody to ask";
    fake.verdict = FakeAuthority::verdictOf(true);
    EXPECT_EQ(decisionOn("startWorkingAtPath", {}, true), kAllowed);
    ASSERT_EQ(fake.questions.size(), 3u);
    EXPECT_EQ(fake.questions[0].flags, 0);
    EXPECT_EQ(fake.questions[1].flags, 1);
    EXPECT_EQ(fake.questions[2].flags, 1);
}

TEST_F(CallAuthorityTest, WithoutAnAuthorityRootAloneMayCall) {
    EXPECT_EQ(decisionOn("startWorkingAtPath"), withoutAuthority());
    EXPECT_EQ(decisionOn("shutdownServer"), withoutAuthority());
    EXPECT_EQ(decisionOn("startWorkingAtPath", ":9.999"), kDenied) << "the bus does not know who that is";
    EXPECT_EQ(lastRefusal.message,
              "only the administrator may call the system's sizing server; use the session bus, or sudo");
    EXPECT_EQ(log.count(LogLevel::error, ""), 0) << "that there is none is no error";
}

TEST_F(CallAuthorityTest, AnAuthorityThatFailsDecidesNothing) {
    FakeAuthority fake(daemon.address());
    fake.verdict = {{}, {"org.freedesktop.PolicyKit1.Error.Failed", "the action is not registered"}};
    EXPECT_EQ(decisionOn("startWorkingAtPath"), withoutAuthority());
    EXPECT_EQ(decisionOn("startWorkingAtPath", ":9.999"), kDenied);
    EXPECT_EQ(log.count(LogLevel::error,
                        "The authority does not decide, so only root may call: the action is not registered"),
              2);
}

TEST_F(CallAuthorityTest, AnAuthorityThatTalksNonsenseDecidesNothing) {
    const auto fake = connect();
    BusError error;
    ASSERT_TRUE(fake->publish(
        "/org/freedesktop/PolicyKit1/Authority",
        "<node><interface name='org.freedesktop.PolicyKit1.Authority'><method name='CheckAuthorization'>"
        "<arg type='(sa{sv})' direction='in'/><arg type='s' direction='in'/><arg type='a{ss}' direction='in'/>"
        "<arg type='u' direction='in'/><arg type='s' direction='in'/><arg type='s' direction='out'/>"
        "</method></interface></node>",
        [](const BusCall&) {
            return BusReply{{BusValue::string("yes")}, {}};
        },
        &error));
    ASSERT_TRUE(fake->requestName("org.freedesktop.PolicyKit1", &error));
    EXPECT_EQ(decisionOn("startWorkingAtPath", ":9.999"), kDenied);
    EXPECT_EQ(log.count(LogLevel::error, "The authority does not decide, so only root may call: no verdict"), 1);
}

TEST_F(CallAuthorityTest, AnAuthorityThatGoesWithoutAnAnswerDecidesNothing) {
    auto fake = std::make_unique<FakeAuthority>(daemon.address());
    fake->holds = true;
    request("startWorkingAtPath");
    ASSERT_TRUE(runUntil([&] { return fake->held.size() == 1; }));
    EXPECT_TRUE(decisions.empty());
    fake.reset();
    ASSERT_TRUE(runUntil([this] { return !decisions.empty(); }));
    EXPECT_EQ(decisions, Texts{"startWorkingAtPath: " + withoutAuthority()});
}

// The bus may know how to start it. Here what it starts makes a file, and the test's own authority takes the name.
TEST(CallAuthorityStart, AnAuthorityThatTheBusCanStartIsStarted) {
    TempFolder home;
    home.makeFolder("dbus-1");
    home.makeFolder("dbus-1/services");
    home.write("dbus-1/services/org.freedesktop.PolicyKit1.service",
               "[D-BUS Service]\nName=org.freedesktop.PolicyKit1\nExec=/usr/bin/touch " + home.path("started") + "\n");
    ScopedEnvironment environment("XDG_DATA_HOME", home.path());
    PrivateBus daemon;
    BusError error;
    const std::shared_ptr<Bus> server = Bus::open(daemon.address(), &error);
    ASSERT_TRUE(server) << error.message;
    FakeAuthority fake(daemon.address(), false);
    const auto authority = CallAuthority::forBus("system", server);
    std::optional<BusError> decision;
    authority->decide({"versionInfo", server->uniqueName(), {}}, [&](const BusError& refusal) { decision = refusal; });
    struct stat about {};
    const auto isStarted = [&] { return stat(home.path("started").c_str(), &about) == 0; };
    for (int i = 0; i < 6000 && !isStarted(); ++i) RunLoop::main().runUntil([] { return false; }, 0.01);
    ASSERT_TRUE(isStarted());
    EXPECT_FALSE(decision);
    fake.takeName();
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return decision.has_value(); }, kPatience));
    EXPECT_FALSE(decision->isSet()) << decision->message;
    EXPECT_EQ(fake.questions.size(), 1u);
}

TEST_F(CallAuthorityTest, CallsOfOneCallerKeepTheirOrder) {
    FakeAuthority fake(daemon.address());
    fake.holds = true;
    const auto other = connect();
    for (const char* member : {"startWorkingAtPath", "shutdownServer", "stopSizing"}) request(member);
    request("versionInfo", other->uniqueName());
    ASSERT_TRUE(runUntil([&] { return fake.held.size() == 2; }));
    EXPECT_EQ(fake.questions[0].subjectName, caller->uniqueName());
    EXPECT_EQ(fake.questions[1].subjectName, other->uniqueName());
    fake.held[1](FakeAuthority::verdictOf(true));
    ASSERT_TRUE(runUntil([&] { return decisions.size() == 1; }));
    EXPECT_EQ(decisions[0], "versionInfo: allowed") << "nobody waits for another caller's password";
    fake.holds = false;
    fake.verdict = FakeAuthority::verdictOf(false);
    fake.held[0](FakeAuthority::verdictOf(true));
    ASSERT_TRUE(runUntil([&] { return decisions.size() == 4; }));
    EXPECT_EQ(decisions, (Texts{"versionInfo: allowed", "startWorkingAtPath: allowed", "shutdownServer: " + kDenied,
                                "stopSizing: " + kDenied}));
}

TEST_F(CallAuthorityTest, NoMoreThanSoManyWait) {
    FakeAuthority fake(daemon.address());
    fake.holds = true;
    for (std::size_t i = 0; i < CallAuthority::kMostWaiting; ++i) request("versionInfo");
    EXPECT_TRUE(decisions.empty());
    request("stopSizing");
    EXPECT_EQ(decisions, Texts{"stopSizing: org.freedesktop.DBus.Error.LimitsExceeded"});
    ASSERT_TRUE(runUntil([&] { return fake.held.size() == 1; }));
    fake.holds = false;
    fake.held[0](FakeAuthority::verdictOf(true));
    ASSERT_TRUE(runUntil([&] { return decisions.size() == 1 + CallAuthority::kMostWaiting; }));
    EXPECT_EQ(decisionOn("stopSizing"), kAllowed);
}

TEST_F(CallAuthorityTest, DecisionsThatComeTooLateReachNobody) {
    FakeAuthority fake(daemon.address());
    fake.holds = true;
    request("versionInfo");
    request("stopSizing");
    ASSERT_TRUE(runUntil([&] { return fake.held.size() == 1; }));
    authority = nullptr;
    fake.held[0](FakeAuthority::verdictOf(true));
    fake.held.clear();
    ASSERT_TRUE(server->flush());
    BusReply reply;
    server->callAsync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId", {}, kPatience,
                      [&](BusReply answer) { reply = std::move(answer); });
    ASSERT_TRUE(runUntil([&] { return !reply.values.empty(); }));
    EXPECT_TRUE(decisions.empty());
}

TEST_F(CallAuthorityTest, ADecisionMayEndIt) {
    FakeAuthority fake(daemon.address());
    bool decided = false;
    authority->decide({"shutdownServer", caller->uniqueName(), {}}, [&](const BusError&) {
        authority = nullptr;
        decided = true;
    });
    request("versionInfo");
    ASSERT_TRUE(runUntil([&] { return decided; }));
    EXPECT_TRUE(decisions.empty());
}

TEST(CallAuthorityActions, AreThoseOfThePolicy) {
    const std::string policy = contentOf(KAVARO_SOURCE_DIR "/packaging/polkit/org.kavaro.Kavaro.policy");
    std::set<std::string> declared, used;
    static const std::regex action("<action id=\"([^\"]+)\">");
    for (std::sregex_iterator it(policy.begin(), policy.end(), action), end; it != end; ++it) declared.insert((*it)[1]);
    for (const auto risk : {CallAuthority::Risk::readSizes, CallAuthority::Risk::remove, CallAuthority::Risk::shutDown})
        used.emplace(CallAuthority::actionOf(risk));
    EXPECT_EQ(declared, used);
}

TEST(CallAuthorityActions, EveryMemberHasItsRisk) {
    const std::string xml = contentOf(KAVARO_SOURCE_DIR "/resources/dbus/org.kavaro.Kavaro.NodeFactoryServer.xml");
    // Those that change nothing on the disk. Whatever comes along counts as one that removes until it is named.
    const std::set<std::string> reading = {"startWorkingAtPath",
                                           "startWorkingAtPathParentInodes",
                                           "prioritizeNodeWithInodePath",
                                           "hasFileSytemChanged",
                                           "stopSizing",
                                           "lipoNodesInfo",
                                           "fileDuplicatesHeader",
                                           "versionInfo"};
    int members = 0;
    static const std::regex method("<method name=\"([^\"]+)\"");
    for (std::sregex_iterator it(xml.begin(), xml.end(), method), end; it != end; ++it, ++members) {
        const std::string member = (*it)[1];
        const auto expected = member == "shutdownServer" ? CallAuthority::Risk::shutDown
                              : reading.contains(member) ? CallAuthority::Risk::readSizes
                                                         : CallAuthority::Risk::remove;
        EXPECT_EQ(CallAuthority::riskOf(member), expected) << member;
    }
    EXPECT_GE(members, 7);
    for (const char* member : {"moveToTrash", "removeLocales", "removeNibs", "lipoNodes", "unheardOf", ""})
        EXPECT_EQ(CallAuthority::riskOf(member), CallAuthority::Risk::remove) << member;
}

}  // namespace
}  // namespace kavaro
