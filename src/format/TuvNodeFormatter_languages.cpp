#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "format/FormatLog.h"
#include "format/TuvNodeFormatter.h"
#include "model/TuvNode.h"
#include "model/TuvObjectArray.h"
#include "platform/Locale.h"
#include "platform/Text.h"
#include "platform/TextCase.h"
#include "support/DictionaryHelpers.h"

namespace kavaro {

namespace {

using Names = std::set<std::string, std::less<>>;

constexpr std::size_t kCodeLength = 2;  // characters

// English by region: these count as languages of their own.
constexpr std::array<std::pair<std::string_view, std::string_view>, 5> kEnglishRegions{
    {{"AU", "Australian"}, {"CA", "Canadian"}, {"NZ", "New Zealand"}, {"GB", "British"}, {"US", "United States"}}};

std::string_view upTo(std::string_view text, char separator) {
    return text.substr(0, text.find(separator));
}

std::string_view afterLast(std::string_view text, char separator) {
    return text.substr(text.rfind(separator) + 1);  // npos + 1 is 0
}

bool isCode(std::string_view text) {
    return characterCount(text) == kCodeLength;
}

std::optional<std::string> lookUp(std::string_view code) {
    return TuvNodeFormatter::nsLocaleLanguage(Locale::current(), code);
}

std::optional<std::string> nameOfLocale(std::string_view name) {
    const std::string_view language = upTo(name, '_');
    if (language.starts_with("en")) {
        const std::string_view region = afterLast(name, '_');
        for (const auto& [code, word] : kEnglishRegions) {
            if (region == code) return std::string(word);
        }
    }
    return lookUp(language);
}

// Nothing when the name tells no language.
std::optional<std::string> nameBeforeCleaning(std::string_view name) {
    if (isCode(name)) return lookUp(name);
    if (isCode(upTo(name, '_'))) return nameOfLocale(name);
    const std::string_view language = upTo(name, '-');
    if (isCode(language)) return lookUp(language);
    const std::string_view word = upTo(name, ' ');
    if (word.empty()) return lookUp(word);
    return std::string(word);
}

std::string fallBack(std::string_view name) {
    static Names reported;
    if (reported.emplace(name).second) {
        TuvLog::info(tuvNodeFormatterLog, "languageNameFromLproj", "no language name for \"%@.lproj\", will use \"%@\"",
                     name, name);
    }
    return std::string(name);
}

// One name for all variants of a language.
std::string normalized(std::string name) {
    constexpr std::string_view kEnglish = "English_";
    for (const char* language : {"Norwegian", "Occitan"}) {
        if (name.starts_with(language)) return language;
    }
    if (name.starts_with(kEnglish)) return std::string(afterLast(name, '_'));
    for (const char* language : {"Chinese", "German", "Portuguese"}) {
        if (name.starts_with(language)) return language;
    }
    return name;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text.append(text.empty() ? "" : ", ").append(name);
    return text;
}

std::vector<std::string> firstFolderNames(const TuvObjectArray& groups) {
    std::vector<std::string> names;
    for (TuvObject* group : groups) {
        const TuvNode* folder = static_cast<TuvObjectArray*>(group)->nodeAtIndex(0);
        if (folder) names.push_back(folder->fileNameWithoutExtension());
    }
    return names;
}

// What flags are found by is English, whatever language the names are in: the name in English where there is one.
LanguageFlagRef flagOf(const Locale& english, std::string_view code, const std::string& name) {
    return TuvNodeFormatter::loadFlagForLanguageName(english.displayNameForLanguageCode(code).value_or(name));
}

std::map<std::string, Language> tableOfLanguages() {
    constexpr const char* kSelector = "languageNames";
    const Locale english("en");
    std::vector<std::string> identifiers = Locale::availableLocaleIdentifiers();
    std::sort(identifiers.begin(), identifiers.end(),
              [](const std::string& a, const std::string& b) { return compare(a, b) < 0; });
    std::map<std::string, Language> table;
    for (const std::string& identifier : identifiers) {
        const std::string_view code = upTo(identifier, '_');
        const std::optional<std::string> name = lookUp(code);
        if (!name) continue;
        const auto [entry, isNew] = table.try_emplace(lowercaseString(*name));
        if (!isNew) continue;
        TuvLog::debug(tuvNodeFormatterLog, kSelector, "Code [%@], language name [%@]", identifier, *name);
        entry->second = {*name, {identifier}, flagOf(english, code, *name)};
    }
    for (const auto& [key, language] : table) {
        if (language.languageFlag) continue;
        TuvLog::error(tuvNodeFormatterLog, kSelector, "No flag for %@ ...",
                      descriptionInOneLine(language.dictionary()));
    }
    TuvLog::info(tuvNodeFormatterLog, kSelector, "Cached %d languages", static_cast<int>(table.size()));
    return table;
}

}  // namespace

std::optional<std::string> TuvNodeFormatter::nsLocaleLanguage(const Locale& locale,
                                                              std::optional<std::string_view> code) {
    constexpr const char* kSelector = "nsLocaleLanguage";
    if (!code || code->empty()) {
        TuvLog::debug(tuvNodeFormatterLog, kSelector, "Code argument was nil");
        return {};
    }
    TuvLog::debug(tuvNodeFormatterLog, kSelector, "%@", *code);
    std::optional<std::string> name = locale.displayNameForLanguageCode(*code);
    if (!name) TuvLog::error(tuvNodeFormatterLog, kSelector, "No displayNameForKey:%@", *code);
    return name;
}

std::string TuvNodeFormatter::languageNameFromLproj(std::string_view name) {
    std::optional<std::string> found = nameBeforeCleaning(name);
    return capitalizedString(normalized(found ? *std::move(found) : fallBack(name)));
}

std::optional<std::string> TuvNodeFormatter::languageName(const TuvNode* node) {
    if (!node) return {};
    return languageNameFromLproj(node->fileNameWithoutExtension());
}

std::vector<std::string> TuvNodeFormatter::uniqueLanguageNames(const TuvObjectArray* groups) {
    constexpr const char* kSelector = "uniqueLanguageNames";
    static Names reported;
    TuvLog::info(tuvNodeFormatterLog, kSelector, "%d languages", groups ? groups->count() : 0);
    const std::vector<std::string> folderNames = groups ? firstFolderNames(*groups) : std::vector<std::string>();
    TuvLog::info(tuvNodeFormatterLog, kSelector, "[%@]", joined(folderNames));
    Names unique;
    for (const std::string& folderName : folderNames) {
        const std::string name = languageNameFromLproj(folderName);
        if (reported.insert(folderName).second) {
            TuvLog::info(tuvNodeFormatterLog, kSelector, "%@ -> %@.lproj", name, folderName);
        }
        if (unique.insert(name).second && name == "Unknown") {
            TuvLog::error(tuvNodeFormatterLog, kSelector, "Unknown language %@ ...", folderName);
        }
    }
    std::vector<std::string> names(unique.begin(), unique.end());  // in the order of compare()
    TuvLog::info(tuvNodeFormatterLog, kSelector, "Coalesced into %d unique languages [%@]",
                 static_cast<int>(names.size()), joined(names));
    return names;
}

const std::map<std::string, Language>& TuvNodeFormatter::languageNames() {
    static const std::map<std::string, Language> table = tableOfLanguages();
    return table;
}

}  // namespace kavaro
