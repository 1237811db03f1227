#include "client/commandline/FindRanges.h"

#include <algorithm>
#include <vector>

#include "client/commandline/SizeArgument.h"
#include "platform/Text.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

using SizeRange = TuvNodeFilter::SizeRange;
constexpr std::string_view kDots = "..";

// A title, and the same in English.
struct Title {
    std::string shown;
    std::string english;
};

// Index of the title that the text means.
std::optional<std::size_t> indexOf(const std::vector<Title>& titles, std::string_view text) {
    const auto find = [&](auto&& matches) -> std::optional<std::size_t> {
        const auto found = std::find_if(titles.begin(), titles.end(), matches);
        if (found == titles.end()) return std::nullopt;
        return static_cast<std::size_t>(found - titles.begin());
    };
    const auto same = [&](const std::string& title) { return caseInsensitiveCompare(title, text) == 0; };
    if (const auto at = find([&](const Title& title) { return title.shown == text; })) return at;
    if (const auto at = find([&](const Title& title) { return title.english == text; })) return at;
    return find([&](const Title& title) { return same(title.shown) || same(title.english); });
}

std::string quoted(std::string_view text) {
    return "\"" + printable(text) + "\"";
}

std::string listed(const std::vector<Title>& titles) {
    std::string list;
    for (const Title& title : titles) list += (list.empty() ? "" : ", ") + quoted(title.shown);
    return list;
}

// The entries that stand for a range.
TuvNodeFilterItem::Items sizeItems() {
    TuvNodeFilterItem::Items items = TuvNodeFilter::fileSizes();
    std::erase_if(items, [](const auto& item) { return item->type() != TuvNodeFilterItem::kTypeSize; });
    return items;
}

std::vector<Title> sizeTitles(const TuvNodeFilterItem::Items& items) {
    std::vector<Title> titles;
    for (const std::string& title : toTuvNodeFilterItem_title(items)) titles.push_back({title, title});
    return titles;
}

std::vector<Title> dateTitles() {
    const std::vector<std::string> shown = TuvNodeFilter::lastModifiedTypes();
    const std::vector<std::string> english = TuvNodeFilter::lastModifiedDefaultWords();
    std::vector<Title> titles;
    for (std::size_t i = 0; i < shown.size(); ++i)
        if (shown[i] != TuvNodeFilter::kSeparatorTitle) titles.push_back({shown[i], english[i]});
    return titles;
}

std::optional<SizeRange> readRange(std::string_view text, std::string* wrong) {
    const std::size_t dots = text.find(kDots);
    const std::string ends[] = {trimWhiteSpace(text.substr(0, dots)), trimWhiteSpace(text.substr(dots + kDots.size()))};
    SizeRange range{0, UINT64_MAX, true};
    if (ends[0].empty() && ends[1].empty()) {
        *wrong = quoted(text) + " has neither a beginning nor an end";
        return std::nullopt;
    }
    for (int i = 0; i < 2; ++i) {
        if (ends[i].empty()) continue;
        const std::optional<std::uint64_t> size = readSize(ends[i]);
        if (!size) {
            *wrong = quoted(text) + ": " + quoted(ends[i]) + " is no size such as 512, 10 KB, 1.5 GB or 2 TB";
            return std::nullopt;
        }
        (i == 0 ? range.minimum : range.maximum) = *size;
    }
    if (range.minimum <= range.maximum) return range;
    *wrong = quoted(text) + " begins above its end";
    return std::nullopt;
}

}  // namespace

std::optional<FoundKind> readKind(std::string_view text, std::string* wrong) {
    const std::vector<std::string> shown = TuvNodeFilter::fileTypes();
    const std::vector<Title> titles = {
        {shown[0], "any"}, {shown[1], "folder"}, {shown[2], "file"}, {"link", "link"}, {"AnyType", "AnyType"}};
    static constexpr FoundKind kKinds[] = {FoundKind::any, FoundKind::folder, FoundKind::file, FoundKind::link,
                                           FoundKind::any};
    if (const auto at = indexOf(titles, text)) return kKinds[*at];
    *wrong = quoted(text) + " is not file, folder or link";
    return std::nullopt;
}

std::optional<SizeRange> readSizes(std::string_view text, std::string* wrong) {
    const TuvNodeFilterItem::Items items = sizeItems();
    const std::vector<Title> titles = sizeTitles(items);
    if (const auto at = indexOf(titles, text)) {
        SizeRange range = TuvNodeFilter::fileSizeRangeFromItem(items[*at].get());
        if (items[*at]->max().value_or(0) < 1) range.maximum = UINT64_MAX;
        return range;
    }
    if (text.find(kDots) != std::string_view::npos && text.find("...") == std::string_view::npos)
        return readRange(text, wrong);
    *wrong = quoted(text) + " is neither a range such as \"10 MB..\", \"..1 GB\" or \"10 MB..1 GB\" nor one of " +
             listed(titles);
    return std::nullopt;
}

std::optional<TuvNodeFilter::DateRange> readDates(std::string_view text, const LocalTime& now, std::string* wrong) {
    const std::vector<Title> titles = dateTitles();
    if (const auto at = indexOf(titles, text)) return TuvNodeFilter::lastModifiedTypeFromString(titles[*at].shown, now);
    *wrong = quoted(text) + " is not one of " + listed(titles);
    return std::nullopt;
}

std::string rangeList() {
    const auto lines = [](const std::vector<Title>& titles) {
        std::string text;
        for (const Title& title : titles) {
            text += "  " + printable(title.shown);
            if (title.english != title.shown) text += "  (" + title.english + ")";
            text += "\n";
        }
        return text;
    };
    return "--size:\n" + lines(sizeTitles(sizeItems())) + "\n--modified:\n" + lines(dateTitles());
}

}  // namespace kavaro
