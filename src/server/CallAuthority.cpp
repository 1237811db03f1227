#include "server/CallAuthority.h"

#include <array>
#include <cstdint>
#include <optional>
#include <utility>

#include "server/ServerLog.h"

namespace kavaro {

namespace {

constexpr std::string_view kBus = "org.freedesktop.DBus";
constexpr std::string_view kBusPath = "/org/freedesktop/DBus";
constexpr std::string_view kAuthority = "org.freedesktop.PolicyKit1";
constexpr std::string_view kAuthorityPath = "/org/freedesktop/PolicyKit1/Authority";
constexpr std::string_view kAuthorityInterface = "org.freedesktop.PolicyKit1.Authority";

constexpr double kAnswerSeconds = 25;
constexpr double kNoLimit = -1;  // somebody types a password
constexpr std::uint32_t kMayAskUser = 1;

constexpr const char* kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";

bool isAbsence(const BusError& error) {
    return error.name == "org.freedesktop.DBus.Error.NameHasNoOwner" ||
           error.name == "org.freedesktop.DBus.Error.ServiceUnknown";
}

}  // namespace

std::unique_ptr<CallAuthority> CallAuthority::forBus(std::string_view kind, std::shared_ptr<Bus> bus) {
    const bool restricted = isShared(kind, *bus);
    return std::unique_ptr<CallAuthority>(new CallAuthority(restricted, std::move(bus)));
}

// A bus that is run by somebody else than who joins it is no bus of one user, by whatever address it was reached. Both
// are asked for as the bus sees them.
bool CallAuthority::isShared(std::string_view kind, Bus& bus) {
    if (kind == "system") return true;
    const auto runner = bus.userOf(kBus);
    const auto own = bus.userOf(bus.uniqueName());
    return runner && own ? *runner != *own : kind != "session";
}

CallAuthority::Risk CallAuthority::riskOf(std::string_view member) {
    static constexpr std::array<std::string_view, 8> kReading = {"startWorkingAtPath",
                                                                 "startWorkingAtPathParentInodes",
                                                                 "prioritizeNodeWithInodePath",
                                                                 "hasFileSytemChanged",
                                                                 "stopSizing",
                                                                 "lipoNodesInfo",
                                                                 "fileDuplicatesHeader",
                                                                 "versionInfo"};
    if (member == "shutdownServer") return Risk::shutDown;
    for (std::string_view reading : kReading)
        if (member == reading) return Risk::readSizes;
    return Risk::remove;
}

std::string_view CallAuthority::actionOf(Risk risk) {
    switch (risk) {
        case Risk::readSizes:
            return "org.kavaro.Kavaro.read-sizes";
        case Risk::shutDown:
            return "org.kavaro.Kavaro.shut-down";
        case Risk::remove:
            break;
    }
    return "org.kavaro.Kavaro.remove";
}

void CallAuthority::decide(const BusCall& call, Decision decision) {
    if (!_restricted) return decision({});
    const std::string caller(call.sender);
    std::deque<Request>& requests = _waiting[caller];
    if (requests.size() >= kMostWaiting)
        return decision({"org.freedesktop.DBus.Error.LimitsExceeded", "too many of your calls wait to be allowed"});
    requests.push_back({riskOf(call.member), call.mayAskUser, std::move(decision)});
    if (requests.size() == 1) askAuthority(caller);
}

void CallAuthority::call(std::string_view destination, std::string_view path, std::string_view member,
                         const std::vector<BusValue>& arguments, double seconds, const std::string& caller,
                         Handler handler) {
    const std::string_view interface = destination == kBus ? kBus : kAuthorityInterface;
    _bus->callAsync(destination, path, interface, member, arguments, seconds,
                    [self = _self, caller, handler](const BusReply& reply) {
                        if (*self) ((*self)->*handler)(caller, reply);
                    });
}

void CallAuthority::askAuthority(const std::string& caller) {
    const Request& request = _waiting[caller].front();
    const BusValue subject = BusValue::structure(
        {BusValue::string("system-bus-name"), BusValue::dictionary({{"name", BusValue::string(caller)}})});
    call(kAuthority, kAuthorityPath, "CheckAuthorization",
         {subject, BusValue::string(actionOf(request.risk)), BusValue::texts({}),
          BusValue::uint32(request.mayAskUser ? kMayAskUser : 0), BusValue::string("")},
         request.mayAskUser ? kNoLimit : kAnswerSeconds, caller, &CallAuthority::noteVerdict);
}

// The answer is (is_authorized, is_challenge, details).
void CallAuthority::noteVerdict(const std::string& caller, const BusReply& reply) {
    Request& request = _waiting[caller].front();
    if (isAbsence(reply.error)) {
        // It may be there without having been needed so far.
        if (std::exchange(request.triedToStart, true)) return askForRoot(caller);
        return call(kBus, kBusPath, "StartServiceByName", {BusValue::string(kAuthority), BusValue::uint32(0)},
                    kAnswerSeconds, caller, &CallAuthority::noteStart);
    }
    const auto verdict = reply.values.empty() ? std::nullopt : reply.values[0].asStructure();
    if (!verdict || verdict->size() < 2) {
        TuvLog::error(serverLog, "noteVerdict", "The authority does not decide, so only root may call: %@",
                      reply.ok() ? "no verdict" : reply.error.message);
        return askForRoot(caller);
    }
    if ((*verdict)[0].asInteger() == 1) return settle(caller, {});
    const std::string action(actionOf(request.risk));
    if ((*verdict)[1].asInteger() == 1 && !request.mayAskUser)
        return settle(caller, {"org.freedesktop.DBus.Error.InteractiveAuthorizationRequired",
                               "the call needs a password for " + action + ", and may not ask for it"});
    settle(caller, {kAccessDenied, "you are not allowed " + action});
}

void CallAuthority::noteStart(const std::string& caller, const BusReply& reply) {
    if (reply.ok()) return askAuthority(caller);
    askForRoot(caller);
}

void CallAuthority::askForRoot(const std::string& caller) {
    call(kBus, kBusPath, "GetConnectionUnixUser", {BusValue::string(caller)}, kAnswerSeconds, caller,
         &CallAuthority::noteUser);
}

void CallAuthority::noteUser(const std::string& caller, const BusReply& reply) {
    if (!reply.values.empty() && reply.values[0].asInteger() == 0) return settle(caller, {});
    settle(caller,
           {kAccessDenied, "only the administrator may call the system's sizing server; use the session bus, or sudo"});
}

// The request stays in front while its call is served: what comes meanwhile waits behind it.
void CallAuthority::settle(const std::string& caller, const BusError& refusal) {
    const auto found = _waiting.find(caller);
    const Decision decision = std::move(found->second.front().decision);
    const auto self = _self;
    decision(refusal);
    if (!*self) return;
    found->second.pop_front();
    if (!found->second.empty()) return askAuthority(caller);
    _waiting.erase(found);
}

}  // namespace kavaro
