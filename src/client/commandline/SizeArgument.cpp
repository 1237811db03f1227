#include "client/commandline/SizeArgument.h"

#include <string>

#include "platform/Text.h"
#include "support/StringHelpers.h"
#include "support/Units.h"

namespace kavaro {

namespace {

// Bytes of one unit, 0 when there is no such unit.
std::uint64_t bytesOfUnit(std::string_view unit) {
    static constexpr struct {
        std::string_view name;
        std::uint64_t bytes;
    } kUnits[] = {{"", 1},       {"b", 1},       {"byte", 1},   {"bytes", 1},   {"k", Tuv_KB}, {"kb", Tuv_KB},
                  {"m", Tuv_MB}, {"mb", Tuv_MB}, {"g", Tuv_GB}, {"gb", Tuv_GB}, {"t", Tuv_TB}, {"tb", Tuv_TB}};
    for (const auto& known : kUnits)
        if (caseInsensitiveCompare(known.name, unit) == 0) return known.bytes;
    return 0;
}

}  // namespace

std::optional<std::uint64_t> readSize(std::string_view given) {
    const std::string text = trimWhiteSpace(given);
    const auto isDigit = [&](std::size_t at) { return at < text.size() && text[at] >= '0' && text[at] <= '9'; };
    std::size_t at = 0;
    std::uint64_t whole = 0;
    if (!isDigit(at)) return std::nullopt;
    for (; isDigit(at); ++at) {
        if (__builtin_mul_overflow(whole, 10, &whole)) return std::nullopt;
        if (__builtin_add_overflow(whole, static_cast<std::uint64_t>(text[at] - '0'), &whole)) return std::nullopt;
    }
    double fraction = 0;
    if (at < text.size() && text[at] == '.') {
        if (!isDigit(++at)) return std::nullopt;
        for (double place = 0.1; isDigit(at); ++at, place /= 10) fraction += place * (text[at] - '0');
    }
    const std::uint64_t unit = bytesOfUnit(trimWhiteSpace(std::string_view(text).substr(at)));
    std::uint64_t bytes = 0;
    if (unit == 0 || __builtin_mul_overflow(whole, unit, &bytes)) return std::nullopt;
    const auto rest = static_cast<std::uint64_t>(fraction * static_cast<double>(unit));
    return __builtin_add_overflow(bytes, rest, &bytes) ? std::nullopt : std::optional(bytes);
}

}  // namespace kavaro
