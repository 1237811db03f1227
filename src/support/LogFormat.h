#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace kavaro {

// Anything that can name itself in a log line with %@.
template <class T>
concept Describable = requires(const T& object) {
    { object.description() } -> std::convertible_to<std::string>;
};

template <class T>
concept TextLike = std::convertible_to<const T&, std::string_view>;

// A text that may be absent, which prints as "(null)".
template <class T>
concept OptionalText = requires(const T& text) {
    { text.has_value() } -> std::same_as<bool>;
    { *text } -> std::convertible_to<std::string_view>;
};

template <class T>
concept ObjectLike = Describable<std::remove_cvref_t<T>> ||
    (std::is_pointer_v<std::remove_cvref_t<T>>&&
         Describable<std::remove_cv_t<std::remove_pointer_t<std::remove_cvref_t<T>>>>);

// One captured argument of a log call. Texts are borrowed for the duration of the call. An absent text or object (null
// pointer, view without data, empty optional) prints as "(null)".
struct LogArgument {
    enum class Kind : std::uint8_t { signedInteger, unsignedInteger, real, pointer, text };
    static constexpr std::string_view kAbsent = "(null)";

    Kind kind = Kind::text;
    std::uint8_t bytes = 8;  // width of an integer: what a negative one shows in hexadecimal
    union {
        std::int64_t i;
        std::uint64_t u;
        double d;
    } number{};
    std::string_view text;
    std::string owned;  // backs `text` when the argument had to describe itself

    template <class T>
    static LogArgument of(const T& value) {
        LogArgument argument;
        if constexpr (std::is_enum_v<T>) {
            return of(static_cast<std::underlying_type_t<T>>(value));
        } else if constexpr (std::is_floating_point_v<T>) {
            argument.kind = Kind::real;
            argument.number.d = static_cast<double>(value);
        } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
            argument.kind = Kind::signedInteger;
            argument.bytes = sizeof(T);
            argument.number.i = value;
        } else if constexpr (std::is_integral_v<T>) {
            argument.kind = Kind::unsignedInteger;
            argument.number.u = value;
        } else if constexpr (std::is_null_pointer_v<T>) {
            argument.text = kAbsent;
        } else if constexpr (OptionalText<T>) {
            argument.text = value ? std::string_view(*value) : kAbsent;
        } else if constexpr (TextLike<T>) {
            if constexpr (std::is_pointer_v<T>) {
                argument.text = value ? std::string_view(value) : kAbsent;
            } else {
                argument.text = value;
                if (!argument.text.data()) argument.text = kAbsent;
            }
        } else if constexpr (std::is_pointer_v<T> && ObjectLike<T>) {
            if (value)
                argument.owned = value->description();
            else
                argument.text = kAbsent;
        } else if constexpr (ObjectLike<T>) {
            argument.owned = value.description();
        } else {
            static_assert(std::is_pointer_v<T>, "a log argument is a number, a text, an object or a pointer");
            argument.kind = Kind::pointer;
            argument.number.u = reinterpret_cast<std::uintptr_t>(value);
        }
        return argument;
    }
};

namespace logformat {

enum class Class { integer, real, text, pointer };

template <class T>
constexpr Class classOf() {
    using U = std::remove_cvref_t<T>;
    if constexpr (std::is_floating_point_v<U>)
        return Class::real;
    else if constexpr (std::is_integral_v<U> || std::is_enum_v<U>)
        return Class::integer;
    else if constexpr (TextLike<U> || OptionalText<U> || ObjectLike<U> || std::is_null_pointer_v<U>)
        return Class::text;
    else
        return Class::pointer;
}

// One conversion of a format: everything between '%' and its letter, both included.
struct Conversion {
    std::string_view flagsWidthPrecision;  // without the length modifiers
    char letter = 0;                       // 0: malformed
};

constexpr Conversion parseConversion(std::string_view text, std::size_t& position) {
    std::size_t start = ++position;
    while (position < text.size() && std::string_view("-+ #0123456789.").find(text[position]) != std::string_view::npos)
        ++position;
    Conversion conversion{text.substr(start, position - start), 0};
    while (position < text.size() && std::string_view("hlqzjt").find(text[position]) != std::string_view::npos)
        ++position;
    if (position < text.size()) conversion.letter = text[position++];
    return conversion;
}

constexpr bool fits(char letter, Class argument) {
    switch (letter) {
        case 'd':
        case 'i':
        case 'u':
        case 'o':
        case 'c':
            return argument == Class::integer;
        case 'x':
        case 'X':
            return argument == Class::integer || argument == Class::pointer;
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
            return argument == Class::real;
        case 's':
        case '@':
            return argument == Class::text;
        case 'p':
            return argument == Class::pointer;
        default:
            return false;
    }
}

inline void formatDoesNotFitItsArguments() {}  // not constexpr: reaching it is the compiler's error

}  // namespace logformat

// A printf format, with %@ for texts and objects, that the compiler has checked against its arguments.
template <class... Arguments>
class LogFormat {
  public:
    template <class Text>
    requires std::convertible_to<const Text&, std::string_view>
    consteval LogFormat(const Text& text) : _text(text) {
        constexpr std::size_t count = sizeof...(Arguments);
        const logformat::Class classes[count + 1] = {logformat::classOf<Arguments>()..., logformat::Class::text};
        std::size_t used = 0;
        for (std::size_t i = 0; i < _text.size();) {
            if (_text[i] != '%') {
                ++i;
            } else if (i + 1 < _text.size() && _text[i + 1] == '%') {
                i += 2;
            } else {
                auto conversion = logformat::parseConversion(_text, i);
                if (used >= count || !logformat::fits(conversion.letter, classes[used]))
                    logformat::formatDoesNotFitItsArguments();
                ++used;
            }
        }
        if (used != count) logformat::formatDoesNotFitItsArguments();
    }
    constexpr std::string_view text() const { return _text; }

  private:
    std::string_view _text;
};

// The text of a checked format.
std::string formatText(std::string_view format, const LogArgument* arguments, std::size_t count);

template <class... Arguments>
std::string formatted(LogFormat<std::type_identity_t<Arguments>...> format, const Arguments&... arguments) {
    const LogArgument captured[sizeof...(Arguments) + 1] = {LogArgument::of(arguments)..., LogArgument()};
    return formatText(format.text(), captured, sizeof...(Arguments));
}

}  // namespace kavaro
