#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/LocalTime.h"
#include "platform/PropertyList.h"

namespace kavaro {

// One entry of the size or the date menu. All its state is one dictionary, so that it is kept in property lists as it
// is. Owned by the menus and by whoever shows them; main thread.
class TuvNodeFilterItem {
  public:
    static constexpr std::int64_t kTypeMenu = 0;  // a separator or "Customize ..."
    static constexpr std::int64_t kTypeSize = 1;
    static constexpr std::int64_t kTypeDate = 2;
    using Items = std::vector<std::shared_ptr<TuvNodeFilterItem>>;
    using Date = PropertyList::Date;
    // setMin and setMax announce "title" and their own key: before anything changes and after everything has.
    enum class Change { will, did };
    using Announcement = std::function<void(Change, std::string_view key)>;

    // A size item, 1 MB to 101 MB; its dates are now.
    explicit TuvNodeFilterItem(double secondsSince1970 = LocalTime::now().secondsSince1970);
    // Counts become integers, units pass their setters. A date item has the dates that the dictionary has.
    static std::shared_ptr<TuvNodeFilterItem> initWithIvars(const PropertyList& ivars);
    static std::shared_ptr<TuvNodeFilterItem> customize();
    static std::shared_ptr<TuvNodeFilterItem> separator();
    static std::string_view typeEmpty();                  // "...", the unit of a count that is none
    static const PropertyList::Array& sizeTypeContent();  // the unit menu: dictionaries with "typeName"

    // Read once from the resources "defaultFileSizeItems.plist" and "defaultLastModifiedItems.plist"; empty, with one
    // error line, where such a file makes no sense.
    static const Items& defaultFileSizeItems();
    static const Items& defaultLastModifiedItems();
    static std::optional<Items> itemsFromFile(const std::string& path);
    // Dictionaries in the user defaults; what is no dictionary there is left out. Both setters call
    // TuvNodeFilter::resetFileSizes(); a write that fails is logged.
    static PropertyList::Array customSizeItems();
    static void setCustomSizeItems(const PropertyList::Array& ivars);
    static PropertyList::Array customLastModifiedItems();
    static void setCustomLastModifiedItems(const PropertyList::Array& ivars);

    const PropertyList& ivars() const { return _ivars; }
    std::string description() const;
    bool isSeparator() const;
    bool isCustomize() const;
    std::int64_t type() const;
    void setType(std::int64_t type);
    // What the menu shows. Dates are those of the time zone (see LocalTime).
    std::string title(const std::string& zone = {}) const;
    void setTitle(std::string_view title);  // shown by items of type 0

    std::optional<std::int64_t> min() const { return count("min"); }
    std::optional<std::int64_t> max() const { return count("max"); }
    void setMin(std::optional<std::int64_t> count) { setCount("min", "minType", count); }
    void setMax(std::optional<std::int64_t> count) { setCount("max", "maxType", count); }
    std::string minType() const { return unit("minType"); }
    std::string maxType() const { return unit("maxType"); }
    void setMinType(std::string_view unit) { setUnit("min", "minType", unit); }
    void setMaxType(std::string_view unit) { setUnit("max", "maxType", unit); }
    std::uint64_t minTypeRange() const;  // bytes of one unit; 1 for an unknown one
    std::uint64_t maxTypeRange() const;
    std::optional<Date> beginDate() const { return date("beginDate"); }
    std::optional<Date> endDate() const { return date("endDate"); }
    void setBeginDate(std::optional<Date> date) { setDate("beginDate", date); }
    void setEndDate(std::optional<Date> date) { setDate("endDate", date); }
    void setAnnouncement(Announcement announcement) { _announcement = std::move(announcement); }

  private:
    std::optional<std::int64_t> count(std::string_view key) const;
    std::string unit(std::string_view key) const;
    std::optional<Date> date(std::string_view key) const;
    void setCount(const char* key, const char* unitKey, std::optional<std::int64_t> count);
    void setUnit(const char* key, const char* unitKey, std::string_view unit);
    void setDate(const char* key, std::optional<Date> date);
    void announce(Change change, std::string_view key) const;

    PropertyList _ivars;
    Announcement _announcement;
};

// Menu items as dictionaries, as titles, and back.
PropertyList::Array toTuvNodeFilterItem_ivars(const TuvNodeFilterItem::Items& items);
std::vector<std::string> toTuvNodeFilterItem_title(const TuvNodeFilterItem::Items& items);
TuvNodeFilterItem::Items ivars_toTuvNodeFilterItem(const PropertyList::Array& ivars);

}  // namespace kavaro
