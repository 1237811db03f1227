#include "platform/PropertyListReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

namespace kavaro {
namespace {

using namespace std::string_view_literals;

std::string read(std::string_view text) {
    PropertyListFault fault;
    const auto value = propertyListFromText(text, &fault);
    return value ? value->description() : fault.description();
}

std::string textIn(std::string_view text) {
    const auto value = propertyListFromText(text, nullptr);
    return value && value->string() ? *value->string() : "(none)";
}

TEST(PropertyListReaderTest, EveryKindOfValue) {
    EXPECT_EQ(read("{ a = b; \"c d\" = ( 1, two, ); e = <0fBD 77>; f = {}; g = (); 'h' = \"\"; }"),
              "{ a = b; \"c d\" = ( 1, two ); e = <0fbd77>; f = { }; g = ( ); h = \"\"; }");
    EXPECT_EQ(read("word"), "word");
    EXPECT_EQ(read("  \"text\"\n"), "text");
    EXPECT_EQ(read("<>"), "<>");
    EXPECT_EQ(read("(({},()),<aa>)"), "( ( { }, ( ) ), <aa> )");
    EXPECT_EQ(read("{index=\"0\"; inode=\"00000007\"; filePath=\"/a b\";}"),
              "{ index = 0; inode = 00000007; filePath = \"/a b\"; }");
}

TEST(PropertyListReaderTest, Words) {
    EXPECT_EQ(textIn("aZ09_$/:.-"), "aZ09_$/:.-");
    EXPECT_EQ(textIn("http://x//y"), "http://x//y");  // no comment within a word
    EXPECT_EQ(read("a b"), "something follows the value (line 1, column 3)");
    EXPECT_EQ(read("+"), "a character that needs quotation marks (line 1, column 1)");
    EXPECT_EQ(read("\xc3\xa4"), "a character that needs quotation marks (line 1, column 1)");
}

TEST(PropertyListReaderTest, BlanksAndComments) {
    EXPECT_EQ(read("// one\n{ /* two */ a /**/ = // three\n\t b /* ; */ ; // } \n } /* four\n\n */ // end"),
              "{ a = b; }");
    EXPECT_EQ(textIn("\"/* no */ // comment\""), "/* no */ // comment");
    EXPECT_EQ(read("a /* b"), "the comment has no end (line 1, column 3)");
    EXPECT_EQ(read("a /*/"), "the comment has no end (line 1, column 3)");
    EXPECT_EQ(read("// only"), "a value is missing (line 1, column 8)");
    EXPECT_EQ(read("/"), "/");
    EXPECT_EQ(read("/a"), "/a");
}

TEST(PropertyListReaderTest, Escapes) {
    EXPECT_EQ(textIn(R"("\a\b\f\n\r\t\v\"\'\\\x\q")"), "\a\b\f\n\r\t\v\"'\\xq");
    EXPECT_EQ(textIn(R"('it\'s "so"')"), "it's \"so\"");
    EXPECT_EQ(textIn(R"("\1\12\1234\377\08")"),
              "\1\12\x53"
              "4\xff\0"
              "8"sv);
    EXPECT_EQ(textIn(R"("\U41\U00e4\U20AC\Ud83d\ude00")"), "(none)");
    EXPECT_EQ(textIn(R"("\U41-\U00e4\U20AC\Ud83d\Ude00\U00410")"),
              "A-\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"
              "A0");
    EXPECT_EQ(textIn("\"a\\\nb\nc\""), "a\nb\nc");
    EXPECT_EQ(textIn("\"\xff\xc3\""), "\xff\xc3");
}

TEST(PropertyListReaderTest, EscapesThatAreNone) {
    EXPECT_EQ(read(R"("ab\400")"), "no byte has this number (line 1, column 4)");
    EXPECT_EQ(read(R"("\Ux")"), "\\U without digits (line 1, column 2)");
    for (const char* text : {R"("\Ud83d")", R"("\Ude00")", R"("\Ud83d\U0041")", R"("\Ud83dx")", R"("\Ud83d\U")"})
        EXPECT_EQ(read(text), "half a character (line 1, column 2)") << text;
}

TEST(PropertyListReaderTest, FaultsAndTheirPlaces) {
    const std::pair<const char*, const char*> faults[] = {
        {"", "a value is missing (line 1, column 1)"},
        {"{", "the dictionary has no end (line 1, column 2)"},
        {"{ a }", "'=' is missing (line 1, column 5)"},
        {"{ a = }", "a character that needs quotation marks (line 1, column 7)"},
        {"{ a = b }", "';' is missing (line 1, column 9)"},
        {"{ a = b; ; }", "a key is missing (line 1, column 10)"},
        {"{ a = b; (c) = d; }", "a key is missing (line 1, column 10)"},
        {"{\n  a = b;\n  c = (d e);\n}", "',' or ')' is missing (line 3, column 10)"},
        {"(", "the array has no end (line 1, column 2)"},
        {"(a,", "the array has no end (line 1, column 4)"},
        {"(a,,b)", "a character that needs quotation marks (line 1, column 4)"},
        {"(,)", "a character that needs quotation marks (line 1, column 2)"},
        {"(a}", "',' or ')' is missing (line 1, column 3)"},
        {"{} {}", "something follows the value (line 1, column 4)"},
        {"{ a = \"b; }", "the quotation has no end (line 1, column 7)"},
        {"\"a\\", "the quotation has no end (line 1, column 1)"},
        {"<a>", "data has two digits a byte (line 1, column 3)"},
        {"<ag>", "data is written in hexadecimal digits (line 1, column 3)"},
        {"<aa", "the data has no end (line 1, column 1)"},
    };
    for (const auto& [text, fault] : faults) EXPECT_EQ(read(text), fault) << text;
}

TEST(PropertyListReaderTest, OfEqualKeysTheLastOneCounts) {
    EXPECT_EQ(read("{ a = 1; b = 2; a = 3; c = 4; b = 5; a = 6; }"), "{ a = 6; b = 5; c = 4; }");
}

TEST(PropertyListReaderTest, ManyKeysTakeNoLonger) {
    std::string text = "{";
    for (int key = 0; key < 300000; ++key) text += "k" + std::to_string(key) + "=v;";
    text += "k0=w;}";
    const auto value = propertyListFromText(text, nullptr);
    ASSERT_TRUE(value);
    EXPECT_EQ(value->dictionary()->size(), 300000u);
    EXPECT_EQ(*value->get("k0")->string(), "w");
}

TEST(PropertyListReaderTest, DepthHasALimit) {
    constexpr auto kMost = static_cast<std::size_t>(PropertyList::kDeepest);
    for (const auto& [open, close] : {std::pair("(", ")"), std::pair("{a=", ";}")}) {
        std::string text;
        for (std::size_t level = 0; level < kMost; ++level) text += open;
        text += *open == '{' ? "b" : "";
        std::string deepest = text;
        for (std::size_t level = 0; level < kMost; ++level) deepest += close;
        EXPECT_TRUE(propertyListFromText(deepest, nullptr)) << open;
        const std::string deeper = std::string(open) + deepest + close;
        EXPECT_THAT(read(deeper), testing::StartsWith("nested too deeply")) << open;
    }
    EXPECT_THAT(read(std::string(10000000, '(')), testing::StartsWith("nested too deeply"));
}

TEST(PropertyListReaderTest, NullBytes) {
    EXPECT_EQ(textIn("\"a\0b\""sv), "a\0b"sv);
    EXPECT_EQ(read("a\0"sv), "something follows the value (line 1, column 2)");
    EXPECT_EQ(read("\0"sv), "a character that needs quotation marks (line 1, column 1)");
}

// Whatever the bytes, it ends, and what is let through is found at the same place again.
TEST(PropertyListReaderTest, CutAndAlteredTexts) {
    const std::string good = "{ a = (b, <0a>, \"c\\U00e4\\101\\n\"); /* d */ 'e' = { f = g; }; } // h";
    ASSERT_TRUE(propertyListFromText(good, nullptr));
    const std::size_t end = good.find(" // h");
    for (std::size_t length = 0; length <= good.size(); ++length)
        ASSERT_EQ(propertyListFromText(good.substr(0, length), nullptr).has_value(), length >= end && length != end + 2)
            << length;
    PropertyListFault fault;
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
        std::string text = good;
        text[bit / 8] = static_cast<char>(text[bit / 8] ^ 1 << bit % 8);
        const auto value = propertyListFromText(text, &fault);
        if (!value) {
            ASSERT_LE(fault.offset, text.size());
        }
    }
    std::mt19937 random(3);
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (std::size_t parts = random() % 12; parts > 0; --parts) {
            constexpr const char* kParts[] = {"{", "}", "(",  ")",  "a",  "=",  ";",  ",",   "\"",    "'", "\\",
                                              "<", ">", "aa", "/*", "*/", "//", "\n", "\\U", "\\377", " "};
            text += kParts[random() % std::size(kParts)];
        }
        const auto value = propertyListFromText(text, &fault);
        if (!value) {
            ASSERT_LE(fault.offset, text.size());
        }
    }
}

}  // namespace
}  // namespace kavaro
