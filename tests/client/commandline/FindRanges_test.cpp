#include "client/commandline/FindRanges.h"

#include <gtest/gtest.h>

#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "platform/Localization.h"
#include "platform/Resources.h"

namespace kavaro {
namespace {

using Range = TuvNodeFilter::SizeRange;

const LocalTime kNow{1773235800, "Europe/Berlin"};

struct FindRanges : testing::Test {
    FindRanges() {
        setResourcesFolder(KAVARO_APP_DIR "/Resources");
        useUserLanguage();
        TuvNodeFilter::resetFileSizes();  // another test of this process may have built it
    }
    std::optional<Range> sizes(std::string_view text) { return readSizes(text, &wrong); }

    TempFolder folder;
    ScopedEnvironment environment{"XDG_CONFIG_HOME", folder.path()};
    std::string wrong;
};

TEST_F(FindRanges, sizes) {
    EXPECT_EQ(sizes("10 MB.."), (Range{10 * Tuv_MB, UINT64_MAX, true}));
    EXPECT_EQ(sizes("..1 GB"), (Range{0, Tuv_GB, true}));
    EXPECT_EQ(sizes("10 MB..1 GB"), (Range{10 * Tuv_MB, Tuv_GB, true}));
    EXPECT_EQ(sizes(" 10mb  ..  1gb "), (Range{10 * Tuv_MB, Tuv_GB, true}));
    EXPECT_EQ(sizes("1.5 GB..2T"), (Range{Tuv_GB + Tuv_GB / 2, 2 * Tuv_TB, true}));
    EXPECT_EQ(sizes("512..1023 bytes"), (Range{512, 1023, true}));
    EXPECT_EQ(sizes("0..0"), (Range{0, 0, true}));
    EXPECT_EQ(sizes("1 byte..1 K"), (Range{1, 1024, true}));
    EXPECT_EQ(sizes("18446744073709551615.."), (Range{UINT64_MAX, UINT64_MAX, true}));
    EXPECT_EQ(sizes("0.001 KB..0.5M"), (Range{1, Tuv_MB / 2, true}));
}

TEST_F(FindRanges, sizesThatMakeNoSense) {
    for (const char* text : {"..", " .. ", "a..", "..b", "1 XB..", "-1..", "1,5 MB..", "18446744073709551616..",
                             "..17179869184 GB", "99999999999999999999999 KB..", "1. MB..", ".5 MB..", "1 MB 2..",
                             "10 MB..1 MB", "1..2..3", "0x10..", "1e3..", "\xff..", "\n.."}) {
        wrong.clear();
        EXPECT_FALSE(sizes(text)) << text;
        EXPECT_EQ(wrong.substr(0, 1), "\"") << text;
        EXPECT_EQ(wrong.find('\n'), std::string::npos) << text;
        EXPECT_EQ(wrong.find('\xff'), std::string::npos) << text;
    }
    EXPECT_FALSE(sizes("1 XB.."));
    EXPECT_EQ(wrong, "\"1 XB..\": \"1 XB\" is no size such as 512, 10 KB, 1.5 GB or 2 TB");
    EXPECT_FALSE(sizes("2 MB..1 MB"));
    EXPECT_EQ(wrong, "\"2 MB..1 MB\" begins above its end");
}

TEST_F(FindRanges, titlesOfSizes) {
    EXPECT_EQ(sizes("Any Size"), (Range{0, UINT64_MAX, false}));
    EXPECT_EQ(sizes("any size"), (Range{0, UINT64_MAX, false}));
    EXPECT_EQ(sizes("< 10 KB"), (Range{0, 10 * Tuv_KB, true}));
    EXPECT_EQ(sizes("(10 MB ... 100 MB)"), (Range{10 * Tuv_MB, 100 * Tuv_MB, true}));
    EXPECT_EQ(sizes("> 1 GB"), (Range{Tuv_GB, UINT64_MAX, true}));  // no end: also above a terabyte
    for (const char* text : {"", "huge", "Customize ...", "> 2 GB", "(10 MB ... 99 MB)", "10 MB", "\xff"}) {
        EXPECT_FALSE(sizes(text)) << text;
        EXPECT_NE(wrong.find("nor one of \"Any Size\", \"< 10 KB\", "), std::string::npos) << wrong;
        EXPECT_NE(wrong.find("\"> 10 GB\""), std::string::npos) << wrong;
        EXPECT_EQ(wrong.find("Customize ...\","), std::string::npos) << wrong;
    }
}

TEST_F(FindRanges, theUsersOwnSizes) {
    TuvNodeFilterItem item;
    item.setMin(3);
    item.setMax(0);
    TuvNodeFilterItem::setCustomSizeItems(
        toTuvNodeFilterItem_ivars({TuvNodeFilterItem::separator(), std::make_shared<TuvNodeFilterItem>(item)}));
    EXPECT_EQ(sizes("> 3 MB"), (Range{3 * Tuv_MB, UINT64_MAX, true}));
    EXPECT_FALSE(sizes(""));
    EXPECT_NE(rangeList().find("  > 3 MB\n\n"), std::string::npos) << rangeList();
    TuvNodeFilterItem::setCustomSizeItems({});
}

TEST_F(FindRanges, titlesOfDates) {
    for (const std::string& title : TuvNodeFilter::lastModifiedTypes()) {
        const auto range = readDates(title, kNow, &wrong);
        ASSERT_EQ(range.has_value(), title != "---") << title;
        if (!range) continue;
        EXPECT_EQ(*range, TuvNodeFilter::lastModifiedTypeFromString(title, kNow)) << title;
    }
    EXPECT_EQ(readDates("last week", kNow, &wrong), TuvNodeFilter::lastModifiedTypeFromString("Last Week", kNow));
    for (const char* text : {"", "---", "Tomorrow", "Last  Week", "\xff"}) {
        EXPECT_FALSE(readDates(text, kNow, &wrong)) << text;
        EXPECT_NE(wrong.find(" is not one of \"AnyTime\", \"Today\", "), std::string::npos) << wrong;
    }
    EXPECT_FALSE(readDates(std::string(10000, 'x'), kNow, &wrong));
}

TEST_F(FindRanges, inTheUsersLanguageAndInEnglish) {
    environment.unset("LC_ALL");
    environment.unset("LC_MESSAGES");
    environment.set("LANG", "de_DE.UTF-8");
    environment.unset("LANGUAGE");
    useUserLanguage();
    const std::string week = localized("kTuvNodeFilter114", "");
    ASSERT_NE(week, "Last Week");
    ASSERT_NE(week, "");
    const auto range = readDates(week, kNow, &wrong);
    ASSERT_TRUE(range) << wrong;
    EXPECT_GT(range->begin, 1);
    EXPECT_EQ(readDates("Last Week", kNow, &wrong), range);
    EXPECT_NE(rangeList().find("  " + week + "  (Last Week)\n"), std::string::npos) << rangeList();
    EXPECT_FALSE(readDates("x", kNow, &wrong));
    EXPECT_NE(wrong.find("\"" + week + "\""), std::string::npos);
    EXPECT_EQ(readKind(localized("kTuvNodeFilter02", ""), &wrong), FoundKind::folder);
    EXPECT_EQ(readKind("Folder", &wrong), FoundKind::folder);
}

TEST_F(FindRanges, kinds) {
    EXPECT_EQ(readKind("file", &wrong), FoundKind::file);
    EXPECT_EQ(readKind("Folder", &wrong), FoundKind::folder);
    EXPECT_EQ(readKind("LINK", &wrong), FoundKind::link);
    EXPECT_EQ(readKind("AnyType", &wrong), FoundKind::any);
    EXPECT_FALSE(readKind("pipe\n", &wrong));
    EXPECT_EQ(wrong, "\"pipe\\n\" is not file, folder or link");
}

TEST_F(FindRanges, theListHoldsNothingElse) {
    const std::string list = rangeList();
    EXPECT_EQ(list.substr(0, 31), "--size:\n  Any Size\n  < 10 KB\n  ");
    EXPECT_NE(list.find("  > 10 GB\n\n--modified:\n  AnyTime\n  Today\n"), std::string::npos) << list;
    EXPECT_EQ(list.find("---\n"), std::string::npos);
    EXPECT_EQ(list.find("Customize"), std::string::npos);
}

}  // namespace
}  // namespace kavaro
