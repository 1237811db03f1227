#pragma once

#include <string>

#include "platform/SafeFolder.h"

namespace kavaro {

// How a removal went. A failure says where it ended: nothing was touched after that.
struct Removal {
    int error = 0;       // errno, 0 when all is gone
    std::string path;    // of what could not be removed
    std::string reason;  // for people, without a full stop
    bool ok() const { return error == 0; }
};

enum class RemovalKind {
    tree,          // anything; a folder with all that is below it
    onlyNoFolder,  // a folder is refused
};

// Removes an entry for good. Links are removed and never followed, on the way to it, at its place and below it, also
// where somebody swaps a folder for one meanwhile. A folder in which another file system is mounted is refused before
// anything is touched, and no mounted file system is ever entered. Ends at the first entry that cannot be removed, and
// changes no permissions. Any depth: needs no stack for it and holds at most 20 files open. Any thread.
Removal removeItem(const std::string& path, RemovalKind kind);
// The same of a place that is open; `path` is what a failure names.
Removal removeItem(const SafePlace& place, const std::string& path, RemovalKind kind);

}  // namespace kavaro
