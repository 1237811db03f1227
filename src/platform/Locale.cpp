#include "platform/Locale.h"

#include <unicode/uldnames.h>
#include <unicode/uloc.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/Localization.h"

namespace kavaro {

namespace {

constexpr const char* kEnglish = "en";
constexpr std::size_t kLongestCode = 8;  // letters

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The letters in lower case; empty for what is no code.
std::string normalizedCode(std::string_view code) {
    if (code.size() < 2 || code.size() > kLongestCode || !std::all_of(code.begin(), code.end(), isLetter)) return {};
    std::string normalized(code);
    for (char& c : normalized) c = static_cast<char>(c | 0x20);
    return normalized;
}

std::string languageOf(const std::string& identifier) {
    char language[ULOC_LANG_CAPACITY];
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t length = uloc_getLanguage(identifier.c_str(), language, sizeof language, &status);
    return U_SUCCESS(status) && length < static_cast<std::int32_t>(sizeof language) ? language : "";
}

// "sr_RS@latin" -> "sr_Latn_RS", "de_AT@euro" -> "de_AT"
std::string withScript(const std::string& name) {
    constexpr std::pair<std::string_view, std::string_view> kScripts[] = {
        {"arabic", "Arab"}, {"cyrillic", "Cyrl"}, {"devanagari", "Deva"}, {"latin", "Latn"}};
    const std::size_t at = name.find('@');
    std::string plain = name.substr(0, at);
    if (at == std::string::npos) return plain;
    for (const auto& [modifier, script] : kScripts) {
        if (name.substr(at + 1) == modifier)
            plain.insert(std::min(plain.find('_'), plain.size()), "_" + std::string(script));
    }
    return plain;
}

std::optional<std::string> nameOf(const ULocaleDisplayNames* names, const std::string& code) {
    UChar text[256];
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t length = uldn_languageDisplayName(names, code.c_str(), text, std::size(text), &status);
    if (U_FAILURE(status) || length <= 0 || length > static_cast<std::int32_t>(std::size(text))) return {};
    char bytes[3 * std::size(text) + 1];
    std::int32_t size = 0;
    u_strToUTF8(bytes, sizeof bytes, &size, text, length, &status);
    if (U_FAILURE(status)) return {};
    return std::string(bytes, static_cast<std::size_t>(size));
}

}  // namespace

void Locale::Close::operator()(ULocaleDisplayNames* names) const {
    uldn_close(names);
}

const Locale& Locale::current() {
    static const Locale locale = [] {
        for (const std::string& language : userLanguages()) {
            std::string identifier = withScript(language);
            if (hasNames(identifier)) return Locale(std::move(identifier));
        }
        return Locale(kEnglish);
    }();
    return locale;
}

std::vector<std::string> Locale::availableLocaleIdentifiers() {
    std::vector<std::string> identifiers;
    const std::int32_t count = uloc_countAvailable();
    for (std::int32_t i = 0; i < count; ++i) identifiers.emplace_back(uloc_getAvailable(i));
    return identifiers;
}

bool Locale::hasNames(std::string_view identifier) {
    const std::string language = languageOf(std::string(identifier));
    if (language.empty()) return false;
    const std::int32_t count = uloc_countAvailable();
    for (std::int32_t i = 0; i < count; ++i) {
        if (language == uloc_getAvailable(i)) return true;
    }
    return false;
}

Locale::Locale(std::string identifier) : _identifier(std::move(identifier)) {
    if (!hasNames(_identifier)) return;  // the library would take the names of another locale
    UDisplayContext contexts[] = {UDISPCTX_NO_SUBSTITUTE};
    UErrorCode status = U_ZERO_ERROR;
    _names.reset(uldn_openForContext(_identifier.c_str(), contexts, std::size(contexts), &status));
    if (U_FAILURE(status)) _names.reset();
}

Locale::Locale(Locale&&) noexcept = default;
Locale::~Locale() = default;

std::optional<std::string> Locale::displayNameForLanguageCode(std::string_view code) const {
    const std::string language = normalizedCode(code);
    if (!_names || language.empty() || language == "root") return {};  // that one the library answers with itself
    return nameOf(_names.get(), language);
}

}  // namespace kavaro
