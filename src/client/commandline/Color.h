#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Color.h"

namespace kavaro {

enum class ColorChoice { automatic, always, never };
enum class ColorDepth { none, palette, full };  // palette: the 256 colours that terminals agree on

// What TERM says of the terminal: it cannot be steered, or nothing.
bool isDumbTerminal();

// Looks at NO_COLOR, TERM and COLORTERM. `always` overrules NO_COLOR.
ColorDepth colorDepth(ColorChoice choice, bool isTerminal);

std::string colored(std::string_view text, const Color& color, ColorDepth depth);
// In the colour of a size in bytes.
std::string coloredBySize(std::string_view text, std::uint64_t size, ColorDepth depth);

// Nearest of the 256: the colour cube (16 to 231) or a grey (232 to 255).
int nearestPaletteColor(int red, int green, int blue);

}  // namespace kavaro
