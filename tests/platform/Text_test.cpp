#include "platform/Text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace kavaro {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

int sign(int value) {
    return (value > 0) - (value < 0);
}

TEST(Text, ChecksUTF8) {
    EXPECT_TRUE(isValidUTF8(""));
    EXPECT_TRUE(isValidUTF8("plain text that is longer than eight bytes"));
    EXPECT_TRUE(isValidUTF8(std::string_view("a\0b", 3)));
    EXPECT_TRUE(isValidUTF8("\u00e9\u20ac\U0001F600"));
    EXPECT_FALSE(isValidUTF8("\xff"));
    EXPECT_FALSE(isValidUTF8("01234567\xc3"));           // cut short
    EXPECT_FALSE(isValidUTF8("\x80"));                   // continuation alone
    EXPECT_FALSE(isValidUTF8("\xc0\xaf"));               // longer than needed
    EXPECT_FALSE(isValidUTF8("\xed\xa0\x80"));           // surrogate
    EXPECT_FALSE(isValidUTF8("\xf4\x90\x80\x80"));       // above the last code point
    EXPECT_TRUE(isValidUTF8("\xf4\x8f\xbf\xbf"));        // the last code point
    EXPECT_FALSE(isValidUTF8("\xe9t\xe9 en latin un"));  // another encoding
}

TEST(Text, ComparesByCodePoint) {
    EXPECT_EQ(compare("a", "a"), 0);
    EXPECT_LT(compare("", "a"), 0);
    EXPECT_LT(compare("Z", "a"), 0);
    EXPECT_GT(compare("ab", "a"), 0);
    EXPECT_LT(compare("\uffee", "\U0001F600"), 0);  // by UTF-16 unit it would be the other way round
    EXPECT_LT(compare("z", "\xff"), 0);
}

TEST(Text, ComparesIgnoringCase) {
    EXPECT_EQ(caseInsensitiveCompare("README", "readme"), 0);
    EXPECT_LT(caseInsensitiveCompare("a", "B"), 0);
    EXPECT_GT(caseInsensitiveCompare("b", "A"), 0);
    EXPECT_LT(caseInsensitiveCompare("a", "AB"), 0);
    EXPECT_GT(caseInsensitiveCompare("AB", "a"), 0);
    EXPECT_LT(caseInsensitiveCompare("a_", "aB"), 0);  // letters compare as small ones: '_' is before 'b'
    EXPECT_EQ(caseInsensitiveCompare("\u00c9TUDE", "\u00e9tude"), 0);
    EXPECT_EQ(caseInsensitiveCompare("STRASSE", "stra\u00dfe"), 0);
    EXPECT_EQ(caseInsensitiveCompare("stra\u00dfe", "STRASSE"), 0);
    EXPECT_NE(caseInsensitiveCompare("stras", "stra\u00df"), 0);
    EXPECT_EQ(caseInsensitiveCompare("\u03a3", "\u03c2"), 0);          // both forms of the small sigma
    EXPECT_EQ(caseInsensitiveCompare("\u212a", "k"), 0);               // Kelvin sign
    EXPECT_EQ(caseInsensitiveCompare("\ufb03", "FFI"), 0);             // one character, three letters
    EXPECT_EQ(caseInsensitiveCompare("\U00010400", "\U00010428"), 0);  // outside the first plane
    EXPECT_NE(caseInsensitiveCompare("i", "\u0130"), 0);
}

TEST(Text, BytesThatAreNotUTF8StandForThemselves) {
    EXPECT_EQ(caseInsensitiveCompare("A\xff", "a\xff"), 0);
    EXPECT_LT(caseInsensitiveCompare("a\xfe", "A\xff"), 0);
    EXPECT_NE(caseInsensitiveCompare("\xc9", "\xe9"), 0);
    EXPECT_NE(caseInsensitiveCompare("\xc3", "\u00e9"), 0);
}

TEST(Text, IgnoringCaseIsAnOrder) {
    // Any mixture of characters and bytes: antisymmetric and transitive, or sorting would be undefined.
    const std::vector<std::string> pieces = {"a",        "A",      "b",      "B",    "ss",
                                             "\u00df",   "\u00e9", "\u00c9", "\xff", "\xc3",
                                             "\xe2\x84", "\u212a", "k",      "_",    "\U0001F600"};
    std::mt19937 random(7);
    std::vector<std::string> texts;
    for (int count = 0; count < 120; count++) {
        std::string text;
        for (auto length = random() % 4; length > 0; length--) text += pieces[random() % pieces.size()];
        texts.push_back(text);
    }
    for (const std::string& a : texts) {
        for (const std::string& b : texts) {
            ASSERT_EQ(sign(caseInsensitiveCompare(a, b)), -sign(caseInsensitiveCompare(b, a)));
            for (const std::string& c : texts) {
                if (caseInsensitiveCompare(a, b) <= 0 && caseInsensitiveCompare(b, c) <= 0) {
                    ASSERT_LE(caseInsensitiveCompare(a, c), 0) << printable(a + " " + b + " " + c);
                }
            }
        }
    }
}

TEST(Text, AnEqualStartLeavesTheOrder) {
    const std::string_view tails[] = {"",
                                      "a",
                                      "B",
                                      "b",
                                      "ab",
                                      "\u00e9",
                                      "\u00c9t",
                                      "\xff",
                                      "ss",
                                      "\u00df",
                                      "\u212a",
                                      "k",
                                      "/longer than a word/x",
                                      "/Longer than a word/Y"};
    for (std::size_t length = 0; length < 40; ++length) {
        const std::string start = std::string("/Some/Folder/with a rather long name/of it/").substr(0, length);
        for (std::string_view a : tails)
            for (std::string_view b : tails)
                ASSERT_EQ(sign(caseInsensitiveCompare(start + std::string(a), start + std::string(b))),
                          sign(caseInsensitiveCompare(a, b)))
                    << length << printable(a) << " " << printable(b);
    }
}

struct Found {
    std::size_t position, length;
    bool operator==(const Found&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Found& found) {
    return out << "{" << found.position << ", " << found.length << "}";
}
Found find(std::string_view text, std::string_view part) {
    std::size_t length = 77;
    std::size_t position = findCaseInsensitive(text, part, &length);
    return {position, length};
}

TEST(Text, FindsIgnoringCase) {
    EXPECT_EQ(find("some Report.PDF", "report"), (Found{5, 6}));
    EXPECT_EQ(find("aab", "AB"), (Found{1, 2}));
    EXPECT_EQ(find("abc", "d"), (Found{kNone, 0}));
    EXPECT_EQ(find("ab", "abc"), (Found{kNone, 0}));
    EXPECT_EQ(find("abc", ""), (Found{kNone, 0}));
    EXPECT_EQ(find("", "a"), (Found{kNone, 0}));
    EXPECT_EQ(findCaseInsensitive("xA", "a", nullptr), 1u);
}

TEST(Text, FindsTheOriginalsPositionAndLength) {
    EXPECT_EQ(find("\u20acSTRA\u00dfE!", "strasse"), (Found{3, 7}));
    EXPECT_EQ(find("Strasse", "stra\u00dfe"), (Found{0, 7}));
    EXPECT_EQ(find("10 \u212a warm", "K W"), (Found{3, 5}));
    EXPECT_EQ(find("\u00c9\u00e9", "\u00e9\u00c9"), (Found{0, 4}));
    EXPECT_EQ(find("stra\u00dfe", "s"), (Found{0, 1}));
    EXPECT_EQ(find("\u00df", "s"), (Found{kNone, 0}));  // half a character is no match
    EXPECT_EQ(find("\u00dfs", "s"), (Found{2, 1}));
    EXPECT_EQ(find("a\xff\xfeZ", "\xfez"), (Found{2, 2}));
    EXPECT_EQ(find("\u00e9", "\xc3"), (Found{kNone, 0}));
}

TEST(Text, PrintsForPeople) {
    EXPECT_EQ(printable("plain \u00e9 \U0001F600"), "plain \u00e9 \U0001F600");
    EXPECT_EQ(printable("two\nlines"), "two\\nlines");
    EXPECT_EQ(printable("\x1b[31mred\t\x7f"), "\\x1b[31mred\\x09\\x7f");
    EXPECT_EQ(printable("bad\xe9name\xff"), "bad\\xe9name\\xff");
    EXPECT_EQ(printable("\xc2\x9b"), "\\xc2\\x9b");         // a control character of two bytes
    EXPECT_EQ(printable("a\u202eb"), "a\\xe2\\x80\\xaeb");  // would turn the line round
    EXPECT_EQ(printable("a\u200db"), "a\u200db");           // joins characters
    EXPECT_EQ(printable(std::string_view("\0", 1)), "\\x00");
}

TEST(Text, EncodesBase64) {
    EXPECT_EQ(base64({}), "");
    EXPECT_EQ(base64(bytesOf("a")), "YQ==");
    EXPECT_EQ(base64(bytesOf("any carnal pleas")), "YW55IGNhcm5hbCBwbGVhcw==");
    EXPECT_EQ(base64(bytesOf("\xff\xfe\xfd")), "//79");
}

TEST(Text, LastPathComponent) {
    EXPECT_EQ(lastPathComponent("/a/b"), "b");
    EXPECT_EQ(lastPathComponent("/a/b///"), "b");
    EXPECT_EQ(lastPathComponent("b"), "b");
    EXPECT_EQ(lastPathComponent("/"), "/");
    EXPECT_EQ(lastPathComponent("///"), "/");
    EXPECT_EQ(lastPathComponent(""), "");
}

TEST(Text, AppendsPathComponents) {
    EXPECT_EQ(stringByAppendingPathComponent("/a", "b"), "/a/b");
    EXPECT_EQ(stringByAppendingPathComponent("/a/", "/b/"), "/a/b");
    EXPECT_EQ(stringByAppendingPathComponent("/", "b"), "/b");
    EXPECT_EQ(stringByAppendingPathComponent("", "b"), "b");
    EXPECT_EQ(stringByAppendingPathComponent("/a", ""), "/a");
    EXPECT_EQ(stringByAppendingPathComponent("a", "b/c"), "a/b/c");
}

TEST(Text, DeletesTheLastPathComponent) {
    EXPECT_EQ(stringByDeletingLastPathComponent("/a/b"), "/a");
    EXPECT_EQ(stringByDeletingLastPathComponent("/a/b/"), "/a");
    EXPECT_EQ(stringByDeletingLastPathComponent("/a//b"), "/a");
    EXPECT_EQ(stringByDeletingLastPathComponent("/a"), "/");
    EXPECT_EQ(stringByDeletingLastPathComponent("/"), "/");
    EXPECT_EQ(stringByDeletingLastPathComponent("a"), "");
    EXPECT_EQ(stringByDeletingLastPathComponent(""), "");
}

TEST(Text, PathExtensions) {
    EXPECT_EQ(pathExtension("a.tar.gz"), "gz");
    EXPECT_EQ(pathExtension("/x.y/a"), "");
    EXPECT_EQ(pathExtension("/x/App.app/"), "app");
    EXPECT_EQ(pathExtension(".bashrc"), "");
    EXPECT_EQ(pathExtension("/home/.bashrc"), "");
    EXPECT_EQ(pathExtension("name."), "");
    EXPECT_EQ(pathExtension(""), "");
    EXPECT_EQ(stringByDeletingPathExtension("/a/b.c/"), "/a/b");
    EXPECT_EQ(stringByDeletingPathExtension("a..b"), "a.");
    EXPECT_EQ(stringByDeletingPathExtension("/x.y/a"), "/x.y/a");
    EXPECT_EQ(stringByDeletingPathExtension(".bashrc"), ".bashrc");
    EXPECT_EQ(stringByDeletingPathExtension("/"), "/");
}

}  // namespace
}  // namespace kavaro
