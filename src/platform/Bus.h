#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/BusValue.h"

namespace kavaro {

struct BusError {
    std::string name;     // D-Bus error name, for example "org.freedesktop.DBus.Error.NoReply"
    std::string message;  // for people
    bool isSet() const { return !name.empty(); }
};

struct BusReply {
    std::vector<BusValue> values;
    BusError error;
    bool ok() const { return !error.isSet(); }
};

struct BusCall {
    std::string_view member;
    std::string_view sender;  // unique name
    const std::vector<BusValue>& arguments;
    bool mayAskUser = false;  // the caller waits as long as somebody takes to allow the call
};

struct BusSignal {
    std::string_view member;
    std::string_view sender;  // unique name
    const std::vector<BusValue>& arguments;
};

// A connection to a message bus. Made and destroyed on the main thread; handlers run there, while RunLoop runs.
// Signals and replies are handled in the order in which they arrived, calls in their own order and after the signals
// that came before them. What is posted is queued without limit and written by a thread of the library. The process
// survives the end of the connection. Destroying a Bus, also from a handler, drops every handler uncalled.
class Bus {
  public:
    using CallHandler = std::function<BusReply(const BusCall&)>;
    // Main thread. Only the first answer counts. When all copies are gone unanswered, so is the caller's hope.
    using Answer = std::function<void(const BusReply&)>;
    // As a CallHandler, for what cannot be answered at once. The call is there until the handler returns.
    using LateCallHandler = std::function<void(const BusCall&, Answer)>;
    using SignalHandler = std::function<void(const BusSignal&)>;
    using ReplyHandler = std::function<void(BusReply)>;

    // kind: "session", "system", or an address such as "unix:path=/run/bus". Null on failure, also when the bus does
    // not answer within `seconds`. Never starts a bus.
    static std::unique_ptr<Bus> open(std::string_view kind, BusError* error, double seconds = 10);
    ~Bus();

    std::string uniqueName() const;
    bool isClosed() const;  // any thread
    // Called after all that came before the end, and after unanswered calls have failed; not when close() ended it.
    void onClosed(std::function<void()> handler);

    // False when the name is taken (error left unset) or the bus refuses (error set). Never waits in a queue.
    bool requestName(std::string_view name, BusError* error);
    void releaseName(std::string_view name);
    // Unique name of the owner, empty when there is none. Does not start a service.
    std::string nameOwner(std::string_view name);
    // Called each time the name's owner changes; the argument is the new owner, empty for none.
    void watchName(std::string_view name, std::function<void(const std::string& owner)> handler);
    // User id of a peer by unique name; nothing when it is unknown.
    std::optional<std::uint32_t> userOf(std::string_view uniqueName);

    // Publishes an object. `introspection` is the XML of a <node> with the interface; calls that do not fit it are
    // refused before the handler sees them. The handler's error becomes a D-Bus error.
    bool publish(std::string_view path, std::string_view introspection, CallHandler handler, BusError* error);
    bool publish(std::string_view path, std::string_view introspection, LateCallHandler handler, BusError* error);
    void unpublish(std::string_view path);

    // Signals of an interface, from any sender (this one too) unless `sender`, a unique or a well-known name, is given.
    // With a `member` that one alone: the bus does not even pass the others on. Takes effect when the bus has read it:
    // flush() tells. 0 when an argument is not valid.
    std::uint64_t subscribe(std::string_view sender, std::string_view path, std::string_view interface,
                            SignalHandler handler, std::string_view member = {});
    void unsubscribe(std::uint64_t subscription);

    // Any thread. Queues a signal; an empty destination broadcasts. False, with the reason, when the message is too
    // large for the bus or the connection is closed.
    bool emit(std::string_view destination, std::string_view path, std::string_view interface, std::string_view member,
              const std::vector<BusValue>& arguments, BusError* error);
    // Any thread. Returns when the bus has read everything queued so far (true), the connection is closed, or the
    // seconds are over. The bus may not read for long, for example because a receiver does not keep up. Seconds < 0: no
    // limit.
    bool flush(double seconds = -1);

    // Any thread. Waits for the reply without running the loop. Never starts a service. Seconds < 0: no limit, so that
    // somebody may be asked to allow the call.
    BusReply call(std::string_view destination, std::string_view path, std::string_view interface,
                  std::string_view member, const std::vector<BusValue>& arguments, double seconds);
    // Main thread. The handler runs once, after the signals that came before the reply, and always later than this.
    // Never starts a service. Seconds < 0: as above.
    void callAsync(std::string_view destination, std::string_view path, std::string_view interface,
                   std::string_view member, const std::vector<BusValue>& arguments, double seconds,
                   ReplyHandler handler);

    // Drops what has not been written yet (flush() first) and fails the unanswered calls.
    void close();

    struct Impl;  // platform's own

  private:
    Bus();
    std::shared_ptr<Impl> _impl;
};

}  // namespace kavaro
