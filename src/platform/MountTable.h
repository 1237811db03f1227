#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileDescriptor.h"

namespace kavaro {

// A file system at its place in the tree. A place may bear several, the last one on top.
struct Mount {
    std::uint64_t id;   // as statx() gives it
    std::string point;  // absolute path, without links
};

// The mounts that this process sees. Asking again costs one system call while nothing changes. Empty where /proc is not
// there. One thread at a time.
class MountTable {
  public:
    MountTable();

    const std::vector<Mount>& mounts();
    // Null when there is none; valid until the next question.
    const Mount* withID(std::uint64_t id);
    // The first mount point below a folder, given by its path without links.
    std::optional<std::string> firstBelow(std::string_view folder);

    // The lines of /proc/self/mountinfo; those that make no sense are left out.
    static std::vector<Mount> parse(std::string_view text);

  private:
    const FileDescriptor _file;
    bool _isRead = false;
    std::vector<Mount> _mounts;
};

}  // namespace kavaro
