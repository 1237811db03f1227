#include "support/LogFormat.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "ScopedEnvironment.h"
#include "TempFolder.h"

namespace kavaro {
namespace {

struct Named {
    std::string name;
    std::string description() const { return "<" + name + ">"; }
};

enum class Code : std::uint16_t { write = 0x1234 };

// What the C library prints: the twin for everything that C knows too.
template <class... A>
std::string printed(const char* format, A... arguments) {
    char text[256];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    std::snprintf(text, sizeof text, format, arguments...);
#pragma GCC diagnostic pop
    return text;
}

TEST(LogFormat, TextWithoutConversionsStaysAsItIs) {
    EXPECT_EQ(formatted(""), "");
    EXPECT_EQ(formatted("Running server ..."), "Running server ...");
    EXPECT_EQ(formatted("100 %%, 50 %%"), "100 %, 50 %");
    EXPECT_EQ(formatted("%d%%", 3), "3%");
    EXPECT_EQ(formatted("é %d\n", 3), "é 3\n");
}

TEST(LogFormat, NumbersAsCPrintsThem) {
    EXPECT_EQ(formatted("%d|%i|%u", 1, -2, 3u), "1|-2|3");
    EXPECT_EQ(formatted("[%8d]", -42), printed("[%8d]", -42));
    EXPECT_EQ(formatted("[%-8d]", 42), printed("[%-8d]", 42));
    EXPECT_EQ(formatted("[%08d]", 42), printed("[%08d]", 42));
    EXPECT_EQ(formatted("[%+d % d]", 42, 42), printed("[%+d % d]", 42, 42));
    EXPECT_EQ(formatted("[%.5d]", 42), printed("[%.5d]", 42));
    EXPECT_EQ(formatted("%x %X %o", 0xbeefu, 0xbeefu, 8u), "beef BEEF 10");
    EXPECT_EQ(formatted("%02x%02x", 5u, 255u), "05ff");
    EXPECT_EQ(formatted("%#010x", 0x1234u), "0x00001234");
    EXPECT_EQ(formatted("%#018llx", std::uint64_t{0x1234}), "0x0000000000001234");
    EXPECT_EQ(formatted("%hd %hhd %ld %lld %zd %jd %td", short{1}, static_cast<signed char>(2), 3L, 4LL, std::size_t{5},
                        std::intmax_t{6}, std::ptrdiff_t{7}),
              "1 2 3 4 5 6 7");
}

TEST(LogFormat, ALetterAfterAConversionIsText) {
    EXPECT_EQ(formatted("%8ul", 42u), "      42l");
    EXPECT_EQ(formatted("%ul bytes", 42u), "42l bytes");
}

TEST(LogFormat, NumbersKeepTheirValueWhateverTheLetter) {
    constexpr std::uint64_t kMaximum = std::numeric_limits<std::uint64_t>::max();
    constexpr std::int64_t kMinimum = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(formatted("%d", kMaximum), "18446744073709551615");
    EXPECT_EQ(formatted("%u", kMaximum), "18446744073709551615");
    EXPECT_EQ(formatted("%d", kMinimum), "-9223372036854775808");
    EXPECT_EQ(formatted("%d", std::uint32_t{0xffffffff}), "4294967295");
    EXPECT_EQ(formatted("%u", -1), "-1");
    EXPECT_EQ(formatted("%d", true), "1");
    EXPECT_EQ(formatted("%x", kMaximum), "ffffffffffffffff");
}

TEST(LogFormat, NegativeNumbersShowTheirOwnWidthInHexadecimal) {
    EXPECT_EQ(formatted("%x", -1), "ffffffff");
    EXPECT_EQ(formatted("%X", static_cast<std::int16_t>(-2)), "FFFE");
    EXPECT_EQ(formatted("%llx", std::int64_t{-1}), "ffffffffffffffff");
    EXPECT_EQ(formatted("%o", static_cast<std::int8_t>(-1)), "377");
}

TEST(LogFormat, RealNumbers) {
    EXPECT_EQ(formatted("in %9.3f ms", 1.23456), "in     1.235 ms");
    EXPECT_EQ(formatted("[%-9.3f]", 1.5), "[1.500    ]");
    EXPECT_EQ(formatted("%7.3f", 1234567.25), "1234567.250");
    EXPECT_EQ(formatted("%f %e %g %G", 0.5, 1250.0, 1e-10, 1e-10), "0.500000 1.250000e+03 1e-10 1E-10");
    EXPECT_EQ(formatted("%f", 1.5f), "1.500000");
    EXPECT_EQ(formatted("%f", std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(formatted("%.1f", 1e300).size(), 303u);
}

// Writes a locale whose numbers have a decimal comma, in the C library's own form: no such locale need be installed.
void writeCommaLocale(const TempFolder& folder) {
    const std::uint32_t head[] = {0x20031115u ^ LC_NUMERIC, 6};
    std::string body;
    std::vector<std::uint32_t> offsets;
    const auto add = [&](const void* bytes, std::size_t length) {
        offsets.push_back(static_cast<std::uint32_t>(sizeof head + 6 * 4 + body.size()));
        body.append(static_cast<const char*>(bytes), length);
    };
    const std::uint32_t comma = ',', point = '.';
    add(",\0\0", 4);
    add(".\0", 2);
    add("\x7f\0", 2);
    add(&comma, 4);
    add(&point, 4);
    add("UTF-8", 6);
    folder.makeFolder("comma");
    folder.write("comma/LC_NUMERIC",
                 std::string(reinterpret_cast<const char*>(head), sizeof head) +
                     std::string(reinterpret_cast<const char*>(offsets.data()), offsets.size() * 4) + body);
}

TEST(LogFormat, ADecimalPointInEveryLocale) {
    TempFolder folder;
    writeCommaLocale(folder);
    ScopedEnvironment environment("LOCPATH", folder.path());
    ASSERT_NE(setlocale(LC_NUMERIC, "comma"), nullptr);
    ASSERT_EQ(printed("%.2f", 1.5), "1,50");
    EXPECT_EQ(formatted("%.2f %d", 1.5, 1000000), "1.50 1000000");
    EXPECT_EQ(printed("%.2f", 1.5), "1,50") << "the program's own locale must be left as it was";
    setlocale(LC_NUMERIC, "C");
}

TEST(LogFormat, Texts) {
    const char* borrowed = "borrowed";
    char array[] = "array";
    char* writable = array;
    const std::string string = "string";
    const std::string_view view = string;
    EXPECT_EQ(formatted("%@ %@ %@ %@ %@ %@", "literal", borrowed, array, writable, string, view),
              "literal borrowed array array string string");
    EXPECT_EQ(formatted("%s|%@", std::string(), ""), "|");
    EXPECT_EQ(formatted("[%8s][%-8s][%.3s][%6.2s]", "text", "text", "text", "text"),
              "[    text][text    ][tex][    te]");
    EXPECT_EQ(formatted("[%8@]", string), "[  string]");
    EXPECT_EQ(formatted("[%2s]", "longer"), "[longer]");
    EXPECT_EQ(formatted("%@", std::string("a\0b", 3)), std::string("a\0b", 3));
    EXPECT_EQ(formatted("%@ %d", "100 %d %@", 7), "100 %d %@ 7") << "an argument is no format";
}

TEST(LogFormat, AbsentTextsAndObjects) {
    const char* text = nullptr;
    const Named* object = nullptr;
    EXPECT_EQ(formatted("%@ %s %@ %@", text, text, object, nullptr), "(null) (null) (null) (null)");
    EXPECT_EQ(formatted("%@", std::string_view()), "(null)");
    EXPECT_EQ(formatted("%@", std::string_view("")), "");
    EXPECT_EQ(formatted("%@", std::optional<std::string>()), "(null)");
    EXPECT_EQ(formatted("%@", std::optional<std::string>("there")), "there");
}

TEST(LogFormat, ObjectsDescribeThemselves) {
    const Named object{"node"};
    Named other{"other"};
    Named* pointer = &other;
    EXPECT_EQ(formatted("%@ %@ %@ %@", object, &object, pointer, Named{"fresh"}), "<node> <node> <other> <fresh>");
    EXPECT_EQ(formatted("[%8@]", object), "[  <node>]");
}

TEST(LogFormat, CharactersAndEnumerations) {
    EXPECT_EQ(formatted("%c%c", 'a', 66), "aB");
    EXPECT_EQ(formatted("[%3c]", 'a'), "[  a]");
    EXPECT_EQ(formatted("%d %#06x", Code::write, Code::write), "4660 0x1234");
}

TEST(LogFormat, AddressesAreWhole) {
    const auto* address = reinterpret_cast<const void*>(std::uintptr_t{0x7fedcba987654321});
    EXPECT_EQ(formatted("%p", address), "0x7fedcba987654321");
    EXPECT_EQ(formatted("%x %X", address, address), "7fedcba987654321 7FEDCBA987654321");
    EXPECT_EQ(formatted("%016x", static_cast<const void*>("")).size(), 16u);
    EXPECT_EQ(formatted("[%20p]", address), "[  0x7fedcba987654321]");
    EXPECT_EQ(formatted("%p", static_cast<const void*>(nullptr)), "0x0");
}

TEST(LogFormat, LongTextsComeWhole) {
    const std::string text(1 << 20, 'x');
    EXPECT_EQ(formatted("<%@>", text).size(), text.size() + 2);
}

// The check of formats runs in the compiler and refuses a wrong one there; these are its parts.
TEST(LogFormat, KnowsWhichArgumentsAConversionTakes) {
    using logformat::Class;
    using logformat::fits;
    for (char letter : std::string_view("diuoc")) {
        EXPECT_TRUE(fits(letter, Class::integer)) << letter;
        EXPECT_FALSE(fits(letter, Class::real)) << letter;
        EXPECT_FALSE(fits(letter, Class::text)) << letter;
        EXPECT_FALSE(fits(letter, Class::pointer)) << letter;
    }
    for (char letter : std::string_view("feEgG")) {
        EXPECT_TRUE(fits(letter, Class::real)) << letter;
        EXPECT_FALSE(fits(letter, Class::integer)) << letter;
    }
    for (char letter : std::string_view("s@")) {
        EXPECT_TRUE(fits(letter, Class::text)) << letter;
        EXPECT_FALSE(fits(letter, Class::integer)) << letter;
        EXPECT_FALSE(fits(letter, Class::pointer)) << letter;
    }
    EXPECT_TRUE(fits('p', Class::pointer));
    EXPECT_FALSE(fits('p', Class::integer));
    for (char letter : std::string_view("nkSC*%\0", 7))
        for (Class argument : {Class::integer, Class::real, Class::text, Class::pointer})
            EXPECT_FALSE(fits(letter, argument)) << letter;
    static_assert(logformat::classOf<const char*>() == Class::text);
    static_assert(logformat::classOf<Named*>() == Class::text);
    static_assert(logformat::classOf<const void*>() == Class::pointer);
    static_assert(logformat::classOf<Code>() == Class::integer);
    static_assert(logformat::classOf<float>() == Class::real);
}

TEST(LogFormat, FindsTheEndOfAConversion) {
    std::size_t position = 0;
    const auto parse = [&](std::string_view text) {
        position = 0;
        return logformat::parseConversion(text, position);
    };
    EXPECT_EQ(parse("%8ul").letter, 'u');
    EXPECT_EQ(position, 3u);
    EXPECT_EQ(parse("%#018llx ").flagsWidthPrecision, "#018");
    EXPECT_EQ(position, 8u);
    EXPECT_EQ(parse("%").letter, 0);
    EXPECT_EQ(parse("%5").letter, 0);
    EXPECT_EQ(parse("%ll").letter, 0);
}

}  // namespace
}  // namespace kavaro
