#pragma once

#include <string>
#include <vector>

namespace kavaro {

// Everything but folders in a folder and below it, as paths relative to it, by code point. Links are listed and not
// followed. Empty for what cannot be read. For small folders of our own: each is listed by its path.
std::vector<std::string> filesBelow(const std::string& folder);

}  // namespace kavaro
