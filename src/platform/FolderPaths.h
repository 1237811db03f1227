#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "platform/FileDescriptor.h"

namespace kavaro {

// Where the folders of one volume are, by the handles that the kernel's events give them. A path that was asked for is
// kept, as asking costs several system calls; a folder that is renamed makes all that is kept worthless, as those below
// it have moved, too. The volume's own folder is open only between the first question and closeVolume(): an open folder
// keeps a volume from being unmounted. Keeps at most kMostFolders paths. One thread.
class FolderPaths {
  public:
    static constexpr std::size_t kMostFolders = 65536;
    // Longer ones count as unknown: two of them still fit into a record of the device.
    static constexpr std::size_t kLongestPath = 12000;

    // `volume`: an absolute path on the file system; `device`: the one that the path led to.
    FolderPaths(std::string volume, dev_t device) : _volume(std::move(volume)), _device(device) {}

    // A handle is the bytes of a whole `struct file_handle`, aligned to four. Null for a folder that is gone or that
    // lies outside of what the volume's mount shows; valid until the next call.
    const std::string* pathOf(std::string_view handle);
    // The path that is kept, or null. "" is kept for what pathOf() could not find.
    const std::string* keptPathOf(std::string_view handle) const;
    const std::string* remember(std::string_view handle, std::string path);
    // The volume's own folder's. Never forgotten.
    void setVolumeHandle(std::string handle) { _volumeHandle = std::move(handle); }
    void forgetAll() { _paths.clear(); }
    void closeVolume() { _folder.reset(); }
    // The volume is gone: what is kept stays, and nothing more is asked.
    void endVolume();

    // The entry itself, O_PATH; closed when it is gone.
    FileDescriptor openHandle(std::string_view handle);

  private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };

    const std::string _volume;
    const dev_t _device;
    std::string _volumeHandle;
    bool _isGone = false;
    FileDescriptor _folder;
    std::unordered_map<std::string, std::string, Hash, std::equal_to<>> _paths;
};

}  // namespace kavaro
