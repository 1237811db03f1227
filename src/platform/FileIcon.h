#pragma once

#include <string>
#include <vector>

namespace kavaro {

// How a file is shown beside its name.
struct FileIcon {
    // In a desktop's icon theme, the most fitting first: "image-png", "image-x-generic". Never empty.
    std::vector<std::string> names;

    bool operator==(const FileIcon&) const = default;
};

struct FileIconResult {
    FileIcon icon;
    std::string error;  // empty: the icon is there
};

// By what lies at the path (links are not followed) and, for a file and for what is not there, by the name alone: the
// content is not read.
FileIconResult iconForFile(const std::string& path);

}  // namespace kavaro
