#include "format/FormatTest.h"
#include "platform/Locale.h"

namespace kavaro {
namespace {

using F = TuvNodeFormatter;
using Lines = std::vector<std::string>;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

class TuvNodeFormatterLanguages : public testing::Test {
  protected:
    static TuvRef<TuvObjectArray> groupsOf(const Lines& folderNames) {
        auto groups = make<TuvObjectArray>();
        std::uint32_t inode = 10;
        for (const std::string& name : folderNames) {
            auto group = make<TuvObjectArray>();
            group->adoptObject(newFolder(inode++, name).leak());
            group->adoptObject(newFolder(inode++, "Second.lproj").leak());
            groups->adoptObject(group.leak());
        }
        return groups;
    }

    UserOf _user{""};
};

TEST_F(TuvNodeFormatterLanguages, codes) {
    EXPECT_EQ(F::languageNameFromLproj("en"), "English");
    EXPECT_EQ(F::languageNameFromLproj("de"), "German");
    EXPECT_EQ(F::languageNameFromLproj("fr"), "French");
    EXPECT_EQ(F::languageNameFromLproj("ja"), "Japanese");
    EXPECT_EQ(F::languageNameFromLproj("he"), "Hebrew");
    EXPECT_EQ(F::languageNameFromLproj("iw"), "Hebrew");
}

TEST_F(TuvNodeFormatterLanguages, englishByRegion) {
    EXPECT_EQ(F::languageNameFromLproj("en_AU"), "Australian");
    EXPECT_EQ(F::languageNameFromLproj("en_CA"), "Canadian");
    EXPECT_EQ(F::languageNameFromLproj("en_NZ"), "New Zealand");
    EXPECT_EQ(F::languageNameFromLproj("en_GB"), "British");
    EXPECT_EQ(F::languageNameFromLproj("en_US"), "United States");
    EXPECT_EQ(F::languageNameFromLproj("en_Latn_GB"), "British");  // the last part is the region
    EXPECT_EQ(F::languageNameFromLproj("en_IE"), "English");
    EXPECT_EQ(F::languageNameFromLproj("en_GB_scouse"), "English");
    EXPECT_EQ(F::languageNameFromLproj("en_"), "English");
    EXPECT_EQ(F::languageNameFromLproj("en_gb"), "English");
    EXPECT_EQ(F::languageNameFromLproj("en-GB"), "English");  // regions stand behind "_" alone
    EXPECT_EQ(F::languageNameFromLproj("fr_CA"), "French");
}

TEST_F(TuvNodeFormatterLanguages, variantsOfALanguageAreOne) {
    EXPECT_EQ(F::languageNameFromLproj("pt_BR"), "Portuguese");
    EXPECT_EQ(F::languageNameFromLproj("pt-PT"), "Portuguese");
    EXPECT_EQ(F::languageNameFromLproj("Portuguese"), "Portuguese");
    EXPECT_EQ(F::languageNameFromLproj("PortugueseBrazil"), "Portuguese");
    EXPECT_EQ(F::languageNameFromLproj("zh-Hans"), "Chinese");
    EXPECT_EQ(F::languageNameFromLproj("zh_TW"), "Chinese");
    EXPECT_EQ(F::languageNameFromLproj("zh-Hant_HK"), "Chinese");
    EXPECT_EQ(F::languageNameFromLproj("nb"), "Norwegian");
    EXPECT_EQ(F::languageNameFromLproj("nn_NO"), "Norwegian");
    EXPECT_EQ(F::languageNameFromLproj("no"), "Norwegian");
    EXPECT_EQ(F::languageNameFromLproj("oc"), "Occitan");
    EXPECT_EQ(F::languageNameFromLproj("German"), "German");
    EXPECT_EQ(F::languageNameFromLproj("GermanAustria"), "German");
    EXPECT_EQ(F::languageNameFromLproj("English_Canadian"), "Canadian");
    EXPECT_EQ(F::languageNameFromLproj("English_UK"), "Uk");
}

TEST_F(TuvNodeFormatterLanguages, namesInEnglish) {
    EXPECT_EQ(F::languageNameFromLproj("English"), "English");
    EXPECT_EQ(F::languageNameFromLproj("french"), "French");
    EXPECT_EQ(F::languageNameFromLproj("SPANISH"), "Spanish");
    EXPECT_EQ(F::languageNameFromLproj("Swiss German"), "Swiss");
    EXPECT_EQ(F::languageNameFromLproj("MyProj.lproj"), "Myproj.lproj");
    EXPECT_EQ(F::languageNameFromLproj("nonLocalized"), "Nonlocalized");
}

TEST_F(TuvNodeFormatterLanguages, codesOfThreeLettersAreWords) {
    EXPECT_EQ(F::languageNameFromLproj("fil"), "Fil");
    EXPECT_EQ(F::languageNameFromLproj("tet"), "Tet");
    EXPECT_EQ(F::languageNameFromLproj("haw_US"), "Haw_us");
}

TEST_F(TuvNodeFormatterLanguages, namesThatTellNoLanguage) {
    FormatLogs logs(LogLevel::debug);
    EXPECT_EQ(F::languageNameFromLproj("xx"), "Xx");
    EXPECT_EQ(F::languageNameFromLproj("xx"), "Xx");
    EXPECT_EQ(F::languageNameFromLproj("zz_ZZ"), "Zz_zz");
    EXPECT_EQ(logs.lines(), (Lines{"debug xx", "error No displayNameForKey:xx",
                                   "info no language name for \"xx.lproj\", will use \"xx\"", "debug xx",
                                   "error No displayNameForKey:xx", "debug zz", "error No displayNameForKey:zz",
                                   "info no language name for \"zz_ZZ.lproj\", will use \"zz_ZZ\""}));
}

TEST_F(TuvNodeFormatterLanguages, namesWithoutCharacters) {
    FormatLogs logs(LogLevel::debug);
    EXPECT_EQ(F::languageNameFromLproj(""), "");
    EXPECT_EQ(F::languageNameFromLproj(" french"), " French");
    EXPECT_EQ(logs.lines(), (Lines{"debug Code argument was nil", "info no language name for \".lproj\", will use \"\"",
                                   "debug Code argument was nil",
                                   "info no language name for \" french.lproj\", will use \" french\""}));
}

TEST_F(TuvNodeFormatterLanguages, bytesThatAreNotUTF8) {
    EXPECT_EQ(F::languageNameFromLproj("\xff\xfe"), "\xff\xfe");
    EXPECT_EQ(F::languageNameFromLproj("\xc3_GB"), "\xc3_gb");
    EXPECT_EQ(F::languageNameFromLproj("fran\xe7"
                                       "ais"),
              "Fran\xe7"
              "ais");
    EXPECT_EQ(F::languageNameFromLproj("日本"), "日本");
    EXPECT_EQ(F::languageNameFromLproj("español latino"), "Español");
    EXPECT_EQ(F::languageNameFromLproj(std::string(100000, 'A')).size(), 100000u);
}

TEST_F(TuvNodeFormatterLanguages, ofNodes) {
    EXPECT_EQ(F::languageName(newFolder(1, "fr.lproj").get()), "French");
    EXPECT_EQ(F::languageName(newFolder(1, "French.lproj").get()), "French");
    EXPECT_EQ(F::languageName(newFolder(1, "pt-BR").get()), "Portuguese");
    EXPECT_EQ(F::languageName(nullptr), std::nullopt);
}

TEST_F(TuvNodeFormatterLanguages, nameOfACode) {
    FormatLogs logs(LogLevel::debug);
    const Locale english("en"), german("de");
    EXPECT_EQ(F::nsLocaleLanguage(english, "nb"), "Norwegian Bokmål");
    EXPECT_EQ(F::nsLocaleLanguage(german, "fr"), "Französisch");
    EXPECT_EQ(F::nsLocaleLanguage(english, "xx"), std::nullopt);
    EXPECT_EQ(F::nsLocaleLanguage(english, std::nullopt), std::nullopt);
    EXPECT_EQ(logs.lines(), (Lines{"debug nb", "debug fr", "debug xx", "error No displayNameForKey:xx",
                                   "debug Code argument was nil"}));
}

TEST_F(TuvNodeFormatterLanguages, distinctNamesOfGroups) {
    FormatLogs logs;
    const auto groups = groupsOf({"fr.lproj", "de.lproj", "French.lproj", "Unknown.lproj", "pt_BR.lproj"});
    EXPECT_THAT(F::uniqueLanguageNames(groups.get()), ElementsAre("French", "German", "Portuguese", "Unknown"));
    EXPECT_EQ(logs.lines(),
              (Lines{"info 5 languages", "info [fr, de, French, Unknown, pt_BR]", "info French -> fr.lproj",
                     "info German -> de.lproj", "info French -> French.lproj", "info Unknown -> Unknown.lproj",
                     "error Unknown language Unknown ...", "info Portuguese -> pt_BR.lproj",
                     "info Coalesced into 4 unique languages [French, German, Portuguese, Unknown]"}));
    logs->clear();
    EXPECT_THAT(F::uniqueLanguageNames(groupsOf({"fr.lproj"}).get()), ElementsAre("French"));
    EXPECT_EQ(logs.lines(),
              (Lines{"info 1 languages", "info [fr]", "info Coalesced into 1 unique languages [French]"}));
}

TEST_F(TuvNodeFormatterLanguages, namesAreSortedByCodePoint) {
    EXPECT_THAT(F::uniqueLanguageNames(groupsOf({"ñandú", "Zulu", "\xff", "abc"}).get()),
                ElementsAre("Abc", "Zulu", "Ñandú", "\xff"));
}

TEST_F(TuvNodeFormatterLanguages, noGroups) {
    FormatLogs logs;
    EXPECT_TRUE(F::uniqueLanguageNames(make<TuvObjectArray>().get()).empty());
    EXPECT_TRUE(F::uniqueLanguageNames(nullptr).empty());
    auto empty = make<TuvObjectArray>();
    empty->adoptObject(make<TuvObjectArray>().leak());
    EXPECT_TRUE(F::uniqueLanguageNames(empty.get()).empty());
    EXPECT_EQ(logs->count("Coalesced into 0 unique languages []"), 3);
}

TEST_F(TuvNodeFormatterLanguages, theTable) {
    FormatLogs logs(LogLevel::debug);
    const auto& table = F::languageNames();
    EXPECT_GT(table.size(), 150u);
    ASSERT_TRUE(table.contains("french"));
    EXPECT_EQ(table.at("french").languageName, "French");
    EXPECT_THAT(table.at("french").languageCodes, ElementsAre("fr"));
    EXPECT_THAT(table.at("norwegian bokmål").languageCodes, ElementsAre("nb"));
    EXPECT_EQ(logs->count(LogLevel::debug, "Code [fr], language name [French]"), 1);
    EXPECT_EQ(logs->count("Code [fr_CA]"), 0);  // a later one of the same language
    EXPECT_EQ(logs->texts().back(), "Cached " + std::to_string(table.size()) + " languages");
    logs->clear();
    EXPECT_EQ(&F::languageNames(), &table);
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(TuvNodeFormatterLanguages, theTableWithoutFlagsComplainsInOrder) {
    FormatLogs logs;
    const auto& table = F::languageNames();  // no resources here
    Lines expected;
    for (const auto& [key, language] : table) {
        EXPECT_EQ(language.languageFlag, nullptr) << key;
    }
    Lines complaints;
    for (const std::string& text : logs->texts()) {
        if (text.starts_with("No flag for ")) complaints.push_back(text);
    }
    ASSERT_EQ(complaints.size(), table.size());
    EXPECT_THAT(complaints[0], testing::HasSubstr(table.begin()->second.languageName));
    EXPECT_THAT(complaints[0], Not(testing::HasSubstr("\n")));
    EXPECT_THAT(complaints.back(), testing::HasSubstr(table.rbegin()->second.languageCodes[0]));
}

TEST_F(TuvNodeFormatterLanguages, inTheUsersLanguage) {
    UserOf german("de_DE.UTF-8");
    EXPECT_EQ(F::languageNameFromLproj("fr"), "Französisch");
    EXPECT_EQ(F::languageNameFromLproj("French"), "French");
    EXPECT_EQ(F::languageNameFromLproj("en_GB"), "British");
    EXPECT_TRUE(F::languageNames().contains("französisch"));
}

TEST_F(TuvNodeFormatterLanguages, inALanguageWithoutNames) {
    UserOf unknown("xx_YY.UTF-8");
    EXPECT_EQ(F::languageNameFromLproj("fr"), "French");
}

}  // namespace
}  // namespace kavaro
