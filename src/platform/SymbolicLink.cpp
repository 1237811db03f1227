#include "platform/SymbolicLink.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/FolderOpener.h"

namespace kavaro {

bool isSymbolicLink(const std::string& path) {
    if (path.find('\0') != std::string::npos) return false;
    struct stat info {};
    if (path.size() < PATH_MAX) return lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
    const int fd = FolderOpener().open(AT_FDCWD, path, O_PATH | O_NOFOLLOW, FolderOpener::Rule::followLinks);
    if (fd < 0) return false;
    const bool isLink = fstat(fd, &info) == 0 && S_ISLNK(info.st_mode);
    close(fd);
    return isLink;
}

}  // namespace kavaro
