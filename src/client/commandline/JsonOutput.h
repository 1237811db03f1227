#pragma once

#include <string>

#include "client/Measurement.h"
#include "client/TreeTotals.h"
#include "client/commandline/EntryWalk.h"
#include "client/commandline/Output.h"

namespace kavaro {

// Writes one measurement as a JSON object, without a line end:
//   path, logicalSize, physicalSize, files, folders, seconds, children
// and, where they apply: pathRaw, partial (true), lowerBound (true), unread (path, pathRaw, reason each), statistics.
// An entry of children has
//   name, kind ("file" or "folder"), inode, logicalSize, physicalSize, files, folders, modified
// and, where they apply: nameRaw, partial (true), children (folders above the last level), childrenLeftOut (their
// number, after a `children` that `top` cut short). A file counts as 1 file. Sizes are bytes; seconds have three
// decimals; modified is ISO 8601 in UTC, null when unknown. xRaw is x in base64, there when x is not UTF-8; x then
// has U+FFFD for what is not. REQUIRES: measurement.root.
void writeJson(Output& output, const Measurement& measurement, const EntryView& view, bool withStatistics);

// "2024-02-29T12:34:56Z"
std::string isoTime(double secondsSince1970);

}  // namespace kavaro
