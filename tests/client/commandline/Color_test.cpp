#include "client/commandline/Color.h"

#include <gtest/gtest.h>

#include "ScopedEnvironment.h"
#include "support/Units.h"

namespace kavaro {
namespace {

TEST(Color, nearestOf256) {
    EXPECT_EQ(nearestPaletteColor(0, 0, 0), 16);
    EXPECT_EQ(nearestPaletteColor(255, 255, 255), 231);
    EXPECT_EQ(nearestPaletteColor(95, 135, 175), 67);
    EXPECT_EQ(nearestPaletteColor(128, 128, 128), 244);  // a grey is nearer than the cube
    EXPECT_EQ(nearestPaletteColor(193, 34, 28), 124);
}

TEST(Color, depthFollowsTheEnvironment) {
    ScopedEnvironment environment("COLORTERM", "truecolor");
    environment.set("TERM", "xterm");
    environment.unset("NO_COLOR");
    EXPECT_EQ(colorDepth(ColorChoice::automatic, true), ColorDepth::full);
    environment.set("COLORTERM", "24bit");
    EXPECT_EQ(colorDepth(ColorChoice::automatic, true), ColorDepth::full);
    environment.set("COLORTERM", "yes");
    EXPECT_EQ(colorDepth(ColorChoice::automatic, true), ColorDepth::palette);
    EXPECT_EQ(colorDepth(ColorChoice::automatic, false), ColorDepth::none);
    EXPECT_EQ(colorDepth(ColorChoice::always, false), ColorDepth::palette);
    EXPECT_EQ(colorDepth(ColorChoice::never, true), ColorDepth::none);
    environment.set("NO_COLOR", "");  // empty does not count
    EXPECT_EQ(colorDepth(ColorChoice::automatic, true), ColorDepth::palette);
    environment.set("NO_COLOR", "1");
    EXPECT_EQ(colorDepth(ColorChoice::automatic, true), ColorDepth::none);
    EXPECT_EQ(colorDepth(ColorChoice::always, true), ColorDepth::palette);
    environment.unset("NO_COLOR");
    for (const char* terminal : {"dumb", ""}) {
        environment.set("TERM", terminal);
        EXPECT_EQ(colorDepth(ColorChoice::automatic, true), ColorDepth::none) << terminal;
        EXPECT_EQ(colorDepth(ColorChoice::always, true), ColorDepth::palette) << terminal;
    }
}

TEST(Color, sizes) {
    EXPECT_EQ(coloredBySize("x", Tuv_GB + 1, ColorDepth::full), "\x1b[38;2;193;34;28mx\x1b[0m");
    EXPECT_EQ(coloredBySize("x", Tuv_GB + 1, ColorDepth::palette), "\x1b[38;5;124mx\x1b[0m");
    EXPECT_EQ(coloredBySize("x", Tuv_GB + 1, ColorDepth::none), "x");
}

}  // namespace
}  // namespace kavaro
