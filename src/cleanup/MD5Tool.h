#pragma once

#include <string>
#include <vector>

namespace kavaro {

inline constexpr const char* kMD5Tool = "/sbin/md5";

// Registers the stand-in for systems without the program. Before every use; costs next to nothing.
void registerMD5Tool();

// What the program would write for these arguments: for each file "MD5 (PATH) = DIGEST", after a first "-q" the digest
// alone, one a line, in their order. For a file that cannot be digested: nothing.
std::string md5ToolOutput(const std::vector<std::string>& arguments);

}  // namespace kavaro
