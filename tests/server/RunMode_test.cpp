#include "server/RunMode.h"

#include <gtest/gtest.h>

#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "fsevents/TuvFSEvent.h"
#include "platform/UserDefaults.h"

namespace kavaro {
namespace {

TEST(RunMode, ConfigurationBelongsToTheInstalledBundle) {
    EXPECT_EQ(logConfigurationPath("/opt/Kavaro.app/Contents/Linux/kavarod"), "/opt/Kavaro.app/Resources/TuvLog.plist");
    EXPECT_EQ(logConfigurationPath("/a b/Kavaro.app/x/y/z"), "/a b/Kavaro.app/Resources/TuvLog.plist");
}

TEST(RunMode, ConfigurationBelongsToACheckout) {
    EXPECT_EQ(logConfigurationPath("/src/trunk/build/bin/kavarod"), "/src/trunk/Applications/Kavaro/TuvLog.plist");
}

TEST(RunMode, AnythingElseHasNone) {
    EXPECT_EQ(logConfigurationPath("/usr/local/bin/kavarod"), "");
    EXPECT_EQ(logConfigurationPath("/opt/kavaro.app/Contents/Linux/kavarod"), "");
    EXPECT_EQ(logConfigurationPath("/Kavaro.app/Linux/kavarod"), "");
    EXPECT_EQ(logConfigurationPath(""), "");
}

TEST(RunMode, OnlyYesMakesANormalProcess) {
    TempFolder folder;
    ScopedEnvironment home{"XDG_CONFIG_HOME", folder.path()};
    EXPECT_FALSE(runsAsNormalProcess());
    UserDefaults::standard().setArguments({"-standardLog", "NO"});
    EXPECT_FALSE(runsAsNormalProcess());
    UserDefaults::standard().setArguments({"-standardLog", "YES"});
    EXPECT_TRUE(runsAsNormalProcess());
}

TEST(RunMode, OnlyYesMakesADataCollector) {
    TempFolder folder;
    ScopedEnvironment home{"XDG_CONFIG_HOME", folder.path()};
    for (const char* value : {"", "NO", "YES"}) {
        UserDefaults::standard().setArguments(*value ? std::vector<std::string>{"-runAsDataCollector", value}
                                                     : std::vector<std::string>{});
        chooseDataCollector();
        EXPECT_EQ(TuvFSEvent::runAsDataCollector(), std::string(value) == "YES") << value;
    }
}

}  // namespace
}  // namespace kavaro
