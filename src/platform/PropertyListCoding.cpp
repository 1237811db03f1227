// Property lists as bytes, both forms, through libplist.
#include <locale.h>
#include <plist/plist.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>

#include "platform/PropertyList.h"
#include "platform/PropertyListGuard.h"

namespace kavaro {

namespace {

struct NodeDeleter {
    void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, NodeDeleter>;

struct FreeDeleter {
    void operator()(void* memory) const { std::free(memory); }
};

constexpr double kReferenceDate = 978307200;  // 2001-01-01 in seconds since 1970
constexpr double kFirstDate = -63113904000;   // 0001-01-01 in seconds since 2001
constexpr double kLastDate = 252423993599;    // 9999-12-31 23:59:59
constexpr std::size_t kDatePosition = 9;      // in a binary property list that is a date: after header and marker
constexpr std::string_view kBinaryMagic = "bplist";

// The library writes and reads numbers by the thread's locale.
class PlainNumbers {
  public:
    PlainNumbers() : _previous(uselocale(plain())) {}
    ~PlainNumbers() { uselocale(_previous); }
    PlainNumbers(const PlainNumbers&) = delete;
    PlainNumbers& operator=(const PlainNumbers&) = delete;

  private:
    static locale_t plain() {
        static const locale_t kPlain = newlocale(LC_ALL_MASK, "C", nullptr);
        return kPlain;
    }
    locale_t _previous;
};

using Writer = void (*)(plist_t, char**, std::uint32_t*);

std::string written(plist_t node, Writer write) {
    char* bytes = nullptr;
    std::uint32_t length = 0;
    write(node, &bytes, &length);
    std::unique_ptr<char, FreeDeleter> owner(bytes);
    return bytes ? std::string(bytes, length) : std::string();
}

// The library hands dates out and takes them in as 32-bit seconds. Its binary form holds the whole number.
double readDate(plist_t node) {
    Node alone(plist_copy(node));
    std::string bytes = written(alone.get(), plist_to_bin);
    if (bytes.size() < kDatePosition + sizeof(double)) return 0;
    std::uint64_t bits = 0;
    for (std::size_t index = 0; index < sizeof bits; index++) {
        bits = bits << 8 | static_cast<std::uint8_t>(bytes[kDatePosition + index]);
    }
    return std::bit_cast<double>(bits) + kReferenceDate;
}

Node makeDate(double secondsSince1970) {
    double seconds = std::isnan(secondsSince1970) ? 0 : secondsSince1970 - kReferenceDate;
    auto bits = std::bit_cast<std::uint64_t>(std::clamp(seconds, kFirstDate, kLastDate));
    std::string bytes("bplist00\x33", kDatePosition);
    for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(bits >> shift);
    // Trailer: offset table (one byte, 8); widths 1 and 1; one object; root 0; table after the object.
    bytes += '\x08';
    bytes += std::string(
        "\0\0\0\0\0\0\1\1"
        "\0\0\0\0\0\0\0\1"
        "\0\0\0\0\0\0\0\0"
        "\0\0\0\0\0\0\0\x11",
        32);
    plist_t node = nullptr;
    plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &node);
    return Node(node);
}

std::optional<PropertyList> fromNode(plist_t node, int depth);

std::optional<PropertyList> fromArray(plist_t node, int depth) {
    PropertyList::Array elements;
    elements.reserve(plist_array_get_size(node));
    plist_array_iter iterator = nullptr;
    plist_array_new_iter(node, &iterator);
    std::unique_ptr<void, FreeDeleter> owner(iterator);
    while (true) {
        plist_t item = nullptr;
        plist_array_next_item(node, iterator, &item);
        if (!item) return PropertyList(std::move(elements));
        auto element = fromNode(item, depth);
        if (!element) return std::nullopt;
        elements.push_back(std::move(*element));
    }
}

std::optional<PropertyList> fromDictionary(plist_t node, int depth) {
    PropertyList::Dictionary entries;
    entries.reserve(plist_dict_get_size(node));
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    std::unique_ptr<void, FreeDeleter> owner(iterator);
    while (true) {
        char* key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator, &key, &item);
        std::unique_ptr<char, FreeDeleter> keyOwner(key);
        if (!item) return PropertyList(std::move(entries));
        auto value = fromNode(item, depth);
        if (!key || !value) return std::nullopt;
        entries.emplace_back(key, std::move(*value));
    }
}

PropertyList fromNumber(plist_t node, plist_type type) {
    std::uint64_t value = 0;
    if (type == PLIST_UID) {
        plist_get_uid_val(node, &value);
    } else {
        plist_get_uint_val(node, &value);  // negative ones come as their 64 bits
    }
    return PropertyList(value);
}

PropertyList fromData(plist_t node) {
    std::uint64_t length = 0;
    const char* bytes = plist_get_data_ptr(node, &length);
    return PropertyList(bytes ? PropertyList::Data(bytes, bytes + length) : PropertyList::Data());
}

PropertyList fromString(plist_t node) {
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    return PropertyList(text ? std::string(text, length) : std::string());
}

// `depth` counts the containers around the node. None for what the type cannot hold.
std::optional<PropertyList> fromNode(plist_t node, int depth) {
    plist_type type = plist_get_node_type(node);
    switch (type) {
        case PLIST_BOOLEAN: {
            std::uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return PropertyList(value != 0);
        }
        case PLIST_UINT:
        case PLIST_UID:
            return fromNumber(node, type);
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return PropertyList(value);
        }
        case PLIST_STRING:
            return fromString(node);
        case PLIST_DATA:
            return fromData(node);
        case PLIST_DATE:
            return PropertyList(PropertyList::Date{readDate(node)});
        case PLIST_ARRAY:
            return depth == PropertyList::kDeepest ? std::nullopt : fromArray(node, depth + 1);
        case PLIST_DICT:
            return depth == PropertyList::kDeepest ? std::nullopt : fromDictionary(node, depth + 1);
        default:
            return std::nullopt;
    }
}

Node toNode(const PropertyList& value, int depth);

Node containerToNode(const PropertyList& value, int depth) {
    if (depth == PropertyList::kDeepest) return nullptr;
    if (const auto* elements = value.array()) {
        Node array(plist_new_array());
        for (const PropertyList& element : *elements) {
            if (element.isNull()) continue;
            Node item = toNode(element, depth + 1);
            if (!item) return nullptr;
            plist_array_append_item(array.get(), item.release());
        }
        return array;
    }
    Node dictionary(plist_new_dict());
    for (const auto& [key, content] : *value.dictionary()) {
        if (content.isNull()) continue;
        Node item = toNode(content, depth + 1);
        if (!item) return nullptr;
        plist_dict_set_item(dictionary.get(), key.c_str(), item.release());
    }
    return dictionary;
}

// Null for null and for nesting that is too deep.
Node toNode(const PropertyList& value, int depth) {
    if (value.isNull()) return nullptr;
    if (const auto* truth = value.as<bool>()) return Node(plist_new_bool(*truth));
    if (const auto* integer = value.as<std::int64_t>()) {
        return Node(plist_new_uint(static_cast<std::uint64_t>(*integer)));
    }
    if (const auto* real = value.as<double>()) return Node(plist_new_real(*real));
    if (const auto* string = value.string()) return Node(plist_new_string(string->c_str()));
    if (const auto* date = value.as<PropertyList::Date>()) return makeDate(date->secondsSince1970);
    if (const auto* data = value.as<PropertyList::Data>()) {
        const char* bytes = data->empty() ? "" : reinterpret_cast<const char*>(data->data());
        return Node(plist_new_data(bytes, data->size()));
    }
    return containerToNode(value, depth);
}

}  // namespace

std::optional<PropertyList> PropertyList::fromBytes(ByteView bytes) {
    std::string_view text = textOf(bytes);
    if (text.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    PlainNumbers plainNumbers;
    plist_t root = nullptr;
    if (text.starts_with(kBinaryMagic)) {
        if (!isSafeBinaryPropertyList(bytes)) return std::nullopt;
        plist_from_bin(text.data(), static_cast<std::uint32_t>(text.size()), &root);
    } else {
        constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
        if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
        if (!isSafeXMLPropertyList(text)) return std::nullopt;
        plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &root);
    }
    Node owner(root);
    return root ? fromNode(root, 0) : std::nullopt;
}

std::string PropertyList::toXML() const {
    PlainNumbers plainNumbers;
    Node node = toNode(*this, 0);
    return node ? written(node.get(), plist_to_xml) : std::string();
}

std::string PropertyList::toBinary() const {
    PlainNumbers plainNumbers;
    Node node = toNode(*this, 0);
    return node ? written(node.get(), plist_to_bin) : std::string();
}

}  // namespace kavaro
