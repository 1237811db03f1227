// What arrives on a connection: from GLib's thread through the run loop's queue to the handlers.
#include <atomic>
#include <cstring>
#include <utility>

#include "platform/BusImpl.h"

namespace kavaro {

namespace {

using MessagePtr = std::shared_ptr<GDBusMessage>;

std::string_view viewOf(const char* text) {
    return text ? std::string_view(text) : std::string_view();
}

// What a call of GLib's into the connection refers to.
struct ObjectTarget {
    std::weak_ptr<Bus::Impl> impl;
    std::string path;
};

std::atomic<unsigned> handOvers{0};

}  // namespace

void noteHandOver() {
    handOvers.fetch_add(1, std::memory_order_acq_rel);
}

BusError busErrorOf(const GError* error) {
    BusError result;
    if (!error) return {kErrorFailed, "unknown error"};
    result.message = error->message;
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT)) {
        result.name = kErrorNoReply;
    } else if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED)) {
        result.name = kErrorDisconnected;
    } else if (char* name = g_dbus_error_encode_gerror(error)) {
        result.name = viewOf(name).starts_with("org.gtk.GDBus.Unmapped") ? kErrorFailed : name;
        g_free(name);
    }
    return result;
}

BusReply busReplyOf(GDBusMessage* message) {
    BusReply reply;
    reply.values = unpackBody(message);
    if (g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_ERROR) return reply;
    reply.error.name = viewOf(g_dbus_message_get_error_name(message));
    if (reply.error.name.empty()) reply.error.name = kErrorFailed;
    if (!reply.values.empty()) reply.error.message = reply.values[0].asString().value_or("");
    reply.values.clear();
    return reply;
}

BusInvocation::~BusInvocation() {
    if (_invocation) g_object_unref(_invocation);
}

void BusInvocation::fail(const BusError& error) {
    std::string message = BusValue::string(error.message).asString().value_or("");
    const char* name = g_dbus_is_error_name(error.name.c_str()) ? error.name.c_str() : kErrorFailed;
    g_dbus_method_invocation_return_dbus_error(std::exchange(_invocation, nullptr), name, message.c_str());
}

void BusInvocation::answer(const BusReply& reply, const BusLimits& limits) {
    if (!_invocation) return;
    if (!reply.ok()) return fail(reply.error);
    const GDBusMethodInfo* method = g_dbus_method_invocation_get_method_info(_invocation);
    if (!method) return fail({kErrorUnknownMethod, "not a method"});
    BusBody body;
    std::string reason;
    if (!packBody(reply.values, limits, &body, &reason)) return fail({kErrorLimits, reason});
    std::string expected = "(";
    for (GDBusArgInfo** argument = method->out_args; argument && *argument; ++argument) {
        expected += (*argument)->signature;
    }
    expected += ")";
    const char* actual = g_variant_get_type_string(body.tuple.get());
    if (expected != actual) return fail({kErrorFailed, "the answer is " + std::string(actual) + ", not " + expected});
    g_dbus_method_invocation_return_value_with_unix_fd_list(std::exchange(_invocation, nullptr), body.tuple.get(),
                                                            body.files.get());
}

void Bus::Impl::start() {
    auto incoming = [](GDBusConnection*, GDBusMessage* message, gboolean isIncoming, gpointer target) -> GDBusMessage* {
        if (!isIncoming) return message;
        noteHandOver();
        std::shared_ptr<Impl> impl = static_cast<std::weak_ptr<Impl>*>(target)->lock();
        bool taken = impl && impl->takeIncoming(message);
        impl.reset();
        noteHandOver();
        return taken ? nullptr : message;
    };
    auto forgetWeak = [](gpointer target) {
        noteHandOver();
        delete static_cast<std::weak_ptr<Impl>*>(target);
    };
    auto* filterTarget = new std::weak_ptr<Impl>(weak_from_this());
    noteHandOver();
    filter = g_dbus_connection_add_filter(connection.get(), incoming, filterTarget, forgetWeak);

    auto closed = [](GDBusConnection*, gboolean, GError*, gpointer target) {
        RunLoop::main().performOnMain([weak = *static_cast<std::weak_ptr<Impl>*>(target)] {
            if (auto impl = weak.lock()) impl->connectionEnded();
        });
    };
    using ClosedCallback = void (*)(GDBusConnection*, gboolean, GError*, gpointer);
    auto forgetClosure = [](gpointer target, GClosure*) { delete static_cast<std::weak_ptr<Impl>*>(target); };
    closedSignal = g_signal_connect_data(connection.get(), "closed", G_CALLBACK(static_cast<ClosedCallback>(closed)),
                                         new std::weak_ptr<Impl>(weak_from_this()), forgetClosure, GConnectFlags{});
    const char* name = g_dbus_connection_get_unique_name(connection.get());
    uniqueName = viewOf(name);
}

bool Bus::Impl::takeIncoming(GDBusMessage* message) {
    GDBusMessageType type = g_dbus_message_get_message_type(message);
    auto hand = [&](auto deliver) {
        RunLoop::main().performOnMain([weak = weak_from_this(), kept = MessagePtr(message, g_object_unref), deliver] {
            if (auto impl = weak.lock()) deliver(*impl, kept.get());
        });
        return true;
    };
    if (type == G_DBUS_MESSAGE_TYPE_SIGNAL) {
        return hand([](Impl& impl, GDBusMessage* kept) { impl.deliverSignal(kept); });
    }
    if (type != G_DBUS_MESSAGE_TYPE_METHOD_RETURN && type != G_DBUS_MESSAGE_TYPE_ERROR) return false;
    guint32 serial = g_dbus_message_get_reply_serial(message);
    {
        MutexLock lock(mutex);
        auto found = pending.find(serial);
        if (found == pending.end()) return false;  // somebody waits for it in sendAndWait()
        found->second.arrived = true;
    }
    return hand([serial](Impl& impl, GDBusMessage* kept) { impl.deliverReply(serial, kept); });
}

bool Bus::Impl::fits(const Subscription& subscription, GDBusMessage* message) const {
    if (viewOf(g_dbus_message_get_interface(message)) != subscription.interface) return false;
    if (viewOf(g_dbus_message_get_path(message)) != subscription.path) return false;
    if (!subscription.member.empty() && viewOf(g_dbus_message_get_member(message)) != subscription.member) return false;
    if (subscription.sender.empty()) return true;
    std::string_view sender = viewOf(g_dbus_message_get_sender(message));
    if (sender == subscription.sender) return true;
    auto tracked = trackedNames.find(subscription.sender);
    return tracked != trackedNames.end() && sender == tracked->second.owner;
}

void Bus::Impl::deliverSignal(GDBusMessage* message) {
    std::string_view member = viewOf(g_dbus_message_get_member(message));
    std::string_view sender = viewOf(g_dbus_message_get_sender(message));
    std::vector<std::uint64_t> receivers;
    for (const auto& [id, subscription] : subscriptions) {
        if (fits(subscription, message)) receivers.push_back(id);
    }
    bool ownerChanged = sender == kBusName && member == "NameOwnerChanged" && !trackedNames.empty();
    if (receivers.empty() && !ownerChanged) return;
    const std::vector<BusValue> arguments = unpackBody(message);
    if (ownerChanged) nameOwnerChanged(arguments);
    for (std::uint64_t id : receivers) {
        auto found = subscriptions.find(id);  // a handler may end any subscription
        if (found == subscriptions.end()) continue;
        std::shared_ptr<SignalHandler> handler = found->second.handler;
        (*handler)({member, sender, arguments});
    }
}

void Bus::Impl::nameOwnerChanged(const std::vector<BusValue>& arguments) {
    if (arguments.size() != 3) return;
    auto tracked = trackedNames.find(arguments[0].asString().value_or(""));
    if (tracked == trackedNames.end()) return;
    const std::string owner = arguments[2].asString().value_or("");
    tracked->second.owner = owner;
    auto handlers = tracked->second.handlers;
    for (const auto& handler : handlers) (*handler)(owner);
}

void Bus::Impl::deliverReply(guint32 serial, GDBusMessage* message) {
    PendingCall call;
    {
        MutexLock lock(mutex);
        auto found = pending.find(serial);
        if (found == pending.end()) return;
        call = std::move(found->second);
        pending.erase(found);
    }
    RunLoop::main().cancel(call.timer);
    call.handler(busReplyOf(message));
}

void Bus::Impl::expire(guint32 serial) {
    ReplyHandler handler;
    {
        MutexLock lock(mutex);
        auto found = pending.find(serial);
        if (found == pending.end() || found->second.arrived) return;
        handler = std::move(found->second.handler);
        pending.erase(found);
    }
    handler({{}, {kErrorNoReply, "no reply in time"}});
}

void Bus::Impl::deliverCall(const std::string& path, const std::shared_ptr<BusInvocation>& invocation) {
    auto found = published.find(path);
    if (found == published.end()) return invocation->answer({{}, {kErrorUnknownObject, path}}, limits);
    std::shared_ptr<LateCallHandler> handler = found->second.handler;
    // The names belong to the invocation, which goes with its answer.
    GDBusMessage* message = g_dbus_method_invocation_get_message(invocation->get());
    const std::string member(viewOf(g_dbus_message_get_member(message)));
    const std::string sender(viewOf(g_dbus_message_get_sender(message)));
    const bool mayAskUser =
        (g_dbus_message_get_flags(message) & G_DBUS_MESSAGE_FLAGS_ALLOW_INTERACTIVE_AUTHORIZATION) != 0;
    const std::vector<BusValue> arguments = unpackBody(message);
    (*handler)({member, sender, arguments, mayAskUser}, [weak = weak_from_this(), invocation](const BusReply& reply) {
        if (auto impl = weak.lock()) invocation->answer(reply, impl->limits);
    });
}

void Bus::Impl::connectionEnded() {
    std::map<guint32, PendingCall> unanswered;
    {
        MutexLock lock(mutex);
        unanswered.swap(pending);
    }
    for (auto& [serial, call] : unanswered) {
        RunLoop::main().cancel(call.timer);
        call.handler({{}, {kErrorDisconnected, "the connection to the bus is closed"}});
    }
    std::function<void()> handler = closedHandler;
    if (handler && !closedByUs) handler();
}

bool Bus::publish(std::string_view path, std::string_view introspection, CallHandler handler, BusError* error) {
    return publish(
        path, introspection,
        [handler = std::move(handler)](const BusCall& call, const Answer& answer) { answer(handler(call)); }, error);
}

bool Bus::publish(std::string_view path, std::string_view introspection, LateCallHandler handler, BusError* error) {
    const std::string object(path), xml(introspection);
    if (!g_variant_is_object_path(object.c_str()) || _impl->published.contains(object)) {
        *error = {kErrorInvalidArgs, "the path \"" + object + "\" is not valid or already published"};
        return false;
    }
    ErrorSlot slot;
    GlibRef<GDBusNodeInfo> node(g_dbus_node_info_new_for_xml(xml.c_str(), slot));
    if (!node) {
        *error = busErrorOf(slot.get());
        return false;
    }
    auto called = [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*,
                     GDBusMethodInvocation* invocation, gpointer data) {
        noteHandOver();
        // Behind the signals that came before it.
        auto* target = static_cast<ObjectTarget*>(data);
        RunLoop::main().performOnMain(
            [weak = target->impl, object = target->path, kept = std::make_shared<BusInvocation>(invocation)] {
                if (auto impl = weak.lock()) impl->deliverCall(object, kept);
            });
    };
    static const GDBusInterfaceVTable table = {called, nullptr, nullptr, {}};
    Impl::Published published;
    published.handler = std::make_shared<LateCallHandler>(std::move(handler));
    for (GDBusInterfaceInfo** interface = node->interfaces; interface && *interface; ++interface) {
        auto* target = new ObjectTarget{_impl, object};
        guint id = g_dbus_connection_register_object(
            _impl->connection.get(), object.c_str(), *interface, &table, target,
            [](gpointer data) { delete static_cast<ObjectTarget*>(data); }, slot);
        if (id == 0) {
            _impl->unregister(published);
            *error = busErrorOf(slot.get());
            return false;
        }
        published.registrations.push_back(id);
    }
    _impl->published.emplace(object, std::move(published));
    return true;
}

void Bus::unpublish(std::string_view path) {
    auto found = _impl->published.find(path);
    if (found == _impl->published.end()) return;
    _impl->unregister(found->second);
    _impl->published.erase(found);
}

void Bus::Impl::unregister(const Published& object) {
    for (guint id : object.registrations) g_dbus_connection_unregister_object(connection.get(), id);
}

}  // namespace kavaro
