#include "filters/TuvNodeFilter.h"

#include "filters/FiltersLog.h"
#include "platform/Localization.h"

namespace kavaro {

namespace {

constexpr double kDay = 86400;
constexpr double kMillisecond = 0.001;

struct DateEntry {
    enum class Kind {
        off,
        today,   // from midnight until now
        last,    // so many days until midnight
        before,  // all that is older than so many days before midnight
        separator,
    };
    const char* key;  // null: not localised
    const char* words;
    Kind kind;
    int days;
};

constexpr DateEntry kDateMenu[] = {
    {"kTuvNodeFilter111", "AnyTime", DateEntry::Kind::off, 0},
    {"kTuvNodeFilter112", "Today", DateEntry::Kind::today, 0},
    {"kTuvNodeFilter113", "Yesterday", DateEntry::Kind::last, 1},
    {"kTuvNodeFilter114", "Last Week", DateEntry::Kind::last, 7},
    {"kTuvNodeFilter115", "Last Month", DateEntry::Kind::last, 31},
    {"kTuvNodeFilter116", "Last 3 Months", DateEntry::Kind::last, 93},
    {"kTuvNodeFilter117", "Last 6 Months", DateEntry::Kind::last, 186},
    {"kTuvNodeFilter118", "Last Year", DateEntry::Kind::last, 365},
    {nullptr, TuvNodeFilter::kSeparatorTitle.data(), DateEntry::Kind::separator, 0},
    {"kTuvNodeFilter119", "Before 1 Year", DateEntry::Kind::before, 365},
    {"kTuvNodeFilter120", "Before 2 Years", DateEntry::Kind::before, 730},
    {"kTuvNodeFilter121", "Before 5 Years", DateEntry::Kind::before, 1825},
    {"kTuvNodeFilter122", "Before 10 Years", DateEntry::Kind::before, 3650},
};

constexpr double kNoBegin = 0.1;  // only switches the test on
constexpr TuvNodeFilter::DateRange kDateOff{0, -1};

std::string titleOf(const DateEntry& entry) {
    return entry.key ? localized(entry.key, entry.words) : entry.words;
}

TuvNodeFilter::DateRange rangeOf(const DateEntry& entry, const LocalTime& time) {
    const double epoch = TuvNode::dateForJan1904();
    const double midnight = startOfDay(time) + kMillisecond - epoch;
    switch (entry.kind) {
        case DateEntry::Kind::today:
            return {midnight, time.secondsSince1970 - epoch};
        case DateEntry::Kind::last:
            return {midnight - entry.days * kDay, midnight};
        case DateEntry::Kind::before:
            return {kNoBegin, midnight - entry.days * kDay};
        case DateEntry::Kind::off:
        case DateEntry::Kind::separator:
            break;
    }
    return kDateOff;
}

std::optional<TuvNodeFilterItem::Items>& sizeMenu() {
    static auto* menu = new std::optional<TuvNodeFilterItem::Items>;
    return *menu;
}

// Saturates: counts out of a file may be of any size.
std::uint64_t product(std::int64_t count, std::uint64_t unit) {
    std::uint64_t bytes = 0;
    return __builtin_mul_overflow(static_cast<std::uint64_t>(count), unit, &bytes) ? UINT64_MAX : bytes;
}

}  // namespace

TuvRef<TuvNodeFilter> TuvNodeFilter::filterFrom(std::string_view type, const TuvNodeFilterItem* size,
                                                std::string_view date, std::string_view name, const LocalTime& now) {
    auto filter = make<TuvNodeFilter>();
    filter->_type = fileTypeFromString(type);
    filter->_size = fileSizeRangeFromItem(size);
    filter->_date = lastModifiedTypeFromString(date, now);
    filter->setName(name);
    if (tuvNodeFilterLog.debugOn()) TuvLog::debug(tuvNodeFilterLog, "filterFrom", "%@", filter->description());
    return filter;
}

TuvRef<TuvNodeFilter> TuvNodeFilter::filterFrom(std::string_view type, const TuvNodeFilterItem* size,
                                                const TuvNodeFilterItem*, std::string_view name) {
    return filterFrom(type, size, std::string_view(), name);
}

void TuvNodeFilter::setName(std::string_view name) {
    _name.reset();
    _search.reset();
    if (name.empty()) return;
    _name.emplace(name);
    _search.emplace(name);
}

bool TuvNodeFilter::accepts(const TuvNode& node, bool exactName) const {
    if (_type != kAnyType && static_cast<std::uint32_t>(node.nodeType()) != _type) return false;
    if (_size.isOn && (node.physicalSize() < _size.minimum || node.physicalSize() > _size.maximum)) return false;
    if (_date.begin > 0 && (node.contentModDate() < _date.begin || node.contentModDate() > _date.end)) return false;
    if (!_name || !node.hasFileName()) return true;
    return exactName ? node.fileName() == *_name : _search->isIn(node.fileName());
}

std::string TuvNodeFilter::description() const {
    std::string text = "type=" + std::to_string(_type);
    if (_size.isOn) text += " size=" + std::to_string(_size.minimum) + ".." + std::to_string(_size.maximum);
    if (_date.begin > 0) text += formatted(" date=%.3f..%.3f", _date.begin, _date.end);
    if (_name) text += " name=[" + *_name + "]";
    return text;
}

std::vector<std::string> TuvNodeFilter::fileTypes() {
    return {localized("kTuvNodeFilter01", "AnyType"), localized("kTuvNodeFilter02", "Folder"),
            localized("kTuvNodeFilter03", "File")};
}

std::uint32_t TuvNodeFilter::fileTypeFromString(std::string_view word) {
    return word == "File" ? kFile : word == "Folder" ? kFolder : word == "Link" ? kLink : kAnyType;
}

std::string TuvNodeFilter::customizeStringTitle() {
    return localized("kTuvNodeFilter200", "Customize ...");
}

TuvNodeFilterItem::Items TuvNodeFilter::fileSizes() {
    std::optional<TuvNodeFilterItem::Items>& menu = sizeMenu();
    if (menu) return *menu;
    menu = TuvNodeFilterItem::defaultFileSizeItems();
    menu->push_back(TuvNodeFilterItem::separator());
    menu->push_back(TuvNodeFilterItem::customize());
    for (auto& item : ivars_toTuvNodeFilterItem(TuvNodeFilterItem::customSizeItems())) menu->push_back(std::move(item));
    return *menu;
}

void TuvNodeFilter::resetFileSizes() {
    sizeMenu().reset();
}

TuvNodeFilter::SizeRange TuvNodeFilter::fileSizeRangeFromItem(const TuvNodeFilterItem* item) {
    SizeRange range;
    if (!item) return range;
    if (const std::int64_t min = item->min().value_or(0); min > 0) {
        range.isOn = true;
        range.minimum = product(min, item->minTypeRange());
    }
    if (const std::int64_t max = item->max().value_or(0); max > 0) {
        range.isOn = true;
        range.maximum = product(max, item->maxTypeRange());
    }
    return range;
}

std::vector<std::string> TuvNodeFilter::lastModifiedTypes() {
    std::vector<std::string> titles;
    for (const DateEntry& entry : kDateMenu) titles.push_back(titleOf(entry));
    return titles;
}

std::vector<std::string> TuvNodeFilter::lastModifiedDefaultWords() {
    std::vector<std::string> titles;
    for (const DateEntry& entry : kDateMenu) titles.emplace_back(entry.words);
    return titles;
}

TuvNodeFilter::DateRange TuvNodeFilter::lastModifiedTypeFromString(std::string_view title, const LocalTime& now) {
    if (title.empty()) return kDateOff;
    for (const DateEntry& entry : kDateMenu)
        if (title == titleOf(entry)) return rangeOf(entry, now);
    return kDateOff;
}

}  // namespace kavaro
