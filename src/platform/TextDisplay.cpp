#include "platform/TextDisplay.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace kavaro {

namespace {

constexpr std::size_t kLongestCharacter = 4;  // bytes
constexpr UChar32 kSoftHyphen = 0xAD;
constexpr UChar32 kFirstJamoVowel = 0x1160, kLastJamoFinal = 0x11FF;  // drawn into the syllable before them

std::size_t widthOf(UChar32 character) {
    if (character >= 0x20 && character < 0x7F) return 1;
    if (character < 0 || character == kSoftHyphen) return 1;
    if (character >= kFirstJamoVowel && character <= kLastJamoFinal) return 0;
    switch (u_charType(character)) {
        case U_NON_SPACING_MARK:
        case U_ENCLOSING_MARK:
        case U_FORMAT_CHAR:
            return 0;
        default:
            break;
    }
    const int width = u_getIntPropertyValue(character, UCHAR_EAST_ASIAN_WIDTH);
    return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

// Steps over one character, or over one piece that is not UTF-8 (negative then).
UChar32 nextCharacter(std::string_view text, std::size_t* at) {
    const char* bytes = text.data() + *at;
    const auto length = static_cast<std::int32_t>(std::min(text.size() - *at, kLongestCharacter));
    std::int32_t index = 0;
    UChar32 character;
    U8_NEXT(bytes, index, length, character);
    *at += static_cast<std::size_t>(index);
    return character;
}

struct Piece {  // a character with the marks that follow it
    std::size_t begin;
    std::size_t width;
};

}  // namespace

std::size_t displayWidth(std::string_view text) {
    std::size_t width = 0;
    for (std::size_t at = 0; at < text.size();) width += widthOf(nextCharacter(text, &at));
    return width;
}

std::string cutInMiddle(std::string_view text, std::size_t columns) {
    std::vector<Piece> pieces;
    std::size_t total = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t begin = at;
        const std::size_t width = widthOf(nextCharacter(text, &at));
        total += width;
        if (width > 0 || pieces.empty()) pieces.push_back({begin, width});
    }
    if (total <= columns) return std::string(text);
    if (columns == 0) return {};

    const std::size_t room = columns - 1;
    std::size_t head = 0, headWidth = 0;
    while (head < pieces.size() && headWidth + pieces[head].width <= (room + 1) / 2) headWidth += pieces[head++].width;
    std::size_t tail = pieces.size(), tailWidth = 0;
    while (tail > head && headWidth + tailWidth + pieces[tail - 1].width <= room) tailWidth += pieces[--tail].width;

    std::string cut(text.substr(0, head < pieces.size() ? pieces[head].begin : text.size()));
    cut += "…";
    if (tail < pieces.size()) cut += text.substr(pieces[tail].begin);
    return cut;
}

std::string validUTF8(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t begin = at;
        if (nextCharacter(text, &at) < 0) {
            valid += "\xEF\xBF\xBD";
        } else {
            valid += text.substr(begin, at - begin);
        }
    }
    return valid;
}

}  // namespace kavaro
