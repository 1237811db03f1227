#include "platform/Resources.h"

#include <gtest/gtest.h>

namespace kavaro {
namespace {

TEST(Resources, belongToTheInstalledBundle) {
    EXPECT_EQ(resourcesFolder("/opt/Kavaro.app/Contents/Linux/kavaro"), "/opt/Kavaro.app/Resources");
    EXPECT_EQ(resourcesFolder("/a b/Kavaro.app/x/y/z"), "/a b/Kavaro.app/Resources");
}

TEST(Resources, belongToACheckout) {
    EXPECT_EQ(resourcesFolder("/src/trunk/build/bin/kavaro"), "/src/trunk/Applications/Kavaro");
}

TEST(Resources, otherProgramsHaveNone) {
    for (const char* program :
         {"/usr/local/bin/kavaro", "/opt/kavaro.app/Contents/Linux/kavaro", "/Kavaro.app/kavaro", ""})
        EXPECT_EQ(resourcesFolder(program), "") << program;
}

}  // namespace
}  // namespace kavaro
