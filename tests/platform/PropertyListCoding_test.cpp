// Property lists as bytes: golden bytes, both ways, and everything that is not one.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/PropertyList.h"

namespace kavaro {
namespace {

using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Date = PropertyList::Date;
using Dictionary = PropertyList::Dictionary;

std::optional<PropertyList> read(std::string_view bytes) {
    return PropertyList::fromBytes(bytesOf(bytes));
}
std::optional<PropertyList> readBody(std::string_view body) {
    return read("<plist version=\"1.0\">" + std::string(body) + "</plist>");
}

PropertyList sample() {
    return Dictionary{{"name", "Kavaro \u00e9\u20ac & <more>"},
                      {"count", 300},
                      {"negative", -5},
                      {"real", 0.5},
                      {"yes", true},
                      {"no", false},
                      {"data", Data{0, 1, 0xff}},
                      {"date", Date{1000000000}},
                      {"list", Array{1, "two", Array{}, Dictionary{}}}};
}

constexpr std::string_view kGoldenXML =
    R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>name</key>
	<string>Kavaro é€ &amp; &lt;more&gt;</string>
	<key>count</key>
	<integer>300</integer>
	<key>negative</key>
	<integer>-5</integer>
	<key>real</key>
	<real>0.5</real>
	<key>yes</key>
	<true/>
	<key>no</key>
	<false/>
	<key>data</key>
	<data>
	AAH/
	</data>
	<key>date</key>
	<date>2001-09-09T01:46:40Z</date>
	<key>list</key>
	<array>
		<integer>1</integer>
		<string>two</string>
		<array/>
		<dict/>
	</array>
</dict>
</plist>
)";

// { "a" = 7; "b" = ( true, "é" ); }
constexpr std::string_view kGoldenBinary(
    "bplist00"
    "\xd2\x01\x03\x02\x04"  // 8: dictionary of two
    "\x51\x61"              // 13: "a"
    "\x10\x07"              // 15: 7
    "\x51\x62"              // 17: "b"
    "\xa2\x05\x06"          // 19: array of two
    "\x09"                  // 22: true
    "\x61\x00\xe9"          // 23: "é"
    "\x08\x0d\x0f\x11\x13\x16\x17"
    "\0\0\0\0\0\0\x01\x01"
    "\0\0\0\0\0\0\0\x07"
    "\0\0\0\0\0\0\0\x00"
    "\0\0\0\0\0\0\0\x1a",
    65);

PropertyList smallSample() {
    return Dictionary{{"a", 7}, {"b", Array{true, "\u00e9"}}};
}

TEST(PropertyListCoding, WritesAndReadsGoldenXML) {
    EXPECT_EQ(sample().toXML(), kGoldenXML);
    std::optional<PropertyList> value = read(kGoldenXML);
    ASSERT_TRUE(value);
    EXPECT_EQ(*value, sample());
    EXPECT_EQ(value->dictionary()->front().first, "name");  // the order is kept
    EXPECT_EQ(value->dictionary()->back().first, "list");
}

TEST(PropertyListCoding, WritesAndReadsGoldenBinary) {
    EXPECT_EQ(smallSample().toBinary(), kGoldenBinary);
    std::optional<PropertyList> value = read(kGoldenBinary);
    ASSERT_TRUE(value);
    EXPECT_EQ(*value, smallSample());
}

TEST(PropertyListCoding, BothFormsKeepEveryValue) {
    const PropertyList values[] = {sample(),
                                   std::numeric_limits<std::int64_t>::min(),
                                   std::numeric_limits<std::int64_t>::max(),
                                   0,
                                   0.1,
                                   -1e-300,
                                   "",
                                   "text",
                                   "\U0001F600",
                                   Data{},
                                   Data(300, 7),
                                   Array{},
                                   Dictionary{},
                                   std::string(70000, 'x'),
                                   Array(400, 1)};
    for (const PropertyList& value : values) {
        std::optional<PropertyList> fromXML = read(value.toXML());
        std::optional<PropertyList> fromBinary = read(value.toBinary());
        ASSERT_TRUE(fromXML && fromBinary) << value.description().substr(0, 100);
        EXPECT_EQ(*fromXML, value);
        EXPECT_EQ(*fromBinary, value);
    }
}

TEST(PropertyListCoding, DatesAreWhole) {
    // Far outside of 32 bits of seconds, too, and with parts of seconds in the binary form.
    for (double seconds : {0.0, 978307200.25, 978307195.25, 978307199.5, 5680281600.0, -4000000000.0, 253402300799.0}) {
        std::optional<PropertyList> value = read(PropertyList(Date{seconds}).toBinary());
        ASSERT_TRUE(value);
        EXPECT_EQ(*value, PropertyList(Date{seconds})) << seconds;
    }
    for (double seconds : {0.0, 978307200.0, 5680281600.0, -4000000000.0, 253402300799.0}) {
        std::optional<PropertyList> value = read(PropertyList(Date{seconds}).toXML());
        ASSERT_TRUE(value);
        EXPECT_EQ(*value, PropertyList(Date{seconds})) << seconds;
    }
    EXPECT_NE(PropertyList(Date{5680281600}).toXML().find("<date>2150-01-01T00:00:00Z</date>"), std::string::npos);
    for (double seconds : {1e300, std::numeric_limits<double>::infinity()}) {
        EXPECT_EQ(*read(PropertyList(Date{seconds}).toBinary()), PropertyList(Date{253402300799}));
    }
    EXPECT_EQ(*read(PropertyList(Date{std::nan("")}).toBinary()), PropertyList(Date{978307200}));
}

TEST(PropertyListCoding, NullsAreLeftOut) {
    EXPECT_EQ(PropertyList().toXML(), "");
    EXPECT_EQ(PropertyList().toBinary(), "");
    PropertyList value = Dictionary{{"gone", PropertyList()}, {"list", Array{1, PropertyList(), 2}}};
    EXPECT_EQ(read(value.toXML())->description(), "{ list = ( 1, 2 ); }");
}

TEST(PropertyListCoding, TextThatIsNotUTF8SurvivesInXML) {
    PropertyList value = "bad\xff\xe9name";
    EXPECT_EQ(*read(value.toXML()), value);
}

TEST(PropertyListCoding, ReadsWhatOthersWrite) {
    EXPECT_EQ(*read("\xef\xbb\xbf" + std::string(kGoldenXML)), sample());
    EXPECT_EQ(*read("\n\n" + std::string(kGoldenXML)), sample());
    EXPECT_EQ(*readBody("<string>a&#233;&amp;<![CDATA[<b>]]></string>"), PropertyList("a\u00e9&<b>"));
    EXPECT_EQ(*readBody("<!-- <array> --><array><!-- </array> --><integer>0x1F</integer></array>"),
              PropertyList(Array{31}));
    EXPECT_EQ(*readBody("<dict><key>k</key><string>1</string><key>k</key><string>2</string></dict>"),
              PropertyList(Dictionary{{"k", "2"}}));
    EXPECT_EQ(*readBody("<array ><true /></array >"), PropertyList(Array{true}));
}

TEST(PropertyListCoding, RefusesWhatIsNone) {
    for (std::string_view bytes : {"",
                                   " ",
                                   "text",
                                   "{ a = 1; }",
                                   "bplist00",
                                   "bplist15",
                                   "<html></html>",
                                   "<array/>",
                                   "<foo><plist></plist></foo>",
                                   "<plist></plist>",
                                   "<plist/>",
                                   "<plist><array/>",
                                   "<plist><array></plist>",
                                   "<plist></array></plist>",
                                   "<plist><foo/></plist>",
                                   "<plist><array/></plist><array/>",
                                   "<plist><dict><string>a</string></dict></plist>",
                                   "<plist><string>a&b;</string></plist>",
                                   "<plist><string a=\"<\">x</string></plist>",
                                   "<plist><array><!--></array><!-- --></plist>",
                                   "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><string>&a;</string></plist>"}) {
        EXPECT_FALSE(read(bytes)) << bytes;
    }
    EXPECT_FALSE(PropertyList::fromBytes({}));
    std::string utf16 = "\xff\xfe";
    for (char c : kGoldenXML) utf16 += {c, '\0'};
    EXPECT_FALSE(read(utf16));
}

TEST(PropertyListCoding, RefusesEveryTruncation) {
    std::string_view xml = kGoldenXML;
    xml.remove_suffix(1);  // the last line end may be missing
    for (std::size_t length = 0; length < xml.size(); length++) EXPECT_FALSE(read(xml.substr(0, length))) << length;
    EXPECT_TRUE(read(xml));
    for (std::size_t length = 0; length < kGoldenBinary.size(); length++) {
        EXPECT_FALSE(read(kGoldenBinary.substr(0, length))) << length;
    }
}

TEST(PropertyListCoding, SurvivesFlippedBits) {
    std::string bytes(kGoldenBinary);
    std::size_t bits = bytes.size() * 8;
    auto flip = [&bytes](std::size_t bit) { bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << (bit % 8))); };
    int readable = 0;
    for (std::size_t first = 0; first < bits; first++) {
        flip(first);
        for (std::size_t second = first; second < bits; second++) {
            if (second != first) flip(second);
            if (std::optional<PropertyList> value = read(bytes)) readable += !value->description().empty();
            if (second != first) flip(second);
        }
        flip(first);
    }
    EXPECT_EQ(bytes, kGoldenBinary);
    EXPECT_GT(readable, 1000);  // a flipped letter is still a property list
    std::string xml(kGoldenXML);
    for (char& c : xml) {
        for (int bit = 0; bit < 8; bit++) {
            c = static_cast<char>(c ^ (1 << bit));
            if (std::optional<PropertyList> value = read(xml)) readable += !value->description().empty();
            c = static_cast<char>(c ^ (1 << bit));
        }
    }
}

std::string repeated(int count, std::string_view text) {
    std::string result;
    for (int index = 0; index < count; index++) result += text;
    return result;
}

std::string bigEndian(std::uint64_t value, int width) {
    std::string bytes;
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
    return bytes;
}

// Object i is an array that holds object i + 1 `width` times; the last one is `leaf`.
std::string binaryChain(int arrays, int width, const std::string& leaf) {
    std::string objects = "bplist00";
    std::string offsets;
    for (int index = 0; index <= arrays; index++) {
        offsets += bigEndian(objects.size(), 4);
        if (index == arrays) {
            objects += leaf;
        } else {
            objects += static_cast<char>(0xa0 | width);
            for (int copy = 0; copy < width; copy++) objects += bigEndian(static_cast<std::uint64_t>(index) + 1, 4);
        }
    }
    std::uint64_t table = objects.size();
    return objects + offsets + std::string(6, '\0') + "\x04\x04" +
           bigEndian(static_cast<std::uint64_t>(arrays) + 1, 8) + bigEndian(0, 8) + bigEndian(table, 8);
}

TEST(PropertyListCoding, RefusesDeepNesting) {
    constexpr int kDeepest = PropertyList::kDeepest;
    for (int levels : {kDeepest, kDeepest + 1, 100000, 1000000}) {
        bool accepted = levels <= kDeepest;
        EXPECT_EQ(readBody(repeated(levels, "<array>") + repeated(levels, "</array>")).has_value(), accepted) << levels;
        EXPECT_EQ(
            readBody(repeated(levels, "<dict><key>k</key>") + "<true/>" + repeated(levels, "</dict>")).has_value(),
            accepted)
            << levels;
        EXPECT_EQ(read(binaryChain(levels, 1, "\x09")).has_value(), accepted) << levels;
    }
    // Closing tags where none are.
    EXPECT_FALSE(readBody(repeated(100000, "<array><!-- </array> -->") + repeated(100000, "</array>")));
    EXPECT_FALSE(readBody(repeated(100000, "<array><string a='</array>'></string>") + repeated(100000, "</array>")));
    EXPECT_FALSE(readBody(repeated(100000, "<array><![CDATA[</array>]]>") + repeated(100000, "</array>")));
    EXPECT_FALSE(read(repeated(100000, "<plist><array>") + repeated(100000, "</array></plist>")));
}

// Tags that the parser sees and others do not, or the other way round: by its ideas of quotes and of NUL bytes.
TEST(PropertyListCoding, RefusesHiddenTags) {
    for (int levels : {1, 300000}) {
        for (const char* opening : {"<array><?a \"?></array>\"?>", "<array><!DOCTYPE a '\"'></array>\">",
                                    "<array a='\"'></array b='\"'>", "<array a='>'></array>"}) {
            EXPECT_FALSE(readBody(repeated(levels, opening))) << opening;
            EXPECT_FALSE(readBody(repeated(levels, opening) + repeated(levels, "</array>"))) << opening;
        }
        EXPECT_FALSE(readBody(repeated(levels, {"<array\0x>", 9}) + repeated(levels, {"</array\0y>", 10})));
        EXPECT_FALSE(readBody(repeated(levels, "<array><?a \"?></array>\"?>") +
                              repeated(levels, "<?a \"?><array>\"?></array>")));
        EXPECT_FALSE(readBody(repeated(levels, "<array><!DOCTYPE a '\"'></array>\">") +
                              repeated(levels, "<!DOCTYPE a '\"'><array>\"></array>")));
    }
    EXPECT_TRUE(read("<?xml version='1.0' encoding=\"UTF-8\"?><plist version='1.0'><array a='b' c=\"d>\"/></plist>"));
}

TEST(PropertyListCoding, RefusesCyclesAndWhatUnfoldsTooFar) {
    EXPECT_TRUE(read(binaryChain(4, 2, "\x10\x07")));
    EXPECT_FALSE(read(binaryChain(40, 2, "\x10\x07")));  // a million millions of sevens
    std::string shared = binaryChain(1, 2, "\x4f\x12" + bigEndian(20u << 20, 4) + std::string(20u << 20, 'x'));
    EXPECT_TRUE(read(shared));
    std::string leaf = "\x4f\x11" + bigEndian(50000, 2) + std::string(50000, 'x');
    EXPECT_TRUE(read(binaryChain(2, 14, leaf)));
    EXPECT_FALSE(read(binaryChain(3, 14, leaf)));  // 137 MB out of 50 kB
    std::string cycle = binaryChain(2, 1, "\xa1" + bigEndian(0, 4));
    EXPECT_FALSE(read(cycle));
    std::string self = binaryChain(0, 1, "\xa1" + bigEndian(0, 4));
    EXPECT_FALSE(read(self));
}

TEST(PropertyListCoding, MeasuresTheLongestWayDown) {
    // The root reaches the top of a chain of 300 arrays both at once and through 300 further ones.
    std::string objects = "bplist00";
    std::string offsets;
    constexpr int kLength = 300;
    auto add = [&](const std::string& object) {
        offsets += bigEndian(objects.size(), 4);
        objects += object;
    };
    add("\xa2" + bigEndian(kLength + 1, 4) + bigEndian(1, 4));
    for (std::uint64_t index = 1; index < 2 * kLength; index++) add("\xa1" + bigEndian(index + 1, 4));
    add("\x09");
    std::string bytes = objects + offsets + std::string(6, '\0') + "\x04\x04" + bigEndian(2 * kLength + 1, 8) +
                        bigEndian(0, 8) + bigEndian(objects.size(), 8);
    EXPECT_FALSE(read(bytes));
}

}  // namespace
}  // namespace kavaro
