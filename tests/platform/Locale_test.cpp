#include "platform/Locale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "ScopedEnvironment.h"

namespace kavaro {
namespace {

using testing::Contains;
using testing::Optional;

const std::optional<std::string> kNone;

std::optional<std::string> english(std::string_view code) {
    return Locale("en").displayNameForLanguageCode(code);
}

// Locale::current() looks once: a process for each case.
class LocaleOfUser : public testing::Test {
  protected:
    LocaleOfUser() {
        for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) _environment.set(name, "");
    }
    std::string german() { return Locale::current().displayNameForLanguageCode("de").value_or("(none)"); }

    ScopedEnvironment _environment;
};

TEST(Locale, namesOfLanguages) {
    EXPECT_THAT(english("en"), Optional(std::string("English")));
    EXPECT_THAT(english("fr"), Optional(std::string("French")));
    EXPECT_THAT(english("zh"), Optional(std::string("Chinese")));
    EXPECT_THAT(english("nb"), Optional(std::string("Norwegian Bokmål")));
    EXPECT_THAT(english("no"), Optional(std::string("Norwegian")));
    EXPECT_THAT(english("fil"), Optional(std::string("Filipino")));
    EXPECT_THAT(english("gsw"), Optional(std::string("Swiss German")));
}

TEST(Locale, namesInOtherLanguages) {
    EXPECT_THAT(Locale("de").displayNameForLanguageCode("en"), Optional(std::string("Englisch")));
    EXPECT_THAT(Locale("fr_CA").displayNameForLanguageCode("de"), Optional(std::string("allemand")));
    EXPECT_THAT(Locale("el").displayNameForLanguageCode("el"), Optional(std::string("Ελληνικά")));
}

TEST(Locale, lettersOfACodeMayBeOfAnyCase) {
    EXPECT_THAT(english("EN"), Optional(std::string("English")));
    EXPECT_THAT(english("Fr"), Optional(std::string("French")));
}

TEST(Locale, withdrawnCodes) {
    EXPECT_THAT(english("iw"), Optional(std::string("Hebrew")));
    EXPECT_THAT(english("in"), Optional(std::string("Indonesian")));
    EXPECT_THAT(english("ji"), Optional(std::string("Yiddish")));
}

TEST(Locale, whatIsUnknownHasNoName) {
    for (const char* code : {"", "x", "xx", "zz", "qq", "qaa", "Base", "English", "root", "zh_Hans", "zh-Hans", "a/b",
                             "..", "e n", "12", "\xff\xff", "\xc3\xa9", "日本", "averylongcode"}) {
        EXPECT_EQ(english(code), kNone) << code;
    }
    EXPECT_EQ(english(std::string(100000, 'e')), kNone);
    EXPECT_EQ(english(std::string_view("en\0", 3)), kNone);
}

TEST(Locale, aLocaleWithoutNamesHasNone) {
    for (const char* identifier : {"xx", "", "C", "nonsense", "\xff", "../de"}) {
        EXPECT_FALSE(Locale::hasNames(identifier)) << identifier;
        EXPECT_EQ(Locale(identifier).displayNameForLanguageCode("de"), kNone) << identifier;
    }
    EXPECT_TRUE(Locale::hasNames("de_XX"));
}

TEST(Locale, availableIdentifiers) {
    const std::vector<std::string> identifiers = Locale::availableLocaleIdentifiers();
    EXPECT_GT(identifiers.size(), 400u);
    for (const char* identifier : {"de", "de_AT", "en_US", "zh_Hans_CN"})
        EXPECT_THAT(identifiers, Contains(identifier));
    EXPECT_EQ(std::set<std::string>(identifiers.begin(), identifiers.end()).size(), identifiers.size());
}

TEST_F(LocaleOfUser, unset) {
    EXPECT_EQ(Locale::current().identifier(), "en");
    EXPECT_EQ(german(), "German");
}

TEST_F(LocaleOfUser, ofTheEnvironment) {
    _environment.set("LANG", "de_AT.UTF-8@euro");
    EXPECT_EQ(german(), "Deutsch");
}

TEST_F(LocaleOfUser, scriptsAsModifiers) {
    _environment.set("LANG", "sr_RS.UTF-8@latin");
    EXPECT_EQ(Locale::current().displayNameForLanguageCode("de"), "nemački");
}

TEST_F(LocaleOfUser, otherModifiers) {
    _environment.set("LANG", "de_AT@euro");
    EXPECT_EQ(Locale::current().identifier(), "de_AT");
}

TEST_F(LocaleOfUser, unknown) {
    _environment.set("LANG", "xx_YY.UTF-8");
    EXPECT_EQ(german(), "German");
}

TEST_F(LocaleOfUser, plainC) {
    _environment.set("LANGUAGE", "de");
    _environment.set("LC_ALL", "C");
    EXPECT_EQ(german(), "German");
}

TEST_F(LocaleOfUser, plainCInUTF8) {
    _environment.set("LANG", "C.UTF-8");
    EXPECT_EQ(german(), "German");
}

TEST_F(LocaleOfUser, theFirstLanguageWithNames) {
    _environment.set("LANG", "en_US.UTF-8");
    _environment.set("LANGUAGE", "xx:qq_QQ:fr:de");
    EXPECT_EQ(german(), "allemand");
}

TEST_F(LocaleOfUser, looksOnce) {
    _environment.set("LANG", "fr_FR");
    EXPECT_EQ(german(), "allemand");
    _environment.set("LANG", "de_DE");
    EXPECT_EQ(german(), "allemand");
}

}  // namespace
}  // namespace kavaro
