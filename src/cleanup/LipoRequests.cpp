#include "cleanup/LipoRequests.h"

#include <string_view>
#include <utility>

namespace kavaro {

namespace {

constexpr const char* kInode = "inode";
constexpr const char* kFilePath = "filePath";
constexpr const char* kArchTypes = "archTypes";

BusValue valueIn(const BusValue::Dictionary& entry, std::string_view key) {
    for (const auto& [name, value] : entry)
        if (name == key) return value;
    return {};
}

std::optional<std::string> absolutePathIn(const BusValue::Dictionary& entry) {
    auto path = valueIn(entry, kFilePath).asPath();
    if (!path || path->empty() || path->front() != '/') return std::nullopt;
    return path;
}

std::optional<LipoQuestion> questionIn(const BusValue::Dictionary& entry) {
    const auto inode = valueIn(entry, kInode).asInteger();
    auto path = absolutePathIn(entry);
    if (!inode || *inode < 0 || *inode > UINT32_MAX || !path) return std::nullopt;
    return LipoQuestion{static_cast<std::uint32_t>(*inode), std::move(*path)};
}

std::optional<LipoRemoval> removalIn(const BusValue::Dictionary& entry) {
    auto path = absolutePathIn(entry);
    auto names = valueIn(entry, kArchTypes).asStrings();
    if (!path || !names) return std::nullopt;
    return LipoRemoval{std::move(*path), std::move(*names)};
}

// All of them, or nothing.
template <class File>
std::optional<std::vector<File>> filesIn(const BusValue& value,
                                         std::optional<File> (*fileIn)(const BusValue::Dictionary&)) {
    const auto entries = value.asDictionaries();
    if (!entries) return std::nullopt;
    std::vector<File> files;
    files.reserve(entries->size());
    for (const BusValue::Dictionary& entry : *entries) {
        auto file = fileIn(entry);
        if (!file) return std::nullopt;
        files.push_back(std::move(*file));
    }
    return files;
}

BusValue::Texts textsOf(const PropertyList& entry) {
    BusValue::Texts texts;
    for (const auto& [key, value] : *entry.dictionary())
        if (value.string()) texts.emplace_back(key, *value.string());
    return texts;
}

}  // namespace

BusValue busValueOf(const std::vector<LipoQuestion>& files) {
    std::vector<BusValue::Dictionary> entries;
    for (const LipoQuestion& file : files)
        entries.push_back({{kInode, BusValue::uint32(file.inode)}, {kFilePath, BusValue::path(file.filePath)}});
    return BusValue::dictionaries(entries);
}

BusValue busValueOf(const LipoTables& tables) {
    BusValue::TextTables values;
    for (const auto& [inode, table] : tables) {
        auto& [number, entries] = values.emplace_back();
        number = inode;
        for (const auto& [name, entry] : *table.dictionary()) entries.emplace_back(name, textsOf(entry));
    }
    return BusValue::textTables(values);
}

BusValue busValueOf(const std::vector<LipoRemoval>& files) {
    std::vector<BusValue::Dictionary> entries;
    for (const LipoRemoval& file : files)
        entries.push_back(
            {{kFilePath, BusValue::path(file.filePath)}, {kArchTypes, BusValue::strings(file.archTypes)}});
    return BusValue::dictionaries(entries);
}

std::optional<std::vector<LipoQuestion>> lipoQuestionsIn(const BusValue& value) {
    return filesIn<LipoQuestion>(value, questionIn);
}

std::optional<LipoTables> lipoTablesIn(const BusValue& value) {
    const auto values = value.asTextTables();
    if (!values) return std::nullopt;
    LipoTables tables;
    for (const auto& [inode, entries] : *values) {
        PropertyList table = PropertyList::Dictionary();
        for (const auto& [name, texts] : entries) {
            PropertyList entry = PropertyList::Dictionary();
            for (const auto& [key, text] : texts) entry.set(key, text);
            table.set(name, std::move(entry));
        }
        tables.insert_or_assign(inode, std::move(table));
    }
    return tables;
}

std::optional<std::vector<LipoRemoval>> lipoRemovalsIn(const BusValue& value) {
    return filesIn<LipoRemoval>(value, removalIn);
}

}  // namespace kavaro
