#pragma once

#include <string>

namespace kavaro {

// Gives an open file the extended attributes of another one, access lists among them, and takes away those that it got
// from its folder. The seals of the content, "security.ima" and "security.evm", are not copied. Empty, or what cannot
// be kept, for people.
std::string copyExtendedAttributes(int from, int to);

}  // namespace kavaro
