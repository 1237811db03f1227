#include "platform/PropertyListReader.h"

#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>
#include <vector>

namespace kavaro {

namespace {

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           (c != 0 && std::strchr("_$/:.-", c) != nullptr);
}

int hexadecimalDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isOctalDigit(char c) {
    return c >= '0' && c <= '7';
}

void appendCodePoint(std::string& text, UChar32 codePoint) {
    char bytes[U8_MAX_LENGTH];
    std::int32_t length = 0;
    U8_APPEND_UNSAFE(bytes, length, codePoint);
    text.append(bytes, static_cast<std::size_t>(length));
}

// Keys in the order in which they were first set, each with its last value. n log n: setting one after another would
// look each up in all before it.
PropertyList::Dictionary withKeysOnce(PropertyList::Dictionary entries) {
    std::vector<std::size_t> order(entries.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return entries[a].first < entries[b].first; });
    std::vector<bool> dropped(entries.size());
    bool any = false;
    for (std::size_t first = 0; first < order.size();) {
        std::size_t behind = first + 1;
        while (behind < order.size() && entries[order[behind]].first == entries[order[first]].first)
            dropped[order[behind++]] = true;
        if (behind - first > 1) {
            any = true;
            entries[order[first]].second = std::move(entries[order[behind - 1]].second);
        }
        first = behind;
    }
    if (!any) return entries;
    PropertyList::Dictionary kept;
    for (std::size_t index = 0; index < entries.size(); ++index)
        if (!dropped[index]) kept.push_back(std::move(entries[index]));
    return kept;
}

class Reader {
  public:
    explicit Reader(std::string_view text) : _text(text) {}

    std::optional<PropertyList> read() {
        PropertyList value;
        if (!readValue(value) || !skipBlanks()) return std::nullopt;
        if (!isAtEnd()) {
            fail("something follows the value");
            return std::nullopt;
        }
        return value;
    }
    PropertyListFault fault() const;

  private:
    struct Level {
        bool isDictionary;
        std::string key;  // whose value is being read
        PropertyList::Array elements;
        PropertyList::Dictionary entries;
    };
    enum class Step { value, done, failed };

    bool isAtEnd() const { return _position == _text.size(); }
    char current() const { return _position < _text.size() ? _text[_position] : '\0'; }
    bool fail(const char* reason) { return failAt(reason, _position); }
    bool failAt(const char* reason, std::size_t position) {
        _reason = reason;
        _faultPosition = position;
        return false;
    }

    bool skipBlanks();
    bool skipComment();
    bool readValue(PropertyList& value);
    bool beginContainer();
    Step continueContainer(PropertyList& finished);
    bool readKey(std::string& key);
    bool addToContainer(PropertyList value);
    bool readScalar(PropertyList& value);
    bool readData(PropertyList& value);
    bool readString(std::string& string);
    bool readEscape(std::string& string);
    bool readUnit(UChar32& unit);
    bool readWord(std::string& word);

    std::string_view _text;
    std::size_t _position = 0;
    std::vector<Level> _levels;
    const char* _reason = "";
    std::size_t _faultPosition = 0;
};

PropertyListFault Reader::fault() const {
    const std::string_view before = _text.substr(0, _faultPosition);
    const std::size_t lineEnd = before.rfind('\n');
    const std::size_t lineStart = lineEnd == std::string_view::npos ? 0 : lineEnd + 1;
    return {_reason, _faultPosition, 1 + static_cast<int>(std::count(before.begin(), before.end(), '\n')),
            1 + static_cast<int>(_faultPosition - lineStart)};
}

// Blanks and comments. False for a comment without an end.
bool Reader::skipBlanks() {
    while (!isAtEnd()) {
        if (isBlank(current())) {
            ++_position;
        } else if (current() == '/' && _position + 1 < _text.size() &&
                   (_text[_position + 1] == '/' || _text[_position + 1] == '*')) {
            if (!skipComment()) return false;
        } else {
            return true;
        }
    }
    return true;
}

bool Reader::skipComment() {
    const bool isLine = _text[_position + 1] == '/';
    const std::size_t end = _text.find(isLine ? "\n" : "*/", _position + 2);
    if (end == std::string_view::npos) {
        if (!isLine) return fail("the comment has no end");
        _position = _text.size();
    } else {
        _position = isLine ? end + 1 : end + 2;
    }
    return true;
}

// A value with all that is in it. Containers that are not finished wait in _levels.
bool Reader::readValue(PropertyList& value) {
    while (true) {
        if (!skipBlanks()) return false;
        if (isAtEnd()) return fail("a value is missing");
        PropertyList finished;
        if (current() == '{' || current() == '(') {
            if (!beginContainer()) return false;
        } else {
            if (!readScalar(finished)) return false;
            if (_levels.empty()) {
                value = std::move(finished);
                return true;
            }
            if (!addToContainer(std::move(finished))) return false;
        }
        Step step = continueContainer(finished);
        while (step == Step::done) {
            if (_levels.empty()) {
                value = std::move(finished);
                return true;
            }
            if (!addToContainer(std::move(finished))) return false;
            step = continueContainer(finished);
        }
        if (step == Step::failed) return false;
    }
}

bool Reader::beginContainer() {
    if (_levels.size() == static_cast<std::size_t>(PropertyList::kDeepest)) return fail("nested too deeply");
    _levels.push_back({current() == '{', {}, {}, {}});
    ++_position;
    return true;
}

// Up to where the next value of the innermost container begins, or behind its end.
Reader::Step Reader::continueContainer(PropertyList& finished) {
    if (!skipBlanks()) return Step::failed;
    Level& level = _levels.back();
    if (isAtEnd()) {
        fail(level.isDictionary ? "the dictionary has no end" : "the array has no end");
        return Step::failed;
    }
    if (current() != (level.isDictionary ? '}' : ')')) {
        if (level.isDictionary && !readKey(level.key)) return Step::failed;
        return Step::value;
    }
    ++_position;
    if (level.isDictionary)
        finished = PropertyList(withKeysOnce(std::move(level.entries)));
    else
        finished = PropertyList(std::move(level.elements));
    _levels.pop_back();
    return Step::done;
}

bool Reader::readKey(std::string& key) {
    key.clear();
    const bool quoted = current() == '"' || current() == '\'';
    if (!quoted && !isWordCharacter(current())) return fail("a key is missing");
    if (!(quoted ? readString(key) : readWord(key)) || !skipBlanks()) return false;
    if (current() != '=') return fail("'=' is missing");
    ++_position;
    return true;
}

// And takes what separates it from the next one.
bool Reader::addToContainer(PropertyList value) {
    Level& level = _levels.back();
    if (!skipBlanks()) return false;
    if (level.isDictionary) {
        if (current() != ';') return fail("';' is missing");
        ++_position;
        level.entries.emplace_back(std::move(level.key), std::move(value));
        return true;
    }
    if (current() == ',')
        ++_position;
    else if (current() != ')')
        return fail("',' or ')' is missing");
    level.elements.push_back(std::move(value));
    return true;
}

bool Reader::readScalar(PropertyList& value) {
    if (current() == '<') return readData(value);
    std::string text;
    if (current() == '"' || current() == '\'') {
        if (!readString(text)) return false;
    } else if (isWordCharacter(current())) {
        if (!readWord(text)) return false;
    } else {
        return fail("a character that needs quotation marks");
    }
    value = PropertyList(std::move(text));
    return true;
}

bool Reader::readData(PropertyList& value) {
    const std::size_t start = _position++;
    PropertyList::Data data;
    int first = -1;
    for (;; ++_position) {
        if (isAtEnd()) return failAt("the data has no end", start);
        if (isBlank(current())) continue;
        if (current() == '>') break;
        const int digit = hexadecimalDigit(current());
        if (digit < 0) return fail("data is written in hexadecimal digits");
        if (first < 0) {
            first = digit;
        } else {
            data.push_back(static_cast<std::uint8_t>(first * 16 + digit));
            first = -1;
        }
    }
    if (first >= 0) return fail("data has two digits a byte");
    ++_position;
    value = PropertyList(std::move(data));
    return true;
}

bool Reader::readString(std::string& string) {
    const std::size_t start = _position;
    const char quote = _text[_position++];
    while (true) {
        const std::size_t stop = std::min(_text.find_first_of(quote == '"' ? "\"\\" : "'\\", _position), _text.size());
        string.append(_text.substr(_position, stop - _position));
        _position = stop;
        if (isAtEnd()) return failAt("the quotation has no end", start);
        if (_text[_position] == quote) break;
        if (_position + 1 == _text.size()) return failAt("the quotation has no end", start);
        if (!readEscape(string)) return false;
    }
    ++_position;
    return true;
}

// REQUIRES: a backslash and something behind it.
bool Reader::readEscape(std::string& string) {
    constexpr std::string_view kLetters = "abfnrtv";
    constexpr std::string_view kMeanings = "\a\b\f\n\r\t\v";
    const std::size_t start = _position++;
    const char letter = _text[_position];
    if (isOctalDigit(letter)) {
        int byte = 0;
        for (int digits = 0; digits < 3 && isOctalDigit(current()); ++digits)
            byte = byte * 8 + (_text[_position++] - '0');
        if (byte > 0xff) return failAt("no byte has this number", start);
        string += static_cast<char>(byte);
        return true;
    }
    ++_position;
    if (letter != 'U') {
        const std::size_t known = kLetters.find(letter);
        string += known == std::string_view::npos ? letter : kMeanings[known];
        return true;
    }
    UChar32 unit = 0;
    if (!readUnit(unit)) return failAt("\\U without digits", start);
    if (U16_IS_LEAD(unit) && _text.substr(_position, 2) == "\\U") {
        UChar32 second = 0;
        _position += 2;
        if (!readUnit(second) || !U16_IS_TRAIL(second)) return failAt("half a character", start);
        unit = U16_GET_SUPPLEMENTARY(unit, second);
    }
    if (U_IS_SURROGATE(unit)) return failAt("half a character", start);
    appendCodePoint(string, unit);
    return true;
}

bool Reader::readUnit(UChar32& unit) {
    int digits = 0;
    for (; digits < 4 && hexadecimalDigit(current()) >= 0; ++digits)
        unit = unit * 16 + hexadecimalDigit(_text[_position++]);
    return digits > 0;
}

bool Reader::readWord(std::string& word) {
    const std::size_t start = _position;
    while (!isAtEnd() && isWordCharacter(current())) ++_position;
    word = _text.substr(start, _position - start);
    return true;
}

}  // namespace

std::string PropertyListFault::description() const {
    return reason + " (line " + std::to_string(line) + ", column " + std::to_string(column) + ")";
}

std::optional<PropertyList> propertyListFromText(std::string_view text, PropertyListFault* fault) {
    Reader reader(text);
    std::optional<PropertyList> value = reader.read();
    if (!value && fault) *fault = reader.fault();
    return value;
}

}  // namespace kavaro
