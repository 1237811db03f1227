#include "platform/PropertyList.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace kavaro {
namespace {

using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Date = PropertyList::Date;
using Dictionary = PropertyList::Dictionary;

PropertyList nested(int levels) {
    PropertyList value = 1;
    for (int level = 0; level < levels; level++) {
        Array around;
        around.push_back(std::move(value));
        value = std::move(around);
    }
    return value;
}

TEST(PropertyList, KnowsItsKind) {
    EXPECT_TRUE(PropertyList().isNull());
    EXPECT_TRUE(*PropertyList(true).as<bool>());
    EXPECT_EQ(*PropertyList(-3).as<std::int64_t>(), -3);
    EXPECT_EQ(*PropertyList(7u).as<std::int64_t>(), 7);
    EXPECT_EQ(*PropertyList(8LL).as<std::int64_t>(), 8);
    EXPECT_EQ(*PropertyList(0.5).as<double>(), 0.5);
    EXPECT_EQ(*PropertyList("text").string(), "text");
    EXPECT_EQ(PropertyList("text").as<bool>(), nullptr);
    EXPECT_EQ(PropertyList(1).array(), nullptr);
    EXPECT_EQ(PropertyList(Array{1, 2}).array()->size(), 2u);
}

TEST(PropertyList, ConvertsNumbers) {
    EXPECT_EQ(PropertyList("42").intValue(), 42);
    EXPECT_EQ(PropertyList(" -42 apples").intValue(), -42);
    EXPECT_EQ(PropertyList("+5").intValue(), 5);
    EXPECT_EQ(PropertyList("apples").intValue(), 0);
    EXPECT_EQ(PropertyList("").intValue(), 0);
    EXPECT_EQ(PropertyList("99999999999999999999").intValue(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(PropertyList("-99999999999999999999").intValue(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(PropertyList(-1.9).intValue(), -1);
    EXPECT_EQ(PropertyList(1e300).intValue(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(PropertyList(-1e300).intValue(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(PropertyList(std::numeric_limits<double>::quiet_NaN()).intValue(), 0);
    EXPECT_EQ(PropertyList(true).intValue(), 1);
    EXPECT_EQ(PropertyList(Array{1}).intValue(), 0);
    EXPECT_EQ(PropertyList("1.5 GB").doubleValue(), 1.5);
    EXPECT_EQ(PropertyList("x").doubleValue(), 0);
    EXPECT_EQ(PropertyList(3).doubleValue(), 3);
}

TEST(PropertyList, ConvertsTruth) {
    for (const char* text : {"YES", "yes", "true", "T", "1", " 1", "+1", "-01", "10"}) {
        EXPECT_TRUE(PropertyList(text).boolValue()) << text;
    }
    for (const char* text : {"NO", "false", "0", "00", "", " ", "-", "on"}) {
        EXPECT_FALSE(PropertyList(text).boolValue()) << text;
    }
    EXPECT_TRUE(PropertyList(2).boolValue());
    EXPECT_TRUE(PropertyList(0.1).boolValue());
    EXPECT_FALSE(PropertyList(0).boolValue());
    EXPECT_FALSE(PropertyList().boolValue());
    EXPECT_FALSE(PropertyList(Array{true}).boolValue());
}

TEST(PropertyList, SetsGetsAndRemoves) {
    PropertyList value;
    value.set("b", 1);
    value.set("a", 2);
    value.set("b", "new");
    ASSERT_TRUE(value.dictionary());
    EXPECT_EQ(*value.dictionary(), (Dictionary{{"b", "new"}, {"a", 2}}));
    EXPECT_EQ(value.get("absent"), nullptr);
    EXPECT_EQ(value.get("a")->intValue(), 2);
    value.remove("b");
    value.remove("absent");
    EXPECT_EQ(*value.dictionary(), (Dictionary{{"a", 2}}));
    PropertyList text = "x";
    text.set("a", 1);
    text.remove("a");
    EXPECT_EQ(text, PropertyList("x"));
    EXPECT_EQ(text.get("a"), nullptr);
}

TEST(PropertyList, ComparesByKindAndContent) {
    EXPECT_EQ(PropertyList(), PropertyList());
    EXPECT_NE(PropertyList(1), PropertyList(true));
    EXPECT_NE(PropertyList(1), PropertyList(1.0));
    EXPECT_EQ(PropertyList(Data{1, 2}), PropertyList(Data{1, 2}));
    EXPECT_NE(PropertyList(Date{1}), PropertyList(Date{2}));
    EXPECT_NE(PropertyList(Array{1, 2}), PropertyList(Array{2, 1}));
    EXPECT_NE(PropertyList(Array{1}), PropertyList(Array{1, 1}));
    EXPECT_EQ(PropertyList(Dictionary{{"a", 1}, {"b", 2}}), PropertyList(Dictionary{{"b", 2}, {"a", 1}}));
    EXPECT_NE(PropertyList(Dictionary{{"a", 1}, {"b", 2}}), PropertyList(Dictionary{{"a", 1}, {"c", 2}}));
    EXPECT_NE(PropertyList(Dictionary{{"a", Array{1}}}), PropertyList(Dictionary{{"a", Array{2}}}));
}

TEST(PropertyList, CopiesAreApart) {
    PropertyList original = Dictionary{{"list", Array{1, Dictionary{{"k", "v"}}}}};
    PropertyList copy = original;
    copy.set("list", 0);
    EXPECT_EQ(original.description(), "{ list = ( 1, { k = v; } ); }");
    EXPECT_EQ(copy.description(), "{ list = 0; }");
    const PropertyList& same = copy;
    copy = same;
    EXPECT_EQ(copy.description(), "{ list = 0; }");
}

TEST(PropertyList, TakesAPartOfItself) {
    PropertyList value = Array{Array{"inner"}};
    PropertyList part = *value.array();
    value = *part.array()->begin();
    EXPECT_EQ(value.description(), "( inner )");
    PropertyList outer = Dictionary{{"a", Dictionary{{"b", 1}}}};
    outer = *outer.get("a");  // by copy
    EXPECT_EQ(outer.description(), "{ b = 1; }");
    outer = Dictionary{{"a", Dictionary{{"b", 1}}}};
    outer = std::move(const_cast<PropertyList&>(*outer.get("a")));
    EXPECT_EQ(outer.description(), "{ b = 1; }");
}

TEST(PropertyList, DescribesItselfOnOneLine) {
    PropertyList value = Dictionary{{"a", 1},
                                    {"b", Array{"x", "y"}},
                                    {"a key", "two\nlines \"quoted\" \\"},
                                    {"empty", ""},
                                    {"none", Array{}},
                                    {"nothing", Dictionary{}},
                                    {"yes", true},
                                    {"half", 0.5},
                                    {"tenth", 0.1},
                                    {"bytes", Data{0, 0xab}},
                                    {"date", Date{978307200.75}},
                                    {"path", "/usr/lib-1.0"}};
    EXPECT_EQ(value.description(),
              "{ a = 1; b = ( x, y ); \"a key\" = \"two\\nlines \\\"quoted\\\" \\\\\"; empty = \"\"; none = ( ); "
              "nothing = { }; yes = 1; half = 0.5; tenth = 0.1; bytes = <00ab>; date = 2001-01-01 00:00:00 +0000; "
              "path = /usr/lib-1.0; }");
    EXPECT_EQ(PropertyList().description(), "(null)");
    EXPECT_EQ(PropertyList(Date{1e300}).description(), "1970-01-01 00:00:00 +0000");
    EXPECT_EQ(PropertyList(Date{-0.5}).description(), "1969-12-31 23:59:59 +0000");
}

TEST(PropertyList, StandsNestingOfAnyDepth) {
    constexpr int kLevels = 100000;
    PropertyList value = nested(kLevels);
    PropertyList copy = value;
    EXPECT_EQ(copy, value);
    EXPECT_NE(copy, nested(kLevels - 1));
    PropertyList assigned;
    assigned = copy;
    copy = PropertyList();
    EXPECT_EQ(assigned, value);
    EXPECT_EQ(value.toXML(), "");
    EXPECT_EQ(value.toBinary(), "");
    std::string text = value.description();
    EXPECT_TRUE(text.starts_with("( ( ( "));
    EXPECT_NE(text.find("..."), std::string::npos);
}

TEST(PropertyList, StandsNestedDictionariesToo) {
    PropertyList value = 1;
    for (int level = 0; level < 100000; level++) {
        Dictionary around;
        around.emplace_back("key", std::move(value));
        value = std::move(around);
    }
    PropertyList copy = value;
    EXPECT_EQ(copy, value);
}

TEST(PropertyList, WritesToItsDeepestLevel) {
    PropertyList value = nested(PropertyList::kDeepest);
    for (const std::string& bytes : {value.toXML(), value.toBinary()}) {
        ASSERT_FALSE(bytes.empty());
        std::optional<PropertyList> read = PropertyList::fromBytes(bytesOf(bytes));
        ASSERT_TRUE(read);
        EXPECT_EQ(*read, value);
    }
    EXPECT_EQ(nested(PropertyList::kDeepest + 1).toXML(), "");
    EXPECT_EQ(nested(PropertyList::kDeepest + 1).toBinary(), "");
}

}  // namespace
}  // namespace kavaro
