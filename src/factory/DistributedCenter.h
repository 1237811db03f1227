#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "factory/NotificationUserInfo.h"
#include "platform/Bus.h"

namespace kavaro {

// Notifications to other processes.
class DistributedCenter {
  public:
    virtual ~DistributedCenter() = default;
    // Main thread. Delivered at once, in the order of posting. False, with the reason, when it could not be posted.
    virtual bool post(std::string_view name, std::string_view object, const NotificationUserInfo& userInfo,
                      std::string* error) = 0;
    // Any thread. Returns when everything posted so far has left the process.
    virtual void waitUntilWritten() = 0;
};

// Over the bus, as signals. Broadcast, unless receivers have been named: then to those alone. Main thread but for
// waitUntilWritten().
class BusDistributedCenter final : public DistributedCenter {
  public:
    explicit BusDistributedCenter(std::shared_ptr<Bus> bus) : _bus(std::move(bus)) {}
    bool post(std::string_view name, std::string_view object, const NotificationUserInfo& userInfo,
              std::string* error) override;
    void waitUntilWritten() override { _bus->flush(); }

    // From now on nothing is broadcast. The end of a job comes to this process too, which waits for it.
    void addressOnly();
    // Unique names; one named twice is kept once.
    void addReceiver(std::string_view uniqueName);
    // Forgets those who have left the bus. Asks the bus for each.
    bool hasReceivers();

  private:
    // From this number on those who left are forgotten before another one is added.
    static constexpr std::size_t kManyReceivers = 64;

    const std::shared_ptr<Bus> _bus;
    bool _addressed = false;
    std::vector<std::string> _receivers;
};

}  // namespace kavaro
