#include "platform/FileStatus.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>

#include "platform/FileDescriptor.h"
#include "platform/FolderOpener.h"

namespace kavaro {

int fileStatusAtPath(const std::string& path, struct stat* status) {
    if (path.find('\0') != std::string::npos) return ENOENT;  // there is no such name
    if (path.size() < PATH_MAX) return lstat(path.c_str(), status) == 0 ? 0 : errno;
    const FileDescriptor file(
        FolderOpener().open(AT_FDCWD, path, O_PATH | O_NOFOLLOW, FolderOpener::Rule::followLinks));
    return file.isOpen() && fstat(file.get(), status) == 0 ? 0 : errno;
}

int folderStatusAtPath(const std::string& path, struct stat* status) {
    if (path.find('\0') != std::string::npos) return ENOENT;
    const FileDescriptor folder(
        FolderOpener().open(AT_FDCWD, path, O_PATH | O_DIRECTORY, FolderOpener::Rule::followLinks));
    return folder.isOpen() && fstat(folder.get(), status) == 0 ? 0 : errno;
}

}  // namespace kavaro
