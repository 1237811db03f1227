#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kavaro {

// Text as characters and words, the same in every locale. A byte that is not UTF-8 is a character of its own and is
// never changed. Any thread.

std::size_t characterCount(std::string_view text);
std::string_view firstCharacters(std::string_view text, std::size_t count);  // all of it when it has no more
std::string lowercaseString(std::string_view text);
// The first letter of each word upper case, the rest lower case. Words end at blanks, tabs and line ends.
std::string capitalizedString(std::string_view text);

}  // namespace kavaro
