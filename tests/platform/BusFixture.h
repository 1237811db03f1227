#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "PrivateBus.h"
#include "platform/Bus.h"
#include "platform/RunLoop.h"

namespace kavaro {

inline constexpr double kLong = 60;  // seconds; never waited for unless something is broken

inline constexpr char kPath[] = "/org/kavaro/test";
inline constexpr char kInterface[] = "org.kavaro.Test";
inline constexpr char kName[] = "org.kavaro.test.name";

inline constexpr char kXml[] = R"(<node><interface name="org.kavaro.Test">
  <method name="echo">
    <arg type="s" direction="in"/><arg type="i" direction="in"/><arg type="u" direction="in"/>
    <arg type="b" direction="in"/><arg type="d" direction="in"/><arg type="ay" direction="in"/>
    <arg type="aay" direction="in"/><arg type="as" direction="in"/><arg type="au" direction="in"/>
    <arg type="v" direction="in"/><arg type="a{sv}" direction="in"/>
    <arg type="s" direction="out"/><arg type="i" direction="out"/><arg type="u" direction="out"/>
    <arg type="b" direction="out"/><arg type="d" direction="out"/><arg type="ay" direction="out"/>
    <arg type="aay" direction="out"/><arg type="as" direction="out"/><arg type="au" direction="out"/>
    <arg type="v" direction="out"/><arg type="a{sv}" direction="out"/>
  </method>
  <method name="pass"><arg type="v" direction="in"/><arg type="v" direction="out"/></method>
  <method name="nothing"/>
</interface></node>)";

inline std::vector<std::uint8_t> pattern(std::size_t size, unsigned seed) {
    std::vector<std::uint8_t> bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 31 + (i >> 11) + seed);
    return bytes;
}

inline bool sameBytes(const std::optional<BusData>& data, const std::vector<std::uint8_t>& bytes) {
    return data && std::equal(data->view().begin(), data->view().end(), bytes.begin(), bytes.end());
}

inline BusReply echo(const BusCall& call) {
    return {call.arguments, {}};
}

// A private bus, and connections to it that all live in this process and share its run loop.
class BusFixture : public testing::Test {
  protected:
    std::unique_ptr<Bus> connect() {
        BusError error;
        std::unique_ptr<Bus> bus = Bus::open(_daemon.address(), &error);
        EXPECT_TRUE(bus) << error.message;
        return bus;
    }
    static bool pump(const std::function<bool()>& done) { return RunLoop::main().runUntil(done, kLong); }
    static void publish(Bus& bus, Bus::CallHandler handler) {
        BusError error;
        EXPECT_TRUE(bus.publish(kPath, kXml, std::move(handler), &error)) << error.message;
    }
    static BusReply ask(Bus& from, Bus& to, std::string_view member, const std::vector<BusValue>& arguments) {
        BusReply result;
        bool answered = false;
        from.callAsync(to.uniqueName(), kPath, kInterface, member, arguments, kLong, [&](BusReply reply) {
            result = std::move(reply);
            answered = true;
        });
        EXPECT_TRUE(pump([&] { return answered; }));
        return result;
    }
    static bool emit(Bus& bus, std::string_view member, const std::vector<BusValue>& arguments,
                     std::string_view destination = {}) {
        BusError error;
        bool queued = bus.emit(destination, kPath, kInterface, member, arguments, &error);
        EXPECT_EQ(queued, !error.isSet()) << error.message;
        return queued;
    }

    PrivateBus _daemon;
};

}  // namespace kavaro
