#include "platform/Bus.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BusFixture.h"
#include "ScopedEnvironment.h"
#include "platform/BusMessage.h"
#include "platform/Clock.h"

namespace kavaro {
namespace {

using BusOpen = BusFixture;
using BusNames = BusFixture;
using BusCalls = BusFixture;
using BusSignals = BusFixture;

TEST_F(BusOpen, ByAddressAndAsSession) {
    auto first = connect();
    EXPECT_EQ(first->uniqueName().substr(0, 1), ":");
    EXPECT_FALSE(first->isClosed());
    ScopedEnvironment address("DBUS_SESSION_BUS_ADDRESS", _daemon.address());
    BusError error;
    auto second = Bus::open("session", &error);
    ASSERT_TRUE(second) << error.message;
    EXPECT_NE(first->uniqueName(), second->uniqueName());
    ScopedEnvironment system("DBUS_SYSTEM_BUS_ADDRESS", _daemon.address());
    EXPECT_TRUE(Bus::open("system", &error)) << error.message;
}

TEST_F(BusOpen, TheSessionBusIsFoundInTheRuntimeFolder) {
    std::string folder = _daemon.address().substr(strlen("unix:path="));
    folder = folder.substr(0, folder.find("/bus"));
    ScopedEnvironment environment("XDG_RUNTIME_DIR", folder);
    environment.unset("DBUS_SESSION_BUS_ADDRESS");
    BusError error;
    EXPECT_TRUE(Bus::open("session", &error)) << error.message;
}

TEST(BusOpenFails, QuicklyAndWithAReason) {
    TempFolder folder;
    ScopedEnvironment environment("XDG_RUNTIME_DIR", folder.path());
    environment.unset("DBUS_SESSION_BUS_ADDRESS");
    environment.set("DISPLAY", ":99");  // a display would let a search of GLib's start a bus
    const double start = Clock::system().monotonicSeconds();
    for (std::string kind : {std::string("session"), std::string("autolaunch:"), std::string("nonsense"), std::string(),
                             "unix:path=" + folder.path("none"), std::string("unix:path=\xff")}) {
        BusError error;
        EXPECT_FALSE(Bus::open(kind, &error)) << kind;
        EXPECT_TRUE(error.isSet()) << kind;
        EXPECT_FALSE(error.message.empty()) << kind;
    }
    environment.set("DBUS_SESSION_BUS_ADDRESS", "autolaunch:");
    BusError error;
    EXPECT_FALSE(Bus::open("session", &error));
    EXPECT_LT(Clock::system().monotonicSeconds() - start, 5);
}

TEST(BusOpenFails, WhenTheOtherSideNeverAnswers) {
    TempFolder folder;
    const std::string path = folder.path("mute");
    int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), address.sun_path);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    BusError error;
    EXPECT_FALSE(Bus::open("unix:path=" + path, &error, 0.05));
    EXPECT_EQ(error.message, "the bus does not answer");
    close(listener);
}

TEST_F(BusNames, ATakenNameIsRefused) {
    auto first = connect(), second = connect();
    BusError error;
    EXPECT_EQ(second->nameOwner(kName), "");
    EXPECT_TRUE(first->requestName(kName, &error));
    EXPECT_TRUE(first->requestName(kName, &error)) << "again by its owner";
    EXPECT_FALSE(second->requestName(kName, &error));
    EXPECT_FALSE(error.isSet()) << error.message;
    EXPECT_EQ(second->nameOwner(kName), first->uniqueName());
    first->releaseName(kName);
    EXPECT_TRUE(second->requestName(kName, &error));
    EXPECT_FALSE(first->requestName("not a name", &error));
    EXPECT_TRUE(error.isSet());
}

TEST_F(BusNames, AWatchedNameComesAndGoes) {
    auto watcher = connect(), owner = connect();
    std::vector<std::string> owners;
    watcher->watchName(kName, [&](const std::string& name) { owners.push_back(name); });
    ASSERT_TRUE(watcher->flush());
    const std::string name = owner->uniqueName();
    BusError error;
    ASSERT_TRUE(owner->requestName(kName, &error));
    owner.reset();
    EXPECT_TRUE(pump([&] { return owners.size() == 2; }));
    EXPECT_EQ(owners, (std::vector<std::string>{name, ""}));
}

TEST_F(BusNames, UsersOfPeers) {
    auto bus = connect();
    EXPECT_EQ(bus->userOf(bus->uniqueName()), getuid());
    EXPECT_FALSE(bus->userOf(":9.999"));
    EXPECT_FALSE(bus->userOf("no.such.name"));
    EXPECT_FALSE(bus->userOf("caf\xe9"));
}

TEST_F(BusCalls, EveryTypeGoesThereAndBack) {
    auto server = connect(), client = connect();
    std::string sender, member;
    publish(*server, [&](const BusCall& call) {
        sender = call.sender;
        member = call.member;
        return echo(call);
    });
    const std::string bytes = "/caf\xe9/\x01\xff";
    BusReply reply =
        ask(*client, *server, "echo",
            {BusValue::string("déjà"), BusValue::int32(-5), BusValue::uint32(4294967295u), BusValue::boolean(true),
             BusValue::float64(2.5), BusValue::path(bytes), BusValue::paths({bytes, ""}), BusValue::strings({"a", ""}),
             BusValue::uint32s({7, 8}), BusValue::variant(BusValue::path(bytes)),
             BusValue::dictionary({{"p", BusValue::path(bytes)}})});
    ASSERT_TRUE(reply.ok()) << reply.error.message;
    EXPECT_EQ(sender, client->uniqueName());
    EXPECT_EQ(member, "echo");
    ASSERT_EQ(reply.values.size(), 11u);
    EXPECT_EQ(reply.values[0].asString(), "déjà");
    EXPECT_EQ(reply.values[1].asInteger(), -5);
    EXPECT_EQ(reply.values[2].asInteger(), 4294967295);
    EXPECT_EQ(reply.values[3].asInteger(), 1);
    EXPECT_EQ(reply.values[4].asDouble(), 2.5);
    EXPECT_EQ(reply.values[5].asPath(), bytes);
    EXPECT_EQ(reply.values[6].asPaths(), (std::vector<std::string>{bytes, ""}));
    EXPECT_EQ(reply.values[7].asStrings(), (std::vector<std::string>{"a", ""}));
    EXPECT_EQ(reply.values[8].asUint32s(), (std::vector<std::uint32_t>{7, 8}));
    EXPECT_EQ(reply.values[9].asPath(), bytes);
    EXPECT_EQ(reply.values[10].get("p").asPath(), bytes);
}

TEST_F(BusCalls, WhatDoesNotFitTheInterfaceNeverReachesTheHandler) {
    auto server = connect(), client = connect();
    bool reached = false;
    publish(*server, [&](const BusCall& call) {
        reached = true;
        return echo(call);
    });
    BusReply reply = ask(*client, *server, "pass", {BusValue::int32(1)});
    EXPECT_EQ(reply.error.name, "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(ask(*client, *server, "pass", {}).error.name, "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(ask(*client, *server, "unknown", {}).error.name, "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_FALSE(reached);
}

TEST_F(BusCalls, ErrorsOfHandlersAndAnswersOfTheWrongType) {
    auto server = connect(), client = connect();
    BusReply answer;
    publish(*server, [&](const BusCall&) { return answer; });
    answer = {{}, {"org.kavaro.Error.Refused", "caf\xe9"}};
    BusReply reply = ask(*client, *server, "nothing", {});
    EXPECT_EQ(reply.error.name, "org.kavaro.Error.Refused");
    EXPECT_EQ(reply.error.message, "caf\\xe9");
    answer = {{}, {"not an error name", "text"}};
    EXPECT_EQ(ask(*client, *server, "nothing", {}).error.name, "org.freedesktop.DBus.Error.Failed");
    answer = {{BusValue::int32(1)}, {}};
    EXPECT_FALSE(ask(*client, *server, "nothing", {}).ok());
    answer = {{BusValue()}, {}};
    EXPECT_FALSE(ask(*client, *server, "nothing", {}).ok());
    answer = {};
    EXPECT_TRUE(ask(*client, *server, "nothing", {}).ok());
}

TEST_F(BusCalls, ObjectsArePublishedOnceAndWithdrawn) {
    auto server = connect(), client = connect();
    publish(*server, echo);
    BusError error;
    EXPECT_FALSE(server->publish(kPath, kXml, echo, &error));
    EXPECT_TRUE(error.isSet());
    EXPECT_FALSE(server->publish("no path", kXml, echo, &error));
    EXPECT_FALSE(server->publish("/other", "<node", echo, &error));
    EXPECT_TRUE(ask(*client, *server, "nothing", {}).ok());
    server->unpublish(kPath);
    EXPECT_FALSE(ask(*client, *server, "nothing", {}).ok());
    publish(*server, echo);
    EXPECT_TRUE(ask(*client, *server, "nothing", {}).ok());
}

// What cannot be answered at once is answered later, whatever came and was answered meanwhile.
TEST_F(BusCalls, AnswersMayComeLater) {
    auto server = connect(), client = connect();
    std::vector<Bus::Answer> waiting;
    BusError error;
    ASSERT_TRUE(server->publish(
        kPath, kXml,
        [&](const BusCall& call, Bus::Answer answer) {
            if (call.member == "pass") return answer({{BusValue::variant(call.arguments[0])}, {}});
            waiting.push_back(std::move(answer));
        },
        &error))
        << error.message;
    std::vector<std::string> answered;
    for (const char* name : {"first", "second", "third"}) {
        client->callAsync(server->uniqueName(), kPath, kInterface, "nothing", {}, kLong, [&, name](BusReply reply) {
            answered.push_back(reply.ok() ? name : name + (" " + reply.error.message));
        });
    }
    EXPECT_TRUE(ask(*client, *server, "pass", {BusValue::variant(BusValue::int32(1))}).ok());
    ASSERT_EQ(waiting.size(), 3u);
    EXPECT_TRUE(answered.empty());
    waiting[1]({{}, {}});
    waiting[1]({{}, {"org.kavaro.Error.Refused", "too late"}});
    waiting[0]({{}, {"org.kavaro.Error.Refused", "no"}});
    EXPECT_TRUE(pump([&] { return answered.size() == 2; }));
    EXPECT_EQ(answered, (std::vector<std::string>{"second", "first no"}));
    server.reset();
    waiting[2]({{}, {}});  // to nobody
    EXPECT_TRUE(pump([&] { return answered.size() == 3; }));
    EXPECT_EQ(answered[2].rfind("third ", 0), 0u) << answered[2];
}

// Who sets no limit says that he waits until somebody has been asked.
TEST_F(BusCalls, ACallWithoutALimitMayHaveSomebodyAsked) {
    auto server = connect(), client = connect();
    std::vector<bool> mayAsk;
    publish(*server, [&](const BusCall& call) {
        mayAsk.push_back(call.mayAskUser);
        return BusReply{};
    });
    for (const double seconds : {kLong, -1.0})
        client->callAsync(server->uniqueName(), kPath, kInterface, "nothing", {}, seconds, [](const BusReply&) {});
    EXPECT_TRUE(pump([&] { return mayAsk.size() == 2; }));
    EXPECT_EQ(mayAsk, (std::vector<bool>{false, true}));
}

TEST_F(BusCalls, LargeDataGoesByFileInArgumentsAndReplies) {
    auto server = connect(), client = connect();
    const auto sent = pattern((9u << 20) + 3, 1), returned = pattern(9u << 20, 2), small = pattern(100, 3);
    bool arrived = false;
    publish(*server, [&](const BusCall& call) {
        arrived = sameBytes(call.arguments[0].asData(), sent);
        return BusReply{{BusValue::variant(BusValue::dictionary({{"a", BusValue::data(returned)},
                                                                 {"b", BusValue::data(sent)},
                                                                 {"c", BusValue::data(small)},
                                                                 {"none", BusValue::data({})}}))},
                        {}};
    });
    BusReply reply = ask(*client, *server, "pass", {BusValue::variant(BusValue::data(sent))});
    ASSERT_TRUE(reply.ok()) << reply.error.message;
    EXPECT_TRUE(arrived);
    EXPECT_TRUE(sameBytes(reply.values[0].get("a").asData(), returned));
    EXPECT_TRUE(sameBytes(reply.values[0].get("b").asData(), sent));
    EXPECT_TRUE(sameBytes(reply.values[0].get("c").asData(), small));
    EXPECT_TRUE(sameBytes(reply.values[0].get("none").asData(), {}));
}

TEST_F(BusCalls, SynchronousCallsFromAnotherThread) {
    auto server = connect(), client = connect();
    publish(*server, echo);
    const auto large = pattern(9u << 20, 1);
    bool same = false, unknown = false;
    std::atomic<bool> finished{false};
    std::thread caller([&] {
        BusReply reply = client->call(server->uniqueName(), kPath, kInterface, "pass",
                                      {BusValue::variant(BusValue::data(large))}, kLong);
        same = reply.ok() && reply.values.size() == 1 && sameBytes(reply.values[0].asData(), large);
        unknown = client->call(server->uniqueName(), kPath, kInterface, "unknown", {}, kLong).error.isSet();
        finished = true;
        RunLoop::main().performOnMain([] {});
    });
    EXPECT_TRUE(pump([&] { return finished.load(); }));
    caller.join();
    EXPECT_TRUE(same);
    EXPECT_TRUE(unknown);
}

TEST_F(BusCalls, TimeLimitsAndBadArguments) {
    auto server = connect(), client = connect();
    publish(*server, echo);
    EXPECT_EQ(client->call(server->uniqueName(), kPath, kInterface, "nothing", {}, 0.001).error.name,
              "org.freedesktop.DBus.Error.NoReply")
        << "the server does not run while this waits";
    EXPECT_EQ(client->call("no.such.name", kPath, kInterface, "nothing", {}, kLong).error.name,
              "org.freedesktop.DBus.Error.NameHasNoOwner")
        << "no service is started";
    EXPECT_FALSE(client->call("bad name", kPath, kInterface, "nothing", {}, kLong).ok());
    EXPECT_FALSE(client->call(kName, "bad path", kInterface, "nothing", {}, kLong).ok());
    EXPECT_FALSE(client->call(kName, kPath, "bad", "nothing", {}, kLong).ok());
    EXPECT_FALSE(client->call(kName, kPath, kInterface, "b.d", {}, kLong).ok());
    int failed = 0;
    auto count = [&](BusReply reply) { failed += reply.ok() ? 0 : 1; };
    client->callAsync("bad name", kPath, kInterface, "nothing", {}, kLong, count);
    client->callAsync("no.such.name", kPath, kInterface, "nothing", {}, kLong, count);
    EXPECT_EQ(failed, 0) << "never within the call";
    EXPECT_TRUE(pump([&] { return failed == 2; }));
}

TEST_F(BusSignals, KeepTheirOrderAlsoBeforeAReply) {
    auto server = connect(), client = connect();
    std::string order;
    publish(*server, [&](const BusCall&) {
        for (int i = 0; i < 3; ++i) emit(*server, "before", {BusValue::int32(i)});
        return BusReply{};
    });
    client->subscribe(server->uniqueName(), kPath, kInterface, [&](const BusSignal& signal) {
        order += std::to_string(*signal.arguments[0].asInteger());
        EXPECT_EQ(signal.member, "before");
        EXPECT_EQ(signal.sender, server->uniqueName());
    });
    for (int i = 0; i < 50; ++i) {
        client->callAsync(server->uniqueName(), kPath, kInterface, "nothing", {}, -1,
                          [&](BusReply reply) { order += reply.ok() ? 'r' : '!'; });
    }
    EXPECT_TRUE(pump([&] { return order.size() == 200; }));
    std::string expected;
    for (int i = 0; i < 50; ++i) expected += "012r";
    EXPECT_EQ(order, expected);
}

TEST_F(BusSignals, BroadcastsReachTheSenderAndEverySubscriber) {
    auto sender = connect(), second = connect(), third = connect();
    const auto large = pattern((9u << 20) + 1, 5);
    std::vector<std::string> received;
    for (Bus* bus : {sender.get(), second.get(), third.get()}) {
        bus->subscribe("", kPath, kInterface, [&, bus](const BusSignal& signal) {
            BusValue information = signal.arguments[1];
            if (sameBytes(information.get("serialized").asData(), large)) received.push_back(bus->uniqueName());
        });
        ASSERT_TRUE(bus->flush());
    }
    emit(*sender, "Large", {BusValue::string("x"), BusValue::dictionary({{"serialized", BusValue::data(large)}})});
    EXPECT_TRUE(pump([&] { return received.size() == 3; }));
    std::sort(received.begin(), received.end());
    EXPECT_EQ(std::unique(received.begin(), received.end()), received.end());
}

std::size_t openFiles() {
    std::size_t count = 0;
    DIR* folder = opendir("/proc/self/fd");
    while (readdir(folder)) ++count;
    closedir(folder);
    return count;
}

TEST_F(BusSignals, FilesAreClosedWhenTheyHaveBeenHandled) {
    auto bus = connect();
    const auto large = pattern((8u << 20) + 1, 5);
    int received = 0;
    bus->subscribe("", kPath, kInterface, [&](const BusSignal&) { ++received; });
    bus->subscribe("", kPath, kInterface, [&](const BusSignal& signal) {
        EXPECT_EQ(signal.arguments[0].asData()->view().size(), large.size());
    });
    ASSERT_TRUE(bus->flush());
    const std::size_t before = openFiles();
    for (int i = 0; i < 20; ++i) emit(*bus, "m", {BusValue::data(large)});
    ASSERT_TRUE(bus->flush());
    EXPECT_TRUE(pump([&] { return received == 20; }));
    EXPECT_LT(openFiles(), before + 10) << "GLib itself opens and closes a few";
}

TEST_F(BusSignals, AFileThatItsSenderCanStillChangeGivesNothing) {
    auto sender = connect(), receiver = connect();
    std::vector<bool> usable;
    receiver->subscribe("", kPath, kInterface,
                        [&](const BusSignal& signal) { usable.push_back(signal.arguments[0].asData().has_value()); });
    ASSERT_TRUE(receiver->flush());
    int fd = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    ASSERT_EQ(ftruncate(fd, 10000), 0);
    auto files = std::make_shared<const FileList>(FileList{std::make_shared<const FileHandle>(fd)});
    const BusValue value = makeBusValue(sinkVariant(g_variant_new_handle(0)), files);
    emit(*sender, "m", {value});
    ASSERT_TRUE(sender->flush());
    EXPECT_TRUE(pump([&] { return usable.size() == 1; }));
    ASSERT_EQ(fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE), 0);
    emit(*sender, "m", {value});
    emit(*sender, "m", {makeBusValue(sinkVariant(g_variant_new_handle(7)), files)});
    EXPECT_TRUE(pump([&] { return usable.size() == 3; }));
    EXPECT_EQ(usable, (std::vector<bool>{false, true, false}));
}

TEST_F(BusSignals, AddressedSignalsReachOnlyTheirReceiver) {
    auto sender = connect(), receiver = connect(), other = connect();
    std::string got;
    receiver->subscribe("", kPath, kInterface, [&](const BusSignal& signal) { got += signal.member; });
    other->subscribe("", kPath, kInterface,
                     [&](const BusSignal& signal) { got += "other" + std::string(signal.member); });
    ASSERT_TRUE(receiver->flush() && other->flush());
    emit(*sender, "A", {}, receiver->uniqueName());
    emit(*sender, "B", {});
    EXPECT_TRUE(pump([&] { return got.size() == 8; }));
    EXPECT_EQ(got.find('A'), got.rfind('A'));
    EXPECT_EQ(got.find("otherA"), std::string::npos);
}

TEST_F(BusSignals, ASubscriptionToAWellKnownNameFollowsItsOwner) {
    auto first = connect(), second = connect(), stranger = connect(), client = connect();
    BusError error;
    ASSERT_TRUE(first->requestName(kName, &error));
    std::string got;
    client->subscribe(kName, kPath, kInterface, [&](const BusSignal& signal) { got += signal.member; });
    client->subscribe("", kPath, kInterface, [](const BusSignal&) {});  // so that strangers' signals arrive too
    ASSERT_TRUE(client->flush());
    emit(*stranger, "x", {});
    ASSERT_TRUE(stranger->flush());
    emit(*first, "a", {});
    first->releaseName(kName);
    emit(*first, "y", {});
    ASSERT_TRUE(first->flush());
    ASSERT_TRUE(second->requestName(kName, &error));
    emit(*second, "b", {});
    EXPECT_TRUE(pump([&] { return got.find('b') != std::string::npos; }));
    EXPECT_EQ(got, "ab");
}

TEST_F(BusSignals, OnlyThePathAndInterfaceAskedFor) {
    auto bus = connect();
    std::string got;
    auto first = bus->subscribe("", kPath, kInterface, [&](const BusSignal& signal) { got += signal.member; });
    BusError error;
    EXPECT_TRUE(bus->emit("", "/other", kInterface, "x", {}, &error));
    EXPECT_TRUE(bus->emit("", kPath, "org.kavaro.Other", "y", {}, &error));
    emit(*bus, "a", {});
    EXPECT_TRUE(pump([&] { return got == "a"; }));
    bus->unsubscribe(first);
    bus->unsubscribe(first);
    bus->subscribe("", kPath, kInterface, [&](const BusSignal& signal) { got += "2" + std::string(signal.member); });
    emit(*bus, "b", {});
    EXPECT_TRUE(pump([&] { return got == "a2b"; }));
    EXPECT_EQ(bus->subscribe("bad name", kPath, kInterface, {}), 0u);
    EXPECT_EQ(bus->subscribe("", "bad", kInterface, {}), 0u);
    EXPECT_EQ(bus->subscribe("", kPath, "it's", {}), 0u);
    EXPECT_EQ(bus->subscribe("", kPath, kInterface, {}, "it's"), 0u);
}

TEST_F(BusSignals, OnlyTheMemberAskedFor) {
    auto bus = connect(), sender = connect();
    std::string one, all;
    bus->subscribe(
        "", kPath, kInterface, [&](const BusSignal& signal) { one += signal.member; }, "b");
    ASSERT_TRUE(bus->flush());
    for (const char* member : {"a", "b", "c"}) emit(*sender, member, {});
    EXPECT_TRUE(pump([&] { return !one.empty(); }));
    // With another subscription the bus passes all of them on, and each handler has its own.
    bus->subscribe("", kPath, kInterface, [&](const BusSignal& signal) { all += signal.member; });
    ASSERT_TRUE(bus->flush());
    for (const char* member : {"a", "b", "c"}) emit(*sender, member, {});
    EXPECT_TRUE(pump([&] { return all.size() == 3; }));
    EXPECT_EQ(all, "abc");
    EXPECT_EQ(one, "bb");
}

TEST_F(BusSignals, AHandlerMayEndItsOwnSubscription) {
    auto bus = connect();
    int calls = 0;
    std::uint64_t own = 0;
    bool last = false;
    own = bus->subscribe("", kPath, kInterface, [&, held = std::make_shared<int>(1)](const BusSignal&) {
        bus->unsubscribe(own);
        calls += *held;
    });
    bus->subscribe("", kPath, kInterface, [&](const BusSignal& signal) { last |= signal.member == "b"; });
    emit(*bus, "a", {});
    emit(*bus, "b", {});
    EXPECT_TRUE(pump([&] { return last; }));
    EXPECT_EQ(calls, 1);
}

TEST_F(BusSignals, WhatTheBusWouldPunishIsRefused) {
    auto bus = connect();
    BusError error;
    const std::vector<std::uint8_t> inlined(8u << 20, 1);
    const BusValue part = BusValue::data(inlined);
    BusValue::Dictionary parts;
    for (int i = 0; i < 7; ++i) parts.emplace_back(std::to_string(i), part);
    EXPECT_TRUE(bus->emit("", kPath, kInterface, "m", {BusValue::dictionary(parts)}, &error)) << error.message;
    parts.emplace_back("7", part);
    EXPECT_FALSE(bus->emit("", kPath, kInterface, "m", {BusValue::dictionary(parts)}, &error)) << "array over 64 MiB";
    EXPECT_TRUE(error.isSet());
    EXPECT_FALSE(bus->emit("", kPath, kInterface, "m", std::vector<BusValue>(15, part), &error)) << "over 120 MiB";
    EXPECT_TRUE(bus->emit("", kPath, kInterface, "m", std::vector<BusValue>(14, part), &error)) << error.message;
    const std::vector<BusValue> texts(10, BusValue::strings(std::vector<std::string>(1u << 20)));
    EXPECT_TRUE(bus->emit("", kPath, kInterface, "m", texts, &error)) << "10 x 8 MiB that GLib stores in 1 + 4 each";
    EXPECT_FALSE(bus->emit("", kPath, kInterface, "m", std::vector<BusValue>(300, BusValue::int32(1)), &error));
    EXPECT_FALSE(bus->emit("", kPath, kInterface, "m", {BusValue()}, &error));
    EXPECT_FALSE(bus->emit("", kPath, kInterface, "not a member", {}, &error));
    EXPECT_FALSE(bus->emit("b d", kPath, kInterface, "m", {}, &error));
    EXPECT_FALSE(bus->emit("", "", kInterface, "m", {}, &error));
    EXPECT_TRUE(bus->flush()) << "the bus has taken all of it";
    EXPECT_FALSE(bus->isClosed());
}

TEST_F(BusSignals, ManyThreadsMaySend) {
    auto sender = connect(), receiver = connect();
    constexpr int kThreads = 4, kEach = 200;
    std::vector<std::vector<std::int64_t>> seen(kThreads);
    int total = 0;
    receiver->subscribe(sender->uniqueName(), kPath, kInterface, [&](const BusSignal& signal) {
        seen[static_cast<std::size_t>(*signal.arguments[0].asInteger())].push_back(*signal.arguments[1].asInteger());
        ++total;
    });
    ASSERT_TRUE(receiver->flush());
    std::atomic<int> flushed{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            BusError error;
            for (int i = 0; i < kEach; ++i) {
                sender->emit("", kPath, kInterface, "m", {BusValue::int32(thread), BusValue::int32(i)}, &error);
            }
            if (sender->flush()) ++flushed;
        });
    }
    EXPECT_TRUE(pump([&] { return total == kThreads * kEach; }));
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(flushed, kThreads);
    for (const auto& numbers : seen) EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
}

}  // namespace
}  // namespace kavaro
