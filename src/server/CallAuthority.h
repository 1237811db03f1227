#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Bus.h"

namespace kavaro {

// Who may call the server. On a bus of one user every peer is that user, and everybody may. On a bus that users share,
// as the system bus is, each call is decided by what the bus knows of its caller: polkit, where it runs, is asked for
// the action that stands for the call's risk; without it root alone may call. Main thread, which never waits for an
// answer here. The calls of one caller are decided one after another, in their order.
class CallAuthority {
  public:
    enum class Risk { readSizes, remove, shutDown };
    // Called once, unless this object goes before; the error to answer with, unset when the call is allowed.
    using Decision = std::function<void(const BusError& refusal)>;

    // `kind` is what the bus was opened as.
    static std::unique_ptr<CallAuthority> forBus(std::string_view kind, std::shared_ptr<Bus> bus);
    ~CallAuthority() { *_self = nullptr; }
    CallAuthority(const CallAuthority&) = delete;
    CallAuthority& operator=(const CallAuthority&) = delete;

    bool isRestricted() const { return _restricted; }
    // At once where nothing is restricted.
    void decide(const BusCall& call, Decision decision);

    // A member that is not known counts as the worst.
    static Risk riskOf(std::string_view member);
    // Of the action in packaging/polkit; do not change.
    static std::string_view actionOf(Risk risk);

    // Calls of one caller that may wait at a time; more are refused.
    static constexpr std::size_t kMostWaiting = 100;

  private:
    struct Request {
        Risk risk;
        bool mayAskUser;
        Decision decision;
        bool triedToStart = false;  // the authority, for this request
    };
    using Handler = void (CallAuthority::*)(const std::string& caller, const BusReply& reply);

    CallAuthority(bool restricted, std::shared_ptr<Bus> bus) : _restricted(restricted), _bus(std::move(bus)) {}
    static bool isShared(std::string_view kind, Bus& bus);
    void call(std::string_view destination, std::string_view path, std::string_view member,
              const std::vector<BusValue>& arguments, double seconds, const std::string& caller, Handler handler);
    void askAuthority(const std::string& caller);
    void noteVerdict(const std::string& caller, const BusReply& reply);
    void noteStart(const std::string& caller, const BusReply& reply);
    void askForRoot(const std::string& caller);
    void noteUser(const std::string& caller, const BusReply& reply);
    void settle(const std::string& caller, const BusError& refusal);

    const bool _restricted;
    const std::shared_ptr<Bus> _bus;
    std::map<std::string, std::deque<Request>> _waiting;  // by caller; what is asked for is in front
    // Replies that come when this is gone find null here.
    const std::shared_ptr<CallAuthority*> _self = std::make_shared<CallAuthority*>(this);
};

}  // namespace kavaro
