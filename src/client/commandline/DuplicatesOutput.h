#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/DuplicateSearch.h"
#include "client/Measurement.h"
#include "client/commandline/Output.h"

namespace kavaro {

// What a search for duplicates found.
struct DuplicatesOutcome {
    std::vector<std::string> folders;    // absolute paths of those that were searched
    std::vector<DuplicateGroup> groups;  // largest waste first
    std::vector<UnreadFolder> unread;
    std::vector<UndigestedFile> undigested;
    std::uint64_t candidates = 0;  // files that were looked at
    std::uint64_t uncompared = 0;  // of those, that might be duplicates for all that is known
    double seconds = 0;
    bool partial = false;  // something was cut off
};

// For people: each group with what it wastes, and a last line with the sums.
void writeDuplicates(Output& output, const DuplicatesOutcome& outcome);
// Paths as they are, one a line, an empty line behind each group; of each file the first name alone, so that what is
// removed by this list is no hard link of what is kept.
void writeDuplicatesAsFdupes(Output& output, const DuplicatesOutcome& outcome);
// One object and a line end:
//   folders (path each), groups, files, waste, seconds; and, where they apply: partial (true), lowerBound and unread
//   (as kavaro size has them), undigested (path, reason each)
// A group has size, waste, md5 (not where all are hard links of one file) and files; a file has path, inode,
// physicalSize, modified and, where they apply: hardLinkOf (index of an earlier one that is the same file),
// hasNamesElsewhere (true). Beside each path stands pathRaw where it is not UTF-8.
void writeDuplicatesJson(Output& output, const DuplicatesOutcome& outcome);

}  // namespace kavaro
