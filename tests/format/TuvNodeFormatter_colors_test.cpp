#include "format/FormatTest.h"
#include "support/Units.h"

namespace kavaro {
namespace {

using F = TuvNodeFormatter;

Color textColor(unsigned long long size) {
    Color color{-1, -1, -1, -1};
    F::sizeStringColor(size, &color.red, &color.green, &color.blue, &color.alpha);
    return color;
}

Color hueColor(unsigned long long size) {
    Color color{-1, -1, -1, -1};
    F::physicalSizeColor(size, &color.red, &color.green, &color.blue, &color.alpha);
    return color;
}

Color ofBytes(int red, int green, int blue) {
    return {static_cast<float>(red) / 255, static_cast<float>(green) / 255, static_cast<float>(blue) / 255, 1};
}

Color ofHue(int degrees) {
    return Color::fromHueSaturationBrightness(static_cast<float>(degrees) / 360, 1, 1, 1);
}

void expectHue(unsigned long long size, int degrees) {
    const Color color = hueColor(size), expected = ofHue(degrees);
    EXPECT_FLOAT_EQ(color.red, expected.red) << size;
    EXPECT_FLOAT_EQ(color.green, expected.green) << size;
    EXPECT_FLOAT_EQ(color.blue, expected.blue) << size;
    EXPECT_EQ(color.alpha, 1) << size;
}

const Color kLightGreen = ofBytes(55, 91, 76), kKilobyte = ofBytes(69, 103, 89), kMegabyte = ofBytes(99, 1, 159),
            kGigabyte = ofBytes(193, 34, 28);

TEST(TuvNodeFormatterColors, changeJustAboveEachUnit) {
    EXPECT_EQ(textColor(0), kLightGreen);
    EXPECT_EQ(textColor(Tuv_KB), kLightGreen);
    EXPECT_EQ(textColor(Tuv_KB + 1), kKilobyte);
    EXPECT_EQ(textColor(Tuv_MB), kKilobyte);
    EXPECT_EQ(textColor(Tuv_MB + 1), kMegabyte);
    EXPECT_EQ(textColor(Tuv_GB), kMegabyte);
    EXPECT_EQ(textColor(Tuv_GB + 1), kGigabyte);
    EXPECT_EQ(textColor(~0ULL), kGigabyte);
}

TEST(TuvNodeFormatterColors, ofNodesByTheirSizeOnDisk) {
    const auto file = newFile(1, "f", 0, 2 * Tuv_MB);
    EXPECT_EQ(F::sizeStringColor(file.get()), kMegabyte);
    EXPECT_EQ(F::physicalSizeColor(file.get()), kMegabyte);
    EXPECT_EQ(F::sizeStringColor(newFile(1, "f", 2 * Tuv_GB, 0).get()), kLightGreen);
}

TEST(TuvNodeFormatterColors, redForWhatIsNotMeasured) {
    const auto folder = newFolder(2);
    folder->setPhysicalSize(2 * Tuv_GB);
    EXPECT_EQ(F::sizeStringColor(folder.get()), (Color{1, 0, 0, 1}));
    EXPECT_EQ(F::physicalSizeColor(folder.get()), (Color{1, 0, 0, 1}));
    EXPECT_EQ(F::sizeStringColor(static_cast<const TuvNode*>(nullptr)), Color::systemRed());
}

TEST(TuvNodeFormatterColors, hueMovesWithinAUnit) {
    expectHue(0, 91);
    expectHue(31, 91);
    expectHue(32, 92);
    expectHue(Tuv_KB - 1, 122);
    expectHue(Tuv_KB, 176);
    expectHue(33 * Tuv_KB, 177);
    expectHue(Tuv_MB - 1, 207);
    expectHue(Tuv_GB, 43);
    expectHue(500 * Tuv_GB, 58);
    expectHue(Tuv_TB, 331);
}

TEST(TuvNodeFormatterColors, huesOfMegabytesGoDown) {
    expectHue(5 * Tuv_MB, 199);
    expectHue(Tuv_MB, 199);
    expectHue(32 * Tuv_MB, 198);
    expectHue(1023 * Tuv_MB, 168);
}

TEST(TuvNodeFormatterColors, largeSizes) {
    expectHue(959 * Tuv_TB, 360);
    // A hue beyond the circle's end stays at its end.
    expectHue(960 * Tuv_TB, 360);
    expectHue(1023 * Tuv_TB, 360);
    EXPECT_EQ(hueColor(1000 * Tuv_TB), (Color{1, 0, 0, 1}));
    // Beyond the last unit: its hue alone.
    expectHue(1024 * Tuv_TB, 90);
    expectHue(~0ULL, 90);
}

// In single precision what is a few bytes short of a unit counts as one.
TEST(TuvNodeFormatterColors, singlePrecision) {
    expectHue(Tuv_GB - 1, 43);
    expectHue(Tuv_GB - 64 * Tuv_KB, 168);
}

TEST(TuvNodeFormatterColors, everySizeHasAColor) {
    for (unsigned long long size = 1; size != 0; size <<= 1) {
        for (const Color& color : {hueColor(size - 1), hueColor(size), textColor(size)}) {
            for (const float part : {color.red, color.green, color.blue}) {
                EXPECT_GE(part, 0) << size;
                EXPECT_LE(part, 1) << size;
            }
            EXPECT_EQ(color.alpha, 1);
        }
    }
}

}  // namespace
}  // namespace kavaro
