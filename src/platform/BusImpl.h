#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/Bus.h"
#include "platform/BusMessage.h"
#include "platform/GlibHandles.h"
#include "platform/Mutex.h"
#include "platform/RunLoop.h"

namespace kavaro {

inline constexpr char kBusName[] = "org.freedesktop.DBus";
inline constexpr char kBusPath[] = "/org/freedesktop/DBus";

inline constexpr char kErrorFailed[] = "org.freedesktop.DBus.Error.Failed";
inline constexpr char kErrorNoReply[] = "org.freedesktop.DBus.Error.NoReply";
inline constexpr char kErrorDisconnected[] = "org.freedesktop.DBus.Error.Disconnected";
inline constexpr char kErrorInvalidArgs[] = "org.freedesktop.DBus.Error.InvalidArgs";
inline constexpr char kErrorLimits[] = "org.freedesktop.DBus.Error.LimitsExceeded";
inline constexpr char kErrorUnknownObject[] = "org.freedesktop.DBus.Error.UnknownObject";
inline constexpr char kErrorUnknownMethod[] = "org.freedesktop.DBus.Error.UnknownMethod";
inline constexpr char kErrorNoServer[] = "org.freedesktop.DBus.Error.NoServer";

// GLib hands objects from thread to thread under locks of its own, which a thread sanitizer does not see. Whoever hands
// over or takes calls this, so that it sees the order.
void noteHandOver();

BusError busErrorOf(const GError* error);
BusReply busReplyOf(GDBusMessage* message);  // of an answer, also an error; takes the files out of it

// One call of a published object. It is answered at most once; dropping it leaves the caller without an answer.
class BusInvocation {
  public:
    explicit BusInvocation(GDBusMethodInvocation* invocation) : _invocation(invocation) {}  // takes it over
    ~BusInvocation();
    BusInvocation(const BusInvocation&) = delete;
    BusInvocation& operator=(const BusInvocation&) = delete;

    GDBusMethodInvocation* get() const { return _invocation; }
    void answer(const BusReply& reply, const BusLimits& limits);

  private:
    void fail(const BusError& error);
    GDBusMethodInvocation* _invocation;
};

// For sources of platform only. Everything that arrives is handed by GLib's thread to the run loop's queue, which
// keeps the order; what is queued there holds this weakly, so that a Bus may go while messages wait.
struct Bus::Impl : std::enable_shared_from_this<Impl> {
    struct Subscription {
        std::string sender, path, interface, member, rule;
        std::shared_ptr<SignalHandler> handler;
    };
    struct Published {
        std::vector<guint> registrations;
        std::shared_ptr<LateCallHandler> handler;
    };
    // The owner of a well-known name, as of the signal that is being delivered.
    struct TrackedName {
        std::string owner;
        std::vector<std::shared_ptr<std::function<void(const std::string&)>>> handlers;
    };
    struct PendingCall {
        ReplyHandler handler;
        RunLoop::TimerID timer = 0;
        bool arrived = false;  // the answer waits in the queue: too late for the timer
    };

    // Main thread.
    void start();
    void shutDown();
    void deliverSignal(GDBusMessage* message);
    void deliverReply(guint32 serial, GDBusMessage* message);
    void deliverCall(const std::string& path, const std::shared_ptr<BusInvocation>& invocation);
    void connectionEnded();
    void expire(guint32 serial);
    void nameOwnerChanged(const std::vector<BusValue>& arguments);
    bool fits(const Subscription& subscription, GDBusMessage* message) const;
    void trackName(const std::string& name);
    void sendToBus(const char* member, const std::string& text);  // no answer wanted
    void unregister(const Published& object);
    BusReply callBus(const char* member, const std::vector<BusValue>& arguments);

    // Any thread.
    GlibRef<GDBusMessage> newCall(std::string_view destination, std::string_view path, std::string_view interface,
                                  std::string_view member, const std::vector<BusValue>& arguments, double seconds,
                                  BusError* error);
    bool setBody(GDBusMessage* message, const std::vector<BusValue>& arguments, BusError* error);
    BusReply sendAndWait(GDBusMessage* message, double seconds);

    // GLib's thread. Takes the message over; true when it went to the queue.
    bool takeIncoming(GDBusMessage* message);

    // Constant after open().
    GlibRef<GDBusConnection> connection;
    BusLimits limits{};
    std::string uniqueName;
    guint filter = 0;
    gulong closedSignal = 0;

    // Main thread.
    bool closedByUs = false;
    std::function<void()> closedHandler;
    std::map<std::uint64_t, Subscription> subscriptions;
    std::uint64_t lastSubscription = 0;
    std::map<std::string, Published, std::less<>> published;
    std::map<std::string, TrackedName, std::less<>> trackedNames;

    // Held while a call is sent, so that its answer finds it here.
    Mutex mutex;
    std::map<guint32, PendingCall> pending KAVARO_GUARDED_BY(mutex);
};

}  // namespace kavaro
