#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kavaro {

// Texts in the user's language. The process itself stays in the locale "C", whatever the environment says: numbers,
// dates, letter case and the messages of libraries never depend on it. Only the look-ups below know a language.

// The languages that the user wants, best first, as locale names without their character set ("de_AT", "sr@latin").
// The locale is the first of LC_ALL, LC_MESSAGES and LANG that is not empty. "C" or "POSIX" there means no language at
// all; otherwise the list in LANGUAGE counts, and the locale's own name when that is empty. No machine needs to have
// the locale installed. What is no name of a language is left out; "C", "C.UTF-8" and "POSIX" end the list.
// Empty: nothing is wanted, so English.
std::vector<std::string> userLanguages();

// The text of a key in the first of the user's languages that has it, in UTF-8; the default words, which are English,
// when none of those before English has. Translations lie in locale/LANGUAGE/LC_MESSAGES/kavaro.mo of the resources
// folder. Any thread.
std::string localized(std::string_view key, std::string_view defaultWords);

// Looks at the environment and the resources folder, which otherwise happens at the first text. It may set LANGUAGE:
// programs call it before they start threads. May be called again, for another language.
void useUserLanguage();

}  // namespace kavaro
