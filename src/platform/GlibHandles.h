#pragma once

#include <gio/gio.h>

#include <memory>

namespace kavaro {

// Owning handles for GLib's types. For sources of platform only.
struct GlibUnref {
    void operator()(GVariant* value) const { g_variant_unref(value); }
    void operator()(GDBusNodeInfo* info) const { g_dbus_node_info_unref(info); }
    void operator()(GDBusConnection* object) const { g_object_unref(object); }
    void operator()(GDBusMessage* object) const { g_object_unref(object); }
    void operator()(GUnixFDList* object) const { g_object_unref(object); }
    void operator()(GCancellable* object) const { g_object_unref(object); }
};

template <typename T>
using GlibRef = std::unique_ptr<T, GlibUnref>;

using VariantRef = GlibRef<GVariant>;

// Takes over a new value, which may be floating.
inline VariantRef sinkVariant(GVariant* value) {
    return VariantRef(value ? g_variant_ref_sink(value) : nullptr);
}

// Receives a GError: pass it where GLib wants a GError**.
class ErrorSlot {
  public:
    operator GError**() { return &_error; }
    ~ErrorSlot() { g_clear_error(&_error); }
    ErrorSlot() = default;
    ErrorSlot(const ErrorSlot&) = delete;
    ErrorSlot& operator=(const ErrorSlot&) = delete;
    const GError* get() const { return _error; }
    const char* message() const { return _error ? _error->message : ""; }

  private:
    GError* _error = nullptr;
};

}  // namespace kavaro
