#include "platform/Bus.h"

#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <tuple>
#include <utility>

#include "platform/BusImpl.h"

namespace kavaro {

namespace {

// A message of 128 MiB or a default of 32 MiB (system bus) is where the bus closes the connection; the kernel passes
// at most 253 files at once, the system bus 16.
constexpr BusLimits kSessionLimits = {120u << 20, 253};
constexpr BusLimits kSystemLimits = {30u << 20, 16};

constexpr double kAnswerOfBus = 25;  // seconds

constexpr guint32 kDoNotQueue = 4;
constexpr std::int64_t kPrimaryOwner = 1, kAlreadyOwner = 4;

// Cancels an operation of the calling thread that takes too long.
class Watchdog {
  public:
    explicit Watchdog(double seconds) : _cancellable(g_cancellable_new()) {
        _thread = std::thread([this, seconds] {
            std::unique_lock lock(_mutex);
            if (!_finished.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return _done; })) {
                g_cancellable_cancel(_cancellable.get());
            }
        });
    }
    ~Watchdog() {
        {
            std::lock_guard lock(_mutex);
            _done = true;
        }
        _finished.notify_one();
        _thread.join();
    }
    GCancellable* cancellable() const { return _cancellable.get(); }

  private:
    GlibRef<GCancellable> _cancellable;
    std::mutex _mutex;
    std::condition_variable _finished;
    bool _done = false;
    std::thread _thread;
};

// The address of a kind of bus. GLib's own search would start a bus where there is none.
std::string addressOf(std::string_view kind, BusError* error) {
    if (kind == "system") {
        const char* set = getenv("DBUS_SYSTEM_BUS_ADDRESS");
        return set && *set ? set : "unix:path=/run/dbus/system_bus_socket";
    }
    std::string address(kind);
    if (kind == "session") {
        const char* set = getenv("DBUS_SESSION_BUS_ADDRESS");
        const char* folder = getenv("XDG_RUNTIME_DIR");
        std::string socket = std::string(folder && *folder ? folder : "/nonexistent") + "/bus";
        if (set && *set) {
            address = set;
        } else if (access(socket.c_str(), F_OK) == 0) {
            char* escaped = g_dbus_address_escape_value(socket.c_str());
            address = std::string("unix:path=") + escaped;
            g_free(escaped);
        } else {
            *error = {kErrorNoServer, "there is no session bus: DBUS_SESSION_BUS_ADDRESS is not set"};
            return {};
        }
    }
    if (address.empty()) *error = {kErrorInvalidArgs, "there is no bus address"};
    if (address.find("autolaunch:") != std::string::npos) {
        *error = {kErrorNoServer, "the bus address \"" + address + "\" would start a bus"};
        return {};
    }
    return address;
}

gint milliseconds(double seconds) {
    if (seconds < 0) return G_MAXINT;
    return static_cast<gint>(std::clamp(std::ceil(seconds * 1000), 1.0, static_cast<double>(G_MAXINT)));
}

std::string ruleOf(const std::string& sender, const std::string& path, const std::string& interface,
                   const std::string& member) {
    std::string rule = "type='signal',path='" + path + "',interface='" + interface + "'";
    if (!sender.empty()) rule += ",sender='" + sender + "'";
    if (!member.empty()) rule += ",member='" + member + "'";
    return rule;
}

}  // namespace

Bus::Bus() : _impl(std::make_shared<Impl>()) {}

Bus::~Bus() {
    _impl->shutDown();
}

std::unique_ptr<Bus> Bus::open(std::string_view kind, BusError* error, double seconds) {
    RunLoop::main();
    std::string address = addressOf(kind, error);
    if (address.empty()) return nullptr;
    ErrorSlot slot;
    GDBusConnection* connection = nullptr;
    if (g_dbus_is_supported_address(address.c_str(), slot)) {
        auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                       G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        Watchdog watchdog(seconds);
        connection =
            g_dbus_connection_new_for_address_sync(address.c_str(), flags, nullptr, watchdog.cancellable(), slot);
    }
    if (!connection) {
        *error = {kErrorNoServer, slot.message()};
        if (g_error_matches(slot.get(), G_IO_ERROR, G_IO_ERROR_CANCELLED)) error->message = "the bus does not answer";
        return nullptr;
    }
    g_dbus_connection_set_exit_on_close(connection, FALSE);
    std::unique_ptr<Bus> bus(new Bus);
    bus->_impl->connection.reset(connection);
    bus->_impl->limits = kind == "system" ? kSystemLimits : kSessionLimits;
    if (!(g_dbus_connection_get_capabilities(connection) & G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING)) {
        bus->_impl->limits.files = 0;
    }
    bus->_impl->start();
    return bus;
}

void Bus::Impl::shutDown() {
    closedByUs = true;
    g_signal_handler_disconnect(connection.get(), closedSignal);
    g_dbus_connection_remove_filter(connection.get(), filter);
    for (auto& [path, object] : published) unregister(object);
    g_dbus_connection_close_sync(connection.get(), nullptr, nullptr);
    std::map<guint32, PendingCall> unanswered;
    {
        MutexLock lock(mutex);
        unanswered.swap(pending);
    }
    for (auto& [serial, call] : unanswered) RunLoop::main().cancel(call.timer);
    // What the handlers hold goes here, on the main thread, and may come back into this object.
    auto handlers = std::make_tuple(std::exchange(published, {}), std::exchange(subscriptions, {}),
                                    std::exchange(trackedNames, {}), std::exchange(closedHandler, nullptr));
}

void Bus::close() {
    _impl->closedByUs = true;
    g_dbus_connection_close_sync(_impl->connection.get(), nullptr, nullptr);
}

std::string Bus::uniqueName() const {
    return _impl->uniqueName;
}

bool Bus::isClosed() const {
    return g_dbus_connection_is_closed(_impl->connection.get());
}

void Bus::onClosed(std::function<void()> handler) {
    _impl->closedHandler = std::move(handler);
}

bool Bus::Impl::setBody(GDBusMessage* message, const std::vector<BusValue>& arguments, BusError* error) {
    BusBody body;
    std::string reason;
    if (!packBody(arguments, limits, &body, &reason)) {
        *error = {kErrorLimits, std::move(reason)};
        return false;
    }
    g_dbus_message_set_body(message, body.tuple.get());
    if (body.files) g_dbus_message_set_unix_fd_list(message, body.files.get());
    return true;
}

GlibRef<GDBusMessage> Bus::Impl::newCall(std::string_view destination, std::string_view path,
                                         std::string_view interface, std::string_view member,
                                         const std::vector<BusValue>& arguments, double seconds, BusError* error) {
    const std::string to(destination), object(path), group(interface), name(member);
    if (!g_dbus_is_name(to.c_str()) || !g_variant_is_object_path(object.c_str()) ||
        !g_dbus_is_interface_name(group.c_str()) || !g_dbus_is_member_name(name.c_str())) {
        *error = {kErrorInvalidArgs, "not a valid call: " + to + " " + object + " " + group + "." + name};
        return nullptr;
    }
    GlibRef<GDBusMessage> message(
        g_dbus_message_new_method_call(to.c_str(), object.c_str(), group.c_str(), name.c_str()));
    const int mayAskUser = seconds < 0 ? G_DBUS_MESSAGE_FLAGS_ALLOW_INTERACTIVE_AUTHORIZATION : 0;
    g_dbus_message_set_flags(message.get(),
                             static_cast<GDBusMessageFlags>(G_DBUS_MESSAGE_FLAGS_NO_AUTO_START | mayAskUser));
    if (!setBody(message.get(), arguments, error)) return nullptr;
    return message;
}

BusReply Bus::Impl::sendAndWait(GDBusMessage* message, double seconds) {
    ErrorSlot slot;
    GlibRef<GDBusMessage> answer(g_dbus_connection_send_message_with_reply_sync(
        connection.get(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, milliseconds(seconds), nullptr, nullptr, slot));
    noteHandOver();
    return answer ? busReplyOf(answer.get()) : BusReply{{}, busErrorOf(slot.get())};
}

BusReply Bus::Impl::callBus(const char* member, const std::vector<BusValue>& arguments) {
    BusError error;
    GlibRef<GDBusMessage> message = newCall(kBusName, kBusPath, kBusName, member, arguments, kAnswerOfBus, &error);
    return message ? sendAndWait(message.get(), kAnswerOfBus) : BusReply{{}, error};
}

void Bus::Impl::sendToBus(const char* member, const std::string& text) {
    BusError error;
    GlibRef<GDBusMessage> message =
        newCall(kBusName, kBusPath, kBusName, member, {BusValue::string(text)}, kAnswerOfBus, &error);
    if (!message) return;
    g_dbus_message_set_flags(message.get(), G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    g_dbus_connection_send_message(connection.get(), message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
}

bool Bus::requestName(std::string_view name, BusError* error) {
    BusReply reply = _impl->callBus("RequestName", {BusValue::string(name), BusValue::uint32(kDoNotQueue)});
    if (!reply.ok() || reply.values.empty()) {
        *error = reply.ok() ? BusError{kErrorFailed, "the bus gave no answer"} : reply.error;
        return false;
    }
    std::int64_t answer = reply.values[0].asInteger().value_or(0);
    return answer == kPrimaryOwner || answer == kAlreadyOwner;
}

void Bus::releaseName(std::string_view name) {
    _impl->callBus("ReleaseName", {BusValue::string(name)});
}

std::string Bus::nameOwner(std::string_view name) {
    BusReply reply = _impl->callBus("GetNameOwner", {BusValue::string(name)});
    return reply.values.empty() ? std::string() : reply.values[0].asString().value_or("");
}

std::optional<std::uint32_t> Bus::userOf(std::string_view uniqueName) {
    BusReply reply = _impl->callBus("GetConnectionUnixUser", {BusValue::string(uniqueName)});
    if (reply.values.empty()) return std::nullopt;
    std::optional<std::int64_t> user = reply.values[0].asInteger();
    return user ? std::optional<std::uint32_t>(static_cast<std::uint32_t>(*user)) : std::nullopt;
}

void Bus::Impl::trackName(const std::string& name) {
    if (trackedNames.contains(name)) return;
    trackedNames[name];
    sendToBus("AddMatch",
              "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
              "member='NameOwnerChanged',arg0='" +
                  name + "'");
}

void Bus::watchName(std::string_view name, std::function<void(const std::string& owner)> handler) {
    const std::string watched(name);
    if (!g_dbus_is_name(watched.c_str())) return;
    _impl->trackName(watched);
    _impl->trackedNames[watched].handlers.push_back(
        std::make_shared<std::function<void(const std::string&)>>(std::move(handler)));
}

std::uint64_t Bus::subscribe(std::string_view sender, std::string_view path, std::string_view interface,
                             SignalHandler handler, std::string_view member) {
    Impl::Subscription subscription;
    subscription.sender = sender;
    subscription.path = path;
    subscription.interface = interface;
    subscription.member = member;
    const char* from = subscription.sender.c_str();
    if ((!sender.empty() && !g_dbus_is_name(from)) || !g_variant_is_object_path(subscription.path.c_str()) ||
        !g_dbus_is_interface_name(subscription.interface.c_str()) ||
        (!member.empty() && !g_dbus_is_member_name(subscription.member.c_str()))) {
        return 0;
    }
    subscription.rule = ruleOf(subscription.sender, subscription.path, subscription.interface, subscription.member);
    subscription.handler = std::make_shared<SignalHandler>(std::move(handler));
    if (!sender.empty() && !g_dbus_is_unique_name(from) && sender != kBusName) {
        // Signals bear the unique name of their sender. The owner is asked for after its changes are subscribed to
        // and before its signals are, so that it is known, as of each signal, when that is delivered.
        _impl->trackName(subscription.sender);
        std::weak_ptr<Impl> weak = _impl;
        callAsync(kBusName, kBusPath, kBusName, "GetNameOwner", {BusValue::string(sender)}, kAnswerOfBus,
                  [weak, name = subscription.sender](BusReply reply) {
                      auto impl = weak.lock();
                      if (!impl || reply.values.empty()) return;
                      impl->trackedNames[name].owner = reply.values[0].asString().value_or("");
                  });
    }
    _impl->sendToBus("AddMatch", subscription.rule);
    std::uint64_t id = ++_impl->lastSubscription;
    _impl->subscriptions.emplace(id, std::move(subscription));
    return id;
}

void Bus::unsubscribe(std::uint64_t subscription) {
    auto found = _impl->subscriptions.find(subscription);
    if (found == _impl->subscriptions.end()) return;
    _impl->sendToBus("RemoveMatch", found->second.rule);
    auto handler = std::move(found->second.handler);  // destroyed last: it may own anything
    _impl->subscriptions.erase(found);
}

bool Bus::emit(std::string_view destination, std::string_view path, std::string_view interface, std::string_view member,
               const std::vector<BusValue>& arguments, BusError* error) {
    const std::string to(destination), object(path), group(interface), name(member);
    if ((!to.empty() && !g_dbus_is_name(to.c_str())) || !g_variant_is_object_path(object.c_str()) ||
        !g_dbus_is_interface_name(group.c_str()) || !g_dbus_is_member_name(name.c_str())) {
        *error = {kErrorInvalidArgs, "not a valid signal: " + to + " " + object + " " + group + "." + name};
        return false;
    }
    GlibRef<GDBusMessage> message(g_dbus_message_new_signal(object.c_str(), group.c_str(), name.c_str()));
    if (!to.empty()) g_dbus_message_set_destination(message.get(), to.c_str());
    if (!_impl->setBody(message.get(), arguments, error)) return false;
    ErrorSlot slot;
    if (g_dbus_connection_send_message(_impl->connection.get(), message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                       slot)) {
        return true;
    }
    *error = busErrorOf(slot.get());
    return false;
}

bool Bus::flush(double seconds) {
    // The bus answers in order, so its answer means that it has all that went before. GLib's own flush may hang when
    // the connection ends.
    BusError error;
    GlibRef<GDBusMessage> message = _impl->newCall(kBusName, kBusPath, kBusName, "GetId", {}, kAnswerOfBus, &error);
    return message && _impl->sendAndWait(message.get(), seconds).ok();
}

BusReply Bus::call(std::string_view destination, std::string_view path, std::string_view interface,
                   std::string_view member, const std::vector<BusValue>& arguments, double seconds) {
    BusError error;
    GlibRef<GDBusMessage> message = _impl->newCall(destination, path, interface, member, arguments, seconds, &error);
    return message ? _impl->sendAndWait(message.get(), seconds) : BusReply{{}, error};
}

void Bus::callAsync(std::string_view destination, std::string_view path, std::string_view interface,
                    std::string_view member, const std::vector<BusValue>& arguments, double seconds,
                    ReplyHandler handler) {
    BusError error;
    GlibRef<GDBusMessage> message = _impl->newCall(destination, path, interface, member, arguments, seconds, &error);
    if (message) {
        ErrorSlot slot;
        guint32 serial = 0;
        MutexLock lock(_impl->mutex);
        if (g_dbus_connection_send_message(_impl->connection.get(), message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                           &serial, slot)) {
            Impl::PendingCall& call = _impl->pending[serial];
            call.handler = std::move(handler);
            if (seconds < 0) return;
            call.timer = RunLoop::main().schedule(seconds, [weak = std::weak_ptr<Impl>(_impl), serial] {
                if (auto impl = weak.lock()) impl->expire(serial);
            });
            return;
        }
        error = busErrorOf(slot.get());
    }
    RunLoop::main().performOnMain([weak = std::weak_ptr<Impl>(_impl), handler = std::move(handler), error] {
        if (auto impl = weak.lock()) handler({{}, error});
    });
}

}  // namespace kavaro
