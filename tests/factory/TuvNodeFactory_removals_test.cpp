#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TempFolder.h"
#include "factory/EngineTest.h"

namespace kavaro {
namespace {

using testing::ElementsAre;

class TuvNodeFactoryRemovals : public EngineTest {
  protected:
    void SetUp() override {
        EngineTest::SetUp();
        ScanSession::setCatalogFactory({});
    }
    // A folder of resources with these language folders, each with a file.
    void makeLanguages(const std::string& folder, const std::vector<std::string>& names) {
        temp.makeFolder(folder);
        for (const std::string& name : names) {
            temp.makeFolder(folder + "/" + name);
            temp.write(folder + "/" + name + "/Main.strings", "x");
        }
    }
    std::vector<std::string> lines(std::string_view selector) const {
        std::vector<std::string> texts;
        for (const LogCapture::Line& line : log.lines())
            if (line.selector == selector && line.component == "TuvNodeFactory")
                texts.push_back((line.level == LogLevel::error ? "error: " : "") + line.text);
        return texts;
    }
    std::vector<std::string> languageLines() const { return lines("removeLocales:"); }
    std::vector<std::string> nibLines() const { return lines("removeNibs:"); }

    LogCapture log;
    TempFolder temp;
};

TEST_F(TuvNodeFactoryRemovals, LanguagesGoWhileEnglishStays) {
    makeLanguages("a", {"English.lproj", "fr.lproj", "de.lproj"});
    makeLanguages("b", {"en.lproj", "French.lproj"});
    const std::vector<std::string> paths{temp.path("a/fr.lproj"), temp.path("b/French.lproj"), temp.path("a/de.lproj")};
    engine(false)->removeLocales(paths);
    for (const std::string& path : paths) EXPECT_FALSE(isThere(path)) << path;
    EXPECT_TRUE(isThere(temp.path("a/English.lproj/Main.strings")));
    EXPECT_TRUE(isThere(temp.path("b/en.lproj/Main.strings")));
    EXPECT_THAT(languageLines(), ElementsAre("3 locales, isRemote", "Removed " + paths[0] + " ...",
                                             "Removed " + paths[1] + " ...", "Removed " + paths[2] + " ..."));
    EXPECT_TRUE(posted.all().empty());
}

TEST_F(TuvNodeFactoryRemovals, AMissingLanguageIsSaidAndTheRestGoesOn) {
    makeLanguages("a", {"en.lproj", "fr.lproj"});
    temp.write("file", "");
    engine(true)->removeLocales(
        {temp.path("a/xx.lproj"), temp.path("none/de.lproj"), temp.path("file/de.lproj"), temp.path("a/fr.lproj")});
    EXPECT_FALSE(isThere(temp.path("a/fr.lproj")));
    EXPECT_THAT(languageLines(),
                ElementsAre("4 locales, isLocal", "error: Could not find " + temp.path("a/xx.lproj") + " !!!",
                            "error: Could not find " + temp.path("none/de.lproj") + " !!!",
                            "error: Could not find " + temp.path("file/de.lproj") + " !!!",
                            "Removed " + temp.path("a/fr.lproj") + " ..."));
}

TEST_F(TuvNodeFactoryRemovals, TheFirstWithoutEnglishEndsIt) {
    makeLanguages("good", {"en.lproj", "de.lproj", "fr.lproj"});
    makeLanguages("bad", {"fr.lproj"});
    engine(false)->removeLocales({temp.path("good/de.lproj"), temp.path("bad/fr.lproj"), temp.path("good/fr.lproj")});
    EXPECT_FALSE(isThere(temp.path("good/de.lproj")));
    EXPECT_TRUE(isThere(temp.path("bad/fr.lproj")));
    EXPECT_TRUE(isThere(temp.path("good/fr.lproj")));
    EXPECT_THAT(languageLines(), ElementsAre("3 locales, isRemote", "Removed " + temp.path("good/de.lproj") + " ...",
                                             "error: Could not find " + temp.path("bad/English.lproj") + " !!!",
                                             "error: Could not find " + temp.path("bad/en.lproj") + " !!!"));
}

// Beside it means: another one.
TEST_F(TuvNodeFactoryRemovals, EnglishItselfIsNotWhatStays) {
    makeLanguages("only", {"en.lproj", "fr.lproj"});
    makeLanguages("both", {"en.lproj", "English.lproj"});
    makeLanguages("link", {"fr.lproj"});
    ASSERT_EQ(symlink("fr.lproj", temp.path("link/en.lproj").c_str()), 0);
    engine(false)->removeLocales({temp.path("only/en.lproj")});
    EXPECT_TRUE(isThere(temp.path("only/en.lproj/Main.strings")));
    engine(false)->removeLocales({temp.path("link/fr.lproj")});
    EXPECT_TRUE(isThere(temp.path("link/fr.lproj/Main.strings")));
    engine(false)->removeLocales({temp.path("both/en.lproj")});
    EXPECT_FALSE(isThere(temp.path("both/en.lproj")));
    engine(false)->removeLocales({temp.path("both/English.lproj")});
    EXPECT_TRUE(isThere(temp.path("both/English.lproj")));
}

TEST_F(TuvNodeFactoryRemovals, NoLinkIsFollowedToALanguage) {
    makeLanguages("real", {"en.lproj", "fr.lproj", "de.lproj"});
    ASSERT_EQ(symlink("real", temp.path("link").c_str()), 0);
    ASSERT_EQ(symlink("de.lproj", temp.path("real/German.lproj").c_str()), 0);
    engine(false)->removeLocales({temp.path("link/fr.lproj"), temp.path("real/German.lproj")});
    EXPECT_TRUE(isThere(temp.path("real/fr.lproj/Main.strings")));
    EXPECT_TRUE(isThere(temp.path("real/de.lproj/Main.strings")));
    EXPECT_FALSE(isThere(temp.path("real/German.lproj"))) << "the link itself goes";
    EXPECT_GE(log.count(LogLevel::error, temp.path("link/fr.lproj")), 1);
}

TEST_F(TuvNodeFactoryRemovals, ALanguageThatCannotBeRemovedIsSaidAndTheRestGoesOn) {
    makeLanguages("a", {"en.lproj", "fr.lproj", "de.lproj"});
    // A folder of its own for which there is no permission; root has all, and meets ".." instead.
    const std::string refused = geteuid() == 0
                                    ? temp.path("a/../a/fr.lproj")
                                    : (chmod(temp.path("a/fr.lproj").c_str(), 0500), temp.path("a/fr.lproj"));
    engine(false)->removeLocales({refused, temp.path("a/de.lproj")});
    EXPECT_TRUE(isThere(temp.path("a/fr.lproj/Main.strings")));
    EXPECT_FALSE(isThere(temp.path("a/de.lproj")));
    EXPECT_EQ(log.count(LogLevel::error, "Could not remove " + refused + " ..."), 1);
    EXPECT_EQ(log.count("Removed "), 1);
}

TEST_F(TuvNodeFactoryRemovals, NibsGoOneByOne) {
    temp.makeFolder("Main.nib");
    const std::string classes = temp.write("Main.nib/classes.nib", "x");
    const std::string info = temp.write("Main.nib/info.nib", "x");
    const std::string absent = temp.path("Main.nib/designable.nib");
    engine(false)->removeNibs({classes, absent, temp.path("Main.nib"), temp.path("none/info.nib"), info});
    EXPECT_FALSE(isThere(classes));
    EXPECT_FALSE(isThere(info));
    EXPECT_TRUE(isThere(temp.path("Main.nib"))) << "a folder is no nib file";
    EXPECT_THAT(
        nibLines(),
        ElementsAre("5 files, isRemote", "Removed " + classes + " ...", "error: Could not remove " + absent + " ...",
                    "error: File does not exist " + absent + " ...",
                    "error: Could not remove " + temp.path("Main.nib") + " ...",
                    "error: " + temp.path("Main.nib") + ": it is a folder, not a file",
                    "error: Could not remove " + temp.path("none/info.nib") + " ...",
                    "error: File does not exist " + temp.path("none/info.nib") + " ...", "Removed " + info + " ..."));
}

TEST_F(TuvNodeFactoryRemovals, NamesMayHoldAnyBytes) {
    const std::string odd = "odd \n\"'\xff";
    makeLanguages(odd, {"en.lproj", "fr.lproj"});
    const std::string nib = temp.write(odd + "/\x80\n.nib", "");
    engine(false)->removeLocales({temp.path(odd + "/fr.lproj")});
    engine(false)->removeNibs({nib});
    EXPECT_FALSE(isThere(temp.path(odd + "/fr.lproj")));
    EXPECT_FALSE(isThere(nib));
}

}  // namespace
}  // namespace kavaro
