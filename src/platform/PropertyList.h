#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/ByteView.h"

namespace kavaro {

// A value of a property list: what preferences, configuration and dictionaries of attributes are made of. Copied by
// value. Dictionaries keep the order in which keys were set; a key stands once.
class PropertyList {
  public:
    using Data = std::vector<std::uint8_t>;
    struct Date {
        double secondsSince1970 = 0;
        bool operator==(const Date&) const = default;
    };
    using Array = std::vector<PropertyList>;
    using Entry = std::pair<std::string, PropertyList>;
    using Dictionary = std::vector<Entry>;

    PropertyList() = default;  // null
    PropertyList(bool value) : _value(value) {}
    PropertyList(int value) : _value(static_cast<std::int64_t>(value)) {}
    PropertyList(std::int64_t value) : _value(value) {}
    PropertyList(std::uint64_t value) : _value(static_cast<std::int64_t>(value)) {}
    PropertyList(double value) : _value(value) {}
    PropertyList(const char* value) : _value(std::string(value)) {}
    PropertyList(std::string value) : _value(std::move(value)) {}
    PropertyList(std::string_view value) : _value(std::string(value)) {}
    PropertyList(Data value) : _value(std::move(value)) {}
    PropertyList(Date value) : _value(value) {}
    PropertyList(Array value) : _value(std::move(value)) {}
    PropertyList(Dictionary value) : _value(std::move(value)) {}

    bool isNull() const { return std::holds_alternative<std::monostate>(_value); }
    // Each gives null when the value is of another kind.
    template <class T>
    const T* as() const {
        return std::get_if<T>(&_value);
    }
    const std::string* string() const { return as<std::string>(); }
    const Array* array() const { return as<Array>(); }
    const Dictionary* dictionary() const { return as<Dictionary>(); }
    // Conversions that preferences use: numbers, booleans and decimal text give a number; "YES", "true" and "1" give
    // true. 0 or false for everything else.
    std::int64_t intValue() const;
    double doubleValue() const;
    bool boolValue() const;

    // The value under a key, null when this is no dictionary or has no such key; valid until the next change.
    const PropertyList* get(std::string_view key) const;
    // Makes this a dictionary if it is null; replaces or adds.
    void set(std::string_view key, PropertyList value);
    void remove(std::string_view key);

    bool operator==(const PropertyList&) const = default;

    // Text of the value on one line, as log lines show it: { a = 1; b = ( x, y ); }
    std::string description() const;

    // XML and binary property lists, told apart by their first bytes. Null optional for anything malformed.
    static std::optional<PropertyList> fromBytes(ByteView bytes);
    std::string toXML() const;
    std::string toBinary() const;

  private:
    std::variant<std::monostate, bool, std::int64_t, double, std::string, Data, Date, Array, Dictionary> _value;
};

}  // namespace kavaro
