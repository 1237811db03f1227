#include "format/FormatTest.h"
#include "platform/Localization.h"

namespace kavaro {
namespace {

using F = TuvNodeFormatter;

// What the class keeps is kept for the process: every case starts with nothing loaded.
class TuvNodeFormatterSettings : public testing::Test {
  protected:
    TuvNodeFormatterSettings() {
        _environment.set("HOME", _home.path());
        _environment.set("XDG_CONFIG_HOME", _home.path("config"));
    }
    static void store(const char* key, PropertyList value) {
        EXPECT_EQ(UserDefaults::standard().setObject(key, std::move(value)), "");
    }
    static std::string stored(const char* key) {
        const auto value = UserDefaults::standard().objectForKey(key);
        return value && value->string() ? *value->string() : "(no text)";
    }

    TempFolder _home;
    UserOf _environment{"C"};
};

TEST_F(TuvNodeFormatterSettings, countsWithoutASetting) {
    EXPECT_EQ(F::displayCountImageType(), 0);
    EXPECT_EQ(F::displayCountMenuTitle(), "Show File Counts");
}

TEST_F(TuvNodeFormatterSettings, countsFromTheDefaults) {
    store("displayCountImageType", "1");
    EXPECT_EQ(F::displayCountImageType(), 1);
    EXPECT_EQ(F::displayCountMenuTitle(), "Hide File Counts");
}

TEST_F(TuvNodeFormatterSettings, countsAreLoadedOnce) {
    store("displayCountImageType", "2");
    EXPECT_EQ(F::displayCountImageType(), 2);
    store("displayCountImageType", "3");
    EXPECT_EQ(F::displayCountImageType(), 2);
}

TEST_F(TuvNodeFormatterSettings, anEmptyTextIsZero) {
    store("displayCountImageType", "");
    store("displayFileIcon", "");
    EXPECT_EQ(F::displayFileIcon(), 0);
    EXPECT_EQ(F::displayCountImageType(), 0);
}

TEST_F(TuvNodeFormatterSettings, textThatIsNoNumberIsZero) {
    store("displayCountImageType", "many");
    EXPECT_EQ(F::displayCountImageType(), 0);
}

TEST_F(TuvNodeFormatterSettings, numbersBeyondTheRangeStopAtItsEnd) {
    store("displayCountImageType", "99999999999");
    EXPECT_EQ(F::displayCountImageType(), 2147483647);
}

TEST_F(TuvNodeFormatterSettings, settingStoresDecimalText) {
    F::setDisplayCountImageType(1);
    F::setDisplayFileIcon(-7);
    EXPECT_EQ(stored("displayCountImageType"), "1");
    EXPECT_EQ(stored("displayFileIcon"), "-7");
    EXPECT_EQ(F::displayCountImageType(), 1);
    EXPECT_EQ(F::displayFileIcon(), -7);
}

TEST_F(TuvNodeFormatterSettings, iconsAreReadWhileTheCountsAreNotLoaded) {
    store("displayFileIcon", "1");
    EXPECT_EQ(F::displayFileIcon(), 1);
    EXPECT_EQ(F::displayFileIconMenuTitle(), "Hide File Icon");
    store("displayFileIcon", "0");
    EXPECT_EQ(F::displayFileIcon(), 0);
    EXPECT_EQ(F::displayFileIconMenuTitle(), "Show File Icon");
}

TEST_F(TuvNodeFormatterSettings, iconsAreNotReadAfterTheCounts) {
    store("displayFileIcon", "1");
    EXPECT_EQ(F::displayCountImageType(), 0);
    EXPECT_EQ(F::displayFileIcon(), -1);
    EXPECT_EQ(F::displayFileIconMenuTitle(), "Show File Icon");
    F::setDisplayFileIcon(1);
    EXPECT_EQ(F::displayFileIcon(), 1);
    EXPECT_EQ(F::displayFileIconMenuTitle(), "Hide File Icon");
}

TEST_F(TuvNodeFormatterSettings, titleOfTheCountsLoadsThem) {
    store("displayFileIcon", "1");
    EXPECT_EQ(F::displayCountMenuTitle(), "Show File Counts");
    EXPECT_EQ(F::displayFileIcon(), -1);
}

TEST_F(TuvNodeFormatterSettings, titleOfTheIconsLoadsTheIconsAlone) {
    store("displayCountImageType", "1");
    store("displayFileIcon", "1");
    EXPECT_EQ(F::displayFileIconMenuTitle(), "Hide File Icon");
    store("displayCountImageType", "0");
    EXPECT_EQ(F::displayCountImageType(), 0);
}

TEST_F(TuvNodeFormatterSettings, titlesInTheUsersLanguage) {
    setResourcesFolder(KAVARO_APP_DIR "/Resources");
    UserOf french("fr_FR.UTF-8");
    useUserLanguage();
    EXPECT_EQ(F::displayCountMenuTitle(), "Afficher le nombre de fichiers");
    F::setDisplayCountImageType(1);
    EXPECT_EQ(F::displayCountMenuTitle(), "Masquer le nombre de fichiers");
}

TEST_F(TuvNodeFormatterSettings, whatCannotBeStoredIsLogged) {
    FormatLogs logs;
    _home.write("config", "no folder");
    F::setDisplayCountImageType(1);
    EXPECT_EQ(F::displayCountImageType(), 1);
    EXPECT_EQ(logs->count(LogLevel::error, "config"), 1);
}

}  // namespace
}  // namespace kavaro
