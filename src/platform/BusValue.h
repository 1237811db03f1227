#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/ByteBuffer.h"

namespace kavaro {

// Bytes that came over the bus: either inside the message or in a sealed memory file that is mapped read-only.
// view() lives as long as this object or a copy of it; it is null when the bytes were empty.
class BusData {
  public:
    BusData() = default;
    ByteView view() const { return _view; }

  private:
    friend class BusValue;
    std::shared_ptr<void> _owner;
    ByteView _view;
};

// One value of a D-Bus message, immutable, shared by copying. The names say the D-Bus type that goes on the wire.
class BusValue {
  public:
    using Dictionary = std::vector<std::pair<std::string, BusValue>>;

    BusValue() = default;                                            // no value
    static BusValue string(std::string_view text);                   // s; bytes that are not UTF-8 are written as \xNN
    static BusValue int32(std::int32_t value);                       // i
    static BusValue uint32(std::uint32_t value);                     // u
    static BusValue int64(std::int64_t value);                       // x
    static BusValue boolean(bool value);                             // b
    static BusValue float64(double value);                           // d
    static BusValue path(std::string_view path);                     // ay with a closing NUL
    static BusValue paths(const std::vector<std::string>& paths);    // aay, each with a closing NUL
    static BusValue strings(const std::vector<std::string>& texts);  // as
    static BusValue uint32s(const std::vector<std::uint32_t>& values);  // au
    static BusValue variant(const BusValue& value);                     // v
    static BusValue dictionary(const Dictionary& entries);              // a{sv}, each value wrapped in v
    static BusValue dictionaries(const std::vector<Dictionary>& all);   // aa{sv}
    static BusValue texts(const std::vector<std::pair<std::string, std::string>>& entries);  // a{ss}
    // Tables of texts, by number and name. Each number and each name stands once.
    using Texts = std::vector<std::pair<std::string, std::string>>;
    using TextTables = std::vector<std::pair<std::uint32_t, std::vector<std::pair<std::string, Texts>>>>;
    static BusValue textTables(const TextTables& tables);             // a{ua{sa{ss}}}
    static BusValue structure(const std::vector<BusValue>& members);  // (...); no value when a member is none
    // ay up to kInlineLimit bytes, above that h: a sealed memory file. Empty or null bytes are the empty ay.
    static constexpr std::size_t kInlineLimit = 8u << 20;
    static BusValue data(ByteView bytes);

    bool isNull() const { return !_value; }
    std::string type() const;  // D-Bus signature, "" for no value

    // Each gives nothing when the value is of another type; variants are looked through.
    std::optional<std::string> asString() const;
    std::optional<std::int64_t> asInteger() const;  // i, u, x, t, b, n, q, y
    std::optional<double> asDouble() const;
    std::optional<std::string> asPath() const;  // ay with or without a closing NUL; an inner NUL gives nothing
    std::optional<std::vector<std::string>> asPaths() const;
    std::optional<std::vector<std::string>> asStrings() const;
    std::optional<std::vector<std::uint32_t>> asUint32s() const;
    std::optional<BusData> asData() const;           // ay or h (mapped after its seals and size are checked)
    std::optional<Dictionary> asDictionary() const;  // a{sv}, variants unwrapped; also a{ss}
    std::optional<std::vector<Dictionary>> asDictionaries() const;  // aa{sv}
    BusValue get(std::string_view key) const;                       // of an a{sv}; no value when absent
    std::optional<TextTables> asTextTables() const;
    std::optional<std::vector<BusValue>> asStructure() const;

    std::string description() const;  // for logs and messages, one line, long values shortened

    // Platform's own: the GVariant behind the value and the file that an h refers to (-1 for none).
    struct Impl;
    explicit BusValue(std::shared_ptr<Impl> impl) : _value(std::move(impl)) {}
    const std::shared_ptr<Impl>& impl() const { return _value; }

  private:
    std::shared_ptr<Impl> _value;
};

}  // namespace kavaro
