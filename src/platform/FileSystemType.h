#pragma once

#include <cstdint>

namespace kavaro {

// Whether a file system of this type shows the kernel's own state instead of stored files: its sizes mean nothing and
// walking it may have effects. File systems in memory that hold files of users (tmpfs, devtmpfs, ramfs) are not.
bool isPseudoFileSystemType(std::uint32_t type);

// Of the file system of an open file; O_PATH is enough. False when it cannot be asked.
bool isOnPseudoFileSystem(int fd);

}  // namespace kavaro
