#include "platform/Color.h"

#include <algorithm>
#include <cmath>

namespace kavaro {

Color Color::fromHueSaturationBrightness(float hue, float saturation, float brightness, float alpha) {
    hue = std::clamp(hue, 0.0f, 1.0f);
    saturation = std::clamp(saturation, 0.0f, 1.0f);
    brightness = std::clamp(brightness, 0.0f, 1.0f);
    const float sixths = hue * 6;
    const int sector = static_cast<int>(sixths) % 6;
    const float part = sixths - std::floor(sixths);
    const float low = brightness * (1 - saturation);
    const float falling = brightness * (1 - saturation * part);
    const float rising = brightness * (1 - saturation * (1 - part));
    switch (sector) {
        case 0:
            return {brightness, rising, low, alpha};
        case 1:
            return {falling, brightness, low, alpha};
        case 2:
            return {low, brightness, rising, alpha};
        case 3:
            return {low, falling, brightness, alpha};
        case 4:
            return {rising, low, brightness, alpha};
        default:
            return {brightness, low, falling, alpha};
    }
}

}  // namespace kavaro
