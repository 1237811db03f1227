#include "model/NodeText.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace kavaro {
namespace {

TEST(NodeTextTest, AbsentIsNotEmpty) {
    NodeText text;
    EXPECT_TRUE(text.isNull());
    EXPECT_EQ(text.view().data(), nullptr);
    text.set("");
    EXPECT_FALSE(text.isNull());
    EXPECT_NE(text.view().data(), nullptr);
    EXPECT_EQ(text.view(), "");
    text.reset();
    EXPECT_TRUE(text.isNull());
    text.set(std::string_view());
    EXPECT_TRUE(text.isNull());
}

TEST(NodeTextTest, KeepsAnyBytes) {
    const std::string bytes("a\0b\xff/\n", 6);
    NodeText text(bytes);
    EXPECT_EQ(text.view(), bytes);
    const std::string big(1 << 20, 'x');
    text.set(big);
    EXPECT_EQ(text.view(), big);
}

TEST(NodeTextTest, IsOnePointer) {
    EXPECT_EQ(sizeof(NodeText), sizeof(void*));
}

TEST(NodeTextTest, Moves) {
    NodeText first("one");
    NodeText second(std::move(first));
    EXPECT_TRUE(first.isNull());
    EXPECT_EQ(second.view(), "one");
    NodeText third("three");
    third = std::move(second);
    EXPECT_EQ(third.view(), "one");
    EXPECT_TRUE(second.isNull());
    NodeText& same = third;
    third = std::move(same);
    EXPECT_EQ(third.view(), "one");
    third = NodeText("");
    EXPECT_EQ(third.view(), "");
    EXPECT_FALSE(third.isNull());
}

TEST(NodeTextTest, TakesAPartOfItself) {
    NodeText text("folder/name");
    text.set(text.view().substr(7));
    EXPECT_EQ(text.view(), "name");
    text.set(text.view());
    EXPECT_EQ(text.view(), "name");
}

}  // namespace
}  // namespace kavaro
