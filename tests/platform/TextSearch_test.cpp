// CaseInsensitiveSearch against a slow twin, and the folding against the library's own.
#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <random>
#include <vector>

#include "platform/Text.h"

namespace kavaro {
namespace {

constexpr std::size_t kNone = std::string_view::npos;

// Ends of the characters of a text; bytes that are not UTF-8 are one each.
std::vector<std::size_t> boundaries(std::string_view text) {
    std::vector<std::size_t> ends = {0};
    for (std::int32_t at = 0; at < static_cast<std::int32_t>(text.size());) {
        const std::int32_t start = at;
        UChar32 codePoint = 0;
        U8_NEXT(text.data(), at, static_cast<std::int32_t>(text.size()), codePoint);
        if (codePoint < 0) at = start + 1;
        ends.push_back(static_cast<std::size_t>(at));
    }
    return ends;
}

// The first stretch of whole characters that compares equal; the shortest one there.
std::pair<std::size_t, std::size_t> slowly(std::string_view text, std::string_view part) {
    const std::vector<std::size_t> ends = boundaries(text);
    for (std::size_t from = 0; from < ends.size(); ++from) {
        for (std::size_t to = from + 1; to < ends.size(); ++to) {
            const std::string_view stretch = text.substr(ends[from], ends[to] - ends[from]);
            if (caseInsensitiveCompare(stretch, part) == 0) return {ends[from], stretch.size()};
        }
    }
    return {kNone, 0};
}

std::pair<std::size_t, std::size_t> quickly(std::string_view text, std::string_view part) {
    std::size_t length = 77;
    const std::size_t position = CaseInsensitiveSearch(part).find(text, &length);
    return {position, length};
}

std::string randomText(std::mt19937& random, const std::vector<std::string>& pieces, unsigned longest) {
    std::string text;
    for (auto length = random() % (longest + 1); length > 0; --length) text += pieces[random() % pieces.size()];
    return text;
}

TEST(TextSearch, equalsTheSlowOneOnASCII) {
    const std::vector<std::string> pieces = {"a", "A", "b", "B", "@", "[", "`", "{", "z", "Z", std::string(1, '\0')};
    std::mt19937 random(11);
    int found = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string text = randomText(random, pieces, 20), part = randomText(random, pieces, 3);
        ASSERT_EQ(quickly(text, part), slowly(text, part)) << printable(text) << " / " << printable(part);
        if (slowly(text, part).first != kNone) ++found;
    }
    EXPECT_GT(found, 1000);
}

TEST(TextSearch, equalsTheSlowOneOnEverything) {
    const std::vector<std::string> pieces = {
        "s",      "S",      "k",      "f",      "i",      "I",        "\u00df",     "\u017f",     "\u212a",
        "\ufb01", "\ufb03", "\u0130", "\u0131", "\u00e9", "\u00c9",   "\u0390",     "\u03b9",     "\u0308",
        "\u0301", "\u0307", "\xff",   "\xc3",   "\xa9",   "\xe2\x84", "\U00010400", "\U00010428", "\u5199"};
    std::mt19937 random(12);
    int found = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string text = randomText(random, pieces, 12), part = randomText(random, pieces, 3);
        ASSERT_EQ(quickly(text, part), slowly(text, part)) << printable(text) << " / " << printable(part);
        if (slowly(text, part).first != kNone) ++found;
    }
    EXPECT_GT(found, 1000);
}

TEST(TextSearch, lengthsAroundTheFastPath) {
    for (std::size_t length = 0; length < 600; ++length) {
        const std::string text = std::string(length, 'x') + "NeeDle";
        ASSERT_EQ(quickly(text, "needle"), (std::pair{length, std::size_t{6}})) << length;
        ASSERT_EQ(quickly(text, "needles"), (std::pair{kNone, std::size_t{0}})) << length;
        ASSERT_EQ(quickly(text + "\u00e9", "E\u00c9"), (std::pair{length + 5, std::size_t{3}})) << length;
    }
}

TEST(TextSearch, longNeedles) {
    const std::string part(10000, 'N');
    EXPECT_EQ(quickly(std::string(255, 'n'), part).first, kNone);
    EXPECT_EQ(quickly("x" + std::string(10000, 'n') + "x", part), (std::pair{std::size_t{1}, std::size_t{10000}}));
    EXPECT_EQ(quickly("", part).first, kNone);
    // One character of the text may stand for three of the part, and take fewer bytes.
    EXPECT_EQ(quickly("\u0390", "\u03b9\u0308\u0301"), (std::pair{std::size_t{0}, std::size_t{2}}));
}

// All characters there are: each equals what the library folds it to.
TEST(TextSearch, everyCharacterFoldsAsItShould) {
    for (UChar32 codePoint = 1; codePoint <= 0x10ffff; ++codePoint) {
        if (U_IS_SURROGATE(codePoint)) continue;
        UChar source[2], folded[8];
        std::int32_t sourceLength = 0;
        U16_APPEND_UNSAFE(source, sourceLength, codePoint);
        UErrorCode status = U_ZERO_ERROR;
        const std::int32_t length = u_strFoldCase(folded, 8, source, sourceLength, U_FOLD_CASE_DEFAULT, &status);
        ASSERT_TRUE(U_SUCCESS(status));
        char plain[4], other[32];
        std::int32_t plainLength = 0, otherLength = 0;
        U8_APPEND_UNSAFE(plain, plainLength, codePoint);
        u_strToUTF8(other, sizeof other, &otherLength, folded, length, &status);
        ASSERT_TRUE(U_SUCCESS(status));
        const std::string_view one(plain, static_cast<std::size_t>(plainLength));
        const std::string_view fold(other, static_cast<std::size_t>(otherLength));
        ASSERT_EQ(caseInsensitiveCompare(one, fold), 0) << std::hex << codePoint;
        ASSERT_EQ(caseInsensitiveCompare(std::string("x").append(one), std::string("X").append(fold)), 0);
    }
}

}  // namespace
}  // namespace kavaro
