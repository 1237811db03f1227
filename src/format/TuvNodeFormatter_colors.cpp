#include <iterator>

#include "format/TuvNodeFormatter.h"
#include "model/TuvNode.h"
#include "support/Units.h"

namespace kavaro {

namespace {

constexpr Color ofBytes(int red, int green, int blue) {
    return {static_cast<float>(red) / 255, static_cast<float>(green) / 255, static_cast<float>(blue) / 255, 1};
}

constexpr Color kGigabyteColor = ofBytes(193, 34, 28);
constexpr Color kMegabyteColor = ofBytes(99, 1, 159);
constexpr Color kKilobyteColor = ofBytes(69, 103, 89);
constexpr Color kLightGreen = ofBytes(55, 91, 76);

const Color& colorOfText(unsigned long long size) {
    if (size > Tuv_GB) return kGigabyteColor;
    if (size > Tuv_MB) return kMegabyteColor;
    return size > Tuv_KB ? kKilobyteColor : kLightGreen;
}

constexpr float kHues[] = {90, 175, 200, 42, 330};  // degrees: bytes, kilobytes, megabytes, gigabytes, terabytes
constexpr int kMegabytes = 2;
constexpr float kDegreesOfUnit = 0.03125f;  // 32 of a unit's 1024 make a degree

// In single precision. Megabytes alone go down from their hue; what is beyond terabytes has the hue of no bytes.
float hueOfSize(unsigned long long size) {
    constexpr auto kUnit = static_cast<float>(Tuv_KB);
    auto inUnit = static_cast<float>(size);
    for (int level = 0; level < static_cast<int>(std::size(kHues)); ++level, inUnit /= kUnit) {
        if (!(inUnit < kUnit)) continue;
        const int steps = static_cast<int>(inUnit * kDegreesOfUnit) + 1;
        return (static_cast<float>(level == kMegabytes ? -steps : steps) + kHues[level]) / 360;
    }
    return kHues[0] / 360;
}

void give(const Color& color, float* red, float* green, float* blue, float* alpha) {
    *red = color.red;
    *green = color.green;
    *blue = color.blue;
    *alpha = color.alpha;
}

}  // namespace

void TuvNodeFormatter::sizeStringColor(unsigned long long size, float* red, float* green, float* blue, float* alpha) {
    give(colorOfText(size), red, green, blue, alpha);
}

Color TuvNodeFormatter::sizeStringColor(const TuvNode* node) {
    return node && node->isResolved() ? colorOfText(node->physicalSize()) : Color::systemRed();
}

void TuvNodeFormatter::physicalSizeColor(unsigned long long size, float* red, float* green, float* blue, float* alpha) {
    give(Color::fromHueSaturationBrightness(hueOfSize(size), 1, 1, 1), red, green, blue, alpha);
}

Color TuvNodeFormatter::physicalSizeColor(const TuvNode* node) {
    return sizeStringColor(node);
}

}  // namespace kavaro
