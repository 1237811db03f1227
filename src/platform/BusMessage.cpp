#include "platform/BusMessage.h"

#include <gio/gunixfdlist.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace kavaro {

namespace {

// A value grows at most this much from GLib's form to the bus's (an empty array: one byte there, eight here).
constexpr std::size_t kWireGrowth = 8;

// Room for the header: path, names and signature.
constexpr std::size_t kHeaderBytes = 4096;

bool mayHoldFiles(GVariant* value) {
    return std::strpbrk(g_variant_get_type_string(value), "hv") != nullptr;
}

std::size_t alignmentOf(char type) {
    switch (type) {
        case 'y':
        case 'g':
        case 'v':
            return 1;
        case 'n':
        case 'q':
            return 2;
        case 'x':
        case 't':
        case 'd':
        case '(':
        case '{':
            return 8;
        default:
            return 4;
    }
}

std::size_t alignedTo(std::size_t offset, std::size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

// 0 for types whose size depends on the value.
std::size_t fixedSizeOf(char type) {
    return std::strchr("ybnqiuxtdh", type) ? alignmentOf(type) : 0;
}

std::size_t childrenEnd(GVariant* value, std::size_t offset, bool* arrayTooLong) {
    gsize count = g_variant_n_children(value);
    for (gsize i = 0; i < count; ++i) {
        VariantRef child(g_variant_get_child_value(value, i));
        offset += wireSize(child.get(), offset, arrayTooLong);
    }
    return offset;
}

std::size_t arrayEnd(GVariant* value, std::size_t offset, bool* arrayTooLong) {
    char element = g_variant_get_type_string(value)[1];
    std::size_t first = alignedTo(offset + 4, alignmentOf(element));
    std::size_t fixed = fixedSizeOf(element);
    std::size_t end = fixed ? first + fixed * g_variant_n_children(value) : childrenEnd(value, first, arrayTooLong);
    if (end - first > kLongestArray) *arrayTooLong = true;
    return end;
}

}  // namespace

std::size_t wireSize(GVariant* value, std::size_t offset, bool* arrayTooLong) {
    char type = g_variant_get_type_string(value)[0];
    std::size_t start = alignedTo(offset, alignmentOf(type));
    std::size_t end = start + fixedSizeOf(type);
    if (type == 's' || type == 'o' || type == 'g') {
        gsize length = 0;
        g_variant_get_string(value, &length);
        end = start + (type == 'g' ? 1 : 4) + length + 1;
    } else if (type == 'v') {
        VariantRef inner(g_variant_get_variant(value));
        std::size_t body = start + 1 + std::strlen(g_variant_get_type_string(inner.get())) + 1;
        end = body + wireSize(inner.get(), body, arrayTooLong);
    } else if (type == 'a') {
        end = arrayEnd(value, start, arrayTooLong);
    } else if (type == '(' || type == '{') {
        end = childrenEnd(value, start, arrayTooLong);
    }
    return end - offset;
}

BusValue makeBusValue(VariantRef value, std::shared_ptr<const FileList> files) {
    if (!value) return {};
    auto impl = std::make_shared<BusValue::Impl>();
    impl->value = std::move(value);
    impl->files = std::move(files);
    return BusValue(std::move(impl));
}

gint32 FileGatherer::indexOf(const FilePtr& file) {
    auto found = std::find(_files.begin(), _files.end(), file);
    if (found != _files.end()) return static_cast<gint32>(found - _files.begin());
    _files.push_back(file);
    return static_cast<gint32>(_files.size() - 1);
}

VariantRef FileGatherer::renumber(GVariant* value, const FileList& files) {
    if (!mayHoldFiles(value)) return VariantRef(g_variant_ref(value));
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_HANDLE)) {
        auto old = static_cast<guint32>(g_variant_get_handle(value));
        gint32 index = old < files.size() ? indexOf(files[old]) : std::numeric_limits<gint32>::max();
        return sinkVariant(g_variant_new_handle(index));
    }
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_VARIANT)) {
        VariantRef inner(g_variant_get_variant(value));
        return sinkVariant(g_variant_new_variant(renumber(inner.get(), files).get()));
    }
    GVariantBuilder builder;
    g_variant_builder_init(&builder, g_variant_get_type(value));
    gsize count = g_variant_n_children(value);
    for (gsize i = 0; i < count; ++i) {
        VariantRef child(g_variant_get_child_value(value, i));
        g_variant_builder_add_value(&builder, renumber(child.get(), files).get());
    }
    return sinkVariant(g_variant_builder_end(&builder));
}

VariantRef FileGatherer::add(const BusValue& value) {
    const BusValue::Impl& impl = *value.impl();
    if (!impl.files) return VariantRef(g_variant_ref(impl.value.get()));
    return renumber(impl.value.get(), *impl.files);
}

std::shared_ptr<const FileList> FileGatherer::files() const {
    return _files.empty() ? nullptr : std::make_shared<const FileList>(_files);
}

bool packBody(const std::vector<BusValue>& arguments, const BusLimits& limits, BusBody* body, std::string* reason) {
    FileGatherer gatherer;
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_TUPLE);
    for (const BusValue& argument : arguments) {
        if (argument.isNull()) {
            g_variant_builder_clear(&builder);
            *reason = "an argument has no value";
            return false;
        }
        g_variant_builder_add_value(&builder, gatherer.add(argument).get());
    }
    body->tuple = sinkVariant(g_variant_builder_end(&builder));
    if (std::strlen(g_variant_get_type_string(body->tuple.get())) > kLongestSignature) {
        *reason = "too many arguments";
        return false;
    }
    if (g_variant_get_size(body->tuple.get()) > std::min(limits.messageBytes, kLongestArray) / kWireGrowth) {
        bool arrayTooLong = false;
        std::size_t size = wireSize(body->tuple.get(), 0, &arrayTooLong);
        if (arrayTooLong || size + kHeaderBytes > limits.messageBytes) {
            *reason = "the message is too large for the bus (" + std::to_string(size) + " bytes)";
            return false;
        }
    }
    std::shared_ptr<const FileList> files = gatherer.files();
    if (!files) return true;
    if (files->size() > limits.files) {
        *reason = "too many files for one message";
        return false;
    }
    body->files.reset(g_unix_fd_list_new());
    for (const FilePtr& file : *files) {
        ErrorSlot error;
        if (g_unix_fd_list_append(body->files.get(), file->fd(), error) < 0) {
            *reason = error.message();
            return false;
        }
    }
    return true;
}

std::vector<BusValue> unpackBody(GDBusMessage* message) {
    std::vector<BusValue> values;
    GVariant* body = g_dbus_message_get_body(message);
    std::shared_ptr<const FileList> files;
    if (GUnixFDList* list = g_dbus_message_get_unix_fd_list(message)) {
        gint count = 0;
        gint* fds = g_unix_fd_list_steal_fds(list, &count);
        FileList owned;
        for (gint i = 0; i < count; ++i) owned.push_back(std::make_shared<const FileHandle>(fds[i]));
        g_free(fds);
        files = std::make_shared<const FileList>(std::move(owned));
    }
    if (!body) return values;
    gsize count = g_variant_n_children(body);
    values.reserve(count);
    for (gsize i = 0; i < count; ++i)
        values.push_back(makeBusValue(VariantRef(g_variant_get_child_value(body, i)), files));
    return values;
}

}  // namespace kavaro
