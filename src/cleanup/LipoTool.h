#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/ByteView.h"

namespace kavaro {

// The stand-in for the program at kLipoPath, with the same text as that program writes:
//   -detailed_info PATH...                        the table of each file
//   PATH -remove NAME [-remove NAME...] -output PATH  the file again, without those architectures, in its own place
// A line of its own, beginning with "lipo: ", says what cannot be done. Links are not followed. No text depends on what
// stands in a path: bytes that would make a line of their own are escaped. Safe from any thread.
inline constexpr const char* kLipoPath = "/usr/bin/lipo";
std::string lipoTool(const std::vector<std::string>& arguments);

// Makes the stand-in known, once.
void registerLipoTool();

// Text of -detailed_info for one file, of which `beginning` holds the first UniversalHeader::kLongest bytes or all.
std::string lipoDetails(const std::string& path, ByteView beginning, std::uint64_t fileSize);

// Why the stand-in would leave a file as it is, asked to remove these architectures; empty when nothing is known that
// stands in its way. Reads the file as it would, and writes nothing.
std::string lipoObstacle(const std::string& path, const std::vector<std::string>& names);

}  // namespace kavaro
