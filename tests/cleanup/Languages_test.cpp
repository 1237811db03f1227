#include <algorithm>
#include <random>

#include "ScopedEnvironment.h"
#include "cleanup/Bundles.h"
#include "format/TuvNodeFormatter.h"
#include "platform/Text.h"

namespace kavaro {
namespace {

using Texts = std::vector<std::string>;

TuvObjectArray* groupAt(const TuvObjectArray& groups, int index) {
    return static_cast<TuvObjectArray*>(groups.objectAtIndex(index));
}

// The texts of one level that begin like this.
Texts textsWith(const ModelLogs& logs, std::string_view selector, std::string_view beginning) {
    Texts texts;
    const std::string start = std::string(selector) + ": " + std::string(beginning);
    for (const std::string& line : logs.lines()) {
        const std::size_t at = line.find(start);
        if (at != std::string::npos) texts.push_back(line.substr(at + selector.size() + 2));
    }
    return texts;
}

class LanguagesTest : public testing::Test {
  protected:
    LanguagesTest() {
        for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) _environment.set(name, "en_US.UTF-8");
        _environment.unset("LANGUAGE");
    }

    // The paths of the folders of each group, in the order of names.
    std::vector<Texts> rawGroups() {
        const TuvRef<TuvDirNode> root = bundles.tree();
        return groupsOf(*root->languages());
    }
    std::vector<Texts> coalesced() {
        const TuvRef<TuvDirNode> root = bundles.tree();
        const TuvRef<TuvObjectArray> groups = root->languages();
        groups->coalesceLanguages();
        return groupsOf(*groups);
    }
    std::vector<Texts> groupsOf(const TuvObjectArray& groups) const {
        std::vector<Texts> names;
        for (int i = 0; i < groups.count(); ++i) {
            names.push_back(bundles.relative(*groupAt(groups, i)));
            // Those of one name come as the disk lists them.
            std::sort(names.back().begin(), names.back().end(), [](const std::string& a, const std::string& b) {
                const int order = caseInsensitiveCompare(lastPathComponent(a), lastPathComponent(b));
                return order != 0 ? order < 0 : a < b;
            });
        }
        return names;
    }

    Bundles bundles;
    ScopedEnvironment _environment;
};

TEST_F(LanguagesTest, BothNamingStylesMakeOneGroup) {
    bundles.languages("A.app/Resources", {"English.lproj", "French.lproj", "fr.lproj"});
    EXPECT_EQ(rawGroups(),
              (std::vector<Texts>{
                  {"A.app/Resources/English.lproj"}, {"A.app/Resources/fr.lproj"}, {"A.app/Resources/French.lproj"}}));
    EXPECT_EQ(coalesced(), (std::vector<Texts>{{"A.app/Resources/fr.lproj", "A.app/Resources/French.lproj"}}));
}

TEST_F(LanguagesTest, WithoutEnglishBesideThemNothingIsOffered) {
    bundles.languages("A.app/Resources", {"German.lproj", "French.lproj"});
    // English lies elsewhere, differs in letter case, or is a file.
    bundles.languages("A.app/Other", {"English.lproj"});
    bundles.languages("B.app", {"english.lproj", "EN.lproj", "Dutch.lproj"});
    bundles.languages("C.app", {"it.lproj"});
    bundles.file("C.app/en.lproj");
    EXPECT_EQ(coalesced(), std::vector<Texts>{});
}

TEST_F(LanguagesTest, EitherNameOfEnglishWillDo) {
    bundles.languages("A.app", {"en.lproj", "de.lproj"});
    bundles.languages("B.app", {"English.lproj", "German.lproj"});
    EXPECT_EQ(coalesced(), (std::vector<Texts>{{"A.app/de.lproj", "B.app/German.lproj"}}));
}

TEST_F(LanguagesTest, NamesThatDifferInLetterCaseShareARawGroup) {
    bundles.languages("A.app", {"en.lproj", "French.lproj"});
    bundles.languages("B.app", {"en.lproj", "french.lproj"});
    EXPECT_EQ(rawGroups(),
              (std::vector<Texts>{{"A.app/en.lproj", "B.app/en.lproj"}, {"A.app/French.lproj", "B.app/french.lproj"}}));
    EXPECT_EQ(coalesced(), (std::vector<Texts>{{"A.app/French.lproj", "B.app/french.lproj"}}));
}

TEST_F(LanguagesTest, TheMarkMayStandAnywhereInTheName) {
    bundles.languages("A.app", {"en.lproj", "MyProj.lproj.backup", "LPROJ", "plain"});
    bundles.file("A.app/it.lproj");  // no folder
    EXPECT_EQ(rawGroups(), (std::vector<Texts>{{"A.app/en.lproj"}, {"A.app/LPROJ"}, {"A.app/MyProj.lproj.backup"}}));
    ModelLogs logs;
    EXPECT_EQ(coalesced(), (std::vector<Texts>{{"A.app/LPROJ"}, {"A.app/MyProj.lproj.backup"}}));
    EXPECT_TRUE(logs->contains("Got 1 nodes for language MyProj.lproj"));
}

TEST_F(LanguagesTest, EnglishAndNonlocalizedAreNeverOffered) {
    bundles.languages("A.app", {"en.lproj", "English.lproj", "en_GB.lproj", "en_IE.lproj", "Nonlocalized.lproj",
                                "nonlocalized.lproj", "nl.lproj"});
    ModelLogs logs;
    EXPECT_EQ(coalesced(), (std::vector<Texts>{{"A.app/en_GB.lproj"}, {"A.app/nl.lproj"}}));
    EXPECT_EQ(logs->count(LogLevel::error, "Will skip 3 items for english [" + bundles.path("A.app/en.lproj") + "]"),
              1);
    EXPECT_EQ(logs->count(LogLevel::error, "Will skip 2 items for nonlocalized ["), 1);
}

// Languages are named in the user's own: English is another word there, and stays as untouchable as it was.
TEST_F(LanguagesTest, EnglishIsNeverOfferedInAnotherLocaleEither) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    bundles.languages("A.app", {"en.lproj", "English.lproj", "fr.lproj", "en_IE.lproj"});
    const auto inGerman = [this] {
        for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) setenv(name, "de_DE.UTF-8", 1);
        const bool isGerman = TuvNodeFormatter::languageNameFromLproj("en") == "Englisch";
        std::exit(isGerman && coalesced() == std::vector<Texts>{{"A.app/fr.lproj"}} ? 7 : 8);
    };
    EXPECT_EXIT(inGerman(), testing::ExitedWithCode(7), "");
}

TEST_F(LanguagesTest, SeveralApplications) {
    for (const char* app : {"A.app", "B.app", "Tools/C.app"}) {
        const std::string resources = std::string(app) + "/Contents/Resources";
        bundles.languages(resources, {"en.lproj", "de.lproj", "pt_BR.lproj", "zh-Hans.lproj"});
    }
    bundles.languages("Old.app/Contents/Resources", {"English.lproj", "German.lproj", "Portuguese.lproj", "pt.lproj"});
    bundles.languages("NoEnglish.app/Contents/Resources", {"de.lproj", "pt.lproj"});
    const std::string in = "/Contents/Resources/";
    EXPECT_EQ(
        coalesced(),
        (std::vector<Texts>{
            {"A.app" + in + "zh-Hans.lproj", "B.app" + in + "zh-Hans.lproj", "Tools/C.app" + in + "zh-Hans.lproj"},
            {"A.app" + in + "de.lproj", "B.app" + in + "de.lproj", "Tools/C.app" + in + "de.lproj",
             "Old.app" + in + "German.lproj"},
            {"Old.app" + in + "Portuguese.lproj", "Old.app" + in + "pt.lproj", "A.app" + in + "pt_BR.lproj",
             "B.app" + in + "pt_BR.lproj", "Tools/C.app" + in + "pt_BR.lproj"}}));
}

TEST_F(LanguagesTest, NamesThatAreNotUTF8) {
    bundles.languages("A\xfe.app", {"en.lproj", "\xff.lproj", "\xff\xfe.LPROJ"});
    EXPECT_EQ(coalesced(), (std::vector<Texts>{{"A\xfe.app/\xff.lproj"}, {"A\xfe.app/\xff\xfe.LPROJ"}}));
}

TEST_F(LanguagesTest, ATreeWithoutAny) {
    bundles.file("A.app/Contents/MacOS/A");
    EXPECT_EQ(rawGroups(), std::vector<Texts>{});
    EXPECT_EQ(coalesced(), std::vector<Texts>{});
    TuvRef<TuvDirNode> file = newFolder(1, "/empty");
    EXPECT_EQ(file->languages()->count(), 0);
}

TEST_F(LanguagesTest, TheLogTellsEachStep) {
    bundles.languages("A.app", {"en.lproj", "de.lproj"});
    bundles.languages("B.app", {"fr.lproj"});
    ModelLogs logs;
    coalesced();
    EXPECT_EQ(textsWith(logs, "languages", "Got 1 "),
              (Texts{"Got 1 nodes for language de", "Got 1 nodes for language en", "Got 1 nodes for language fr"}));
    EXPECT_EQ(logs->count(LogLevel::info, "Got into 3 raw lprojects in "), 1);
    EXPECT_EQ(logs->count(LogLevel::error, "Has NO English, " + bundles.path("B.app/fr.lproj")), 1);
    EXPECT_EQ(textsWith(logs, "coalesceLanguages", "Added "),
              (Texts{"Added 1 (1) nodes to [English] " + bundles.path("A.app/en.lproj"),
                     "Added 1 (1) nodes to [German] " + bundles.path("A.app/de.lproj")}));
    EXPECT_EQ(logs->count(LogLevel::error, "ZERO count for French !!!"), 1);
    EXPECT_EQ(logs->count(LogLevel::info, "Coalesced 3 into 1 language folders in "), 1);
}

TEST_F(LanguagesTest, DebugLinesTellEachFolder) {
    bundles.languages("A.app", {"en.lproj", "de.lproj"});
    bundles.languages("B.app", {"fr.lproj"});
    const TuvRef<TuvDirNode> root = bundles.tree();
    const TuvRef<TuvObjectArray> groups = root->languages();
    ModelLogs logs(LogLevel::debug);
    groups->coalesceLanguages();
    EXPECT_EQ(logs->count(LogLevel::debug, "-----------------------------------------"), 3);
    EXPECT_EQ(logs->count(LogLevel::debug, "1 items"), 3);
    EXPECT_EQ(logs->count(LogLevel::debug, "Has English, "), 2);
    EXPECT_EQ(logs->count(LogLevel::debug, bundles.path("B.app/fr.lproj") + ", index 0"), 1);
}

// A group is named after its first folder. When that one goes, the rest may belong to a name that nobody asked for.
TEST_F(LanguagesTest, WhatMatchesNoNameIsKeptAsItIs) {
    const auto root = newFolder(1, "/apps");
    TuvDirNode* withEnglish = addFolder(root.get(), newFolder(2, "A.app"));
    TuvDirNode* without = addFolder(root.get(), newFolder(3, "B.app"));
    addFolder(withEnglish, newFolder(4, "en.lproj"));
    auto group = make<TuvObjectArray>();
    group->addObject(addFolder(without, newFolder(5, "EN_us.lproj")));
    TuvDirNode* left = addFolder(withEnglish, newFolder(6, "en_US.lproj"));
    group->addObject(left);
    auto groups = make<TuvObjectArray>();
    groups->adoptObject(group.leak());

    ModelLogs logs;
    groups->coalesceLanguages();
    ASSERT_EQ(groups->count(), 1);
    EXPECT_EQ(idsOf(groupAt(*groups, 0)), std::vector<std::uint32_t>{6});
    EXPECT_EQ(logs->count(LogLevel::error, "ZERO count for English !!!"), 1);
    EXPECT_EQ(logs->count(LogLevel::error, "We could not match 1 lprojects"), 1);
    EXPECT_EQ(logs->count(LogLevel::error, "We could not match 1 nodes for /apps/A.app/en_US.lproj"), 1);
}

// The rules step by step, as unclever as possible, on folders of random names in random places.
class CoalesceTwin {
  public:
    using Group = std::vector<TuvDirNode*>;

    static std::vector<Group> coalesced(std::vector<Group> groups) {
        std::vector<std::string> names;
        for (const Group& group : groups) {
            const std::string name = nameOf(group);
            if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
        }
        std::sort(names.begin(), names.end());
        for (Group& group : groups) std::erase_if(group, [](TuvDirNode* folder) { return !isBesideEnglish(*folder); });
        std::erase_if(groups, [](const Group& group) { return group.empty(); });
        std::vector<Group> result;
        for (const std::string& name : names) {
            Group merged;
            for (std::size_t i = 0; i < groups.size();) {
                if (nameOf(groups[i]) != name) {
                    ++i;
                    continue;
                }
                merged.insert(merged.end(), groups[i].begin(), groups[i].end());
                groups.erase(groups.begin() + static_cast<std::ptrdiff_t>(i));
            }
            if (!merged.empty()) result.push_back(merged);
        }
        result.insert(result.end(), groups.begin(), groups.end());
        std::erase_if(result,
                      [](const Group& group) { return nameOf(group) == "English" || nameOf(group) == "Nonlocalized"; });
        return result;
    }

  private:
    static std::string nameOf(const Group& group) { return *TuvNodeFormatter::languageName(group[0]); }
    static bool isBesideEnglish(const TuvDirNode& folder) {
        for (int i = 0; i < folder.parent()->folderCount(); ++i) {
            const std::string_view name = folder.parent()->folders()->nodeAtIndex(i)->fileName();
            if (name == "English.lproj" || name == "en.lproj") return true;
        }
        return false;
    }
};

TEST_F(LanguagesTest, RandomFoldersBesideASimpleTwin) {
    const char* const names[] = {"en",     "English", "fr",    "French", "FRENCH", "de",      "German",       "de_AT",
                                 "EN_us",  "en_US",   "en_GB", "no",     "nb",     "zh_TW",   "Nonlocalized", "xx",
                                 "zz.old", "Klingon", "pt",    "pt_BR",  "Base",   "Unknown", "\xff"};
    std::mt19937 random(5);
    ModelLogs logs(LogLevel::off);
    for (int round = 0; round < 300; ++round) {
        const auto root = newFolder(1, "/apps");
        std::uint32_t inode = 1;
        for (std::uint32_t apps = 1 + random() % 6; apps > 0; --apps) {
            TuvDirNode* app = addFolder(root.get(), newFolder(++inode, "app"));
            for (std::uint32_t count = random() % 12; count > 0; --count)
                addFolder(app, newFolder(++inode, std::string(names[random() % std::size(names)]) + ".lproj"));
        }
        const TuvRef<TuvObjectArray> groups = root->languages();
        std::vector<CoalesceTwin::Group> twin;
        for (int i = 0; i < groups->count(); ++i) {
            twin.emplace_back();
            for (TuvObject* folder : *groupAt(*groups, i)) twin.back().push_back(static_cast<TuvDirNode*>(folder));
        }
        twin = CoalesceTwin::coalesced(std::move(twin));
        groups->coalesceLanguages();
        ASSERT_EQ(static_cast<std::size_t>(groups->count()), twin.size()) << round;
        for (int i = 0; i < groups->count(); ++i) {
            const TuvObjectArray& group = *groupAt(*groups, i);
            const CoalesceTwin::Group& expected = twin[static_cast<std::size_t>(i)];
            EXPECT_TRUE(std::equal(group.begin(), group.end(), expected.begin(), expected.end())) << round;
        }
    }
}

}  // namespace
}  // namespace kavaro
