#include "format/TuvNodeFormatter.h"

#include <gtest/gtest.h>

#include <array>

#include "support/Units.h"

namespace kavaro {
namespace {

std::array<float, 4> colorOf(unsigned long long size) {
    std::array<float, 4> color{-1, -1, -1, -1};
    TuvNodeFormatter::sizeStringColor(size, &color[0], &color[1], &color[2], &color[3]);
    return color;
}

std::array<float, 4> bytes(int red, int green, int blue) {
    return {static_cast<float>(red) / 255, static_cast<float>(green) / 255, static_cast<float>(blue) / 255, 1};
}

TEST(TuvNodeFormatter, sizeColorsChangeJustAboveEachUnit) {
    EXPECT_EQ(colorOf(0), bytes(55, 91, 76));
    EXPECT_EQ(colorOf(Tuv_KB), bytes(55, 91, 76));
    EXPECT_EQ(colorOf(Tuv_KB + 1), bytes(69, 103, 89));
    EXPECT_EQ(colorOf(Tuv_MB), bytes(69, 103, 89));
    EXPECT_EQ(colorOf(Tuv_MB + 1), bytes(99, 1, 159));
    EXPECT_EQ(colorOf(Tuv_GB), bytes(99, 1, 159));
    EXPECT_EQ(colorOf(Tuv_GB + 1), bytes(193, 34, 28));
    EXPECT_EQ(colorOf(~0ULL), bytes(193, 34, 28));
}

}  // namespace
}  // namespace kavaro
