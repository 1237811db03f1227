#include "ModelTest.h"
#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "platform/UserDefaults.h"

namespace kavaro {
namespace {

using Lines = std::vector<std::string>;

// The process's own settings, in a home of their own.
class TuvNodeSettingsTest : public testing::Test {
  protected:
    TuvNodeSettingsTest() {
        _environment.set("HOME", _home.path());
        _environment.set("XDG_CONFIG_HOME", _home.path("config"));
        for (const char* key : {"doNotAutoRemeasure", "removeAsSudo", "agreedToRemoveAsSudo"})
            UserDefaults::standard().removeObject(key);
    }
    static std::string stored(const char* key) {
        const auto value = UserDefaults::standard().objectForKey(key);
        return value && value->string() ? *value->string() : "(none)";
    }

    TempFolder _home;
    ScopedEnvironment _environment;
};

TEST_F(TuvNodeSettingsTest, DoNotAutoRemeasure) {
    ModelLogs logs;
    EXPECT_FALSE(TuvNode::doNotAutoRemeasure());
    TuvNode::setDoNotAutoRemeasure(true);
    EXPECT_EQ(stored("doNotAutoRemeasure"), "1");
    EXPECT_TRUE(TuvNode::doNotAutoRemeasure());
    TuvNode::setDoNotAutoRemeasure(false);
    EXPECT_EQ(stored("doNotAutoRemeasure"), "0");
    EXPECT_FALSE(TuvNode::doNotAutoRemeasure());
    EXPECT_EQ(logs.lines(), (Lines{"TuvNode doNotAutoRemeasure: [NO]", "TuvNode setDoNotAutoRemeasure: [YES]",
                                   "TuvNode doNotAutoRemeasure: [YES]", "TuvNode setDoNotAutoRemeasure: [NO]",
                                   "TuvNode doNotAutoRemeasure: [NO]"}));
    EXPECT_EQ(logs->count(LogLevel::info, "["), 5);
}

TEST_F(TuvNodeSettingsTest, AutoRemeasureIsOnUnlessTurnedOff) {
    ModelLogs logs;
    EXPECT_TRUE(TuvNode::autoRemeasure());
    for (const PropertyList& value : {PropertyList(1), PropertyList("1")}) {
        UserDefaults::standard().setObject("doNotAutoRemeasure", value);
        EXPECT_FALSE(TuvNode::autoRemeasure()) << value.description();
    }
    for (const PropertyList& value : {PropertyList(0), PropertyList(2), PropertyList("no")}) {
        UserDefaults::standard().setObject("doNotAutoRemeasure", value);
        EXPECT_TRUE(TuvNode::autoRemeasure()) << value.description();
    }
    const std::string on = "TuvNode autoRemeasure: [NO]", off = "TuvNode autoRemeasure: [YES]";
    EXPECT_EQ(logs.lines(), (Lines{on, off, off, on, on, on}));
}

TEST_F(TuvNodeSettingsTest, RemoveAsSudoSetsTwoKeys) {
    ModelLogs logs;
    EXPECT_FALSE(TuvNode::removeAsSudo());
    TuvNode::setRemoveAsSudo(true);
    EXPECT_EQ(stored("removeAsSudo"), "1");
    EXPECT_EQ(stored("agreedToRemoveAsSudo"), "1");
    EXPECT_TRUE(TuvNode::removeAsSudo());
    TuvNode::setRemoveAsSudo(false);
    EXPECT_EQ(stored("removeAsSudo"), "0");
    EXPECT_EQ(stored("agreedToRemoveAsSudo"), "0");
    EXPECT_EQ(logs.lines(), (Lines{"TuvNode removeAsSudo: [NO]", "TuvNode setRemoveAsSudo: [YES]",
                                   "TuvNode setAgreedToRemoveAsSudo: [YES]", "TuvNode removeAsSudo: [YES]",
                                   "TuvNode setRemoveAsSudo: [NO]", "TuvNode setAgreedToRemoveAsSudo: [NO]"}));
}

TEST_F(TuvNodeSettingsTest, OnlyOneIsYes) {
    ModelLogs logs;
    for (const PropertyList& value : {PropertyList(1), PropertyList("1"), PropertyList(true)}) {
        UserDefaults::standard().setObject("removeAsSudo", value);
        EXPECT_TRUE(TuvNode::removeAsSudo()) << value.description();
    }
    for (const PropertyList& value : {PropertyList(2), PropertyList("x"), PropertyList(0)}) {
        UserDefaults::standard().setObject("removeAsSudo", value);
        EXPECT_FALSE(TuvNode::removeAsSudo()) << value.description();
    }
}

}  // namespace
}  // namespace kavaro
