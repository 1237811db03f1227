#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "platform/ByteView.h"

namespace kavaro {

// A value of a property list: what preferences, configuration and dictionaries of attributes are made of. Copied by
// value. Dictionaries keep the order in which keys were set; a key stands once.
//
// Limits: bytes are read, written and described down to kDeepest containers within each other. A value in memory may
// be of any depth: copying, comparing and destroying it take no stack for it.
class PropertyList {
  public:
    static constexpr int kDeepest = 512;

    using Data = std::vector<std::uint8_t>;
    struct Date {
        double secondsSince1970 = 0;
        bool operator==(const Date&) const = default;
    };
    using Array = std::vector<PropertyList>;
    using Entry = std::pair<std::string, PropertyList>;
    using Dictionary = std::vector<Entry>;

    PropertyList() = default;  // null
    // bool stays bool, every other integer becomes one of 64 bits with sign. No pointer turns into a bool.
    template <std::integral T>
    PropertyList(T value) {
        if constexpr (std::is_same_v<T, bool>) {
            _value = value;
        } else {
            _value = static_cast<std::int64_t>(value);
        }
    }
    PropertyList(double value) : _value(value) {}
    PropertyList(const char* value) : _value(std::string(value)) {}
    PropertyList(std::string value) : _value(std::move(value)) {}
    PropertyList(std::string_view value) : _value(std::string(value)) {}
    PropertyList(Data value) : _value(std::move(value)) {}
    PropertyList(Date value) : _value(value) {}
    PropertyList(Array value) : _value(std::move(value)) {}
    PropertyList(Dictionary value) : _value(std::move(value)) {}

    PropertyList(const PropertyList& other);
    PropertyList(PropertyList&& other) noexcept;  // the other one keeps an unspecified value
    PropertyList& operator=(const PropertyList& other);
    // Safe also when `other` is a part of this value.
    PropertyList& operator=(PropertyList&& other) noexcept;
    ~PropertyList();

    bool isNull() const { return std::holds_alternative<std::monostate>(_value); }
    // Each gives null when the value is of another kind.
    template <class T>
    const T* as() const {
        return std::get_if<T>(&_value);
    }
    const std::string* string() const { return as<std::string>(); }
    const Array* array() const { return as<Array>(); }
    const Dictionary* dictionary() const { return as<Dictionary>(); }
    // Conversions that preferences use: numbers, booleans and the decimal text at a string's start give a number; a
    // number other than 0 and strings such as "YES", "true" and "1" give true. 0 or false for everything else; integers
    // stop at the ends of their range.
    std::int64_t intValue() const;
    double doubleValue() const;
    bool boolValue() const;

    // The value under a key, null when this is no dictionary or has no such key; valid until the next change.
    const PropertyList* get(std::string_view key) const;
    // Makes this a dictionary if it is null; replaces or adds.
    void set(std::string_view key, PropertyList value);
    void remove(std::string_view key);

    // Of the same kind and content; dictionaries in the same order.
    bool operator==(const PropertyList& other) const;

    // Text of the value on one line, as log lines show it: { a = 1; b = ( x, y ); }
    std::string description() const;

    // XML and binary property lists, told apart by their first bytes. Null optional for anything malformed, for more
    // than kDeepest containers within each other, and for binary ones whose shared parts unfold to more than their
    // size justifies. Text inside an XML number or date is not checked (0 when it makes no sense).
    static std::optional<PropertyList> fromBytes(ByteView bytes);
    // Empty when nesting is too deep or the value is null; nulls inside are left out. A string ends at its first NUL
    // byte; text that is not UTF-8 survives in XML alone. Dates are held to the years 1 to 9999, in XML to seconds.
    std::string toXML() const;
    std::string toBinary() const;

  private:
    bool isContainer() const { return array() || dictionary(); }
    void dismantle() noexcept;

    std::variant<std::monostate, bool, std::int64_t, double, std::string, Data, Date, Array, Dictionary> _value;
};

}  // namespace kavaro
