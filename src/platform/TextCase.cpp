#include "platform/TextCase.h"

#include <unicode/uchar.h>

#include "platform/CodePoint.h"

namespace kavaro {

namespace {

bool separatesWords(UChar32 codePoint) {
    return codePoint == ' ' || (codePoint >= '\t' && codePoint <= '\r') || codePoint == 0x85 || codePoint == 0x2028 ||
           codePoint == 0x2029;
}

void append(std::string& text, UChar32 codePoint) {
    char bytes[U8_MAX_LENGTH];
    std::size_t size = 0;
    U8_APPEND_UNSAFE(bytes, size, codePoint);
    text.append(bytes, size);
}

// The text with `change(codePoint)` in the place of each character.
template <class Change>
std::string changed(std::string_view text, Change change) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t begin = at;
        const UChar32 codePoint = nextCodePoint(text, at);
        const UChar32 other = change(codePoint);
        if (codePoint < 0 || other == codePoint) {
            result += text.substr(begin, at - begin);
        } else {
            append(result, other);
        }
    }
    return result;
}

}  // namespace

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t at = 0; at < text.size(); ++count) nextCodePoint(text, at);
    return count;
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
    std::size_t at = 0;
    for (; count > 0 && at < text.size(); --count) nextCodePoint(text, at);
    return text.substr(0, at);
}

std::string lowercaseString(std::string_view text) {
    return changed(text, [](UChar32 codePoint) { return codePoint < 0 ? codePoint : u_tolower(codePoint); });
}

std::string capitalizedString(std::string_view text) {
    bool atStart = true;
    return changed(text, [&](UChar32 codePoint) {
        const bool isFirst = atStart;
        atStart = separatesWords(codePoint);
        if (codePoint < 0) return codePoint;
        return isFirst ? u_totitle(codePoint) : u_tolower(codePoint);
    });
}

}  // namespace kavaro
