#include <unordered_map>

#include "format/FormatLog.h"
#include "format/TuvNodeFormatter.h"
#include "model/TuvNode.h"
#include "platform/FolderFiles.h"
#include "platform/Resources.h"
#include "platform/Text.h"
#include "platform/TextCase.h"

namespace kavaro {

namespace {

constexpr std::size_t kShortestPrefix = 3, kLongestPrefix = 7;  // characters

// Languages whose name does not begin like their country's. The spellings are those of the picture files.
struct Alias {
    const char* file;
    std::vector<std::string_view> languages;
};

const std::unordered_map<std::string_view, const char*>& aliases() {
    static const std::unordered_map<std::string_view, const char*> table = [] {
        const Alias rows[] = {
            {"Bangladesh.png", {"Bengali"}},
            {"Brunei.png", {"Malay"}},
            {"Burundi.png", {"Swahili"}},
            {"Cambodja.png", {"Khmer"}},
            {"China.png", {"Chinese"}},
            {"Denmark.png", {"Danish"}},
            {"Eritrea.png", {"Tigrinya"}},
            {"Ethiopia.png", {"Amharic", "Oromo"}},
            {"France.png", {"Breton", "Corsican", "French", "Occitan"}},
            {"Germany.png", {"Frisian"}},
            {"Ghana.png", {"Twi"}},
            {"Greenland.png", {"Kalaallisut"}},
            {"India.png",
             {"Assamese", "Gujarati", "Hindi", "Kannada", "Konkani", "Malayalam", "Marathi", "Oriya", "Punjabi",
              "Tamil", "Telugu", "Urdu"}},
            {"Indonezia.png", {"Indonesian"}},
            {"Iran.png", {"Persian"}},
            {"Iraq.png", {"Kurdish"}},
            {"Ireland.png", {"Galician", "Irish", "Manx"}},
            {"Israel.png", {"Hebrew"}},
            {"Macedonia.png", {"Macedonian"}},
            {"Malta.png", {"Maltese"}},
            {"Mongolia.png", {"Mongolian"}},
            {"Myanmar(Burma).png", {"Burmese"}},
            {"Netherlands.png", {"Dutch"}},
            {"New Zealand.png", {"New Zealand"}},
            {"Norway.png", {"Norwegian"}},
            {"Pakistan.png", {"Pashto"}},
            {"Philippines.png", {"Fil", "Filipino", "Tagalog"}},
            {"Poland.png", {"Kashubian"}},
            {"Slovenia.png", {"Slovenian"}},
            {"South Korea.png", {"Korean"}},
            {"Spain.png", {"Basque", "Catalan", "Gallegan"}},
            {"Sri Lanka.png", {"Sinhalese"}},
            {"Timor-Leste.png", {"Tet", "Tetum"}},
            {"United Kingdom(Great Britain).png", {"British"}},
            {"United States of America(USA).png", {"Hawaiian", "United States"}},
            {"Wales.png", {"Cornish", "Welsh"}},
        };
        std::unordered_map<std::string_view, const char*> byLanguage;
        for (const Alias& row : rows) {
            for (const std::string_view language : row.languages) byLanguage.emplace(language, row.file);
        }
        return byLanguage;
    }();
    return table;
}

struct FlagFolder {
    std::string path;
    std::vector<std::string> files;  // sorted
};

const FlagFolder& flagFolder() {
    static const FlagFolder folder = [] {
        FlagFolder found;
        const std::string resources = resourcesFolder();
        if (resources.empty()) return found;
        found.path = stringByAppendingPathComponent(resources, "48_countryName");
        found.files = filesBelow(found.path);
        return found;
    }();
    return folder;
}

LanguageFlagRef loadFlag(const std::string& fileName) {
    if (flagFolder().path.empty()) return nullptr;
    std::optional<Picture> picture = Picture::load(stringByAppendingPathComponent(flagFolder().path, fileName));
    if (!picture) return nullptr;
    return std::make_shared<const LanguageFlag>(LanguageFlag{fileName, *std::move(picture)});
}

// The first file of the folder that begins like the name; null when none does.
const std::string* fileBeginningLike(std::string_view name) {
    const std::size_t length = std::min(characterCount(name), kLongestPrefix);
    for (const std::string& file : flagFolder().files) {
        for (std::size_t count = length; count >= kShortestPrefix; --count) {
            const std::string_view prefix = firstCharacters(name, count);
            TuvLog::debug(tuvNodeFormatterLog, "loadFlagForLanguageName", "Looking [%@...] into [%@]", prefix, file);
            if (hasPrefixCaseInsensitive(file, prefix)) return &file;
        }
    }
    return nullptr;
}

}  // namespace

std::string LanguageFlag::country() const {
    return stringByDeletingPathExtension(lastPathComponent(fileName));
}

PropertyList Language::dictionary() const {
    PropertyList dictionary{PropertyList::Dictionary()};
    dictionary.set("languageName", languageName);
    PropertyList::Array codes;
    for (const std::string& code : languageCodes) codes.emplace_back(code);
    dictionary.set("languageCodes", std::move(codes));
    if (languageFlag) dictionary.set("languageFlag", languageFlag->fileName);
    return dictionary;
}

LanguageFlagRef TuvNodeFormatter::loadFlagForLanguageName(std::string_view displayName) {
    constexpr const char* kSelector = "loadFlagForLanguageName";
    const std::string_view name = displayName.starts_with("Norwegian") ? "Norwegian" : displayName;
    if (const auto alias = aliases().find(name); alias != aliases().end()) {
        if (LanguageFlagRef flag = loadFlag(alias->second)) return flag;
        TuvLog::error(tuvNodeFormatterLog, kSelector, "Could not load image [%@] from aliased images", alias->second);
    }
    const std::string* file = fileBeginningLike(name);
    if (!file) return nullptr;
    TuvLog::info(tuvNodeFormatterLog, kSelector, "Using [%@] -> [%@] ", displayName, *file);
    LanguageFlagRef flag = loadFlag(*file);
    if (!flag) TuvLog::error(tuvNodeFormatterLog, kSelector, "Could not load image [%@]", *file);
    return flag;
}

LanguageFlagRef TuvNodeFormatter::languageIconFromLproj(std::optional<std::string_view> name) {
    constexpr const char* kSelector = "languageIconFromLproj";
    if (!name) {
        TuvLog::error(tuvNodeFormatterLog, kSelector, "No argument !!!");
        return nullptr;
    }
    const std::string displayName = languageNameFromLproj(*name);
    const auto entry = languageNames().find(lowercaseString(displayName));
    if (entry != languageNames().end() && entry->second.languageFlag) return entry->second.languageFlag;
    LanguageFlagRef flag = loadFlagForLanguageName(displayName);
    if (!flag) {
        TuvLog::info(tuvNodeFormatterLog, kSelector, "No flag for language @\"XXX\", @\"%@\", trying plan B",
                     displayName);
    }
    return flag;
}

LanguageFlagRef TuvNodeFormatter::languageIcon(const TuvNode* node) {
    if (!node) return languageIconFromLproj({});
    return languageIconFromLproj(node->fileNameWithoutExtension());
}

}  // namespace kavaro
