#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Picture.h"
#include "platform/PropertyList.h"

namespace kavaro {

// The flag that stands for a language. Immutable and shared.
struct LanguageFlag {
    std::string fileName;  // in the folder of flags: "France.png"
    Picture picture;

    std::string country() const;  // the file's name without its extension
};
using LanguageFlagRef = std::shared_ptr<const LanguageFlag>;  // null: no flag

// An entry of TuvNodeFormatter::languageNames().
struct Language {
    std::string languageName;                // for people, in the language of the current locale
    std::vector<std::string> languageCodes;  // the first locale identifier found for it, alone
    LanguageFlagRef languageFlag;

    // Its texts under "languageName" and "languageCodes"; for a flag its file's name under "languageFlag".
    PropertyList dictionary() const;
};

}  // namespace kavaro
