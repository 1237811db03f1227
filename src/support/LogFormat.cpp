#include "support/LogFormat.h"

#include <locale.h>
#include <cstdio>

namespace kavaro {

namespace {

using logformat::Conversion;

int number(std::string_view digits) {
    int value = 0;
    for (char c : digits) {
        if (c < '0' || c > '9') break;
        if (value < 100000) value = value * 10 + (c - '0');
    }
    return value;
}

void appendText(std::string& out, std::string_view flags, std::string_view text) {
    const bool left = flags.find('-') != std::string_view::npos;
    const std::size_t digits = flags.find_first_of("123456789.");
    std::size_t width = 0;
    if (digits != std::string_view::npos) {
        const std::string_view rest = flags.substr(digits);
        const std::size_t point = rest.find('.');
        width = static_cast<std::size_t>(number(rest.substr(0, point)));
        if (point != std::string_view::npos)
            text = text.substr(0, static_cast<std::size_t>(number(rest.substr(point + 1))));
    }
    const std::size_t padding = width > text.size() ? width - text.size() : 0;
    if (!left) out.append(padding, ' ');
    out.append(text);
    if (left) out.append(padding, ' ');
}

template <class Value>
void appendNumber(std::string& out, std::string_view flags, const char* ending, Value value) {
    char specification[48];
    if (flags.size() > 32) return;
    std::snprintf(specification, sizeof specification, "%%%.*s%s", static_cast<int>(flags.size()), flags.data(),
                  ending);
    char text[512];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::snprintf(text, sizeof text, specification, value);
#pragma GCC diagnostic pop
    if (length > 0)
        out.append(text,
                   static_cast<std::size_t>(length) < sizeof text ? static_cast<std::size_t>(length) : sizeof text - 1);
}

void appendInteger(std::string& out, const Conversion& conversion, const LogArgument& argument) {
    const bool isSigned = argument.kind == LogArgument::Kind::signedInteger;
    char ending[4] = {'l', 'l', conversion.letter, 0};
    std::uint64_t value = argument.number.u;
    switch (conversion.letter) {
        case 'c': {
            const char character = static_cast<char>(value);
            appendText(out, conversion.flagsWidthPrecision, std::string_view(&character, 1));
            return;
        }
        case 'd':
        case 'i':
        case 'u':
            // The value is printed, whatever the letter's sign: an inode above 2^31 does not turn negative.
            ending[2] = isSigned ? 'd' : 'u';
            break;
        default:
            if (isSigned && argument.bytes < 8) value &= (std::uint64_t{1} << (8 * argument.bytes)) - 1;
    }
    appendNumber(out, conversion.flagsWidthPrecision, ending, static_cast<unsigned long long>(value));
}

void appendReal(std::string& out, const Conversion& conversion, const LogArgument& argument) {
    // A decimal point in every locale. Never freed: lines may come until the very end.
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", locale_t{});
    const locale_t current = uselocale(plain);
    const char ending[2] = {conversion.letter, 0};
    appendNumber(out, conversion.flagsWidthPrecision, ending, argument.number.d);
    uselocale(current);
}

void append(std::string& out, const Conversion& conversion, const LogArgument& argument) {
    const std::string_view flags = conversion.flagsWidthPrecision;
    switch (argument.kind) {
        case LogArgument::Kind::text:
            appendText(out, flags, argument.text.data() ? argument.text : std::string_view(argument.owned));
            break;
        case LogArgument::Kind::real:
            appendReal(out, conversion, argument);
            break;
        case LogArgument::Kind::pointer:
            if (conversion.letter == 'p') {
                char text[24];
                const int length =
                    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(argument.number.u));
                appendText(out, flags, std::string_view(text, static_cast<std::size_t>(length)));
                break;
            }
            [[fallthrough]];
        case LogArgument::Kind::signedInteger:
        case LogArgument::Kind::unsignedInteger:
            appendInteger(out, conversion, argument);
            break;
    }
}

}  // namespace

std::string formatText(std::string_view format, const LogArgument* arguments, std::size_t count) {
    std::string out;
    out.reserve(format.size() + 64);
    std::size_t used = 0;
    for (std::size_t i = 0; i < format.size();) {
        const std::size_t percent = format.find('%', i);
        out.append(format.substr(i, percent - i));
        if (percent == std::string_view::npos) break;
        i = percent;
        if (i + 1 < format.size() && format[i + 1] == '%') {
            out += '%';
            i += 2;
            continue;
        }
        const Conversion conversion = logformat::parseConversion(format, i);
        if (used < count) append(out, conversion, arguments[used++]);
    }
    return out;
}

}  // namespace kavaro
