#include "client/commandline/Color.h"

#include <cmath>

#include "format/TuvNodeFormatter.h"
#include "platform/Environment.h"

namespace kavaro {

namespace {

constexpr int kCubeSteps[] = {0, 95, 135, 175, 215, 255};
constexpr int kFirstCubeColor = 16, kFirstGrey = 232, kGreys = 24;

int nearestCubeStep(int value) {
    int nearest = 0;
    for (int i = 1; i < 6; ++i) {
        if (std::abs(kCubeSteps[i] - value) < std::abs(kCubeSteps[nearest] - value)) nearest = i;
    }
    return nearest;
}

int byteOf(float component) {
    return static_cast<int>(std::lround(component * 255));
}

}  // namespace

bool isDumbTerminal() {
    const std::string terminal = environmentVariable("TERM");
    return terminal.empty() || terminal == "dumb";
}

ColorDepth colorDepth(ColorChoice choice, bool isTerminal) {
    if (choice == ColorChoice::never) return ColorDepth::none;
    if (choice == ColorChoice::automatic &&
        (!isTerminal || !environmentVariable("NO_COLOR").empty() || isDumbTerminal())) {
        return ColorDepth::none;
    }
    const std::string colors = environmentVariable("COLORTERM");
    return colors == "truecolor" || colors == "24bit" ? ColorDepth::full : ColorDepth::palette;
}

int nearestPaletteColor(int red, int green, int blue) {
    const auto distance = [&](int r, int g, int b) {
        return (r - red) * (r - red) + (g - green) * (g - green) + (b - blue) * (b - blue);
    };
    const int r = nearestCubeStep(red), g = nearestCubeStep(green), b = nearestCubeStep(blue);
    int nearest = kFirstCubeColor + 36 * r + 6 * g + b;
    int least = distance(kCubeSteps[r], kCubeSteps[g], kCubeSteps[b]);
    for (int i = 0; i < kGreys; ++i) {
        const int grey = 8 + 10 * i;
        if (distance(grey, grey, grey) < least) {
            least = distance(grey, grey, grey);
            nearest = kFirstGrey + i;
        }
    }
    return nearest;
}

std::string colored(std::string_view text, const Color& color, ColorDepth depth) {
    if (depth == ColorDepth::none) return std::string(text);
    const int red = byteOf(color.red), green = byteOf(color.green), blue = byteOf(color.blue);
    std::string shown = "\x1b[38;";
    if (depth == ColorDepth::full) {
        shown += "2;" + std::to_string(red) + ";" + std::to_string(green) + ";" + std::to_string(blue);
    } else {
        shown += "5;" + std::to_string(nearestPaletteColor(red, green, blue));
    }
    return shown.append("m").append(text).append("\x1b[0m");
}

std::string coloredBySize(std::string_view text, std::uint64_t size, ColorDepth depth) {
    Color color;
    TuvNodeFormatter::sizeStringColor(size, &color.red, &color.green, &color.blue, &color.alpha);
    return colored(text, color, depth);
}

}  // namespace kavaro
