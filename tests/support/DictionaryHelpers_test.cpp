#include "support/DictionaryHelpers.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "platform/Text.h"

namespace kavaro {
namespace {

using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;

TEST(DescriptionInOneLine, HasNoLineEnds) {
    const PropertyList value = Dictionary{{"name", "two\nlines\r"}, {"list", Array{"a", Dictionary{{"b", 1}}}}};
    const std::string text = descriptionInOneLine(value);
    EXPECT_EQ(text.find_first_of("\n\r"), std::string::npos) << text;
    for (const char* part : {"name", "two", "lines", "list", "a", "b", "1"})
        EXPECT_NE(text.find(part), std::string::npos) << part << " in " << text;
    EXPECT_EQ(descriptionInOneLine(PropertyList("a\n\nb")).find('\n'), std::string::npos);
}

TEST(IsSameFileOwner, ByNumber) {
    const auto user = static_cast<std::int64_t>(geteuid());
    EXPECT_TRUE(isSameFileOwner(Dictionary{{"NSFileOwnerAccountID", user}}));
    EXPECT_FALSE(isSameFileOwner(Dictionary{{"NSFileOwnerAccountID", user + 1}}));
    EXPECT_FALSE(isSameFileOwner(Dictionary{{"NSFileOwnerAccountID", user + (std::int64_t{1} << 32)}}));
    EXPECT_FALSE(isSameFileOwner(Dictionary{{"NSFileOwnerAccountID", std::to_string(user)}}));
}

TEST(IsSameFileOwner, ByNameWhenThereIsNoNumber) {
    const passwd* entry = getpwuid(geteuid());
    ASSERT_NE(entry, nullptr);
    const std::string name = entry->pw_name;
    EXPECT_TRUE(isSameFileOwner(Dictionary{{"NSFileOwnerAccountName", name}}));
    EXPECT_FALSE(isSameFileOwner(Dictionary{{"NSFileOwnerAccountName", name + "x"}}));
    EXPECT_FALSE(isSameFileOwner(Dictionary{{"NSFileOwnerAccountName", ""}}));
    EXPECT_FALSE(isSameFileOwner(Dictionary{{"NSFileOwnerAccountName", name},
                                            {"NSFileOwnerAccountID", static_cast<std::int64_t>(geteuid()) + 1}}))
        << "the number decides";
}

TEST(IsSameFileOwner, IsTheUserTheProcessActsAs) {
    if (geteuid() != 0) return;  // only root may act as somebody else
    ASSERT_EQ(seteuid(65534), 0);
    const bool own = isSameFileOwner(Dictionary{{"NSFileOwnerAccountID", 65534}});
    const bool roots = isSameFileOwner(Dictionary{{"NSFileOwnerAccountID", 0}});
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_TRUE(own);
    EXPECT_FALSE(roots);
}

TEST(IsSameFileOwner, NotWithoutAnOwner) {
    EXPECT_FALSE(isSameFileOwner(PropertyList()));
    EXPECT_FALSE(isSameFileOwner(Dictionary{}));
    EXPECT_FALSE(isSameFileOwner(Array{static_cast<std::int64_t>(geteuid())}));
}

TEST(ChangesFromDictionary, AreTheEntriesThatDiffer) {
    const PropertyList old = Dictionary{{"owner", 501}, {"group", 20}, {"mode", 0755}};
    const PropertyList fresh = Dictionary{{"mode", 0644}, {"group", 20}, {"owner", 0}};
    EXPECT_EQ(changesFromDictionary(old, fresh), PropertyList(Dictionary{{"mode", 0644}, {"owner", 0}}));
    EXPECT_EQ(changesFromDictionary(fresh, old), PropertyList(Dictionary{{"owner", 501}, {"mode", 0755}}));
    EXPECT_EQ(changesFromDictionary(old, old), PropertyList(Dictionary{}));
}

TEST(ChangesFromDictionary, NewEntriesCountAndMissingOnesDoNot) {
    const PropertyList one = Dictionary{{"a", "x"}};
    const PropertyList two = Dictionary{{"a", "x"}, {"b", Array{1, 2}}};
    EXPECT_EQ(changesFromDictionary(one, two), PropertyList(Dictionary{{"b", Array{1, 2}}}));
    EXPECT_EQ(changesFromDictionary(two, one), PropertyList(Dictionary{}));
    EXPECT_EQ(changesFromDictionary(PropertyList(), two), two);
    EXPECT_EQ(changesFromDictionary(two, PropertyList()), PropertyList(Dictionary{}));
}

TEST(BinaryIndexOfObject, FindsTextsByCodePoint) {
    const Array sorted{"",
                       "/a",
                       "/a/b",
                       "/a b",
                       "Zebra",
                       "eclair",
                       "\xc3\xa9"
                       "clair"};
    Array byCompare = sorted;
    std::sort(byCompare.begin(), byCompare.end(),
              [](const auto& a, const auto& b) { return compare(*a.string(), *b.string()) < 0; });
    for (int i = 0; i < static_cast<int>(byCompare.size()); ++i)
        EXPECT_EQ(binaryIndexOfObject(byCompare, byCompare[static_cast<std::size_t>(i)]), i);
    for (const char* absent : {"a", "/", "/a/", "zebra", "\xff"})
        EXPECT_EQ(binaryIndexOfObject(byCompare, absent), 0x7fffffff) << absent;
    EXPECT_EQ(binaryIndexOfObject({}, "a"), 0x7fffffff);
}

TEST(BinaryIndexOfObject, FindsNumbersAndDatesByValue) {
    const Array numbers{-5, 0, 2.5, std::int64_t{1} << 40};
    EXPECT_EQ(binaryIndexOfObject(numbers, -5.0), 0);
    EXPECT_EQ(binaryIndexOfObject(numbers, 0), 1);
    EXPECT_EQ(binaryIndexOfObject(numbers, 2.5), 2);
    EXPECT_EQ(binaryIndexOfObject(numbers, std::int64_t{1} << 40), 3);
    EXPECT_EQ(binaryIndexOfObject(numbers, 2), kObjectNotFound);
    EXPECT_EQ(binaryIndexOfObject(numbers, "0"), kObjectNotFound);
    const Array dates{PropertyList::Date{-1}, PropertyList::Date{10}};
    EXPECT_EQ(binaryIndexOfObject(dates, PropertyList::Date{10}), 1);
    EXPECT_EQ(binaryIndexOfObject(dates, PropertyList::Date{9}), kObjectNotFound);
}

TEST(BinaryIndexOfObject, AgreesWithALinearSearch) {
    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        std::vector<int> values(random() % 40);
        for (int& value : values) value = static_cast<int>(random() % 60);
        std::sort(values.begin(), values.end());
        const Array sorted(values.begin(), values.end());
        for (int value = -1; value <= 60; ++value) {
            const int index = binaryIndexOfObject(sorted, value);
            if (std::find(values.begin(), values.end(), value) == values.end())
                ASSERT_EQ(index, kObjectNotFound);
            else
                ASSERT_EQ(values.at(static_cast<std::size_t>(index)), value);
        }
    }
}

}  // namespace
}  // namespace kavaro
