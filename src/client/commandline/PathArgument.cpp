#include "client/commandline/PathArgument.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "client/commandline/Output.h"
#include "platform/Environment.h"

namespace kavaro {

namespace {

class Descriptor {
  public:
    explicit Descriptor(int fd) : _fd(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(-1); }
    void reset(int fd) {
        if (_fd >= 0) close(_fd);
        _fd = fd;
    }
    int get() const { return _fd; }

  private:
    int _fd;
};

std::vector<std::string_view> namesOf(std::string_view path) {
    std::vector<std::string_view> names;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        const std::string_view name = path.substr(0, slash);
        if (!name.empty() && name != ".") names.push_back(name);
        if (slash == std::string_view::npos) break;
        path.remove_prefix(slash + 1);
    }
    return names;
}

// Without doubled slashes and "."; ".." stays.
std::string joined(const std::vector<std::string_view>& names) {
    std::string path;
    for (const std::string_view name : names) path.append("/").append(name);
    return path.empty() ? "/" : path;
}

bool hasDotDot(const std::vector<std::string_view>& names) {
    for (const std::string_view name : names) {
        if (name == "..") return true;
    }
    return false;
}

std::string currentFolder() {
    const std::unique_ptr<char, void (*)(void*)> folder(getcwd(nullptr, 0), free);
    return folder && folder.get()[0] == '/' ? std::string(folder.get()) : std::string();
}

// Opens the folder as a place, without reading it. 0, or errno.
int openPlace(const std::string& path, Descriptor* place) {
    if (path.size() < PATH_MAX) {
        place->reset(open(path.c_str(), O_PATH | O_CLOEXEC));
        return place->get() < 0 ? errno : 0;
    }
    place->reset(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (const std::string_view name : namesOf(path)) {
        const int next = openat(place->get(), std::string(name).c_str(), O_PATH | O_CLOEXEC);
        if (next < 0) return errno;
        place->reset(next);
    }
    return place->get() < 0 ? errno : 0;
}

bool isDanglingLink(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

std::string failureOf(const std::string& path, int error) {
    switch (error) {
        case ENOENT:
            if (isDanglingLink(path)) {
                return failureText(path, "is a link to something that does not exist", "Name an existing folder");
            }
            return failureText(path, "no such folder", "Check the spelling");
        case ENOTDIR:
            return failureText(path, "a part of the path is a file, not a folder", "Check the spelling");
        case EACCES:
        case EPERM:
            return failureText(path, "permission denied", "Run kavaro as a user who may read it, or with sudo");
        case ENAMETOOLONG:
            return failureText(path, "a name in the path is longer than a name can be", "Check the spelling");
        case ELOOP:
            return failureText(path, "its links lead in a circle", "Name a folder that the links do not pass through");
        default:
            return failureText(path, "cannot be opened: " + errorText(error), "");
    }
}

// False, with the failure, when the current folder is gone.
bool makeAbsolute(std::string_view argument, std::string* whole, std::string* failure) {
    *whole = argument;
    if (argument.starts_with('/')) return true;
    const std::string folder = currentFolder();
    if (folder.empty()) {
        *failure = failureText(argument, "the current folder is gone, so a relative path leads nowhere",
                               "Give the whole path, beginning with \"/\"");
        return false;
    }
    *whole = folder + "/" + *whole;
    return true;
}

}  // namespace

PathArgument checkFolder(std::string_view argument, bool mustBeReadable) {
    PathArgument result;
    if (argument.empty()) {
        result.failure = "the path is empty. Name a folder, for example \".\" for the current one.";
        return result;
    }
    std::string whole;
    if (!makeAbsolute(argument, &whole, &result.failure)) return result;
    const std::vector<std::string_view> names = namesOf(whole);
    result.path = joined(names);

    Descriptor place(-1);
    if (const int error = openPlace(result.path, &place)) {
        result.failure = failureOf(result.path, error);
        return result;
    }
    if (hasDotDot(names)) {
        const std::unique_ptr<char, void (*)(void*)> real(realpath(result.path.c_str(), nullptr), free);
        if (!real) {
            result.failure = failureText(result.path, "too long to follow its \"..\" parts", "Give it without \"..\"");
            return result;
        }
        result.path = real.get();
    }
    struct stat info {};
    if (fstat(place.get(), &info) != 0) {
        result.failure = failureOf(result.path, errno);
    } else if (!S_ISDIR(info.st_mode)) {
        result.failure = failureText(result.path, "is not a folder", "Name the folder that holds it");
    } else if (mustBeReadable) {
        const Descriptor readable(openat(place.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (readable.get() < 0) result.failure = failureOf(result.path, errno);
    }
    return result;
}

std::string pathWithoutLinks(const std::string& folder) {
    Descriptor place(-1);
    const std::string real = openPlace(folder, &place) == 0 ? pathOfDescriptor(place.get()) : std::string();
    return real.empty() ? folder : real;
}

EntryArgument checkEntry(std::string_view argument) {
    EntryArgument result;
    std::string whole;
    if (argument.empty()) {
        result.failure = "the path is empty. Name a file or a folder.";
        return result;
    }
    if (!makeAbsolute(argument, &whole, &result.failure)) return result;
    while (whole.size() > 1 && whole.back() == '/') whole.pop_back();
    const std::size_t slash = whole.rfind('/');
    const std::string name = whole.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") {
        result.failure = failureText(argument, "does not name an entry of a folder", "Give it by its name");
        return result;
    }
    const std::string folder = slash == 0 ? "/" : whole.substr(0, slash);
    Descriptor place(-1);
    struct stat info {};
    int error = openPlace(folder, &place);
    if (error == 0 && fstatat(place.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) error = errno;
    if (error != 0) {
        result.failure = error == ENOENT ? failureText(whole, "no such file or folder", "Check the spelling")
                                         : failureOf(whole, error);
        return result;
    }
    // Where the folder really is: nobody follows links for us later.
    std::string real = pathOfDescriptor(place.get());
    if (real.empty()) real = joined(namesOf(folder));
    result.path = (real == "/" ? std::string() : real) + "/" + name;
    result.isFolder = S_ISDIR(info.st_mode);
    result.isLink = S_ISLNK(info.st_mode);
    if (!result.isFolder && info.st_nlink == 1) result.bytes = static_cast<std::uint64_t>(info.st_blocks) * 512;
    return result;
}

}  // namespace kavaro
