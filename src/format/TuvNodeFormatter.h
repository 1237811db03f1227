#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "format/Language.h"
#include "platform/Color.h"
#include "platform/FileIcon.h"

namespace kavaro {

class Locale;
class TuvNode;
class TuvObjectArray;

// Writes whole numbers with their digits in groups of three: "1,234,567", the same in every locale. Any thread.
class ByteSizeFormatter {
  public:
    std::string stringFromNumber(unsigned long long number) const;
};

// Turns what is known of a node into what is shown beside it, and the names of language folders into languages and
// flags. Static operations alone; what they keep is kept for the life of the process and never renewed. Settings,
// languages and flags are for one thread, the rest for any. A null node counts as one that has not been measured.
class TuvNodeFormatter {
  public:
    // Sizes and counts (TuvNodeFormatter_sizes.cpp). "0" for the size of a node that is not resolved.
    static const ByteSizeFormatter& byteSizeFormatter();
    static std::string byteSizeFormatter(unsigned long long number);
    static std::string logicalSizeInBytes(const TuvNode* node);
    static std::string physicalSizeInBytes(const TuvNode* node);
    static std::string logicalSizeInKB(const TuvNode* node);  // in the unit that fits: "1.4 MB"
    static std::string physicalSizeInKB(const TuvNode* node);
    // "2 files and 1 folder" of a folder and all below it; empty for what is no folder. Without files it begins with a
    // blank: " and 3 folders".
    static std::string filesAndFoldersCount(const TuvNode* node);
    static std::string filesAndFoldersCount(unsigned long long files, unsigned long long folders);
    // "5,242,880 bytes in 2 files"
    static std::string byteSizeAndFilesAndFoldersCount(const TuvNode* node);

    // Colours (TuvNodeFormatter_colors.cpp). Sizes are bytes on disk; components are 0 to 1.
    static void sizeStringColor(unsigned long long size, float* red, float* green, float* blue, float* alpha);
    static Color sizeStringColor(const TuvNode* node);
    static void physicalSizeColor(unsigned long long size, float* red, float* green, float* blue, float* alpha);
    static Color physicalSizeColor(const TuvNode* node);  // that of the text

    // Settings in the user defaults (TuvNodeFormatter_settings.cpp): 1 shows, -1 has not been loaded. The file icon's
    // is loaded only as long as the counts' has not been.
    static int displayCountImageType();
    static void setDisplayCountImageType(int type);
    static int displayFileIcon();
    static void setDisplayFileIcon(int type);
    static std::string displayCountMenuTitle();
    static std::string displayFileIconMenuTitle();

    // Nothing for no node, a node without a parent, and where the system has no icon, which is logged.
    static std::optional<FileIcon> fileIcon(const TuvNode* node);

    // Names of languages (TuvNodeFormatter_languages.cpp). A language folder is named after a locale ("pt_BR",
    // "zh-Hans") or after a language in English ("French").
    // The display name for a folder's name without its extension.
    static std::string languageNameFromLproj(std::string_view name);
    static std::optional<std::string> languageName(const TuvNode* node);
    // Of a list of groups of folders, each judged by its first folder: distinct and sorted.
    static std::vector<std::string> uniqueLanguageNames(const TuvObjectArray* groups);
    // All languages that the system knows, by display name in lower case. The first call loads the flags.
    static const std::map<std::string, Language>& languageNames();
    static std::optional<std::string> nsLocaleLanguage(const Locale& locale, std::optional<std::string_view> code);

    // Flags (TuvNodeFormatter_flags.cpp), from 48_countryName in the resources folder.
    static LanguageFlagRef loadFlagForLanguageName(std::string_view displayName);
    static LanguageFlagRef languageIconFromLproj(std::optional<std::string_view> name);
    static LanguageFlagRef languageIcon(const TuvNode* node);
};

}  // namespace kavaro
