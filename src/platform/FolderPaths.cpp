#include "platform/FolderPaths.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "platform/Environment.h"

namespace kavaro {

namespace {

constexpr std::string_view kDeleted = " (deleted)";

// What the kernel says of an open folder. One that is removed and still in use has its last path with a mark.
std::string pathOfFolder(int fd) {
    std::string path = pathOfDescriptor(fd);
    struct stat info {};
    if (path.ends_with(kDeleted) && fstat(fd, &info) == 0 && info.st_nlink == 0)
        path.resize(path.size() - kDeleted.size());
    return path;
}

}  // namespace

FileDescriptor FolderPaths::openHandle(std::string_view handle) {
    if (!_folder.isOpen() && !_isGone) {
        // O_PATH would not do for handles.
        _folder.reset(open(_volume.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
        struct stat info {};
        // Another volume may have taken its place.
        if (_folder.isOpen() && (fstat(_folder.get(), &info) != 0 || info.st_dev != _device)) _folder.reset();
    }
    if (!_folder.isOpen()) return {};
    void* bytes = const_cast<char*>(handle.data());
    auto* kernelHandle = static_cast<file_handle*>(bytes);
    return FileDescriptor(open_by_handle_at(_folder.get(), kernelHandle, O_PATH | O_CLOEXEC));
}

void FolderPaths::endVolume() {
    _isGone = true;
    _folder.reset();
}

const std::string* FolderPaths::keptPathOf(std::string_view handle) const {
    if (!_volumeHandle.empty() && handle == _volumeHandle) return &_volume;
    const auto found = _paths.find(handle);
    return found == _paths.end() ? nullptr : &found->second;
}

const std::string* FolderPaths::remember(std::string_view handle, std::string path) {
    if (_paths.size() >= kMostFolders) _paths.clear();
    if (path.size() > kLongestPath) path.clear();
    return &_paths.insert_or_assign(std::string(handle), std::move(path)).first->second;
}

const std::string* FolderPaths::pathOf(std::string_view handle) {
    const std::string* path = keptPathOf(handle);
    if (!path) {
        const FileDescriptor folder = openHandle(handle);
        path = remember(handle, folder.isOpen() ? pathOfFolder(folder.get()) : "");
    }
    return path->empty() ? nullptr : path;
}

}  // namespace kavaro
