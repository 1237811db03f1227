#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Bus.h"

namespace kavaro {

// Who may call the server. On a session bus every peer is the same user and everybody may. On the system bus the
// caller's user, as the bus tells it, must be root. Main thread.
class CallAuthority {
  public:
    static std::unique_ptr<CallAuthority> forBus(std::string_view kind, std::shared_ptr<Bus> bus);

    // The error to answer with; unset when the call is allowed.
    BusError refusal(const BusCall& call);
    bool isRestricted() const { return _restricted; }

  private:
    CallAuthority(bool restricted, std::shared_ptr<Bus> bus) : _restricted(restricted), _bus(std::move(bus)) {}
    const bool _restricted;
    const std::shared_ptr<Bus> _bus;
};

}  // namespace kavaro
