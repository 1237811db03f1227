#include "platform/PropertyListGuard.h"

#include <algorithm>
#include <vector>

#include "platform/PropertyList.h"

namespace kavaro {

namespace {

constexpr std::size_t kNone = std::string_view::npos;

// Counts tags. Wherever this scanner and the parser could disagree on what is a tag, it refuses.
class XMLScanner {
  public:
    explicit XMLScanner(std::string_view text) : _text(text) {}

    bool isSafe() {
        while (true) {
            _position = _text.find('<', _position);
            if (_position == kNone) return _closed && _depth == 0;
            if (!skipOne()) return false;
        }
    }

  private:
    bool skipOne() {
        std::string_view rest = _text.substr(_position);
        if (rest.starts_with("<!--")) {
            // "<!-->" and "<!---->" are read differently by different parsers.
            std::size_t end = rest.find("-->", 2);
            return end != kNone && end > 4 && moveBy(end + 3);
        }
        if (rest.starts_with("<![CDATA[")) return moveBehind("]]>");
        if (rest.starts_with("<?")) {
            // The parser sees no end within double quotes.
            const std::size_t end = rest.find("?>");
            return end != kNone && std::ranges::count(rest.substr(0, end), '"') % 2 == 0 && moveBy(end + 2);
        }
        std::size_t end = endOfTag(rest);
        if (end == kNone) return false;
        if (rest.starts_with("<!")) {
            if (rest.substr(0, end).find('[') != kNone) return false;  // brings its own grammar
        } else if (!countTag(rest.substr(1, end - 1))) {
            return false;
        }
        return moveBy(end + 1);
    }

    bool moveBy(std::size_t length) {
        _position += length;
        return true;
    }
    bool moveBehind(std::string_view mark) {
        std::size_t end = _text.find(mark, _position);
        if (end == kNone) return false;
        _position = end + mark.size();
        return true;
    }

    // The parser knows double quotes alone, others know both kinds: where that makes a difference there is no end.
    static std::size_t endOfTag(std::string_view rest) {
        const std::size_t end = endOfTag(rest, "\"");
        return end == endOfTag(rest, "\"'") ? end : kNone;
    }

    // Position of the '>' outside of quotes; none when a '<' comes first.
    static std::size_t endOfTag(std::string_view rest, std::string_view quotes) {
        char quote = 0;
        for (std::size_t index = 1; index < rest.size(); index++) {
            char c = rest[index];
            if (c == '<') return kNone;
            if (quote) {
                if (c == quote) quote = 0;
            } else if (quotes.find(c) != kNone) {
                quote = c;
            } else if (c == '>') {
                return index;
            }
        }
        return kNone;
    }

    // `tag` is what stands between '<' and '>'.
    bool countTag(std::string_view tag) {
        bool closing = tag.starts_with('/');
        bool empty = !closing && tag.ends_with('/');
        if (closing) tag.remove_prefix(1);
        std::string_view name = tag.substr(0, tag.find_first_of(" \t\r\n/"));
        if (!_opened && (closing || name != "plist")) return false;
        if (name == "plist") {
            if (closing ? _closed || _depth != 0 : _opened || empty) return false;
            (closing ? _closed : _opened) = true;
            return true;
        }
        if (_closed) return false;
        if (empty || (name != "array" && name != "dict")) return true;
        _depth += closing ? -1 : 1;
        return _depth >= 0 && _depth <= PropertyList::kDeepest;
    }

    std::string_view _text;
    std::size_t _position = 0;
    int _depth = 0;
    bool _opened = false;
    bool _closed = false;
};

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;
constexpr std::uint64_t kAlwaysGranted = std::uint64_t{16} << 20;

class BinaryScanner {
  public:
    explicit BinaryScanner(ByteView bytes) : _bytes(bytes) {}

    bool isSafe() {
        if (!readTrailer()) return false;
        _objects.resize(_count);
        if (!open(_root)) return false;
        while (!_path.empty()) {
            if (!step()) return false;
        }
        return isGranted(_objects[_root]);
    }

  private:
    enum class State : std::uint8_t { unseen, open, done };
    struct Object {
        std::uint64_t unfoldedObjects = 0;
        std::uint64_t unfoldedBytes = 0;
        int height = 0;  // containers within each other, itself included
        State state = State::unseen;
    };
    // A container that is being looked through.
    struct Level {
        std::uint64_t object;
        std::size_t references;
        std::uint64_t count;
        std::uint64_t next;
    };

    bool isGranted(const Object& object) const {
        return object.unfoldedObjects <= _bytes.size() &&
               object.unfoldedBytes <= kAlwaysGranted + 4 * std::uint64_t{_bytes.size()};
    }

    std::uint64_t read(std::size_t position, std::size_t width) const {
        std::uint64_t value = 0;
        for (std::size_t index = 0; index < width; index++) value = value << 8 | _bytes[position + index];
        return value;
    }

    bool readTrailer() {
        if (_bytes.size() < kHeaderSize + kTrailerSize) return false;
        std::size_t trailer = _bytes.size() - kTrailerSize;
        _offsetWidth = _bytes[trailer + 6];
        _referenceWidth = _bytes[trailer + 7];
        _count = read(trailer + 8, 8);
        _root = read(trailer + 16, 8);
        std::uint64_t table = read(trailer + 24, 8);
        if (_offsetWidth < 1 || _offsetWidth > 8 || _referenceWidth < 1 || _referenceWidth > 8) return false;
        if (table < kHeaderSize || table > trailer || _root >= _count) return false;
        if (_count > (trailer - table) / _offsetWidth) return false;
        _table = static_cast<std::size_t>(table);
        return true;
    }

    // Takes an object up: a leaf is done at once, a container becomes the innermost level.
    bool open(std::uint64_t index) {
        Object& object = _objects[index];
        if (object.state != State::unseen) return object.state == State::done;
        std::uint64_t offset = read(_table + static_cast<std::size_t>(index) * _offsetWidth, _offsetWidth);
        if (offset < kHeaderSize || offset >= _table) return false;
        auto position = static_cast<std::size_t>(offset);
        std::uint8_t marker = _bytes[position++];
        std::uint64_t length = marker & 15;
        int kind = marker >> 4;
        bool counted = kind >= 4 && kind != 8;
        if (counted && length == 15 && !readLength(position, length)) return false;
        object.unfoldedObjects = 1;
        switch (kind) {
            case 4:  // data
            case 5:  // ASCII
            case 7:  // UTF-8
                object.unfoldedBytes = length;
                break;
            case 6:  // UTF-16: up to three bytes a unit
                if (length > _table) return false;
                object.unfoldedBytes = 3 * length;
                break;
            case 10:  // array
            case 11:
            case 12:  // sets
                return openContainer(index, position, length);
            case 13:  // dictionary: keys, then values
                return length <= _table && openContainer(index, position, 2 * length);
            default:
                break;
        }
        object.state = State::done;
        return object.unfoldedBytes <= 3 * std::uint64_t{_table};
    }

    // A length above 14 follows as an integer object.
    bool readLength(std::size_t& position, std::uint64_t& length) const {
        if (position >= _table) return false;
        std::uint8_t marker = _bytes[position++];
        std::size_t width = std::size_t{1} << (marker & 15);
        if (marker >> 4 != 1 || width > 8 || width > _table - position) return false;
        length = read(position, width);
        position += width;
        return true;
    }

    bool openContainer(std::uint64_t index, std::size_t position, std::uint64_t count) {
        if (_path.size() == PropertyList::kDeepest || count > (_table - position) / _referenceWidth) return false;
        _objects[index].state = State::open;
        _objects[index].height = 1;
        _path.push_back({index, position, count, 0});
        return true;
    }

    // Goes on with the innermost container by one reference, or closes it.
    bool step() {
        Level& level = _path.back();
        Object& container = _objects[level.object];
        if (level.next == level.count) {
            container.state = State::done;
            _path.pop_back();
            return true;
        }
        std::uint64_t child =
            read(level.references + static_cast<std::size_t>(level.next) * _referenceWidth, _referenceWidth);
        if (child >= _count) return false;
        if (_objects[child].state == State::done) {
            level.next++;
            container.unfoldedObjects += _objects[child].unfoldedObjects;
            container.unfoldedBytes += _objects[child].unfoldedBytes;
            container.height = std::max(container.height, _objects[child].height + 1);
            return isGranted(container) && container.height <= PropertyList::kDeepest;
        }
        return open(child);
    }

    ByteView _bytes;
    std::size_t _table = 0;  // where the objects end and their offsets begin
    std::size_t _offsetWidth = 0;
    std::size_t _referenceWidth = 0;
    std::uint64_t _count = 0;
    std::uint64_t _root = 0;
    std::vector<Object> _objects;
    std::vector<Level> _path;
};

}  // namespace

bool isSafeXMLPropertyList(std::string_view text) {
    // The parser takes a name to end at a NUL byte, which XML never has.
    return text.find('\0') == kNone && XMLScanner(text).isSafe();
}

bool isSafeBinaryPropertyList(ByteView bytes) {
    return BinaryScanner(bytes).isSafe();
}

}  // namespace kavaro
