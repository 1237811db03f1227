#include "filters/TuvNodeFilterItem.h"

#include <algorithm>

#include "filters/FiltersLog.h"
#include "filters/TuvNodeFilter.h"
#include "support/DictionaryHelpers.h"
#include "support/Units.h"

namespace kavaro {

namespace {

constexpr std::int64_t kLargestCount = Tuv_KB - 1;

std::string upperCase(std::string_view text) {
    std::string upper(text);
    for (char& c : upper)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return upper;
}

std::uint64_t bytesOfUnit(std::string_view unit) {
    const std::string upper = upperCase(unit);
    return upper == "KB" ? Tuv_KB : upper == "MB" ? Tuv_MB : upper == "GB" ? Tuv_GB : 1;
}

// Month and day without leading zeros.
std::string dayText(PropertyList::Date date, const std::string& zone) {
    const CalendarDay day = calendarDay({date.secondsSince1970, zone});
    return std::to_string(day.month) + "/" + std::to_string(day.day) + "/" + formatted("%04d", day.year);
}

std::string countText(const std::optional<std::int64_t>& count, const std::string& unit) {
    return std::to_string(count.value_or(0)) + " " + unit;
}

void logArgument(const char* selector, const PropertyList& argument) {
    if (tuvNodeFilterItemLog.debugOn()) TuvLog::debug(tuvNodeFilterItemLog, selector, "%@", argument);
}

// "setMin" of "min".
std::string setterOf(std::string_view key) {
    std::string name = "set" + std::string(key);
    name[3] = static_cast<char>(name[3] - 'a' + 'A');
    return name;
}

}  // namespace

TuvNodeFilterItem::TuvNodeFilterItem(double secondsSince1970)
    : _ivars(PropertyList::Dictionary{{"type", kTypeSize},
                                      {"min", 1},
                                      {"minType", "MB"},
                                      {"max", 101},
                                      {"maxType", "MB"},
                                      {"beginDate", Date{secondsSince1970}},
                                      {"endDate", Date{secondsSince1970}}}) {}

std::shared_ptr<TuvNodeFilterItem> TuvNodeFilterItem::initWithIvars(const PropertyList& ivars) {
    auto item = std::make_shared<TuvNodeFilterItem>();
    const auto integer = [&](const char* key) {
        const PropertyList* value = ivars.get(key);
        return value ? value->intValue() : 0;
    };
    const auto text = [&](const char* key) {
        const PropertyList* value = ivars.get(key);
        return value && value->string() ? *value->string() : std::string();
    };
    for (const char* key : {"type", "min", "max"}) item->_ivars.set(key, integer(key));
    item->setMinType(text("minType"));
    item->setMaxType(text("maxType"));
    if (ivars.get("title")) item->_ivars.set("title", text("title"));
    if (item->type() != kTypeDate) return item;
    for (const char* key : {"beginDate", "endDate"}) {
        const PropertyList* value = ivars.get(key);
        item->_ivars.remove(key);
        if (value && value->as<Date>()) item->_ivars.set(key, *value);
    }
    return item;
}

std::shared_ptr<TuvNodeFilterItem> TuvNodeFilterItem::customize() {
    auto item = separator();
    item->setTitle(TuvNodeFilter::customizeStringTitle());
    return item;
}

std::shared_ptr<TuvNodeFilterItem> TuvNodeFilterItem::separator() {
    auto item = std::make_shared<TuvNodeFilterItem>();
    item->setType(kTypeMenu);
    return item;
}

std::string_view TuvNodeFilterItem::typeEmpty() {
    return "...";
}

const PropertyList::Array& TuvNodeFilterItem::sizeTypeContent() {
    static const auto* content = [] {
        auto* units = new PropertyList::Array;
        for (const std::string_view name : {std::string_view(), typeEmpty(), std::string_view("bytes"),
                                            std::string_view("KB"), std::string_view("MB"), std::string_view("GB")})
            units->push_back(PropertyList::Dictionary{{"typeName", std::string(name)}});
        return units;
    }();
    return *content;
}

std::string TuvNodeFilterItem::description() const {
    return descriptionInOneLine(_ivars);
}

bool TuvNodeFilterItem::isSeparator() const {
    return type() == kTypeMenu && title().empty();
}

bool TuvNodeFilterItem::isCustomize() const {
    return type() == kTypeMenu && !title().empty();
}

std::int64_t TuvNodeFilterItem::type() const {
    const PropertyList* type = _ivars.get("type");
    return type ? type->intValue() : 0;
}

void TuvNodeFilterItem::setType(std::int64_t type) {
    logArgument("setType", type);
    _ivars.set("type", type);
}

std::string TuvNodeFilterItem::title(const std::string& zone) const {
    if (type() == kTypeMenu) return unit("title");
    if (type() == kTypeSize) {
        const bool hasMin = min().value_or(0) > 0;
        const bool hasMax = max().value_or(0) > 0;
        if (hasMin && hasMax) return "(" + countText(min(), minType()) + " ... " + countText(max(), maxType()) + ")";
        if (hasMin) return "> " + countText(min(), minType());
        return hasMax ? "< " + countText(max(), maxType()) : "Any Size";
    }
    if (type() == kTypeDate) {
        const std::optional<Date> begin = beginDate(), end = endDate();
        if (begin && end) return "(" + dayText(*begin, zone) + " ... " + dayText(*end, zone) + ")";
        if (begin) return "> " + dayText(*begin, zone);
        return end ? "< " + dayText(*end, zone) : "Any Time";
    }
    return {};
}

void TuvNodeFilterItem::setTitle(std::string_view title) {
    if (tuvNodeFilterItemLog.debugOn()) TuvLog::debug(tuvNodeFilterItemLog, "setTitle", "%@", title);
    _ivars.set("title", title);
}

std::uint64_t TuvNodeFilterItem::minTypeRange() const {
    return bytesOfUnit(minType());
}

std::uint64_t TuvNodeFilterItem::maxTypeRange() const {
    return bytesOfUnit(maxType());
}

std::optional<std::int64_t> TuvNodeFilterItem::count(std::string_view key) const {
    const PropertyList* value = _ivars.get(key);
    return value ? std::optional(value->intValue()) : std::nullopt;
}

std::string TuvNodeFilterItem::unit(std::string_view key) const {
    const PropertyList* value = _ivars.get(key);
    return value && value->string() ? *value->string() : std::string();
}

std::optional<TuvNodeFilterItem::Date> TuvNodeFilterItem::date(std::string_view key) const {
    const PropertyList* value = _ivars.get(key);
    const Date* date = value ? value->as<Date>() : nullptr;
    return date ? std::optional(*date) : std::nullopt;
}

void TuvNodeFilterItem::setCount(const char* key, const char* unitKey, std::optional<std::int64_t> count) {
    logArgument(setterOf(key).c_str(), count ? PropertyList(*count) : PropertyList());
    announce(Change::will, "title");
    announce(Change::will, key);
    if (count) {
        _ivars.set(key, std::min(*count, kLargestCount));
    } else {
        _ivars.remove(key);
    }
    if (count.value_or(0) < 1) _ivars.set(unitKey, "");
    announce(Change::did, key);
    announce(Change::did, "title");
}

void TuvNodeFilterItem::setUnit(const char* key, const char* unitKey, std::string_view unit) {
    if (tuvNodeFilterItemLog.debugOn()) TuvLog::debug(tuvNodeFilterItemLog, setterOf(unitKey).c_str(), "\"%@\"", unit);
    if (unit.empty() || upperCase(unit) == upperCase(typeEmpty())) {
        _ivars.set(unitKey, typeEmpty());
        _ivars.remove(key);
        return;
    }
    _ivars.set(unitKey, unit);
    if (count(key).value_or(0) < 1) _ivars.set(key, 1);
}

void TuvNodeFilterItem::setDate(const char* key, std::optional<Date> date) {
    const PropertyList value = date ? PropertyList(*date) : PropertyList();
    logArgument(setterOf(key).c_str(), value);
    if (date) {
        _ivars.set(key, value);
    } else {
        _ivars.remove(key);
    }
}

void TuvNodeFilterItem::announce(Change change, std::string_view key) const {
    if (_announcement) _announcement(change, key);
}

}  // namespace kavaro
