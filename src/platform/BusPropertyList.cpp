#include "platform/BusPropertyList.h"

#include "platform/BusMessage.h"

namespace kavaro {

namespace {

constexpr int kDeepest = 30;

BusValue valueOf(const PropertyList& value, int depth);

BusValue arrayOf(const PropertyList::Array& items, int depth) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("av"));
    for (const PropertyList& item : items) {
        const BusValue content = BusValue::variant(valueOf(item, depth + 1));
        if (!content.isNull()) g_variant_builder_add_value(&builder, content.impl()->value.get());
    }
    return makeBusValue(sinkVariant(g_variant_builder_end(&builder)));
}

BusValue dictionaryOf(const PropertyList::Dictionary& entries, int depth) {
    BusValue::Dictionary values;
    for (const auto& [key, value] : entries) values.emplace_back(key, valueOf(value, depth + 1));
    return BusValue::dictionary(values);
}

BusValue valueOf(const PropertyList& value, int depth) {
    if (depth > kDeepest) return {};
    if (const auto* flag = value.as<bool>()) return BusValue::boolean(*flag);
    if (const auto* number = value.as<std::int64_t>()) return BusValue::int64(*number);
    if (const auto* number = value.as<double>()) return BusValue::float64(*number);
    if (const auto* date = value.as<PropertyList::Date>()) return BusValue::float64(date->secondsSince1970);
    if (const std::string* text = value.string()) return BusValue::string(*text);
    if (const auto* data = value.as<PropertyList::Data>()) {
        return makeBusValue(sinkVariant(g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, data->data(), data->size(), 1)));
    }
    if (const PropertyList::Array* items = value.array()) return arrayOf(*items, depth);
    if (const PropertyList::Dictionary* entries = value.dictionary()) return dictionaryOf(*entries, depth);
    return {};
}

}  // namespace

BusValue busValueOf(const PropertyList& value) {
    return valueOf(value, 0);
}

}  // namespace kavaro
