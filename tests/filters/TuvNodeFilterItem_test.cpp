#include "filters/TuvNodeFilterItem.h"

#include <gtest/gtest.h>

#include "LogCapture.h"
#include "filters/FiltersLog.h"
#include "support/Units.h"

namespace kavaro {
namespace {

using Date = TuvNodeFilterItem::Date;

constexpr double kNow = 1709210096;    // 2024-02-29 12:34:56 UTC
constexpr double kMarch = 1709855999;  // 2024-03-07 23:59:59 UTC

std::string titleOfSizes(std::optional<std::int64_t> min, std::optional<std::int64_t> max) {
    TuvNodeFilterItem item;
    item.setMin(min);
    item.setMax(max);
    return item.title();
}

std::string titleOfDates(std::optional<Date> begin, std::optional<Date> end, const std::string& zone = "UTC") {
    TuvNodeFilterItem item;
    item.setType(TuvNodeFilterItem::kTypeDate);
    item.setBeginDate(begin);
    item.setEndDate(end);
    return item.title(zone);
}

TEST(TuvNodeFilterItem, aNewOne) {
    const TuvNodeFilterItem item(kNow);
    EXPECT_EQ(item.type(), 1);
    EXPECT_EQ(item.min(), 1);
    EXPECT_EQ(item.minType(), "MB");
    EXPECT_EQ(item.max(), 101);
    EXPECT_EQ(item.maxType(), "MB");
    EXPECT_EQ(item.beginDate(), Date{kNow});
    EXPECT_EQ(item.endDate(), Date{kNow});
    EXPECT_EQ(item.ivars().get("title"), nullptr);
    EXPECT_EQ(item.title(), "(1 MB ... 101 MB)");
    EXPECT_FALSE(item.isSeparator() || item.isCustomize());
    EXPECT_EQ(item.description().find('\n'), std::string::npos);
    EXPECT_NE(item.description().find("maxType = MB"), std::string::npos) << item.description();
}

TEST(TuvNodeFilterItem, separatorAndCustomize) {
    const auto separator = TuvNodeFilterItem::separator();
    EXPECT_EQ(separator->type(), 0);
    EXPECT_EQ(separator->title(), "");
    EXPECT_TRUE(separator->isSeparator());
    EXPECT_FALSE(separator->isCustomize());
    const auto customize = TuvNodeFilterItem::customize();
    EXPECT_EQ(customize->type(), 0);
    EXPECT_EQ(customize->title(), "Customize ...");
    EXPECT_TRUE(customize->isCustomize());
    EXPECT_FALSE(customize->isSeparator());
}

TEST(TuvNodeFilterItem, titlesOfSizes) {
    EXPECT_EQ(titleOfSizes(0, 0), "Any Size");
    EXPECT_EQ(titleOfSizes(std::nullopt, -3), "Any Size");
    EXPECT_EQ(titleOfSizes(0, 5), "< 5 MB");
    EXPECT_EQ(titleOfSizes(5, 0), "> 5 MB");
    EXPECT_EQ(titleOfSizes(5, 7), "(5 MB ... 7 MB)");
    EXPECT_EQ(titleOfSizes(7, 5), "(7 MB ... 5 MB)");
}

TEST(TuvNodeFilterItem, titlesOfDates) {
    EXPECT_EQ(titleOfDates({}, {}), "Any Time");
    EXPECT_EQ(titleOfDates(Date{kNow}, {}), "> 2/29/2024");
    EXPECT_EQ(titleOfDates({}, Date{kMarch}), "< 3/7/2024");
    EXPECT_EQ(titleOfDates(Date{kNow}, Date{kMarch}), "(2/29/2024 ... 3/7/2024)");
    EXPECT_EQ(titleOfDates({}, Date{kMarch}, "Asia/Tokyo"), "< 3/8/2024");
    EXPECT_EQ(titleOfDates({}, Date{kMarch}, "No/Such"), "< 3/7/2024");
    EXPECT_EQ(titleOfDates({}, Date{-6e10}), "< 9/3/0068");
}

TEST(TuvNodeFilterItem, otherTypesHaveNoTitle) {
    TuvNodeFilterItem item;
    item.setTitle("stored");
    for (const std::int64_t type : {3, -1, 99}) {
        item.setType(type);
        EXPECT_EQ(item.title(), "");
    }
    item.setType(0);
    EXPECT_EQ(item.title(), "stored");
}

TEST(TuvNodeFilterItem, countsStopBelowTheNextUnit) {
    TuvNodeFilterItem item;
    item.setMin(5000);
    EXPECT_EQ(item.min(), 1023);
    item.setMax(1024);
    EXPECT_EQ(item.max(), 1023);
    item.setMax(1023);
    EXPECT_EQ(item.max(), 1023);
    EXPECT_EQ(item.minType(), "MB");
}

TEST(TuvNodeFilterItem, aCountOfNothingHasNoUnit) {
    TuvNodeFilterItem item;
    item.setMin(0);
    EXPECT_EQ(item.min(), 0);
    EXPECT_EQ(item.minType(), "");
    EXPECT_EQ(item.minTypeRange(), 1u);
    item.setMax(std::nullopt);
    EXPECT_EQ(item.max(), std::nullopt);
    EXPECT_EQ(item.maxType(), "");
}

TEST(TuvNodeFilterItem, unitsAndTheirCounts) {
    TuvNodeFilterItem item;
    item.setMinType("");
    EXPECT_EQ(item.minType(), "...");
    EXPECT_EQ(item.min(), std::nullopt);
    item.setMinType("KB");
    EXPECT_EQ(item.min(), 1);
    EXPECT_EQ(item.minTypeRange(), Tuv_KB);
    item.setMin(8);
    item.setMinType("GB");
    EXPECT_EQ(item.min(), 8);
    EXPECT_EQ(item.minTypeRange(), Tuv_GB);
    item.setMaxType("...");
    EXPECT_EQ(item.maxType(), "...");
    EXPECT_EQ(item.max(), std::nullopt);
    EXPECT_EQ(item.maxTypeRange(), 1u);
    item.setMaxType("bytes");
    EXPECT_EQ(item.max(), 1);
    EXPECT_EQ(item.maxTypeRange(), 1u);
}

TEST(TuvNodeFilterItem, unitMenu) {
    std::vector<std::string> names;
    for (const PropertyList& unit : TuvNodeFilterItem::sizeTypeContent())
        names.push_back(*unit.get("typeName")->string());
    EXPECT_EQ(names, (std::vector<std::string>{"", "...", "bytes", "KB", "MB", "GB"}));
    EXPECT_EQ(&TuvNodeFilterItem::sizeTypeContent(), &TuvNodeFilterItem::sizeTypeContent());
    EXPECT_EQ(TuvNodeFilterItem::typeEmpty(), "...");
}

TEST(TuvNodeFilterItem, countsAnnounceTheTitleAndThemselves) {
    TuvNodeFilterItem item;
    std::vector<std::string> heard;
    item.setAnnouncement([&](TuvNodeFilterItem::Change change, std::string_view key) {
        const bool isBefore = change == TuvNodeFilterItem::Change::will;
        heard.push_back((isBefore ? "will " : "did ") + std::string(key) + " " + item.title());
    });
    item.setMin(5000);
    item.setMax(0);
    EXPECT_EQ(heard, (std::vector<std::string>{"will title (1 MB ... 101 MB)", "will min (1 MB ... 101 MB)",
                                               "did min (1023 MB ... 101 MB)", "did title (1023 MB ... 101 MB)",
                                               "will title (1023 MB ... 101 MB)", "will max (1023 MB ... 101 MB)",
                                               "did max > 1023 MB", "did title > 1023 MB"}));
    heard.clear();
    item.setMinType("KB");
    item.setTitle("x");
    item.setBeginDate({});
    EXPECT_TRUE(heard.empty());
}

TEST(TuvNodeFilterItem, outOfADictionary) {
    const auto item = TuvNodeFilterItem::initWithIvars(PropertyList::Dictionary{
        {"type", "1"}, {"min", "12"}, {"minType", "kb"}, {"max", 3.9}, {"maxType", "GB"}, {"title", "t"}, {"x", 1}});
    EXPECT_EQ(item->type(), 1);
    EXPECT_EQ(item->min(), 12);
    EXPECT_EQ(item->max(), 3);
    EXPECT_EQ(item->title(), "(12 kb ... 3 GB)");
    EXPECT_EQ(item->ivars().get("x"), nullptr);
    item->setType(0);
    EXPECT_EQ(item->title(), "t");
}

TEST(TuvNodeFilterItem, aUnitWithoutACountMakesItOne) {
    const auto item = TuvNodeFilterItem::initWithIvars(
        PropertyList::Dictionary{{"type", 1}, {"min", 4}, {"minType", "MB"}, {"maxType", "GB"}});
    EXPECT_EQ(item->title(), "(4 MB ... 1 GB)");
    const auto open = TuvNodeFilterItem::initWithIvars(
        PropertyList::Dictionary{{"type", 1}, {"min", 4}, {"minType", "MB"}, {"max", 0}});
    EXPECT_EQ(open->title(), "> 4 MB");
    EXPECT_EQ(open->maxType(), "...");
}

TEST(TuvNodeFilterItem, nonsenseInADictionary) {
    for (const PropertyList& ivars :
         {PropertyList(), PropertyList("text"), PropertyList(PropertyList::Array{1}),
          PropertyList(PropertyList::Dictionary()),
          PropertyList(PropertyList::Dictionary{
              {"type", PropertyList::Array()}, {"min", "x"}, {"minType", 7}, {"maxType", 1.5}})}) {
        const auto item = TuvNodeFilterItem::initWithIvars(ivars);
        EXPECT_EQ(item->type(), 0);
        EXPECT_EQ(item->min(), std::nullopt);
        EXPECT_EQ(item->title(), "");
    }
}

TEST(TuvNodeFilterItem, thereAndBack) {
    TuvNodeFilterItem::Items items = {std::make_shared<TuvNodeFilterItem>(kNow),
                                      std::make_shared<TuvNodeFilterItem>(kNow), TuvNodeFilterItem::separator()};
    items[0]->setMax(0);
    items[1]->setType(TuvNodeFilterItem::kTypeDate);
    items[1]->setEndDate({});
    const PropertyList::Array ivars = toTuvNodeFilterItem_ivars(items);
    ASSERT_EQ(ivars.size(), 3u);
    EXPECT_EQ(ivars[0], items[0]->ivars());
    const TuvNodeFilterItem::Items again = ivars_toTuvNodeFilterItem(ivars);
    EXPECT_EQ(toTuvNodeFilterItem_title(again), toTuvNodeFilterItem_title(items));
    EXPECT_EQ(again[1]->beginDate(), Date{kNow});
    EXPECT_EQ(again[1]->endDate(), std::nullopt);
    EXPECT_TRUE(again[2]->isSeparator());
    EXPECT_TRUE(ivars_toTuvNodeFilterItem({1, "x", PropertyList::Array()}).empty());
}

TEST(TuvNodeFilterItem, settersLogTheirArgument) {
    LogCapture log(LogLevel::debug);
    tuvNodeFilterItemLog.forget();
    TuvNodeFilterItem item;
    item.setMin(5);
    item.setMax(std::nullopt);
    item.setMinType("KB");
    item.setMaxType("");
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].component + " " + lines[0].selector + " " + lines[0].text, "TuvNodeFilterItem setMin 5");
    EXPECT_EQ(lines[1].selector + " " + lines[1].text, "setMax (null)");
    EXPECT_EQ(lines[2].selector + " " + lines[2].text, "setMinType \"KB\"");
    EXPECT_EQ(lines[3].selector + " " + lines[3].text, "setMaxType \"\"");
    tuvNodeFilterItemLog.forget();
}

}  // namespace
}  // namespace kavaro
