#include "platform/FolderOpener.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/openat2.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

namespace kavaro {

namespace {

constexpr std::size_t kPartLength = 4000;  // below PATH_MAX

int openat2(int folder, const char* path, int flags, std::uint64_t resolve) {
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags);
    how.resolve = resolve;
    long fd;
    do {
        fd = syscall(SYS_openat2, folder, path, &how, sizeof how);
    } while (fd < 0 && errno == EINTR);
    return static_cast<int>(fd);
}

int openOne(int folder, const char* path, int flags) {
    int fd;
    do {
        fd = openat(folder, path, flags);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

void closeKeepingErrno(int fd) {
    const int saved = errno;
    close(fd);
    errno = saved;
}

// Walks down from a folder that is not its own; closes what it opened on the way.
class Way {
  public:
    explicit Way(int folder) : _folder(folder) {}
    ~Way() {
        if (_owned) closeKeepingErrno(_folder);
    }
    int folder() const { return _folder; }
    bool enter(int fd) {
        if (fd < 0) return false;
        if (_owned) close(_folder);
        _folder = fd;
        _owned = true;
        return true;
    }

  private:
    int _folder;
    bool _owned = false;
};

}  // namespace

bool FolderOpener::kernelHasOpenat2() {
    static const bool has = [] {
        const int fd = openat2(AT_FDCWD, "/", O_PATH | O_CLOEXEC, RESOLVE_NO_SYMLINKS);
        if (fd >= 0) close(fd);
        return fd >= 0;
    }();
    return has;
}

int FolderOpener::open(int folder, const char* path, std::size_t length, int flags, Rule rule) const {
    flags |= O_CLOEXEC;
    if (length < PATH_MAX) return openPart(folder, path, flags, rule);
    Way way(folder);
    std::string part;
    while (length >= PATH_MAX) {
        const void* slash = memrchr(path, '/', kPartLength);
        if (!slash) {
            errno = ENAMETOOLONG;
            return -1;
        }
        const std::size_t partLength = static_cast<std::size_t>(static_cast<const char*>(slash) - path) + 1;
        part.assign(path, partLength);
        if (!way.enter(openPart(way.folder(), part.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC, rule))) return -1;
        path += partLength;
        length -= partLength;
        while (*path == '/') ++path, --length;
    }
    return openPart(way.folder(), length == 0 ? "." : path, flags, rule);
}

int FolderOpener::openPart(int folder, const char* path, int flags, Rule rule) const {
    if (rule == Rule::followLinks) return openOne(folder, path, flags);
    if (!_usesOpenat2) return openNameByName(folder, path, flags);
    const std::uint64_t resolve = RESOLVE_NO_SYMLINKS | (rule == Rule::sameMount ? RESOLVE_NO_XDEV : 0u);
    return openat2(folder, path, flags, resolve);
}

int FolderOpener::openNameByName(int folder, const char* path, int flags) const {
    Way way(folder);
    std::string name;
    for (;;) {
        const char* end = strchrnul(path, '/');
        const char* next = end;
        while (*next == '/') ++next;
        name.assign(path, end);
        if (*next == '\0')
            return openOne(way.folder(), name.c_str(), flags | O_NOFOLLOW | (end != next ? O_DIRECTORY : 0));
        if (!way.enter(openOne(way.folder(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC))) return -1;
        path = next;
    }
}

}  // namespace kavaro
