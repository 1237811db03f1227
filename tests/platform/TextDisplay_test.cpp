#include "platform/TextDisplay.h"

#include <gtest/gtest.h>

#include <string>

namespace kavaro {
namespace {

TEST(TextDisplay, widthOfPlainText) {
    EXPECT_EQ(displayWidth(""), 0U);
    EXPECT_EQ(displayWidth("abc"), 3U);
    EXPECT_EQ(displayWidth("é"), 1U);
    EXPECT_EQ(displayWidth("…"), 1U);
}

TEST(TextDisplay, wideCharactersTakeTwoColumns) {
    EXPECT_EQ(displayWidth("写真"), 4U);
    EXPECT_EQ(displayWidth("ｗｉｄｅ"), 8U);
    EXPECT_EQ(displayWidth("😀"), 2U);
    EXPECT_EQ(displayWidth("ﾊﾝｶｸ"), 4U);  // half width
}

TEST(TextDisplay, marksTakeNone) {
    EXPECT_EQ(displayWidth("e\xCC\x81"), 1U);  // e and a combining acute accent
    EXPECT_EQ(displayWidth("a\xE2\x80\x8D"
                           "b"),
              2U);                                                        // zero-width joiner
    EXPECT_EQ(displayWidth("\xE1\x84\x92\xE1\x85\xA1\xE1\x86\xAB"), 2U);  // a syllable of three parts
    EXPECT_EQ(displayWidth("a\xC2\xAD"
                           "b"),
              3U);  // terminals draw the soft hyphen
}

TEST(TextDisplay, bytesThatAreNotUTF8TakeOne) {
    EXPECT_EQ(displayWidth("a\xFF"
                           "b"),
              3U);
    EXPECT_EQ(displayWidth("\xE5\x86"), 1U);  // cut short
}

TEST(TextDisplay, textThatFitsStays) {
    EXPECT_EQ(cutInMiddle("abcdef", 6), "abcdef");
    EXPECT_EQ(cutInMiddle("", 0), "");
    EXPECT_EQ(cutInMiddle("写真", 4), "写真");
}

TEST(TextDisplay, longTextLosesItsMiddle) {
    EXPECT_EQ(cutInMiddle("abcdefgh", 5), "ab…gh");
    EXPECT_EQ(cutInMiddle("abcdefgh", 6), "abc…gh");
    EXPECT_EQ(cutInMiddle("abcdefgh", 2), "a…");
    EXPECT_EQ(cutInMiddle("abcdefgh", 1), "…");
    EXPECT_EQ(cutInMiddle("abcdefgh", 0), "");
}

TEST(TextDisplay, cutKeepsMarksWithTheirLetter) {
    EXPECT_EQ(cutInMiddle("ae\xCC\x81xxxxe\xCC\x81z", 5), "ae\xCC\x81…e\xCC\x81z");
}

TEST(TextDisplay, cutIsNeverWiderThanAsked) {
    const std::string text = "写真a写\xCC\x81\xFF真ｗb\xE5😀c";
    for (std::size_t columns = 0; columns < 20; ++columns) {
        EXPECT_LE(displayWidth(cutInMiddle(text, columns)), columns);
    }
}

TEST(TextDisplay, invalidBytesAreReplaced) {
    EXPECT_EQ(validUTF8("abc é"), "abc é");
    EXPECT_EQ(validUTF8("a\xFF"
                        "b"),
              "a\uFFFDb");
    EXPECT_EQ(validUTF8("\xE5\x86"), "\uFFFD");
    EXPECT_EQ(validUTF8("\xED\xA0\x80"), "\uFFFD\uFFFD\uFFFD");  // half of a surrogate pair
}

}  // namespace
}  // namespace kavaro
