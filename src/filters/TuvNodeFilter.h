#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "filters/TuvNodeFilterItem.h"
#include "model/NodeFilterRule.h"
#include "model/TuvNode.h"
#include "model/TuvObject.h"
#include "model/TuvRef.h"
#include "platform/LocalTime.h"
#include "platform/Text.h"
#include "support/Units.h"

namespace kavaro {

// Chooses nodes by kind, physical size, modification date and name: what was picked from the menus. Applied with
// TuvNode::filterUsing and TuvObjectArray::filterUsing; there the flag asks for the exact name, otherwise the name is
// looked for anywhere in the node's, letter case ignored. A node without a name passes the name test.
// Filters are read by any number of threads; the menus belong to the main thread.
class TuvNodeFilter : public TuvObject, public NodeFilterRule {
  public:
    enum FileType : std::uint32_t { kAnyType = 0, kFile = 1, kFolder = 2, kLink = 3 };
    static constexpr std::string_view kSeparatorTitle = "---";
    struct SizeRange {
        std::uint64_t minimum = 0;  // bytes; both ends pass
        std::uint64_t maximum = Tuv_TB;
        bool isOn = false;
        bool operator==(const SizeRange&) const = default;
    };
    struct DateRange {
        double begin = 0;  // seconds since 1904-01-01 00:00:00 UTC; both ends pass. Above 0: the test is on
        double end = 0;
        bool operator==(const DateRange&) const = default;
    };

    TuvNodeFilter() = default;  // everything passes
    // Absent texts and items (null) leave their test off. An item as the date does so too: dates are chosen by title.
    static TuvRef<TuvNodeFilter> filterFrom(std::string_view type, const TuvNodeFilterItem* size, std::string_view date,
                                            std::string_view name, const LocalTime& now = LocalTime::now());
    static TuvRef<TuvNodeFilter> filterFrom(std::string_view type, const TuvNodeFilterItem* size,
                                            const TuvNodeFilterItem* date, std::string_view name);

    std::uint32_t type() const { return _type; }
    void setType(std::uint32_t type) { _type = type; }
    const SizeRange& sizeRange() const { return _size; }
    void setSizeRange(const SizeRange& range) { _size = range; }
    const DateRange& dateRange() const { return _date; }
    void setDateRange(const DateRange& range) { _date = range; }
    const std::optional<std::string>& name() const { return _name; }
    void setName(std::string_view name);  // an empty one is none

    bool accepts(const TuvNode& node, bool exactName) const override;
    std::string description() const override;

    // The menus. Titles are localised but for "---" and those of sizes.
    static std::vector<std::string> fileTypes();
    static std::uint32_t fileTypeFromString(std::string_view word);  // "File", "Folder", "Link"
    static std::string customizeStringTitle();
    // Default sizes, a separator, "Customize ...", then the user's own. Built once; items are shared with the menu.
    static TuvNodeFilterItem::Items fileSizes();
    static void resetFileSizes();  // the next fileSizes() is built anew
    static SizeRange fileSizeRangeFromItem(const TuvNodeFilterItem* item);
    static std::vector<std::string> lastModifiedTypes();
    static std::vector<std::string> lastModifiedDefaultWords();  // the same titles, not localised
    // For a localised title; begin 0 and end -1 for anything else. "Today" ends now, all others at or before midnight.
    static DateRange lastModifiedTypeFromString(std::string_view title, const LocalTime& now = LocalTime::now());

  protected:
    ~TuvNodeFilter() override = default;

  private:
    std::uint32_t _type = kAnyType;
    SizeRange _size;
    DateRange _date;
    std::optional<std::string> _name;
    std::optional<CaseInsensitiveSearch> _search;  // for the name
};

}  // namespace kavaro
