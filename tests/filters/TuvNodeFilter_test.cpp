#include "filters/TuvNodeFilter.h"

#include <gtest/gtest.h>

#include <cmath>

#include "LogCapture.h"
#include "ScopedEnvironment.h"
#include "filters/FilterTest.h"
#include "filters/FiltersLog.h"
#include "model/ModelLog.h"

namespace kavaro {
namespace {

using Range = TuvNodeFilter::SizeRange;
using Dates = TuvNodeFilter::DateRange;

// 2026-03-11 14:30:00 in Berlin, when it is 13:30 UTC.
const LocalTime kWednesday{1773235800, "Europe/Berlin"};
constexpr double kMidnight = 1773183600 + kEpoch + 0.001;

TuvRef<TuvNodeFilter> bySize(std::optional<std::int64_t> min, std::string_view minType, std::optional<std::int64_t> max,
                             std::string_view maxType) {
    TuvNodeFilterItem item;
    item.setMinType(minType);
    item.setMin(min);
    item.setMaxType(maxType);
    item.setMax(max);
    return TuvNodeFilter::filterFrom({}, &item, {}, {});
}

TuvRef<TuvNodeFilter> byDate(std::string_view title, const LocalTime& now = kWednesday) {
    return TuvNodeFilter::filterFrom({}, nullptr, title, {}, now);
}

TuvRef<TuvNodeFilter> byName(std::string_view name) {
    return TuvNodeFilter::filterFrom({}, nullptr, nullptr, name);
}

TEST(TuvNodeFilter, aNewOnePassesEverything) {
    const auto filter = make<TuvNodeFilter>();
    EXPECT_EQ(filter->type(), 0u);
    EXPECT_EQ(filter->sizeRange(), (Range{0, Tuv_TB, false}));
    EXPECT_EQ(filter->dateRange(), (Dates{0, 0}));
    EXPECT_EQ(filter->name(), std::nullopt);
    EXPECT_EQ(filter->retainCount(), 1u);
    EXPECT_TRUE(passes(filter, {.name = {}, .physicalSize = 9 * Tuv_TB, .flags = 0}));
}

TEST(TuvNodeFilter, nothingAskedForIsNothingTested) {
    for (const auto& filter : {TuvNodeFilter::filterFrom({}, nullptr, nullptr, {}),
                               TuvNodeFilter::filterFrom("", nullptr, "", "", kWednesday),
                               TuvNodeFilter::filterFrom("AnyType", nullptr, "AnyTime", "", kWednesday)}) {
        EXPECT_EQ(filter->type(), 0u);
        EXPECT_FALSE(filter->sizeRange().isOn);
        EXPECT_EQ(filter->dateRange(), (Dates{0, -1}));
        EXPECT_EQ(filter->name(), std::nullopt);
        EXPECT_TRUE(passes(filter, {.physicalSize = 9 * Tuv_TB, .date = 1e12}));
    }
}

TEST(TuvNodeFilter, kinds) {
    EXPECT_EQ(TuvNodeFilter::fileTypeFromString("File"), 1u);
    EXPECT_EQ(TuvNodeFilter::fileTypeFromString("Folder"), 2u);
    EXPECT_EQ(TuvNodeFilter::fileTypeFromString("Link"), 3u);
    for (const char* other : {"", "file", "FOLDER", "Link ", "AnyType", "\xff"})
        EXPECT_EQ(TuvNodeFilter::fileTypeFromString(other), 0u) << other;
    EXPECT_EQ(TuvNodeFilter::fileTypes(), (std::vector<std::string>{"AnyType", "Folder", "File"}));

    constexpr std::uint16_t kKinds[] = {TuvNode::kFile, TuvNode::kFolder, 0, TuvNode::kFile | TuvNode::kFolder};
    const struct {
        const char* type;
        bool passes[4];
    } rows[] = {{"File", {true, false, false, true}},
                {"Folder", {false, true, false, false}},
                {"Link", {false, false, true, false}},
                {"Other", {true, true, true, true}}};
    for (const auto& row : rows) {
        const auto filter = TuvNodeFilter::filterFrom(row.type, nullptr, nullptr, {});
        for (int kind = 0; kind < 4; ++kind)
            EXPECT_EQ(passes(filter, {.flags = kKinds[kind]}), row.passes[kind]) << row.type << " " << kind;
    }
}

TEST(TuvNodeFilter, sizesBothEndsIncluded) {
    const auto filter = bySize(10, "KB", 1, "MB");
    EXPECT_EQ(filter->sizeRange(), (Range{10240, 1048576, true}));
    EXPECT_FALSE(passes(filter, {.physicalSize = 10239}));
    EXPECT_TRUE(passes(filter, {.physicalSize = 10240}));
    EXPECT_TRUE(passes(filter, {.physicalSize = 1048576}));
    EXPECT_FALSE(passes(filter, {.physicalSize = 1048577}));
}

TEST(TuvNodeFilter, sizesAreThoseOnDisk) {
    const auto filter = bySize(10, "KB", 0, "MB");
    auto node = newNode({.physicalSize = 4096});
    node->setLogicalSize(1 << 30);
    EXPECT_FALSE(node->filterUsing(filter.get()));
}

TEST(TuvNodeFilter, openEnds) {
    const auto from = bySize(10, "MB", 0, "MB");
    EXPECT_EQ(from->sizeRange(), (Range{10 * Tuv_MB, Tuv_TB, true}));
    EXPECT_FALSE(passes(from, {.physicalSize = 10 * Tuv_MB - 1}));
    EXPECT_TRUE(passes(from, {.physicalSize = 10 * Tuv_MB}));
    EXPECT_TRUE(passes(from, {.physicalSize = Tuv_TB}));
    EXPECT_FALSE(passes(from, {.physicalSize = Tuv_TB + 1}));
    const auto to = bySize(0, "MB", 3, "GB");
    EXPECT_EQ(to->sizeRange(), (Range{0, 3 * Tuv_GB, true}));
    EXPECT_TRUE(passes(to, {.physicalSize = 0}));
    EXPECT_FALSE(passes(to, {.physicalSize = 3 * Tuv_GB + 1}));
    EXPECT_EQ(bySize(0, "MB", 0, "MB")->sizeRange(), (Range{0, Tuv_TB, false}));
    EXPECT_EQ(bySize(std::nullopt, "", std::nullopt, "")->sizeRange(), (Range{0, Tuv_TB, false}));
    EXPECT_EQ(bySize(-5, "MB", -1, "MB")->sizeRange(), (Range{0, Tuv_TB, false}));
}

TEST(TuvNodeFilter, unitsOfSizes) {
    for (const auto& [unit, bytes] : std::vector<std::pair<const char*, std::uint64_t>>{{"bytes", 1},
                                                                                        {"BYTES", 1},
                                                                                        {"kb", 1024},
                                                                                        {"KB", 1024},
                                                                                        {"Mb", 1048576},
                                                                                        {"gB", 1073741824},
                                                                                        {"TB", 1},
                                                                                        {"furlongs", 1}}) {
        EXPECT_EQ(bySize(2, unit, 0, "")->sizeRange().minimum, 2 * bytes) << unit;
        EXPECT_EQ(bySize(0, "", 2, unit)->sizeRange().maximum, 2 * bytes) << unit;
    }
}

TEST(TuvNodeFilter, countsOutOfAFileDoNotOverflow) {
    const auto item = TuvNodeFilterItem::initWithIvars(PropertyList::Dictionary{
        {"type", 1}, {"min", INT64_MAX}, {"minType", "GB"}, {"max", INT64_MAX}, {"maxType", "GB"}});
    EXPECT_EQ(TuvNodeFilter::fileSizeRangeFromItem(item.get()), (Range{UINT64_MAX, UINT64_MAX, true}));
}

TEST(TuvNodeFilter, dateRanges) {
    constexpr double kDay = 86400;
    const double now = kWednesday.secondsSince1970 + kEpoch;
    const std::pair<const char*, Dates> ranges[] = {
        {"AnyTime", {0, -1}},
        {"Today", {kMidnight, now}},
        {"Yesterday", {kMidnight - kDay, kMidnight}},
        {"Last Week", {kMidnight - 604800, kMidnight}},
        {"Last Month", {kMidnight - 2678400, kMidnight}},
        {"Last 3 Months", {kMidnight - 8035200, kMidnight}},
        {"Last 6 Months", {kMidnight - 16070400, kMidnight}},
        {"Last Year", {kMidnight - 31536000, kMidnight}},
        {"---", {0, -1}},
        {"Before 1 Year", {0.1, kMidnight - 31536000}},
        {"Before 2 Years", {0.1, kMidnight - 63072000}},
        {"Before 5 Years", {0.1, kMidnight - 157680000}},
        {"Before 10 Years", {0.1, kMidnight - 315360000}},
    };
    std::vector<std::string> titles;
    for (const auto& [title, range] : ranges) {
        const Dates made = TuvNodeFilter::lastModifiedTypeFromString(title, kWednesday);
        EXPECT_DOUBLE_EQ(made.begin, range.begin) << title;
        EXPECT_DOUBLE_EQ(made.end, range.end) << title;
        titles.push_back(title);
    }
    EXPECT_EQ(TuvNodeFilter::lastModifiedTypes(), titles);
    EXPECT_EQ(TuvNodeFilter::lastModifiedDefaultWords(), titles);
    for (const char* other : {"", "today", "Last Week ", "Last week", "Before", "\xff", "kTuvNodeFilter112"})
        EXPECT_EQ(TuvNodeFilter::lastModifiedTypeFromString(other, kWednesday), (Dates{0, -1})) << other;
    EXPECT_EQ(TuvNodeFilter::lastModifiedTypeFromString({}, kWednesday), (Dates{0, -1}));
}

TEST(TuvNodeFilter, todayIsNoPartOfLastWeek) {
    const double noon = kMidnight + 43200;
    EXPECT_TRUE(passes(byDate("Today"), {.date = noon}));
    EXPECT_FALSE(passes(byDate("Last Week"), {.date = noon}));
    EXPECT_FALSE(passes(byDate("Today"), {.date = kMidnight + 86400}));  // tomorrow
    EXPECT_TRUE(passes(byDate("Yesterday"), {.date = kMidnight - 1}));
    EXPECT_FALSE(passes(byDate("Today"), {.date = kMidnight - 1}));
    // Whole seconds: midnight itself is yesterday's, by a millisecond.
    EXPECT_FALSE(passes(byDate("Today"), {.date = std::floor(kMidnight)}));
    EXPECT_TRUE(passes(byDate("Yesterday"), {.date = std::floor(kMidnight)}));
    EXPECT_TRUE(passes(byDate("Before 1 Year"), {.date = 1}));
    EXPECT_FALSE(passes(byDate("Before 1 Year"), {.date = 0}));  // no date
    EXPECT_FALSE(passes(byDate("Before 1 Year"), {.date = kMidnight - 86400}));
    EXPECT_TRUE(passes(byDate("AnyTime"), {.date = 0}));
}

TEST(TuvNodeFilter, theDayIsThatOfTheTimeZone) {
    constexpr double kLateUTC = 1773270000;  // 2026-03-11 23:00 UTC, the next day in Berlin
    EXPECT_DOUBLE_EQ(byDate("Today", {kLateUTC, "UTC"})->dateRange().begin, 1773187200 + kEpoch + 0.001);
    EXPECT_DOUBLE_EQ(byDate("Today", {kLateUTC, "Europe/Berlin"})->dateRange().begin, kLateUTC + kEpoch + 0.001);
}

TEST(TuvNodeFilter, anItemAsTheDateIsNoTitle) {
    const auto item = std::make_shared<TuvNodeFilterItem>();
    item->setType(TuvNodeFilterItem::kTypeMenu);
    item->setTitle("Today");
    EXPECT_EQ(TuvNodeFilter::filterFrom("File", nullptr, item.get(), "x")->dateRange(), (Dates{0, -1}));
}

TEST(TuvNodeFilter, names) {
    const auto filter = byName("lproj");
    for (const char* name : {"French.lproj", "LPROJ", "lproj", "MyProj.lproj.backup", "aLpRoJb"})
        EXPECT_TRUE(passes(filter, {.name = name})) << name;
    for (const char* name : {"", "lpro", "l proj", "lpr\xffoj"}) EXPECT_FALSE(passes(filter, {.name = name})) << name;
    EXPECT_TRUE(passes(filter, {.name = "lproj"}, 1));
    for (const char* name : {"French.lproj", "LPROJ", "lproj "})
        EXPECT_FALSE(passes(filter, {.name = name}, 1)) << name;
    EXPECT_TRUE(passes(filter, {.name = {}}));
    EXPECT_TRUE(passes(filter, {.name = {}}, 1));
    EXPECT_EQ(byName("")->name(), std::nullopt);
    EXPECT_EQ(byName({})->name(), std::nullopt);
}

TEST(TuvNodeFilter, namesThatAreNotASCIIOrNotUTF8) {
    EXPECT_TRUE(passes(byName("\u00c9tude"), {.name = "Vingt-quatre \u00e9TUDES"}));
    EXPECT_TRUE(passes(byName("STRASSE"), {.name = "Hauptstra\u00dfe.txt"}));
    EXPECT_TRUE(passes(byName("k"), {.name = "\u212a"}));  // Kelvin sign
    EXPECT_TRUE(passes(byName("\xff"), {.name = "a\xff"
                                                "b"}));
    EXPECT_TRUE(passes(byName("B\xe9"), {.name = "b\xe9t\xe9"}));
    EXPECT_FALSE(passes(byName("\xe9"), {.name = "\xc9"}));    // bytes stand for themselves
    EXPECT_FALSE(passes(byName("\xc3"), {.name = "\u00e9"}));  // half a character
    EXPECT_TRUE(passes(byName("\xc3\xa9"), {.name = "x\u00c9"}));
    EXPECT_TRUE(passes(byName("b\xe9t\xe9"), {.name = "b\xe9t\xe9"}, 1));
    EXPECT_FALSE(passes(byName("b\xe9t\xe9"), {.name = "b\u00e9t\u00e9"}, 1));
    EXPECT_TRUE(passes(byName(std::string_view("a\0b", 3)), {.name = std::string_view("xA\0B", 4)}));
}

TEST(TuvNodeFilter, aNameOfTenThousandCharacters) {
    const std::string text(10000, 'x');
    EXPECT_FALSE(passes(byName(text), {.name = std::string(255, 'x')}));
    EXPECT_TRUE(passes(byName(text), {.name = "a" + std::string(10000, 'X')}));
    EXPECT_FALSE(passes(byName(text), {.name = std::string(9999, 'x')}));
    EXPECT_TRUE(passes(byName(text), {.name = text}, 1));
    std::string accents;
    for (int i = 0; i < 10000; ++i) accents += "\u00e9";
    EXPECT_FALSE(passes(byName(accents), {.name = accents.substr(0, 254)}));
    EXPECT_TRUE(passes(byName(accents), {.name = "_" + accents}));
}

TEST(TuvNodeFilter, allTestsMustPass) {
    TuvNodeFilterItem size;  // 1 MB to 101 MB
    const auto filter = TuvNodeFilter::filterFrom("File", &size, "Last Week", "log", kWednesday);
    const TestNode good{.name = "a.LOG", .physicalSize = 2 * Tuv_MB, .date = kMidnight - 5};
    EXPECT_TRUE(passes(filter, good));
    TestNode bad = good;
    bad.flags = TuvNode::kFolder;
    EXPECT_FALSE(passes(filter, bad));
    bad = good;
    bad.physicalSize = 1;
    EXPECT_FALSE(passes(filter, bad));
    bad = good;
    bad.date = kMidnight + 5;
    EXPECT_FALSE(passes(filter, bad));
    bad = good;
    bad.name = "a.txt";
    EXPECT_FALSE(passes(filter, bad));
}

TEST(TuvNodeFilter, arraysKeepTheOrderAndHaveRoomForOneMore) {
    auto nodes = make<TuvObjectArray>();
    for (const char* name : {"b.txt", "a.TXT", "c.pdf", "txt", "d"}) nodes->adoptObject(newNode({.name = name}).leak());
    const auto filter = byName("txt");
    const auto contain = nodes->filterUsing(filter.get());
    ASSERT_EQ(contain->count(), 3);
    EXPECT_EQ(contain->size(), 6);
    EXPECT_EQ(contain->nodeAtIndex(0), nodes->nodeAtIndex(0));
    EXPECT_EQ(contain->nodeAtIndex(1)->fileName(), "a.TXT");
    EXPECT_EQ(contain->nodeAtIndex(1)->retainCount(), 2u);
    EXPECT_EQ(contain->retainCount(), 1u);
    const auto equal = nodes->filterUsing(filter.get(), 1);
    ASSERT_EQ(equal->count(), 1);
    EXPECT_EQ(equal->nodeAtIndex(0)->fileName(), "txt");
    EXPECT_EQ(make<TuvObjectArray>()->filterUsing(filter.get())->count(), 0);
}

TEST(TuvNodeFilter, whatPassesIsTracedWithItsPath) {
    LogCapture log(LogLevel::trace);
    tuvNodeLog.forget();
    auto folder = make<TuvDirNode>();
    folder->setFileName("/top");
    auto file = newNode({.name = "in.txt"});
    file->setParent(folder.get());
    const auto filter = byName("in");
    log.clear();
    EXPECT_TRUE(file->filterUsing(filter.get()));
    EXPECT_EQ(log.texts(), std::vector<std::string>{"Match found [/top/in.txt]"});
    EXPECT_EQ(log.lines()[0].component, "TuvNode");
    EXPECT_TRUE(file->hasCachedFilePath());
    log.clear();
    EXPECT_TRUE(passes(filter, {.name = {}}));
    EXPECT_EQ(log.count(LogLevel::trace, "Match found [NO FILE NAME]"), 1);
    EXPECT_FALSE(passes(filter, {.name = "other"}));
    EXPECT_EQ(log.count("Match found"), 1);
    tuvNodeLog.forget();
}

TEST(TuvNodeFilter, withoutTraceNoPathIsMade) {
    auto file = newNode({.name = "in.txt"});
    EXPECT_TRUE(file->filterUsing(byName("in").get()));
    EXPECT_FALSE(file->hasCachedFilePath());
}

TEST(TuvNodeFilter, describesItself) {
    EXPECT_EQ(make<TuvNodeFilter>()->description(), "type=0");
    TuvNodeFilterItem size;
    EXPECT_EQ(TuvNodeFilter::filterFrom("Folder", &size, {}, "n")->description(),
              "type=2 size=1048576..105906176 name=[n]");
}

TEST(TuvNodeFilter, anUnknownLocaleAndTimeZoneChangeNothing) {
    for (const char* value : {"", "xx_YY.UTF-8", "Nowhere/Land", "\xff"}) {
        ScopedEnvironment environment;
        for (const char* name : {"LANG", "LC_ALL", "LANGUAGE", "TZ"}) environment.set(name, value);
        EXPECT_EQ(TuvNodeFilter::lastModifiedTypes()[1], "Today") << value;
        EXPECT_EQ(TuvNodeFilter::customizeStringTitle(), "Customize ...") << value;
        EXPECT_EQ(TuvNodeFilter::lastModifiedTypeFromString("Today", {1773235800, ""}).end, 1773235800 + kEpoch);
        EXPECT_TRUE(passes(byName("\u00c9"), {.name = "\u00e9"})) << value;
    }
}

}  // namespace
}  // namespace kavaro
