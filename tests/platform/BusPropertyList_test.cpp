#include "platform/BusPropertyList.h"

#include <gtest/gtest.h>

namespace kavaro {
namespace {

TEST(BusPropertyList, EveryKindHasItsType) {
    EXPECT_EQ(busValueOf(PropertyList(true)).type(), "b");
    EXPECT_EQ(busValueOf(PropertyList(-5)).type(), "x");
    EXPECT_EQ(busValueOf(PropertyList(-5)).asInteger(), -5);
    EXPECT_EQ(busValueOf(PropertyList(1.5)).asDouble(), 1.5);
    EXPECT_EQ(busValueOf(PropertyList(PropertyList::Date{12.25})).asDouble(), 12.25);
    EXPECT_EQ(busValueOf(PropertyList("text")).asString(), "text");
    EXPECT_EQ(busValueOf(PropertyList(PropertyList::Data{1, 2})).asData()->view().size(), 2u);
    EXPECT_EQ(busValueOf(PropertyList(PropertyList::Array{1, "a", PropertyList()})).type(), "av");
    EXPECT_TRUE(busValueOf(PropertyList()).isNull());
}

TEST(BusPropertyList, DictionariesLeaveNullsOut) {
    const BusValue value = busValueOf(PropertyList::Dictionary{
        {"a", 1}, {"none", PropertyList()}, {"inner", PropertyList::Dictionary{{"b", "text"}}}});
    EXPECT_EQ(value.type(), "a{sv}");
    EXPECT_EQ(value.asDictionary()->size(), 2u);
    EXPECT_EQ(value.get("inner").get("b").asString(), "text");
}

TEST(BusPropertyList, WhatIsTooDeepForABusIsLeftOut) {
    PropertyList deep = "bottom";
    for (int level = 0; level < 1000; ++level) deep = PropertyList(PropertyList::Array{deep});
    BusValue value = busValueOf(deep);
    EXPECT_EQ(value.type(), "av");
    EXPECT_EQ(value.description().find("bottom"), std::string::npos);
}

}  // namespace
}  // namespace kavaro
