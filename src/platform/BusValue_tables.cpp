#include "platform/BusMessage.h"
#include "platform/BusValue.h"

namespace kavaro {

namespace {

constexpr const char* kTableType = "a{sa{ss}}";
constexpr const char* kTablesType = "a{ua{sa{ss}}}";

GVariant* newEntry(const BusValue& key, GVariant* value) {
    return g_variant_new_dict_entry(key.impl()->value.get(), value);
}

GVariant* newTable(const std::vector<std::pair<std::string, BusValue::Texts>>& table) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE(kTableType));
    for (const auto& [name, texts] : table) {
        const BusValue value = BusValue::texts(texts);
        g_variant_builder_add_value(&builder, newEntry(BusValue::string(name), value.impl()->value.get()));
    }
    return g_variant_builder_end(&builder);
}

std::string stringOf(GVariant* text) {
    gsize length = 0;
    const char* bytes = g_variant_get_string(text, &length);
    return {bytes, length};
}

// Calls `visit` with key and value of each entry.
template <class Visit>
void forEachEntry(GVariant* dictionary, Visit visit) {
    const gsize count = g_variant_n_children(dictionary);
    for (gsize i = 0; i < count; ++i) {
        const VariantRef entry(g_variant_get_child_value(dictionary, i));
        const VariantRef key(g_variant_get_child_value(entry.get(), 0));
        const VariantRef value(g_variant_get_child_value(entry.get(), 1));
        visit(key.get(), value.get());
    }
}

BusValue::Texts textsOf(GVariant* dictionary) {
    BusValue::Texts texts;
    forEachEntry(dictionary,
                 [&](GVariant* key, GVariant* value) { texts.emplace_back(stringOf(key), stringOf(value)); });
    return texts;
}

}  // namespace

BusValue BusValue::textTables(const TextTables& tables) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE(kTablesType));
    for (const auto& [number, table] : tables)
        g_variant_builder_add_value(&builder, newEntry(uint32(number), newTable(table)));
    return makeBusValue(sinkVariant(g_variant_builder_end(&builder)));
}

std::optional<BusValue::TextTables> BusValue::asTextTables() const {
    const VariantRef value = plainValue(*this, kTablesType);
    if (!value) return std::nullopt;
    TextTables tables;
    forEachEntry(value.get(), [&](GVariant* number, GVariant* table) {
        auto& [key, entries] = tables.emplace_back();
        key = g_variant_get_uint32(number);
        forEachEntry(table, [&entries = entries](GVariant* name, GVariant* texts) {
            entries.emplace_back(stringOf(name), textsOf(texts));
        });
    });
    return tables;
}

}  // namespace kavaro
