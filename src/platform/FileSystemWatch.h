#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/ByteBuffer.h"
#include "platform/FileDescriptor.h"
#include "platform/FolderPaths.h"
#include "platform/HandleInodes.h"

namespace kavaro {

// One entry of a volume that changed, as the kernel tells it: several changes may have become one. Made once and filled
// again and again.
struct FileSystemChange {
    enum What : std::uint32_t {
        kCreated = 1,
        kModified = 2,    // or closed after it was open for writing: writes through a mapping show no other way
        kAttributes = 4,  // mode, owner, dates, extended attributes
        kRenamed = 8,
        kDeleted = 16,
        kLost = 32,  // alone: the kernel's queue was full, changes are missing
    };
    std::uint32_t what = 0;
    bool isFolder = false;
    bool isThereAgain = false;  // created and deleted, in whatever order, and now there
    std::int32_t process = 0;   // 0 when unknown
    // 0 when unknown. What is gone may have another number instead that is its own, where handles do not show them.
    std::uint64_t inode = 0;
    std::string path;         // absolute, as it was or, where the kernel was slower than the change, as it is now
    std::string destination;  // of what was renamed
};

// Every change on one file system, wherever it is mounted, from now on. Needs administrator rights and Linux 5.17.
// Entries whose folder is gone without a trace, or that lie outside of what the volume's mount shows, are left out, as
// is what tells of link counts alone. One thread. The volume can be unmounted while it is watched.
class FileSystemWatch {
  public:
    struct Options {
        pid_t ignoredProcess = 0;    // whose changes are left out
        bool unlimitedQueue = true;  // false: the kernel keeps 16,384 changes for us
    };
    struct Problem {
        int code = 0;  // errno
        std::string text;
        bool isVolume = false;  // the path or what it leads to is at fault, not the rights or the kernel
    };
    // Null with the reason. The path is of a folder on the file system.
    static std::unique_ptr<FileSystemWatch> open(const std::string& volume, const Options& options, Problem* problem);

    enum class State { changes, quiet, unmounted };
    // Waits at most so many seconds for changes; a caught signal ends it, quiet. Call it when next() has nothing left.
    // The changes before unmounting come before it is told. Then there is nothing any more.
    State wait(double seconds);
    // The next change that is there already. False: none.
    bool next(FileSystemChange* change);

    const std::string& volume() const { return _volume; }
    std::uint32_t device() const { return static_cast<std::uint32_t>(_device); }

    // The inode number that a handle holds, where the file system's handles hold it in a way that was recognised.
    enum class HandleForm : std::uint8_t { opaque, word, doubleWord, doubleWordAfterWord };
    static HandleForm formOfHandle(std::string_view handle, std::uint64_t inode);
    static std::uint64_t inodeOfHandle(std::string_view handle, HandleForm form);

  private:
    struct Event;
    struct RemovedFolder {
        std::string parent;  // its handle
        std::string name;
    };

    FileSystemWatch(std::string volume, std::string top, dev_t device, const Options& options)
        : _volume(std::move(volume)),
          _top(std::move(top)),
          _device(device),
          _options(options),
          _folders(_top, device) {}
    std::optional<bool> isMarked() const;  // nothing when it cannot be read now
    void lookAtMounts();
    bool readMore();
    bool takeEvent();
    bool tell(const Event& event, FileSystemChange* change);
    bool tellRename(const Event& event, FileSystemChange* change);
    bool placeOf(std::string_view folder, std::string_view name, std::string* path);
    const std::string* pathOfFolder(std::string_view handle);
    const std::string* pathOfRemovedFolder(std::string_view handle);
    const RemovedFolder* removedFolder(const std::string& handle);
    std::uint64_t inodeOf(std::string_view handle);

    const std::string _volume;
    const std::string _top;  // the highest folder of the file system above it: the folder itself may be renamed or go
    const dev_t _device;
    const Options _options;
    FileDescriptor _queue;
    FileDescriptor _mounts;   // tells of mounting and unmounting
    bool _showsMark = false;  // the kernel says whether the file system is still marked
    bool _isUnmounted = false;
    HandleForm _form = HandleForm::opaque;
    FolderPaths _folders;
    HandleInodes _inodes;   // where the form is opaque
    ByteBuffer _buffer;     // events as the kernel gave them
    std::size_t _next = 0;  // the first one that was not taken
    ByteBuffer _event;      // the one that was taken last: what is read meanwhile moves the others
    // Folders whose removal stands in _buffer up to _indexed: looked for only when a handle leads nowhere.
    std::unordered_map<std::string, RemovedFolder> _removed;
    std::size_t _indexed = 0;
};

}  // namespace kavaro
