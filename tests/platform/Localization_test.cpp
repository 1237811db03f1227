#include "platform/Localization.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <locale.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "platform/Resources.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kYesterday = "kTuvNodeFilter113";

struct UserLocale {
    const char *language = "", *all = "", *messages = "", *lang = "";
};

class Localization : public testing::Test {
  protected:
    Localization() { setResourcesFolder(KAVARO_APP_DIR "/Resources"); }

    void setLocale(const UserLocale& locale) {
        _environment.set("LANGUAGE", locale.language);
        _environment.set("LC_ALL", locale.all);
        _environment.set("LC_MESSAGES", locale.messages);
        _environment.set("LANG", locale.lang);
    }
    std::vector<std::string> languages(const UserLocale& locale) {
        setLocale(locale);
        return userLanguages();
    }
    std::string yesterday(const UserLocale& locale) {
        setLocale(locale);
        useUserLanguage();
        return localized(kYesterday, "Yesterday");
    }

  private:
    ScopedEnvironment _environment;
};

TEST_F(Localization, theLocaleIsTheFirstThatIsSet) {
    EXPECT_THAT(languages({"", "fr_FR.UTF-8", "de_DE", "es_ES"}), ElementsAre("fr_FR"));
    EXPECT_THAT(languages({"", "", "de_DE", "es_ES"}), ElementsAre("de_DE"));
    EXPECT_THAT(languages({"", "", "", "es_ES@euro"}), ElementsAre("es_ES@euro"));
    EXPECT_THAT(languages({"", "", "", "sr_RS.UTF-8@latin"}), ElementsAre("sr_RS@latin"));
    EXPECT_THAT(languages({}), IsEmpty());
}

TEST_F(Localization, aListOfLanguagesStandsBeforeTheLocale) {
    EXPECT_THAT(languages({"de_AT:fr", "", "", "es_ES"}), ElementsAre("de_AT", "fr"));
    EXPECT_THAT(languages({"de", "", "", "C.UTF-8"}), ElementsAre("de"));
    EXPECT_THAT(languages({"de", "", "", ""}), ElementsAre("de"));
    EXPECT_THAT(languages({":de::fr:", "", "", "en_US"}), ElementsAre("de", "fr"));
    EXPECT_THAT(languages({"de:C:fr", "", "", "en_US"}), ElementsAre("de"));
}

TEST_F(Localization, noLanguageInTheLocaleC) {
    EXPECT_THAT(languages({"de", "C", "", "de_DE"}), IsEmpty());
    EXPECT_THAT(languages({"de", "", "POSIX", "de_DE"}), IsEmpty());
    EXPECT_THAT(languages({"", "", "", "C.UTF-8"}), IsEmpty());
}

TEST_F(Localization, whatIsNoNameOfALanguageIsLeftOut) {
    EXPECT_THAT(languages({"../../de:/etc/passwd:d:de/..:123:a b:_de:de?:fr", "", "", "en_US"}), ElementsAre("fr"));
    EXPECT_THAT(languages({"", "", "", "\xff\xfe_\xff"}), IsEmpty());
    EXPECT_THAT(languages({"", "", "", "anythinglonger_DE"}), IsEmpty());
    EXPECT_THAT(languages({"", std::string(100000, 'x').c_str(), "", ""}), IsEmpty());
}

TEST_F(Localization, translatedTexts) {
    EXPECT_EQ(yesterday({"", "", "", "de_DE.UTF-8"}), "Gestern");
    EXPECT_EQ(yesterday({"", "", "", "fr_CA.ISO-8859-1"}), "Hier");
    EXPECT_EQ(yesterday({"es", "", "", "C.UTF-8"}), "Ayer");
    EXPECT_EQ(yesterday({"xx:fr:de", "", "", "en_US"}), "Hier");
    EXPECT_EQ(yesterday({"de_AT@euro", "", "", "en_US"}), "Gestern");
}

TEST_F(Localization, utf8WhateverTheCharacterSetOfTheLocale) {
    setLocale({"", "", "", "fr_FR.ISO-8859-1"});
    useUserLanguage();
    EXPECT_EQ(localized("kTuvNodeFilter118", "Last Year"), "Année dernière");
}

TEST_F(Localization, defaultWordsWhereThereIsNoTranslation) {
    EXPECT_EQ(yesterday({}), "Yesterday");
    EXPECT_EQ(yesterday({"de", "C", "", ""}), "Yesterday");
    EXPECT_EQ(yesterday({"", "", "", "xx_YY.UTF-8"}), "Yesterday");
    EXPECT_EQ(yesterday({"", "", "", "nonsense"}), "Yesterday");
    EXPECT_EQ(yesterday({"", "", "", "en_US.UTF-8"}), "Yesterday");
    setLocale({"de", "", "", "en_US"});
    useUserLanguage();
    EXPECT_EQ(localized("kTuvNoSuchKey", "these words"), "these words");
    EXPECT_EQ(localized("", "these words"), "these words");
    EXPECT_EQ(localized("kTuvNoSuchKey", ""), "");
}

// The default words are English, so a language behind English would be the wrong one.
TEST_F(Localization, englishEndsTheSearch) {
    EXPECT_EQ(yesterday({"en_GB:de", "", "", "de_DE"}), "Yesterday");
    EXPECT_EQ(yesterday({"fr:en:de", "", "", "de_DE"}), "Hier");
}

TEST_F(Localization, otherLanguagesInOneProcess) {
    EXPECT_EQ(yesterday({"de", "", "", "en_US"}), "Gestern");
    EXPECT_EQ(yesterday({"fr", "", "", "en_US"}), "Hier");
    EXPECT_EQ(yesterday({"", "", "", "C"}), "Yesterday");
    EXPECT_EQ(yesterday({"de", "", "", "en_US"}), "Gestern");
}

TEST_F(Localization, withoutResources) {
    setResourcesFolder("");
    EXPECT_EQ(yesterday({"de", "", "", "en_US"}), "Yesterday");
    setResourcesFolder("/nowhere");
    EXPECT_EQ(yesterday({"de", "", "", "en_US"}), "Yesterday");
}

TEST_F(Localization, aBrokenCatalogIsNone) {
    TempFolder folder;
    for (const char* name : {"locale", "locale/de", "locale/de/LC_MESSAGES"}) folder.makeFolder(name);
    setResourcesFolder(folder.path());
    TempFolder bytes;
    bytes.write("random", std::string(5000, '\xde'));
    for (const std::string& content : {std::string(), std::string("\xde\x12\x04\x95"), bytes.read("random")}) {
        folder.write("locale/de/LC_MESSAGES/kavaro.mo", content);
        EXPECT_EQ(yesterday({"de", "", "", "en_US"}), "Yesterday");
    }
}

TEST_F(Localization, theProcessStaysInItsLocale) {
    setLocale({"", "", "", "de_DE.UTF-8"});
    useUserLanguage();
    EXPECT_EQ(localized(kYesterday, "Yesterday"), "Gestern");
    EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C");
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", 1.5);
    EXPECT_STREQ(text, "1.5");
    EXPECT_STREQ(strerror(ENOENT), "No such file or directory");
}

TEST_F(Localization, fromManyThreads) {
    setLocale({"de", "", "", "C.UTF-8"});
    useUserLanguage();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 1000; ++n) ASSERT_EQ(localized(kYesterday, "Yesterday"), "Gestern");
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST(Resources, aProgramOutsideOfTheAppHasNone) {
    EXPECT_EQ(resourcesFolder(), "");
    setResourcesFolder("/somewhere");
    EXPECT_EQ(resourcesFolder(), "/somewhere");
}

}  // namespace
}  // namespace kavaro
