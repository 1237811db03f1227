#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kavaro {

// A FOLDER argument after it was looked at: the absolute path to measure, or what is wrong with it.
struct PathArgument {
    std::string path;
    std::string failure;  // for people, as failureText() writes it; empty when the folder can be measured
};

// Makes the path absolute and checks that it names a folder. Links are kept unless ".." has to be followed through
// them. Any bytes are allowed, and any length: paths above PATH_MAX are followed name by name. `mustBeReadable` is
// false when the server may read more than this process.
PathArgument checkFolder(std::string_view argument, bool mustBeReadable);

// Where a folder is, named without links; the path itself when that cannot be told.
std::string pathWithoutLinks(const std::string& folder);

// A PATH argument that names one entry, which may itself be a link.
struct EntryArgument {
    std::string path;  // absolute; the folder it is in is named without links
    std::string failure;
    bool isFolder = false;
    bool isLink = false;
    std::uint64_t bytes = 0;  // that removing it frees: allocated ones; 0 for folders and while it has other hard links
};

// A slash at the end of the path does not lead through a link.
EntryArgument checkEntry(std::string_view argument);

}  // namespace kavaro
