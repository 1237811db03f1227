#pragma once

namespace kavaro {

// A colour's components, 0 to 1.
struct Color {
    float red = 0, green = 0, blue = 0, alpha = 1;

    bool operator==(const Color&) const = default;
    static Color systemRed() { return {1, 0, 0, 1}; }
    // Hue, saturation and brightness from 0 to 1; what lies outside counts as the nearer end, as hue 1 is hue 0's red.
    static Color fromHueSaturationBrightness(float hue, float saturation, float brightness, float alpha);
};

}  // namespace kavaro
