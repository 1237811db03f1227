// The lists of menu items: resources, preferences, and the menu made of them.
#include <gtest/gtest.h>

#include "LogCapture.h"
#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "filters/TuvNodeFilter.h"
#include "platform/Resources.h"
#include "platform/UserDefaults.h"

namespace kavaro {
namespace {

using Titles = std::vector<std::string>;

const std::string kHead = "<?xml version=\"1.0\"?><plist version=\"1.0\">";

PropertyList sizeItem(int min, int max) {
    return PropertyList::Dictionary{{"type", 1}, {"min", min}, {"minType", "KB"}, {"max", max}, {"maxType", "KB"}};
}

// The shipped resources and preferences in a folder of their own.
struct Lists : testing::Test {
    Lists() { setResourcesFolder(std::string(KAVARO_SOURCE_DIR) + "/resources"); }
    Titles menu() { return toTuvNodeFilterItem_title(TuvNodeFilter::fileSizes()); }

    TempFolder folder;
    ScopedEnvironment home{"XDG_CONFIG_HOME", folder.path()};
};

TEST_F(Lists, theShippedSizes) {
    LogCapture log;
    const auto& items = TuvNodeFilterItem::defaultFileSizeItems();
    EXPECT_EQ(
        toTuvNodeFilterItem_title(items),
        (Titles{"Any Size", "< 10 KB", "(10 KB ... 100 KB)", "(100 KB ... 1 MB)", "(1 MB ... 10 MB)",
                "(10 MB ... 100 MB)", "(100 MB ... 1 GB)", "> 1 MB", "> 10 MB", "> 100 MB", "> 1 GB", "> 10 GB"}));
    for (const auto& item : items) EXPECT_EQ(item->type(), TuvNodeFilterItem::kTypeSize);
    EXPECT_EQ(&TuvNodeFilterItem::defaultFileSizeItems(), &items);
    EXPECT_TRUE(log.texts().empty());
}

TEST_F(Lists, theShippedDates) {
    Titles titles;
    for (const auto& item : TuvNodeFilterItem::defaultLastModifiedItems()) titles.push_back(item->title("UTC"));
    EXPECT_EQ(titles,
              (Titles{"Any Time", "< 1/1/2000", "(1/1/2000 ... 1/1/2010)", "(1/1/2010 ... 1/1/2020)", "> 1/1/2020"}));
    for (const char* zone : {"Pacific/Honolulu", "Pacific/Auckland"})
        EXPECT_EQ(TuvNodeFilterItem::defaultLastModifiedItems()[1]->title(zone),
                  zone[8] == 'H' ? titles[1] : "< 1/2/2000");
}

TEST_F(Lists, theMenuOfSizes) {
    Titles expected = toTuvNodeFilterItem_title(TuvNodeFilterItem::defaultFileSizeItems());
    expected.insert(expected.end(), {"", "Customize ..."});
    EXPECT_EQ(menu(), expected);
    const auto items = TuvNodeFilter::fileSizes();
    EXPECT_TRUE(items[expected.size() - 2]->isSeparator());
    EXPECT_TRUE(items[expected.size() - 1]->isCustomize());
    EXPECT_EQ(TuvNodeFilter::fileSizes()[0], items[0]);

    TuvNodeFilterItem::setCustomSizeItems({sizeItem(3, 5), sizeItem(7, 9)});
    expected.insert(expected.end(), {"(3 KB ... 5 KB)", "(7 KB ... 9 KB)"});
    EXPECT_EQ(menu(), expected);
    EXPECT_NE(folder.read("org.kavaro.Kavaro.plist").find("customSizeItems"), std::string::npos);
}

TEST_F(Lists, theMenuIsBuiltOnceUntilItIsReset) {
    const std::size_t before = menu().size();
    ASSERT_EQ(UserDefaults::standard().setObject("customSizeItems", PropertyList::Array{sizeItem(1, 2)}), "");
    EXPECT_EQ(menu().size(), before);
    TuvNodeFilter::resetFileSizes();
    EXPECT_EQ(menu().size(), before + 1);
    ASSERT_EQ(UserDefaults::standard().removeObject("customSizeItems"), "");
    EXPECT_EQ(menu().size(), before + 1);
    TuvNodeFilterItem::setCustomLastModifiedItems({});  // resets it, too
    EXPECT_EQ(menu().size(), before);
}

TEST_F(Lists, theUsersDatesAreKept) {
    const PropertyList item =
        PropertyList::Dictionary{{"type", 2}, {"beginDate", PropertyList::Date{1709210096}}, {"min", 0}, {"max", 0}};
    TuvNodeFilterItem::setCustomLastModifiedItems({item});
    const auto items = ivars_toTuvNodeFilterItem(TuvNodeFilterItem::customLastModifiedItems());
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0]->title("UTC"), "> 2/29/2024");
    EXPECT_TRUE(TuvNodeFilterItem::customSizeItems().empty());
}

TEST_F(Lists, nonsenseInThePreferencesIsLeftOut) {
    for (const PropertyList& nonsense :
         {PropertyList("text"), PropertyList(5), PropertyList(PropertyList::Dictionary())}) {
        ASSERT_EQ(UserDefaults::standard().setObject("customSizeItems", nonsense), "");
        EXPECT_TRUE(TuvNodeFilterItem::customSizeItems().empty());
    }
    ASSERT_EQ(UserDefaults::standard().setObject("customSizeItems", PropertyList::Array{1, sizeItem(1, 2), "x"}), "");
    EXPECT_EQ(TuvNodeFilterItem::customSizeItems().size(), 1u);
    folder.write("org.kavaro.Kavaro.plist", "not a property list");
    EXPECT_TRUE(TuvNodeFilterItem::customSizeItems().empty());
    LogCapture log;
    TuvNodeFilterItem::setCustomSizeItems({sizeItem(1, 2)});  // leaves a file alone that it cannot read
    EXPECT_EQ(log.count(LogLevel::error, "not a property list"), 1);
    EXPECT_EQ(folder.read("org.kavaro.Kavaro.plist"), "not a property list");
}

TEST_F(Lists, filesThatAreNoLists) {
    const auto items = [&](const std::string& content) {
        return TuvNodeFilterItem::itemsFromFile(folder.write("list.plist", content));
    };
    const std::string good = kHead + "<array><dict><key>type</key><integer>1</integer></dict></array></plist>";
    ASSERT_TRUE(items(good));
    EXPECT_EQ(items(good)->size(), 1u);
    for (std::size_t length = 0; length + 1 < good.size(); ++length) {
        const auto cut = items(good.substr(0, length));  // never a crash; the reader forgives what only ends early
        if (cut) {
            EXPECT_LE(cut->size(), 1u);
        }
    }
    EXPECT_FALSE(items(kHead + "<dict/></plist>"));
    EXPECT_FALSE(items(kHead + "<string>x</string></plist>"));
    EXPECT_FALSE(items(""));
    EXPECT_FALSE(items("\xff\xfe"));
    std::string nested = kHead;
    for (int i = 0; i < 100000; ++i) nested += "<array>";
    for (int i = 0; i < 100000; ++i) nested += "</array>";
    EXPECT_FALSE(items(nested + "</plist>"));
    EXPECT_TRUE(items(kHead + "<array><integer>1</integer><array/></array></plist>")->empty());
    EXPECT_FALSE(TuvNodeFilterItem::itemsFromFile(folder.path("missing")));
    EXPECT_FALSE(TuvNodeFilterItem::itemsFromFile(folder.path()));
    EXPECT_FALSE(TuvNodeFilterItem::itemsFromFile(""));
}

TEST_F(Lists, aMissingResourceIsAnEmptyListAndOneLine) {
    setResourcesFolder(folder.path());
    LogCapture log;
    EXPECT_TRUE(TuvNodeFilterItem::defaultFileSizeItems().empty());
    EXPECT_TRUE(TuvNodeFilterItem::defaultFileSizeItems().empty());
    EXPECT_EQ(log.count(LogLevel::error, "defaultFileSizeItems.plist\" is no list of menu items"), 1);
    EXPECT_EQ(menu(), (Titles{"", "Customize ..."}));
}

}  // namespace
}  // namespace kavaro
