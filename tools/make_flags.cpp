// Runs while the project is built: makes the flags that stand for languages out of the distribution's pictures, which
// are named after country codes ("fr.png").
//   make_flags PICTURES NAMES TARGET
// writes TARGET/COUNTRY.png, 48 pixels wide, for every country with a picture, and again for every further name that
// the file NAMES gives one. What was in TARGET before is removed. Without pictures TARGET is left empty, with a
// message.
#include <unicode/uchar.h>
#include <unicode/uloc.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include "platform/Picture.h"

namespace {

namespace fs = std::filesystem;

constexpr int kWidth = 48;                  // pixels
constexpr std::int32_t kLongestName = 256;  // UTF-16 units
constexpr int kLettersOfPrefix = 3;         // the least that a file and a language have in common

using NamesOfPicture = std::map<std::string, std::set<std::string>>;

// False for a line that is neither empty, nor a comment, nor a picture and a name.
bool readLine(const std::string& line, NamesOfPicture* names) {
    if (line.empty() || line[0] == '#') return true;
    const std::size_t tab = line.find('\t');
    if (tab == 0 || tab == std::string::npos || tab + 1 == line.size() || line.find('/') != std::string::npos)
        return false;
    (*names)[line.substr(0, tab)].insert(line.substr(tab + 1));
    return true;
}

bool readNames(const fs::path& path, NamesOfPicture* names) {
    std::ifstream file(path);
    if (!file) {
        std::fprintf(stderr, "make_flags: %s cannot be read\n", path.c_str());
        return false;
    }
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (readLine(line, names)) continue;
        std::fprintf(stderr, "make_flags: %s:%d: no picture and name\n", path.c_str(), number);
        return false;
    }
    return true;
}

std::string utf8(const UChar* text, std::int32_t length) {
    char bytes[3 * kLongestName + 1];
    std::int32_t size = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8(bytes, sizeof bytes, &size, text, length, &status);
    return U_SUCCESS(status) ? std::string(bytes, static_cast<std::size_t>(size)) : "";
}

// In English; empty for what has none, and for what no file can be named after.
using NameFunction = std::int32_t (*)(const char*, const char*, UChar*, std::int32_t, UErrorCode*);
std::string englishName(NameFunction function, const std::string& locale) {
    UChar text[kLongestName];
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t length = function(locale.c_str(), "en", text, kLongestName, &status);
    if (U_FAILURE(status) || status == U_USING_DEFAULT_WARNING || length > kLongestName) return {};
    const std::string name = utf8(text, length);
    return name.find('/') == std::string::npos ? name : "";
}

std::string lowerCase(std::string code) {
    for (char& c : code) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return code;
}

void addCountries(NamesOfPicture* names) {
    for (const char* const* country = uloc_getISOCountries(); *country; ++country) {
        const std::string name = englishName(uloc_getDisplayCountry, "und_" + std::string(*country));
        if (!name.empty()) (*names)[lowerCase(*country)].insert(name);
    }
}

// The first letters of a name, without regard to their case.
std::string beginning(const std::string& name) {
    UChar text[kLongestName];
    std::int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8WithSub(text, kLongestName, &length, name.data(), static_cast<std::int32_t>(name.size()), 0xFFFD,
                         nullptr, &status);
    std::int32_t letters = 0;
    if (U_SUCCESS(status)) U16_FWD_N(text, letters, length, kLettersOfPrefix);
    UChar folded[kLongestName];
    const std::int32_t size = u_strFoldCase(folded, kLongestName, text, letters, U_FOLD_CASE_DEFAULT, &status);
    return U_SUCCESS(status) ? utf8(folded, size) : "";
}

// The code of the country where most speak the language of a locale; empty when it has none.
std::string countryOf(const std::string& locale) {
    char likely[ULOC_FULLNAME_CAPACITY], country[ULOC_COUNTRY_CAPACITY];
    UErrorCode status = U_ZERO_ERROR;
    uloc_addLikelySubtags(locale.c_str(), likely, sizeof likely, &status);
    uloc_getCountry(likely, country, sizeof country, &status);
    return U_SUCCESS(status) ? lowerCase(country) : "";
}

void addLanguages(NamesOfPicture* names) {
    std::set<std::string> beginnings;
    for (const auto& [picture, countries] : *names) {
        for (const std::string& country : countries) beginnings.insert(beginning(country));
    }
    for (std::int32_t i = 0; i < uloc_countAvailable(); ++i) {
        const std::string locale = uloc_getAvailable(i);
        const std::string language = englishName(uloc_getDisplayLanguage, locale);
        const std::string code = countryOf(locale.substr(0, locale.find('_')));
        const std::string country = englishName(uloc_getDisplayCountry, "und_" + code);
        if (language.empty() || country.empty() || beginnings.contains(beginning(language))) continue;
        (*names)[code].insert(language + "/" + country);
    }
}

// Removes from `names` what the distribution has no picture for.
void keepThoseWithPicture(const fs::path& pictures, NamesOfPicture* names) {
    std::erase_if(*names, [&](const auto& entry) { return !fs::exists(pictures / (entry.first + ".png")); });
}

bool writeFlags(const fs::path& pictures, const fs::path& target, const NamesOfPicture& names) {
    for (const auto& [picture, files] : names) {
        const fs::path source = pictures / (picture + ".png");
        std::string error;
        const auto whole = kavaro::Picture::load(source, &error);
        if (!whole) {
            std::fprintf(stderr, "make_flags: %s: %s\n", source.c_str(), error.c_str());
            return false;
        }
        const kavaro::Picture flag = whole->scaledToWidth(kWidth);
        for (const std::string& name : files) {
            const fs::path file = target / (name + ".png");
            std::error_code ignored;
            fs::create_directories(file.parent_path(), ignored);
            error = flag.writePNG(file);
            if (error.empty()) continue;
            std::fprintf(stderr, "make_flags: %s: %s\n", file.c_str(), error.c_str());
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 4) {
        std::fprintf(stderr, "usage: make_flags PICTURES NAMES TARGET\n");
        return 2;
    }
    const fs::path pictures = arguments[1], target = arguments[3];
    NamesOfPicture names;
    if (!readNames(arguments[2], &names)) return 1;
    addCountries(&names);
    std::error_code error;
    fs::remove_all(target, error);
    if (!fs::create_directories(target, error)) {
        std::fprintf(stderr, "make_flags: %s: %s\n", target.c_str(), error.message().c_str());
        return 1;
    }
    if (pictures.empty() || !fs::is_directory(pictures, error)) {
        std::fprintf(stderr,
                     "no flag pictures on this machine (package iso-flags-png-320x240): languages have no flags\n");
        return 0;
    }
    keepThoseWithPicture(pictures, &names);
    addLanguages(&names);
    keepThoseWithPicture(pictures, &names);
    return writeFlags(pictures, target, names) ? 0 : 1;
}
