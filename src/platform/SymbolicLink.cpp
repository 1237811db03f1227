#include "platform/SymbolicLink.h"

#include "platform/FileStatus.h"

namespace kavaro {

bool isSymbolicLink(const std::string& path) {
    struct stat info {};
    return fileStatusAtPath(path, &info) == 0 && S_ISLNK(info.st_mode);
}

}  // namespace kavaro
