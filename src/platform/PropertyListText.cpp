// PropertyList::description(): the value as one line of text.
#include <time.h>

#include <charconv>
#include <cmath>

#include "platform/PropertyList.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

class Describer {
  public:
    void add(const PropertyList& value) {
        if (const auto* truth = value.as<bool>()) {
            _text += *truth ? '1' : '0';
        } else if (const auto* integer = value.as<std::int64_t>()) {
            _text += std::to_string(*integer);
        } else if (const auto* real = value.as<double>()) {
            addReal(*real);
        } else if (const auto* string = value.string()) {
            addString(*string);
        } else if (const auto* data = value.as<PropertyList::Data>()) {
            addData(*data);
        } else if (const auto* date = value.as<PropertyList::Date>()) {
            addDate(date->secondsSince1970);
        } else if (value.isNull()) {
            _text += "(null)";
        } else {
            addContainer(value);
        }
    }
    std::string& text() { return _text; }

  private:
    void addContainer(const PropertyList& value) {
        if (_depth == PropertyList::kDeepest) {
            _text += "...";
            return;
        }
        _depth++;
        if (const auto* elements = value.array()) {
            _text += "( ";
            for (const PropertyList& element : *elements) {
                if (&element != elements->data()) _text += ", ";
                add(element);
            }
            _text += elements->empty() ? ")" : " )";
        } else {
            _text += "{ ";
            for (const auto& [key, content] : *value.dictionary()) {
                addString(key);
                _text += " = ";
                add(content);
                _text += "; ";
            }
            _text += '}';
        }
        _depth--;
    }

    void addReal(double value) {
        char digits[32];
        auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
        _text.append(digits, end);
    }

    // Plain words stand as they are, everything else between quotes.
    void addString(std::string_view string) {
        auto isPlain = [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                   std::string_view("_$/:.-").find(c) != std::string_view::npos;
        };
        bool plain = !string.empty();
        for (char c : string) plain = plain && isPlain(c);
        if (plain) {
            _text += string;
            return;
        }
        std::string escaped;
        for (char c : string) {
            if (c == '"' || c == '\\') escaped += '\\';
            escaped += c;
        }
        _text += '"' + printable(escaped) + '"';
    }

    void addData(const PropertyList::Data& data) {
        constexpr char kDigits[] = "0123456789abcdef";
        _text += '<';
        for (std::uint8_t byte : data) _text += {kDigits[byte >> 4], kDigits[byte & 15]};
        _text += '>';
    }

    void addDate(double seconds) {
        constexpr double kFurthest = 1e15;  // beyond any year that the calendar functions can give
        tm parts{};
        auto whole = static_cast<time_t>(std::abs(seconds) < kFurthest ? std::floor(seconds) : 0);
        char line[64] = "";
        if (gmtime_r(&whole, &parts)) strftime(line, sizeof line, "%Y-%m-%d %H:%M:%S +0000", &parts);
        _text += line;
    }

    std::string _text;
    int _depth = 0;
};

}  // namespace

std::string PropertyList::description() const {
    Describer describer;
    describer.add(*this);
    return std::move(describer.text());
}

}  // namespace kavaro
