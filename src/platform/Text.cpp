#include "platform/Text.h"

#include <glib.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <cstring>

#include "platform/CodePoint.h"

namespace kavaro {

namespace {

constexpr std::uint8_t kFirstNonASCII = 0x80;

constexpr std::uint8_t foldASCII(std::uint8_t byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<std::uint8_t>(byte + ('a' - 'A')) : byte;
}

// Bytes at both starts that are ASCII and equal, in whole words: paths of one folder have much in common.
std::size_t equalASCII(const char* a, const char* b, std::size_t length) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    std::size_t same = 0;
    for (; length - same >= sizeof kHighBits; same += sizeof kHighBits) {
        std::uint64_t one;
        std::uint64_t other;
        std::memcpy(&one, a + same, sizeof one);
        std::memcpy(&other, b + same, sizeof other);
        if (one != other || (one & kHighBits) != 0) break;
    }
    return same;
}

// One character of a text, folded: UTF-8 of up to three code points, or one byte that is not UTF-8 as it is.
class FoldedUnit {
  public:
    // Takes the character at `position` and moves behind it.
    void read(std::string_view text, std::size_t& position) {
        _read = 0;
        _size = 0;
        auto first = static_cast<std::uint8_t>(text[position]);
        if (first < kFirstNonASCII) {
            _bytes[_size++] = foldASCII(first);
            position++;
            return;
        }
        UChar32 codePoint = nextCodePoint(text, position);
        if (codePoint < 0) {
            _bytes[_size++] = first;
        } else {
            fold(codePoint);
        }
    }
    bool isUsedUp() const { return _read == _size; }
    std::uint8_t take() { return _bytes[static_cast<std::size_t>(_read++)]; }

  private:
    void fold(UChar32 codePoint) {
        // Most characters have no case, and the full rules are slow.
        if (!u_hasBinaryProperty(codePoint, UCHAR_CASE_SENSITIVE)) {
            U8_APPEND_UNSAFE(_bytes, _size, codePoint);
            return;
        }
        UChar source[U16_MAX_LENGTH];
        std::int32_t sourceLength = 0;
        U16_APPEND_UNSAFE(source, sourceLength, codePoint);
        UChar folded[kMostUnits];
        UErrorCode status = U_ZERO_ERROR;
        std::int32_t length = u_strFoldCase(folded, kMostUnits, source, sourceLength, U_FOLD_CASE_DEFAULT, &status);
        if (U_FAILURE(status) || length > kMostUnits) {
            U8_APPEND_UNSAFE(_bytes, _size, codePoint);
            return;
        }
        for (std::int32_t index = 0; index < length;) {
            UChar32 one = 0;
            U16_NEXT_UNSAFE(folded, index, one);
            U8_APPEND_UNSAFE(_bytes, _size, one);
        }
    }

    static constexpr std::int32_t kMostUnits = 8;
    std::uint8_t _bytes[kMostUnits * U8_MAX_LENGTH];
    std::int32_t _size = 0;
    std::int32_t _read = 0;
};

// The folded bytes of a text, one after another.
class FoldedReader {
  public:
    explicit FoldedReader(std::string_view text) : _text(text) {}
    bool isAtEnd() const { return _unit.isUsedUp() && _position == _text.size(); }
    std::uint8_t next() {
        if (_unit.isUsedUp()) _unit.read(_text, _position);
        return _unit.take();
    }

  private:
    std::string_view _text;
    std::size_t _position = 0;
    FoldedUnit _unit;
};

std::string folded(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (FoldedReader reader(text); !reader.isAtEnd();) result += static_cast<char>(reader.next());
    return result;
}

// Length in bytes of what folds to `key` at the start of `text`; 0 when it does not begin so.
std::size_t lengthOfMatch(std::string_view text, std::string_view key) {
    std::size_t position = 0;
    std::size_t matched = 0;
    FoldedUnit unit;
    while (matched < key.size()) {
        if (position == text.size()) return 0;
        unit.read(text, position);
        while (!unit.isUsedUp()) {
            if (matched == key.size() || unit.take() != static_cast<std::uint8_t>(key[matched])) return 0;
            matched++;
        }
    }
    return position;
}

// Longer texts are searched character by character; names have up to 255 bytes.
constexpr std::size_t kLongestFolded = 256;

// Writes the folded text and says whether it is all ASCII; what was written is of no use otherwise. One pass without
// branches, for the compiler to make vectors of.
bool foldedIfASCII(std::string_view text, std::uint8_t* result) {
    std::uint8_t seen = 0;
    for (std::size_t index = 0; index < text.size(); index++) {
        auto byte = static_cast<std::uint8_t>(text[index]);
        seen |= byte;
        result[index] = foldASCII(byte);
    }
    return seen < kFirstNonASCII;
}

bool steersTerminal(UChar32 codePoint) {
    if (codePoint < 0x20 || (codePoint >= 0x7f && codePoint < 0xa0)) return true;
    if (codePoint < 0x100) return false;
    return codePoint == 0x2028 || codePoint == 0x2029 || u_hasBinaryProperty(codePoint, UCHAR_BIDI_CONTROL);
}

}  // namespace

bool isValidUTF8(std::string_view text) {
    std::size_t position = 0;
    while (position < text.size()) {
        std::uint64_t eight = 0;
        if (text.size() - position >= sizeof eight) {
            std::memcpy(&eight, text.data() + position, sizeof eight);
            if ((eight & 0x8080808080808080u) == 0) {
                position += sizeof eight;
                continue;
            }
        }
        if (nextCodePoint(text, position) < 0) return false;
    }
    return true;
}

int compare(std::string_view a, std::string_view b) {
    return a.compare(b);
}

int caseInsensitiveCompare(std::string_view a, std::string_view b) {
    std::size_t common = std::min(a.size(), b.size());
    std::size_t same = equalASCII(a.data(), b.data(), common);
    for (; same < common; same++) {
        auto one = static_cast<std::uint8_t>(a[same]);
        auto other = static_cast<std::uint8_t>(b[same]);
        if ((one | other) >= kFirstNonASCII) break;
        if (int difference = foldASCII(one) - foldASCII(other)) return difference;
    }
    FoldedReader restA(a.substr(same));
    FoldedReader restB(b.substr(same));
    while (true) {
        if (restA.isAtEnd()) return restB.isAtEnd() ? 0 : -1;
        if (restB.isAtEnd()) return 1;
        if (int difference = restA.next() - restB.next()) return difference;
    }
}

std::size_t findCaseInsensitive(std::string_view text, std::string_view part, std::size_t* matchLength) {
    return CaseInsensitiveSearch(part).find(text, matchLength);
}

CaseInsensitiveSearch::CaseInsensitiveSearch(std::string_view part)
    : _key(folded(part)), _isASCII(std::all_of(_key.begin(), _key.end(), [](char c) { return !(c & 0x80); })) {}

std::size_t CaseInsensitiveSearch::find(std::string_view text, std::size_t* matchLength) const {
    std::uint8_t foldedText[kLongestFolded];
    if (text.size() > kLongestFolded || !foldedIfASCII(text, foldedText)) return findByCharacter(text, matchLength);
    // Folding an ASCII text moves nothing. It can hold no key with other characters, and an empty key is nowhere.
    const bool possible = _isASCII && !_key.empty();
    const std::string_view whole(reinterpret_cast<const char*>(foldedText), text.size());
    const std::size_t position = possible ? whole.find(_key) : std::string_view::npos;
    if (matchLength) *matchLength = position == std::string_view::npos ? 0 : _key.size();
    return position;
}

std::size_t CaseInsensitiveSearch::findByCharacter(std::string_view text, std::size_t* matchLength) const {
    if (matchLength) *matchLength = 0;
    if (_key.empty()) return std::string_view::npos;
    for (std::size_t position = 0; position < text.size();) {
        auto first = static_cast<std::uint8_t>(text[position]);
        if (first >= kFirstNonASCII || foldASCII(first) == static_cast<std::uint8_t>(_key[0])) {
            if (std::size_t length = lengthOfMatch(text.substr(position), _key)) {
                if (matchLength) *matchLength = length;
                return position;
            }
        }
        if (first < kFirstNonASCII) {
            position++;
        } else {
            nextCodePoint(text, position);
        }
    }
    return std::string_view::npos;
}

bool hasPrefixCaseInsensitive(std::string_view text, std::string_view prefix) {
    return prefix.empty() || lengthOfMatch(text, folded(prefix)) > 0;
}

std::string printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t position = 0; position < text.size();) {
        std::size_t start = position;
        UChar32 codePoint = nextCodePoint(text, position);
        if (codePoint >= 0 && !steersTerminal(codePoint)) {
            result.append(text.substr(start, position - start));
            continue;
        }
        if (codePoint == '\n') {
            result += "\\n";
            continue;
        }
        for (std::size_t index = start; index < position; index++) {
            constexpr char kDigits[] = "0123456789abcdef";
            auto byte = static_cast<std::uint8_t>(text[index]);
            result += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return result;
}

std::string base64(ByteView bytes) {
    if (bytes.empty()) return {};
    gchar* encoded = g_base64_encode(bytes.data(), bytes.size());
    std::string result(encoded);
    g_free(encoded);
    return result;
}

}  // namespace kavaro
