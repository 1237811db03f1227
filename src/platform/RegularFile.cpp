#include "platform/RegularFile.h"

#include <errno.h>
#include <fcntl.h>

#include "platform/FolderOpener.h"

namespace kavaro {

int RegularFile::open(const std::string& path) {
    close();
    if (path.find('\0') != std::string::npos) return ENOENT;  // there is no such name
    const FolderOpener opener;
    const FileDescriptor place(opener.open(AT_FDCWD, path, O_PATH, FolderOpener::Rule::followLinks));
    struct stat seen {};
    if (!place.isOpen() || fstat(place.get(), &seen) != 0) return errno;
    if (!S_ISREG(seen.st_mode)) return S_ISDIR(seen.st_mode) ? EISDIR : EINVAL;
    // Through /proc, which leads to the very file; where there is none, by the path once more.
    constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY;
    _file.reset(
        opener.open(AT_FDCWD, "/proc/self/fd/" + std::to_string(place.get()), kFlags, FolderOpener::Rule::followLinks));
    if (!_file.isOpen() && errno == ENOENT)
        _file.reset(opener.open(AT_FDCWD, path, kFlags, FolderOpener::Rule::followLinks));
    if (!_file.isOpen() || fstat(_file.get(), &_status) != 0) return errno;
    if (_status.st_dev == seen.st_dev && _status.st_ino == seen.st_ino) return 0;
    close();
    return ESTALE;
}

}  // namespace kavaro
