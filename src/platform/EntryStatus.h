#pragma once

#include <sys/stat.h>

#include <cstdint>

namespace kavaro {

// What an entry is and which one it is. For sources of platform.
struct EntryStatus {
    std::uint32_t mode = 0;
    std::uint32_t owner = 0;
    std::uint32_t deviceMajor = 0, deviceMinor = 0;
    std::uint64_t inode = 0;
    std::uint64_t mount = 0;  // 0 when the kernel does not tell
    bool isMountRoot = false;

    bool isFolder() const { return S_ISDIR(mode); }
    bool isLink() const { return S_ISLNK(mode); }
    bool isSameAs(const EntryStatus& other) const {
        return deviceMajor == other.deviceMajor && deviceMinor == other.deviceMinor && inode == other.inode &&
               mount == other.mount;
    }
};

// Of an entry of an open folder, a link itself and not what it leads to; with an empty name of the open file itself.
// 0, or an errno value.
int readStatus(int folder, const char* name, EntryStatus* status);

}  // namespace kavaro
