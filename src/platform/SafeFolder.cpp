#include "platform/SafeFolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string_view>

#include "platform/EntryStatus.h"
#include "platform/Environment.h"
#include "platform/FolderOpener.h"

namespace kavaro {

namespace {

// Relative to "/", without doubled slashes and ".". False for what leads nowhere safe.
bool makeRelative(std::string_view path, std::string* relative) {
    if (path.empty() || path.front() != '/' || path.find('\0') != std::string_view::npos) return false;
    relative->clear();
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        const std::string_view name = path.substr(0, slash);
        if (name == "..") return false;
        if (!name.empty() && name != ".") {
            if (!relative->empty()) *relative += '/';
            relative->append(name);
        }
        if (slash == std::string_view::npos) break;
        path.remove_prefix(slash + 1);
    }
    return true;
}

int openRelative(const std::string& relative, int flags, FileDescriptor* folder) {
    // Without O_NOFOLLOW a link at the end is ELOOP like those before it; the rule below follows it neither way.
    flags |= O_DIRECTORY | O_CLOEXEC;
    if (relative.empty()) {
        folder->reset(open("/", flags));
        return folder->isOpen() ? 0 : errno;
    }
    const FileDescriptor root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!root.isOpen()) return errno;
    folder->reset(FolderOpener().open(root.get(), relative, flags, FolderOpener::Rule::noLinks));
    return folder->isOpen() ? 0 : errno;
}

}  // namespace

int openSafePlace(const std::string& path, SafePlace* place) {
    std::string relative;
    if (!makeRelative(path, &relative) || relative.empty()) return EINVAL;
    const std::size_t slash = relative.rfind('/');
    const std::size_t nameBegin = slash == std::string::npos ? 0 : slash + 1;
    place->name = relative.substr(nameBegin);
    relative.resize(nameBegin == 0 ? 0 : slash);
    return openRelative(relative, O_PATH, &place->folder);
}

int openSafeFolder(const std::string& path, int flags, FileDescriptor* folder) {
    std::string relative;
    return makeRelative(path, &relative) ? openRelative(relative, flags, folder) : EINVAL;
}

bool entryExists(const SafePlace& place) {
    EntryStatus status;
    const int error = readStatus(place.folder.get(), place.name.c_str(), &status);
    return error != ENOENT && error != ENOTDIR && error != ENAMETOOLONG;
}

bool hasSibling(const SafePlace& place, const char* name) {
    if (place.name == name) return false;
    struct stat own {};
    struct stat sibling {};
    if (fstatat(place.folder.get(), name, &sibling, 0) != 0) return false;
    if (fstatat(place.folder.get(), place.name.c_str(), &own, AT_SYMLINK_NOFOLLOW) != 0) return true;
    return own.st_dev != sibling.st_dev || own.st_ino != sibling.st_ino;
}

std::string removalErrorText(int error) {
    switch (error) {
        case ENOENT:
            return "it does not exist any more";
        case EACCES:
        case EPERM:
            return "permission denied";
        case ELOOP:
            return "a part of its path is a link, which is not followed";
        case ENOTDIR:
            return "a part of its path is no folder, or a link, which is not followed";
        case EISDIR:
            return "it is a folder, not a file";
        case EINVAL:
            return "its path does not lead to one entry";
        case EBUSY:
            return "a file system is mounted there";
        case EXDEV:
            return "another file system is mounted in it";
        case EROFS:
            return "its volume can only be read";
        case ENOTEMPTY:
            return "it is filled again and again";
        case ESTALE:
            return "it was moved meanwhile";
        default:
            return errorText(error);
    }
}

}  // namespace kavaro
