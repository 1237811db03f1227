#include "platform/TextCase.h"

#include <gtest/gtest.h>

#include "platform/Text.h"

namespace kavaro {
namespace {

TEST(TextCase, countsCharacters) {
    EXPECT_EQ(characterCount(""), 0u);
    EXPECT_EQ(characterCount("en"), 2u);
    EXPECT_EQ(characterCount("日本"), 2u);
    EXPECT_EQ(characterCount("\U0001F600"), 1u);
    EXPECT_EQ(characterCount("\xff\xfe"), 2u);
    EXPECT_EQ(characterCount("a\xc3"), 2u);
}

TEST(TextCase, takesCharactersFromTheFront) {
    EXPECT_EQ(firstCharacters("Español", 5), "Españ");
    EXPECT_EQ(firstCharacters("ab", 7), "ab");
    EXPECT_EQ(firstCharacters("ab", 0), "");
    EXPECT_EQ(firstCharacters("\xff\xfe\xfd", 2), "\xff\xfe");
}

TEST(TextCase, lowersEveryLetter) {
    EXPECT_EQ(lowercaseString("Norwegian BOKMÅL"), "norwegian bokmål");
    EXPECT_EQ(lowercaseString("ΕΛΛΗΝΙΚΆ"), "ελληνικά");
    EXPECT_EQ(lowercaseString("A\xff\xc3Z"), "a\xff\xc3z");
    EXPECT_EQ(lowercaseString("TITLE"), "title");  // also for Turks
}

TEST(TextCase, capitalizesWords) {
    EXPECT_EQ(capitalizedString("new ZEALAND"), "New Zealand");
    EXPECT_EQ(capitalizedString("xx"), "Xx");
    EXPECT_EQ(capitalizedString("zh-hANS_cn"), "Zh-hans_cn");
    EXPECT_EQ(capitalizedString("éTAT\tÉtat\nx"), "État\tÉtat\nX");
    EXPECT_EQ(capitalizedString(""), "");
    EXPECT_EQ(capitalizedString("  two  blanks"), "  Two  Blanks");
    EXPECT_EQ(capitalizedString("\xff"
                                "AB c\xc3"),
              "\xff"
              "ab C\xc3");
}

TEST(TextCase, prefixes) {
    EXPECT_TRUE(hasPrefixCaseInsensitive("Sweden.png", "swe"));
    EXPECT_TRUE(hasPrefixCaseInsensitive("Sweden", ""));
    EXPECT_TRUE(hasPrefixCaseInsensitive("ÉTAT", "éta"));
    EXPECT_TRUE(hasPrefixCaseInsensitive("\xff\xfe", "\xff"));
    EXPECT_FALSE(hasPrefixCaseInsensitive("Swe", "Sweden"));
    EXPECT_FALSE(hasPrefixCaseInsensitive("A Sweden", "Swe"));
    EXPECT_FALSE(hasPrefixCaseInsensitive("", "a"));
}

}  // namespace
}  // namespace kavaro
