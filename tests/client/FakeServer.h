#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/TreeDelivery.h"
#include "platform/Bus.h"
#include "platform/RunLoop.h"
#include "support/ProtocolNames.h"

namespace kavaro {

extern const char* const kNodeFactoryServerIntrospection;

// A server that does what a test says, in the test's own process: it shares the run loop with the client.
class FakeServer {
  public:
    using Handler = std::function<BusReply(const BusCall&)>;

    // `handler` is asked about every call but versionInfo.
    FakeServer(const std::string& address, Handler handler) : _handler(std::move(handler)) {
        BusError error;
        _bus = Bus::open(address, &error);
        EXPECT_TRUE(_bus) << error.message;
        const auto answer = [this](const BusCall& call) {
            calls.emplace_back(call.member);
            if (call.member != "versionInfo") return _handler(call);
            if (onVersionInfo) onVersionInfo();
            return BusReply{{BusValue::dictionary({{"version", BusValue::string("1")}})}, {}};
        };
        EXPECT_TRUE(_bus->publish(bus::kServerPath, kNodeFactoryServerIntrospection, answer, &error)) << error.message;
        takeName();
    }

    void takeName() {
        BusError error;
        EXPECT_TRUE(_bus->requestName(bus::kServerName, &error)) << error.message;
    }
    void vanish() { _bus->releaseName(bus::kServerName); }
    bool wasAsked(std::string_view member) const {
        return std::find(calls.begin(), calls.end(), member) != calls.end();
    }

    void post(std::string_view name, const std::vector<BusValue>& arguments) {
        BusError error;
        EXPECT_TRUE(_bus->emit({}, bus::kNotificationPath, bus::kNotificationInterface, name, arguments, &error))
            << error.message;
    }
    void post(std::string_view name, const ByteBuffer& data) {
        post(name, {BusValue::string(kNotificationObject),
                    BusValue::dictionary({{std::string(kSerializedKey), BusValue::data(data.view())}})});
    }
    void postStarted(const TreeDelivery& delivery) { post(TuvNodeFactoryStartedNotification, delivery.startedBytes()); }
    void postResolved(const TreeDelivery& delivery, std::size_t begin, std::size_t end) {
        post(TuvNodeFactoryResolvedNotification, delivery.batch(begin, end));
    }
    void postCompleted(const TreeDelivery& delivery) {
        post(TuvNodeFactoryCompletedNotification, delivery.rootBytes());
    }
    void postStopped() {
        post(TuvNodeFactoryStoppedNotification, {BusValue::string(kNotificationObject), BusValue::dictionary({})});
    }

    std::vector<std::string> calls;
    std::function<void()> onVersionInfo;

  private:
    Handler _handler;
    std::unique_ptr<Bus> _bus;
};

}  // namespace kavaro
