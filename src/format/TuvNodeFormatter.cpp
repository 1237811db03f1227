#include "format/TuvNodeFormatter.h"

#include "support/Units.h"

namespace kavaro {

namespace {

struct Color {
    float red, green, blue;
};

constexpr Color ofBytes(int red, int green, int blue) {
    return {static_cast<float>(red) / 255, static_cast<float>(green) / 255, static_cast<float>(blue) / 255};
}

constexpr Color kGigabyteColor = ofBytes(193, 34, 28);
constexpr Color kMegabyteColor = ofBytes(99, 1, 159);
constexpr Color kKilobyteColor = ofBytes(69, 103, 89);
constexpr Color kLightGreen = ofBytes(55, 91, 76);

}  // namespace

void TuvNodeFormatter::sizeStringColor(unsigned long long size, float* red, float* green, float* blue, float* alpha) {
    const Color& color = size > Tuv_GB   ? kGigabyteColor
                         : size > Tuv_MB ? kMegabyteColor
                         : size > Tuv_KB ? kKilobyteColor
                                         : kLightGreen;
    *red = color.red;
    *green = color.green;
    *blue = color.blue;
    *alpha = 1;
}

}  // namespace kavaro
