#include "server/CallAuthority.h"

namespace kavaro {

std::unique_ptr<CallAuthority> CallAuthority::forBus(std::string_view kind, std::shared_ptr<Bus> bus) {
    return std::unique_ptr<CallAuthority>(new CallAuthority(kind == "system", std::move(bus)));
}

BusError CallAuthority::refusal(const BusCall& call) {
    if (!_restricted) return {};
    const auto user = _bus->userOf(call.sender);
    if (user && *user == 0) return {};
    return {"org.freedesktop.DBus.Error.AccessDenied",
            "only the administrator may call the system's sizing server; use the session bus, or sudo"};
}

}  // namespace kavaro
