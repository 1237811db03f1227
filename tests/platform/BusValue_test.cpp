#include "platform/BusValue.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "platform/BusMessage.h"

namespace kavaro {
namespace {

std::vector<std::uint8_t> pattern(std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 31 + (i >> 11));
    return bytes;
}

bool sameBytes(ByteView a, ByteView b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

BusValue parsed(const char* text) {
    return makeBusValue(sinkVariant(g_variant_parse(nullptr, text, nullptr, nullptr, nullptr)));
}

BusValue fileValue(int fd) {
    return makeBusValue(sinkVariant(g_variant_new_handle(0)),
                        std::make_shared<const FileList>(FileList{std::make_shared<const FileHandle>(fd)}));
}

int memoryFile(const char* bytes, int seals) {
    int fd = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(write(fd, bytes, strlen(bytes)), static_cast<ssize_t>(strlen(bytes)));
    if (seals) {
        EXPECT_EQ(fcntl(fd, F_ADD_SEALS, seals), 0);
    }
    return fd;
}

TEST(BusValue, TypesOnTheWire) {
    EXPECT_EQ(BusValue().type(), "");
    EXPECT_EQ(BusValue::string("a").type(), "s");
    EXPECT_EQ(BusValue::int32(1).type(), "i");
    EXPECT_EQ(BusValue::uint32(1).type(), "u");
    EXPECT_EQ(BusValue::boolean(true).type(), "b");
    EXPECT_EQ(BusValue::float64(1).type(), "d");
    EXPECT_EQ(BusValue::path("/").type(), "ay");
    EXPECT_EQ(BusValue::paths({}).type(), "aay");
    EXPECT_EQ(BusValue::strings({}).type(), "as");
    EXPECT_EQ(BusValue::uint32s({}).type(), "au");
    EXPECT_EQ(BusValue::variant(BusValue::int32(1)).type(), "v");
    EXPECT_EQ(BusValue::dictionary({}).type(), "a{sv}");
    EXPECT_EQ(BusValue::dictionaries({}).type(), "aa{sv}");
    EXPECT_EQ(BusValue::int64(1).type(), "x");
    EXPECT_EQ(BusValue::data({}).type(), "ay");
    EXPECT_TRUE(BusValue::variant(BusValue()).isNull());
}

TEST(BusValue, Scalars) {
    EXPECT_EQ(BusValue::string("déjà vu").asString(), "déjà vu");
    EXPECT_EQ(BusValue::string("").asString(), "");
    EXPECT_EQ(BusValue::int32(-7).asInteger(), -7);
    EXPECT_EQ(BusValue::uint32(4000000000u).asInteger(), 4000000000);
    EXPECT_EQ(BusValue::boolean(true).asInteger(), 1);
    EXPECT_EQ(BusValue::float64(0.1).asDouble(), 0.1);
    EXPECT_EQ(parsed("byte 200").asInteger(), 200);
    EXPECT_EQ(parsed("int16 -2").asInteger(), -2);
    EXPECT_EQ(parsed("uint16 65535").asInteger(), 65535);
    EXPECT_EQ(parsed("int64 -9223372036854775808").asInteger(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(parsed("uint64 9223372036854775807").asInteger(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(parsed("uint64 9223372036854775808").asInteger(), std::nullopt);
    EXPECT_EQ(parsed("objectpath '/a'").asString(), "/a");
}

TEST(BusValue, AValueOfAnotherTypeGivesNothing) {
    const BusValue values[] = {BusValue(), BusValue::string("x"), BusValue::int32(1), BusValue::strings({"x"}),
                               BusValue::dictionary({})};
    for (const BusValue& value : values) {
        EXPECT_FALSE(value.asDouble()) << value.type();
        EXPECT_FALSE(value.asPath()) << value.type();
        EXPECT_FALSE(value.asPaths()) << value.type();
        EXPECT_FALSE(value.asUint32s()) << value.type();
        EXPECT_FALSE(value.asData()) << value.type();
        EXPECT_TRUE(value.get("x").isNull()) << value.type();
        EXPECT_EQ(value.asString().has_value(), value.type() == "s");
        EXPECT_EQ(value.asInteger().has_value(), value.type() == "i");
        EXPECT_EQ(value.asStrings().has_value(), value.type() == "as");
        EXPECT_EQ(value.asDictionary().has_value(), value.type() == "a{sv}");
    }
    EXPECT_FALSE(parsed("[1, 2]").asData());
    EXPECT_FALSE(parsed("{1: <2>}").asDictionary());
    EXPECT_FALSE(parsed("{1: <2>}").get("1").asInteger());
}

TEST(BusValue, VariantsAreLookedThrough) {
    BusValue twice = BusValue::variant(BusValue::variant(BusValue::path("/a")));
    EXPECT_EQ(twice.type(), "v");
    EXPECT_EQ(twice.asPath(), "/a");
    EXPECT_EQ(BusValue::variant(BusValue::dictionary({{"k", BusValue::int32(3)}})).get("k").asInteger(), 3);
}

TEST(BusValue, TextThatTheBusDoesNotTakeIsEscaped) {
    EXPECT_EQ(BusValue::string("caf\xe9!").asString(), "caf\\xe9!");
    EXPECT_EQ(BusValue::string(std::string_view("a\0b", 3)).asString(), "a\\x00b");
    EXPECT_EQ(BusValue::string("\xff\xfe").asString(), "\\xff\\xfe");
    EXPECT_EQ(BusValue::string("\xe2\x82").asString(), "\\xe2\\x82");
    EXPECT_EQ(BusValue::string("\xed\xa0\x80").asString(), "\\xed\\xa0\\x80") << "a surrogate";
    EXPECT_EQ(BusValue::strings({"\xc0", "b"}).asStrings(), (std::vector<std::string>{"\\xc0", "b"}));
    EXPECT_EQ(BusValue::dictionary({{"\xe9", BusValue::int32(1)}}).get("\\xe9").asInteger(), 1);
}

TEST(BusValue, PathsKeepEveryByteButNul) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte) all += static_cast<char>(byte);
    EXPECT_EQ(BusValue::path(all).asPath(), all);
    EXPECT_EQ(BusValue::path("").asPath(), "");
    EXPECT_EQ(BusValue::path("/x").asData()->view().size(), 3u) << "with its closing NUL";
    EXPECT_EQ(parsed("[byte 47, 120]").asPath(), "/x") << "without a closing NUL";
    EXPECT_EQ(parsed("@ay []").asPath(), "");
    EXPECT_FALSE(parsed("[byte 47, 0, 120]").asPath());
    EXPECT_FALSE(parsed("[byte 47, 0, 0]").asPath());
    EXPECT_EQ(BusValue::paths({"/a", "", all}).asPaths(), (std::vector<std::string>{"/a", "", all}));
    EXPECT_FALSE(parsed("[@ay [47], [47, 0, 47]]").asPaths());
}

TEST(BusValue, Lists) {
    EXPECT_EQ(BusValue::strings({"a", ""}).asStrings(), (std::vector<std::string>{"a", ""}));
    EXPECT_EQ(BusValue::strings({}).asStrings(), std::vector<std::string>{});
    EXPECT_EQ(BusValue::uint32s({1, 4294967295u}).asUint32s(), (std::vector<std::uint32_t>{1, 4294967295u}));
    EXPECT_EQ(BusValue::uint32s({}).asUint32s(), std::vector<std::uint32_t>{});
    EXPECT_EQ(BusValue::paths({}).asPaths(), std::vector<std::string>{});
}

TEST(BusValue, Dictionaries) {
    BusValue value = BusValue::dictionary({{"b", BusValue::int32(1)},
                                           {"absent", BusValue()},
                                           {"a", BusValue::variant(BusValue::string("x"))},
                                           {"inner", BusValue::dictionary({{"deep", BusValue::path("/p")}})}});
    auto entries = value.asDictionary();
    ASSERT_TRUE(entries);
    ASSERT_EQ(entries->size(), 3u);
    EXPECT_EQ((*entries)[0].first, "b");
    EXPECT_EQ((*entries)[0].second.type(), "i");
    EXPECT_EQ((*entries)[1].second.type(), "s") << "not wrapped twice";
    EXPECT_EQ(value.get("inner").get("deep").asPath(), "/p");
    EXPECT_TRUE(value.get("absent").isNull());
    EXPECT_TRUE(value.get("").isNull());
    auto texts = parsed("{'k': 'v'}").asDictionary();
    ASSERT_TRUE(texts);
    EXPECT_EQ(texts->at(0).second.asString(), "v");
}

TEST(BusValue, arraysOfDictionariesKeepTheirOrderAndFiles) {
    const std::string large(BusValue::kInlineLimit + 1, 'x');
    const BusValue value =
        BusValue::dictionaries({{{"a", BusValue::int64(INT64_MIN)}},
                                {},
                                {{"d", BusValue::data(bytesOf(large))}, {"p", BusValue::path("/p")}}});
    const auto all = value.asDictionaries();
    ASSERT_TRUE(all);
    ASSERT_EQ(all->size(), 3u);
    EXPECT_EQ((*all)[0][0].second.asInteger(), INT64_MIN);
    EXPECT_TRUE((*all)[1].empty());
    EXPECT_EQ(BusValue::dictionary((*all)[2]).get("d").asData()->view().size(), large.size());
    EXPECT_EQ(BusValue::dictionary((*all)[2]).get("p").asPath(), "/p");
    EXPECT_FALSE(BusValue::dictionary({}).asDictionaries());
    EXPECT_TRUE(BusValue::variant(BusValue::dictionaries({})).asDictionaries());
}

TEST(BusValue, Structures) {
    const auto large = pattern(BusValue::kInlineLimit + 1);
    const BusValue value =
        BusValue::structure({BusValue::string("kind"), BusValue::dictionary({{"name", BusValue::string("x")}}),
                             BusValue::structure({BusValue::boolean(true), BusValue::data(large)})});
    EXPECT_EQ(value.type(), "(sa{sv}(bh))");
    const auto members = value.asStructure();
    ASSERT_TRUE(members);
    ASSERT_EQ(members->size(), 3u);
    EXPECT_EQ((*members)[0].asString(), "kind");
    EXPECT_EQ((*members)[1].get("name").asString(), "x");
    const auto inner = BusValue::variant((*members)[2]).asStructure();
    ASSERT_TRUE(inner);
    EXPECT_EQ((*inner)[0].asInteger(), 1);
    EXPECT_TRUE(sameBytes((*inner)[1].asData()->view(), large));
    EXPECT_TRUE(BusValue::structure({BusValue::int32(1), BusValue()}).isNull());
    EXPECT_EQ(BusValue::structure({}).type(), "()");
    for (const char* text : {"'a'", "{'k': <1>}", "[(1, 2)]"}) EXPECT_FALSE(parsed(text).asStructure()) << text;
    EXPECT_FALSE(BusValue().asStructure());
}

TEST(BusValue, DictionariesOfTexts) {
    EXPECT_EQ(BusValue::texts({}).type(), "a{ss}");
    const auto entries = BusValue::texts({{"b", "1"}, {"a", "caf\xe9"}}).asDictionary();
    ASSERT_TRUE(entries);
    ASSERT_EQ(entries->size(), 2u);
    EXPECT_EQ((*entries)[0].first, "b");
    EXPECT_EQ((*entries)[1].second.asString(), "caf\\xe9");
}

TEST(BusValue, SmallDataIsInline) {
    auto bytes = pattern(100000);
    BusValue value = BusValue::data(bytes);
    EXPECT_EQ(value.type(), "ay");
    EXPECT_TRUE(sameBytes(value.asData()->view(), bytes));
    EXPECT_EQ(BusValue::data(pattern(BusValue::kInlineLimit)).type(), "ay");
    auto empty = BusValue::data({}).asData();
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->view().empty());
    EXPECT_EQ(empty->view().data(), nullptr);
}

TEST(BusValue, LargeDataIsASealedFile) {
    auto bytes = pattern(BusValue::kInlineLimit + 1);
    BusValue value = BusValue::data(bytes);
    EXPECT_EQ(value.type(), "h");
    auto data = value.asData();
    ASSERT_TRUE(data);
    EXPECT_TRUE(sameBytes(data->view(), bytes));
    EXPECT_TRUE(sameBytes(value.asData()->view(), bytes)) << "the file's offset plays no part";
    int fd = value.impl()->files->at(0)->fd();
    EXPECT_EQ(write(fd, "x", 1), -1);
    EXPECT_EQ(ftruncate(fd, 0), -1);
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
}

TEST(BusValue, DataOutlivesTheValue) {
    auto small = pattern(1000), large = pattern(BusValue::kInlineLimit + 4097);
    BusData fromMessage = *BusValue::data(small).asData();
    BusData fromFile = *BusValue::data(large).asData();
    EXPECT_TRUE(sameBytes(fromMessage.view(), small));
    EXPECT_TRUE(sameBytes(fromFile.view(), large));
}

TEST(BusValue, FilesInContainersStayApart) {
    auto first = pattern(BusValue::kInlineLimit + 1), second = pattern(BusValue::kInlineLimit + 2);
    second[0] ^= 1;
    BusValue shared = BusValue::data(first);
    BusValue inner = BusValue::dictionary({{"second", BusValue::variant(BusValue::data(second))}});
    BusValue outer =
        BusValue::dictionary({{"n", BusValue::int32(1)}, {"first", shared}, {"again", shared}, {"inner", inner}});
    EXPECT_EQ(outer.impl()->files->size(), 2u);
    EXPECT_TRUE(sameBytes(outer.get("first").asData()->view(), first));
    EXPECT_TRUE(sameBytes(outer.get("again").asData()->view(), first));
    EXPECT_TRUE(sameBytes(outer.get("inner").get("second").asData()->view(), second));
    auto entries = outer.get("inner").asDictionary();
    EXPECT_TRUE(sameBytes(entries->at(0).second.asData()->view(), second));
}

TEST(BusValue, HostileFilesGiveNothing) {
    constexpr int kAll = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
    EXPECT_TRUE(fileValue(memoryFile("abc", kAll)).asData());
    EXPECT_FALSE(fileValue(memoryFile("abc", 0)).asData());
    EXPECT_FALSE(fileValue(memoryFile("abc", kAll & ~F_SEAL_SHRINK)).asData());
    EXPECT_FALSE(fileValue(memoryFile("abc", kAll & ~F_SEAL_GROW)).asData());
    EXPECT_FALSE(fileValue(memoryFile("abc", kAll & ~F_SEAL_WRITE)).asData());
    EXPECT_FALSE(fileValue(memoryFile("", kAll)).asData()) << "no bytes";
    EXPECT_FALSE(fileValue(open("/dev/zero", O_RDONLY | O_CLOEXEC)).asData());
    EXPECT_FALSE(fileValue(open("/", O_RDONLY | O_CLOEXEC)).asData());
    EXPECT_FALSE(fileValue(-1).asData());
    int huge = memfd_create("huge", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    ASSERT_EQ(ftruncate(huge, std::numeric_limits<off_t>::max()), 0);
    ASSERT_EQ(fcntl(huge, F_ADD_SEALS, kAll), 0);
    EXPECT_FALSE(fileValue(huge).asData());
}

TEST(BusValue, AHandleWithoutItsFileGivesNothing) {
    EXPECT_FALSE(parsed("handle 0").asData());
    EXPECT_FALSE(parsed("handle -1").asData());
    auto files = std::make_shared<const FileList>(
        FileList{std::make_shared<const FileHandle>(memoryFile("abc", F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE))});
    for (int index : {1, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        BusValue value = makeBusValue(sinkVariant(g_variant_new_handle(index)), files);
        EXPECT_FALSE(value.asData()) << index;
        EXPECT_FALSE(BusValue::dictionary({{"k", value}}).get("k").asData()) << index;
    }
}

TEST(BusValue, Descriptions) {
    EXPECT_EQ(BusValue().description(), "(no value)");
    EXPECT_EQ(BusValue::string("a\nb").description(), "\"a\\x0ab\"");
    EXPECT_EQ(BusValue::path("/x\xe9").description(), "\"/x\\xe9\"");
    EXPECT_EQ(BusValue::dictionary({{"a", BusValue::int32(1)}, {"b", BusValue::strings({"x", "y"})}}).description(),
              "{\"a\": 1, \"b\": [\"x\", \"y\"]}");
    EXPECT_EQ(BusValue::data(pattern(5000)).description(), "<5000 bytes>");
    EXPECT_EQ(BusValue::data(pattern(BusValue::kInlineLimit + 1)).description(), "<file>");
    std::string euros;
    for (int i = 0; i < 400; ++i) euros += "€";
    std::string cut = BusValue::string(euros).description();
    EXPECT_LT(cut.size(), 510u);
    EXPECT_TRUE(g_utf8_validate(cut.c_str(), -1, nullptr));
    EXPECT_LT(BusValue::uint32s(std::vector<std::uint32_t>(100000, 1)).description().size(), 510u);
}

// The size rule against what the library itself writes.
TEST(BusValue, SizesInAMessage) {
    const char* texts[] = {"()",
                           "('a',)",
                           "(byte 1, 'abc', byte 2, int64 5, true)",
                           "(@ab [true, false],)",
                           "(@aay [[1], [], [1, 2, 3]], byte 9, @as ['', 'x'])",
                           "({'k': <'v'>, 'longer key': <{'in': <(byte 1, 2.5)>}>},)",
                           "(@ax [], byte 1, @a{sv} {}, byte 1, @a(yy) [(1, 2), (3, 4)])",
                           "(signature 'a{sv}', objectpath '/a/b', handle 3, uint16 4, <uint64 7>)"};
    for (const char* text : texts) {
        BusValue body = parsed(text);
        ASSERT_FALSE(body.isNull()) << text;
        auto* message = g_dbus_message_new_signal("/a", "a.b", "C");
        gsize full = 0;
        g_dbus_message_set_body(message, body.impl()->value.get());
        g_dbus_message_set_serial(message, 1);
        guchar* blob = g_dbus_message_to_blob(message, &full, G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr);
        ASSERT_NE(blob, nullptr) << text;
        guint32 bodySize = 0;
        std::memcpy(&bodySize, blob + 4, sizeof bodySize);
        bool tooLong = false;
        EXPECT_EQ(wireSize(body.impl()->value.get(), 0, &tooLong), bodySize) << text;
        EXPECT_FALSE(tooLong);
        g_free(blob);
        g_object_unref(message);
    }
}

}  // namespace
}  // namespace kavaro
