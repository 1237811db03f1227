#include "platform/FileContent.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "platform/FolderOpener.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

// Brings the folder's entries to the disk. Some file systems cannot: then there is nothing to wait for.
void syncFolder(const std::string& path) {
    int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    fsync(fd);
    close(fd);
}

// Until the end or until `piece` gives an error.
int readPieces(int fd, const std::function<int(std::string_view)>& piece) {
    struct stat info {};
    if (fstat(fd, &info) != 0) return errno;
    if (S_ISDIR(info.st_mode)) return EISDIR;
    if (!S_ISREG(info.st_mode)) return EINVAL;
    char buffer[65536];
    while (true) {
        ssize_t length = ::read(fd, buffer, sizeof buffer);
        if (length == 0) return 0;
        if (length < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        if (const int error = piece({buffer, static_cast<std::size_t>(length)})) return error;
    }
}

int readAtMost(int fd, std::size_t limit, std::string* content) {
    content->clear();
    return readPieces(fd, [&](std::string_view piece) {
        if (piece.size() > limit - content->size()) return EFBIG;
        content->append(piece);
        return 0;
    });
}

// Negative, with errno, for a path that cannot be opened.
int openForReading(const std::string& path) {
    if (path.find('\0') != std::string::npos) {
        errno = ENOENT;
        return -1;
    }
    constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    return FolderOpener().open(AT_FDCWD, path, kFlags, FolderOpener::Rule::followLinks);
}

}  // namespace

int writeWhole(int fd, std::string_view content) {
    while (!content.empty()) {
        ssize_t written = write(fd, content.data(), content.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        content.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

int readWholeFile(int fd, std::string* content) {
    return readAtMost(fd, std::numeric_limits<std::size_t>::max(), content);
}

int readFileAtPath(const std::string& path, std::size_t limit, std::string* content) {
    const int fd = openForReading(path);
    if (fd < 0) return errno;
    const int error = readAtMost(fd, limit, content);
    close(fd);
    return error;
}

int readFileInPieces(const std::string& path, const std::function<void(std::string_view)>& piece) {
    const int fd = openForReading(path);
    if (fd < 0) return errno;
    const int error = readPieces(fd, [&](std::string_view part) {
        piece(part);
        return 0;
    });
    close(fd);
    return error;
}

int makePrivateFolder(const std::string& path) {
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        std::string part = path.substr(0, end);
        const int error = mkdir(part.c_str(), 0700) == 0 ? 0 : errno;
        struct stat info {};
        // A folder that is there may be answered with another error than that it exists.
        if (error != 0 && (stat(part.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)))
            return error == EEXIST ? ENOTDIR : error;
        if (end == std::string::npos) return 0;
    }
}

int replaceFile(const std::string& path, std::string_view content) {
    std::string folder = stringByDeletingLastPathComponent(path);
    std::string temporary = stringByAppendingPathComponent(folder, "." + lastPathComponent(path) + ".XXXXXX");
    int fd = mkostemp(temporary.data(), O_CLOEXEC);  // 0600
    if (fd < 0) return errno;
    int error = writeWhole(fd, content);
    if (error == 0 && fsync(fd) != 0) error = errno;
    if (close(fd) != 0 && error == 0) error = errno;
    if (error == 0 && rename(temporary.c_str(), path.c_str()) != 0) error = errno;
    if (error != 0) {
        unlink(temporary.c_str());
        return error;
    }
    syncFolder(folder.empty() ? "." : folder);
    return 0;
}

}  // namespace kavaro
