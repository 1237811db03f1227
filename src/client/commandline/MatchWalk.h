#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "client/Measurement.h"

namespace kavaro {

// Goes through a measured tree, each folder before what it holds, in the order of the disk. Entries that pass `test`
// go to `found` with their path: `folder` for the root, which is tested under its last name, and "FOLDER/..." below.
// False from `found` ends the walk. Folders of a partial tree that were not finished get the sums of what was measured
// of them first. Needs no stack for depth, and memory for the depth alone. REQUIRES: measurement.root.
void walkMatches(Measurement& measurement, std::string_view folder, const std::function<bool(const TuvNode&)>& test,
                 const std::function<bool(const TuvNode&, const std::string& path)>& found);

}  // namespace kavaro
