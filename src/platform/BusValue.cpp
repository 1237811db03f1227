#include "platform/BusValue.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/BusMessage.h"

namespace kavaro {

namespace {

constexpr std::size_t kDescriptionLimit = 500;     // characters
constexpr std::size_t kDescribedBytesLimit = 200;  // longer byte arrays are shown by their size

std::string escapedByte(unsigned char byte) {
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", byte);
    return text;
}

// The bus takes nothing but UTF-8 without NUL.
std::string busText(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const char* end = nullptr;
        if (g_utf8_validate_len(text.data(), text.size(), &end)) return result.append(text);
        auto valid = static_cast<std::size_t>(end - text.data());
        result.append(text.substr(0, valid));
        result += escapedByte(static_cast<unsigned char>(text[valid]));
        text.remove_prefix(valid + 1);
    }
    return result;
}

GVariant* newString(std::string_view text) {
    std::string valid = busText(text);
    return g_variant_new_string(valid.c_str());
}

GVariant* newBytes(ByteView bytes) {
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.empty() ? nullptr : bytes.data(), bytes.size(), 1);
}

GVariant* newPath(std::string_view path) {
    std::string closed(path);
    return newBytes({reinterpret_cast<const std::uint8_t*>(closed.c_str()), closed.size() + 1});
}

VariantRef inVariant(VariantRef value) {
    if (g_variant_is_of_type(value.get(), G_VARIANT_TYPE_VARIANT)) return value;
    return sinkVariant(g_variant_new_variant(value.get()));
}

ByteView bytesOfArray(GVariant* array) {
    gsize count = 0;
    gconstpointer first = g_variant_get_fixed_array(array, &count, 1);
    return count ? ByteView(static_cast<const std::uint8_t*>(first), count) : ByteView();
}

std::optional<std::string> pathOfArray(GVariant* array) {
    std::string_view text = textOf(bytesOfArray(array));
    if (!text.empty() && text.back() == '\0') text.remove_suffix(1);
    if (text.find('\0') != std::string_view::npos) return std::nullopt;
    return std::string(text);
}

// Appends until the limit; the rest of the value is left out.
class Describer {
  public:
    void describe(GVariant* value) {
        if (_text.size() > kDescriptionLimit) return;
        const char* type = g_variant_get_type_string(value);
        if (std::strcmp(type, "ay") == 0) return describeBytes(bytesOfArray(value));
        switch (type[0]) {
            case 's':
            case 'o':
            case 'g': {
                gsize length = 0;
                const char* text = g_variant_get_string(value, &length);
                return describeText({text, length});
            }
            case 'h':
                _text += "<file>";
                return;
            case 'a':
                return describeChildren(value, type[1] == '{' ? "{" : "[", type[1] == '{' ? "}" : "]", ", ");
            case '(':
                return describeChildren(value, "(", ")", ", ");
            case '{':
                return describeChildren(value, "", "", ": ");
            case 'v':
                return describeChildren(value, "", "", "");
            default:
                char* printed = g_variant_print(value, FALSE);
                _text += printed;
                g_free(printed);
        }
    }
    std::string take() {
        if (_text.size() > kDescriptionLimit) {
            const char* end = nullptr;
            g_utf8_validate_len(_text.data(), kDescriptionLimit, &end);
            _text.resize(static_cast<std::size_t>(end - _text.data()));
            _text += "...";
        }
        return std::move(_text);
    }

  private:
    void describeChildren(GVariant* value, const char* open, const char* close, const char* separator) {
        _text += open;
        gsize count = g_variant_n_children(value);
        for (gsize i = 0; i < count && _text.size() <= kDescriptionLimit; ++i) {
            if (i) _text += separator;
            VariantRef child(g_variant_get_child_value(value, i));
            describe(child.get());
        }
        _text += close;
    }
    void describeBytes(ByteView bytes) {
        if (bytes.size() > kDescribedBytesLimit) {
            _text.append("<").append(std::to_string(bytes.size())).append(" bytes>");
            return;
        }
        std::string_view text = textOf(bytes);
        if (!text.empty() && text.back() == '\0') text.remove_suffix(1);
        describeText(busText(text));
    }
    void describeText(std::string_view text) {
        _text += '"';
        for (char c : text.substr(0, kDescriptionLimit)) {
            auto byte = static_cast<unsigned char>(c);
            if (byte < 0x20 || byte == 0x7f) {
                _text += escapedByte(byte);
            } else {
                _text += c;
            }
        }
        _text += '"';
    }

    std::string _text;
};

}  // namespace

VariantRef plainValue(const BusValue& value) {
    if (value.isNull()) return nullptr;
    VariantRef result(g_variant_ref(value.impl()->value.get()));
    while (g_variant_is_of_type(result.get(), G_VARIANT_TYPE_VARIANT)) {
        result.reset(g_variant_get_variant(result.get()));
    }
    return result;
}

VariantRef plainValue(const BusValue& value, const char* type) {
    VariantRef result = plainValue(value);
    if (result && std::strcmp(g_variant_get_type_string(result.get()), type) != 0) return nullptr;
    return result;
}

BusValue BusValue::string(std::string_view text) {
    return makeBusValue(sinkVariant(newString(text)));
}

BusValue BusValue::int32(std::int32_t value) {
    return makeBusValue(sinkVariant(g_variant_new_int32(value)));
}

BusValue BusValue::uint32(std::uint32_t value) {
    return makeBusValue(sinkVariant(g_variant_new_uint32(value)));
}

BusValue BusValue::int64(std::int64_t value) {
    return makeBusValue(sinkVariant(g_variant_new_int64(value)));
}

BusValue BusValue::boolean(bool value) {
    return makeBusValue(sinkVariant(g_variant_new_boolean(value)));
}

BusValue BusValue::float64(double value) {
    return makeBusValue(sinkVariant(g_variant_new_double(value)));
}

BusValue BusValue::path(std::string_view path) {
    return makeBusValue(sinkVariant(newPath(path)));
}

BusValue BusValue::paths(const std::vector<std::string>& paths) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_BYTESTRING_ARRAY);
    for (const std::string& path : paths) g_variant_builder_add_value(&builder, newPath(path));
    return makeBusValue(sinkVariant(g_variant_builder_end(&builder)));
}

BusValue BusValue::strings(const std::vector<std::string>& texts) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_STRING_ARRAY);
    for (const std::string& text : texts) g_variant_builder_add_value(&builder, newString(text));
    return makeBusValue(sinkVariant(g_variant_builder_end(&builder)));
}

BusValue BusValue::uint32s(const std::vector<std::uint32_t>& values) {
    return makeBusValue(sinkVariant(
        g_variant_new_fixed_array(G_VARIANT_TYPE_UINT32, values.data(), values.size(), sizeof(std::uint32_t))));
}

BusValue BusValue::variant(const BusValue& value) {
    if (value.isNull()) return {};
    return makeBusValue(sinkVariant(g_variant_new_variant(value.impl()->value.get())), value.impl()->files);
}

BusValue BusValue::dictionary(const Dictionary& entries) {
    FileGatherer gatherer;
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    for (const auto& [key, value] : entries) {
        if (value.isNull()) continue;
        VariantRef wrapped = inVariant(gatherer.add(value));
        g_variant_builder_add_value(&builder, g_variant_new_dict_entry(newString(key), wrapped.get()));
    }
    return makeBusValue(sinkVariant(g_variant_builder_end(&builder)), gatherer.files());
}

BusValue BusValue::dictionaries(const std::vector<Dictionary>& all) {
    FileGatherer gatherer;
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("aa{sv}"));
    for (const Dictionary& entries : all)
        g_variant_builder_add_value(&builder, gatherer.add(dictionary(entries)).get());
    return makeBusValue(sinkVariant(g_variant_builder_end(&builder)), gatherer.files());
}

BusValue BusValue::texts(const std::vector<std::pair<std::string, std::string>>& entries) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
    for (const auto& [key, text] : entries)
        g_variant_builder_add_value(&builder, g_variant_new_dict_entry(newString(key), newString(text)));
    return makeBusValue(sinkVariant(g_variant_builder_end(&builder)));
}

BusValue BusValue::structure(const std::vector<BusValue>& members) {
    FileGatherer gatherer;
    std::vector<VariantRef> values;
    std::vector<GVariant*> children;
    for (const BusValue& member : members) {
        if (member.isNull()) return {};
        values.push_back(gatherer.add(member));
        children.push_back(values.back().get());
    }
    return makeBusValue(sinkVariant(g_variant_new_tuple(children.data(), children.size())), gatherer.files());
}

BusValue BusValue::data(ByteView bytes) {
    if (bytes.size() > kInlineLimit) {
        if (FilePtr file = makeSealedFile(bytes)) {
            return makeBusValue(sinkVariant(g_variant_new_handle(0)),
                                std::make_shared<const FileList>(FileList{std::move(file)}));
        }
    }
    return makeBusValue(sinkVariant(newBytes(bytes)));
}

std::string BusValue::type() const {
    return isNull() ? std::string() : g_variant_get_type_string(_value->value.get());
}

std::optional<std::string> BusValue::asString() const {
    VariantRef value = plainValue(*this);
    if (!value || !std::strchr("sog", g_variant_get_type_string(value.get())[0])) return std::nullopt;
    gsize length = 0;
    const char* text = g_variant_get_string(value.get(), &length);
    return std::string(text, length);
}

std::optional<std::int64_t> BusValue::asInteger() const {
    VariantRef value = plainValue(*this);
    if (!value) return std::nullopt;
    switch (g_variant_get_type_string(value.get())[0]) {
        case 'i':
            return g_variant_get_int32(value.get());
        case 'u':
            return g_variant_get_uint32(value.get());
        case 'x':
            return g_variant_get_int64(value.get());
        case 't': {
            guint64 wide = g_variant_get_uint64(value.get());
            return wide > INT64_MAX ? std::nullopt : std::optional<std::int64_t>(wide);
        }
        case 'b':
            return g_variant_get_boolean(value.get()) ? 1 : 0;
        case 'n':
            return g_variant_get_int16(value.get());
        case 'q':
            return g_variant_get_uint16(value.get());
        case 'y':
            return g_variant_get_byte(value.get());
        default:
            return std::nullopt;
    }
}

std::optional<double> BusValue::asDouble() const {
    VariantRef value = plainValue(*this, "d");
    if (!value) return std::nullopt;
    return g_variant_get_double(value.get());
}

std::optional<std::string> BusValue::asPath() const {
    VariantRef value = plainValue(*this, "ay");
    return value ? pathOfArray(value.get()) : std::nullopt;
}

std::optional<std::vector<std::string>> BusValue::asPaths() const {
    VariantRef value = plainValue(*this, "aay");
    if (!value) return std::nullopt;
    std::vector<std::string> result;
    gsize count = g_variant_n_children(value.get());
    for (gsize i = 0; i < count; ++i) {
        VariantRef child(g_variant_get_child_value(value.get(), i));
        std::optional<std::string> path = pathOfArray(child.get());
        if (!path) return std::nullopt;
        result.push_back(std::move(*path));
    }
    return result;
}

std::optional<std::vector<std::string>> BusValue::asStrings() const {
    VariantRef value = plainValue(*this, "as");
    if (!value) return std::nullopt;
    std::vector<std::string> result;
    gsize count = g_variant_n_children(value.get());
    for (gsize i = 0; i < count; ++i) {
        VariantRef child(g_variant_get_child_value(value.get(), i));
        gsize length = 0;
        const char* text = g_variant_get_string(child.get(), &length);
        result.emplace_back(text, length);
    }
    return result;
}

std::optional<std::vector<std::uint32_t>> BusValue::asUint32s() const {
    VariantRef value = plainValue(*this, "au");
    if (!value) return std::nullopt;
    gsize count = 0;
    auto* first = static_cast<const std::uint32_t*>(g_variant_get_fixed_array(value.get(), &count, 4));
    return std::vector<std::uint32_t>(first, first + count);
}

std::optional<BusData> BusValue::asData() const {
    VariantRef value = plainValue(*this);
    if (!value) return std::nullopt;
    const char* type = g_variant_get_type_string(value.get());
    BusData result;
    if (std::strcmp(type, "ay") == 0) {
        result._view = bytesOfArray(value.get());
        result._owner = std::shared_ptr<void>(value.release(),
                                              [](void* variant) { g_variant_unref(static_cast<GVariant*>(variant)); });
        return result;
    }
    if (type[0] != 'h' || !_value->files) return std::nullopt;
    auto index = static_cast<guint32>(g_variant_get_handle(value.get()));
    if (index >= _value->files->size()) return std::nullopt;
    std::optional<MappedFile> mapped = mapSealedFile((*_value->files)[index]->fd());
    if (!mapped) return std::nullopt;
    result._owner = std::move(mapped->owner);
    result._view = mapped->view;
    return result;
}

std::optional<BusValue::Dictionary> BusValue::asDictionary() const {
    VariantRef value = plainValue(*this);
    if (!value) return std::nullopt;
    std::string_view type = g_variant_get_type_string(value.get());
    if (type != "a{sv}" && type != "a{ss}") return std::nullopt;
    Dictionary result;
    gsize count = g_variant_n_children(value.get());
    for (gsize i = 0; i < count; ++i) {
        VariantRef entry(g_variant_get_child_value(value.get(), i));
        VariantRef key(g_variant_get_child_value(entry.get(), 0));
        VariantRef content(g_variant_get_child_value(entry.get(), 1));
        BusValue unwrapped = makeBusValue(plainValue(makeBusValue(std::move(content))), _value->files);
        result.emplace_back(g_variant_get_string(key.get(), nullptr), std::move(unwrapped));
    }
    return result;
}

std::optional<std::vector<BusValue::Dictionary>> BusValue::asDictionaries() const {
    VariantRef value = plainValue(*this, "aa{sv}");
    if (!value) return std::nullopt;
    std::vector<Dictionary> result;
    gsize count = g_variant_n_children(value.get());
    for (gsize i = 0; i < count; ++i) {
        const BusValue child = makeBusValue(VariantRef(g_variant_get_child_value(value.get(), i)), _value->files);
        result.push_back(child.asDictionary().value_or(Dictionary()));
    }
    return result;
}

std::optional<std::vector<BusValue>> BusValue::asStructure() const {
    VariantRef value = plainValue(*this);
    if (!value || g_variant_get_type_string(value.get())[0] != '(') return std::nullopt;
    std::vector<BusValue> members;
    gsize count = g_variant_n_children(value.get());
    for (gsize i = 0; i < count; ++i)
        members.push_back(makeBusValue(VariantRef(g_variant_get_child_value(value.get(), i)), _value->files));
    return members;
}

BusValue BusValue::get(std::string_view key) const {
    VariantRef value = plainValue(*this, "a{sv}");
    if (!value) return {};
    std::string name(key);
    VariantRef found(g_variant_lookup_value(value.get(), name.c_str(), nullptr));
    if (!found) return {};
    return makeBusValue(plainValue(makeBusValue(std::move(found))), _value->files);
}

std::string BusValue::description() const {
    if (isNull()) return "(no value)";
    Describer describer;
    describer.describe(_value->value.get());
    return describer.take();
}

}  // namespace kavaro
