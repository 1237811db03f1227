#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BusFixture.h"

// The end of a connection, from either side.
namespace kavaro {
namespace {

using BusEnd = BusFixture;

TEST_F(BusEnd, TheProcessSurvivesTheDeathOfTheBus) {
    auto bus = connect();
    std::string order;
    BusError error;
    bus->onClosed([&] { order += "closed"; });
    publish(*bus, [](const BusCall&) -> BusReply {
        ADD_FAILURE() << "not reached";
        return {};
    });
    auto mute = connect();
    _daemon.suspend();
    bus->callAsync(mute->uniqueName(), kPath, kInterface, "nothing", {}, -1, [&](BusReply reply) {
        EXPECT_EQ(reply.error.name, "org.freedesktop.DBus.Error.Disconnected");
        order += "failed ";
    });
    _daemon.end();
    EXPECT_TRUE(pump([&] { return order.find("closed") != std::string::npos; }));
    EXPECT_EQ(order, "failed closed");
    EXPECT_TRUE(bus->isClosed());
    EXPECT_FALSE(bus->emit("", kPath, kInterface, "m", {}, &error));
    EXPECT_TRUE(error.isSet());
    EXPECT_FALSE(bus->flush());
    EXPECT_FALSE(bus->call(kName, kPath, kInterface, "m", {}, kLong).ok());
    EXPECT_EQ(bus->nameOwner(kName), "");
    bool failed = false;
    bus->callAsync(kName, kPath, kInterface, "m", {}, kLong, [&](BusReply reply) { failed = !reply.ok(); });
    EXPECT_TRUE(pump([&] { return failed; }));
}

TEST_F(BusEnd, FlushReturnsWhenTheBusDies) {
    auto bus = connect();
    _daemon.suspend();
    std::atomic<bool> started{false}, flushed{true};
    std::thread writer([&] {
        BusError error;
        const std::vector<std::uint8_t> bytes(1u << 20, 1);
        for (int i = 0; i < 8; ++i) bus->emit("", kPath, kInterface, "m", {BusValue::data(bytes)}, &error);
        started = true;
        RunLoop::main().performOnMain([] {});
        flushed = bus->flush();
    });
    EXPECT_TRUE(pump([&] { return started.load(); }));
    _daemon.end();
    writer.join();
    EXPECT_FALSE(flushed);
}

TEST_F(BusEnd, AWaitingCallReturnsWhenTheBusDies) {
    auto bus = connect(), mute = connect();
    std::atomic<bool> finished{false};
    BusReply reply;
    std::thread caller([&] {
        reply = bus->call(mute->uniqueName(), kPath, kInterface, "m", {}, -1);
        finished = true;
    });
    _daemon.end();
    caller.join();
    EXPECT_TRUE(finished);
    EXPECT_FALSE(reply.ok());
}

TEST_F(BusEnd, ABusMayGoWhileMessagesWait) {
    auto bus = connect(), other = connect();
    bool reached = false;
    bus->subscribe("", kPath, kInterface, [&](const BusSignal&) { reached = true; });
    publish(*bus, [&](const BusCall& call) {
        reached = true;
        return echo(call);
    });
    bus->callAsync(other->uniqueName(), kPath, kInterface, "nothing", {}, 0, [&](BusReply) { reached = true; });
    ASSERT_TRUE(bus->flush());
    for (int i = 0; i < 20; ++i) emit(*other, "m", {});
    bool answered = false;
    other->callAsync(bus->uniqueName(), kPath, kInterface, "nothing", {}, kLong, [&](BusReply) { answered = true; });
    ASSERT_TRUE(other->flush());
    ASSERT_TRUE(bus->flush());
    bus.reset();
    EXPECT_TRUE(pump([&] { return answered; }));
    EXPECT_FALSE(reached);
}

TEST_F(BusEnd, ABusMayGoInItsOwnHandlers) {
    auto signalled = connect(), called = connect(), replied = connect(), other = connect();
    signalled->subscribe("", kPath, kInterface, [&](const BusSignal&) { signalled.reset(); });
    signalled->subscribe("", kPath, kInterface, [&](const BusSignal&) { signalled.reset(); });
    emit(*signalled, "m", {});
    EXPECT_TRUE(pump([&] { return !signalled; }));
    publish(*called, [&](const BusCall&) {
        called.reset();
        return BusReply{};
    });
    EXPECT_FALSE(ask(*other, *called, "nothing", {}).ok());
    replied->callAsync(kName, kPath, kInterface, "m", {}, -1, [&](BusReply) { replied.reset(); });
    EXPECT_TRUE(pump([&] { return !replied; }));
}

TEST_F(BusEnd, ClosingDoesNotWaitForABusThatDoesNotRead) {
    auto bus = connect();
    _daemon.suspend();
    BusError error;
    const std::vector<std::uint8_t> bytes(4u << 20, 1);
    for (int i = 0; i < 4; ++i) bus->emit("", kPath, kInterface, "m", {BusValue::data(bytes)}, &error);
    bool closed = false, failed = false;
    bus->onClosed([&] { closed = true; });
    bus->callAsync(kName, kPath, kInterface, "m", {}, -1, [&](BusReply reply) { failed = !reply.ok(); });
    bus->close();
    bus->close();
    EXPECT_TRUE(bus->isClosed());
    EXPECT_TRUE(pump([&] { return failed; }));
    EXPECT_FALSE(closed);
    bus.reset();
}

}  // namespace
}  // namespace kavaro
