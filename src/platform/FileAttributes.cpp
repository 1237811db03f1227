#include "platform/FileAttributes.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/FolderOpener.h"

namespace kavaro {

namespace {

constexpr unsigned kMask = STATX_MTIME | STATX_BTIME;
constexpr int kFlags = AT_NO_AUTOMOUNT | AT_STATX_SYNC_AS_STAT;

// 0 or an errno value.
int readRecord(const std::string& path, bool traverseLink, struct statx* record) {
    if (path.find('\0') != std::string::npos) return ENOENT;
    if (path.size() < PATH_MAX) {
        const int flags = kFlags | (traverseLink ? 0 : AT_SYMLINK_NOFOLLOW);
        return statx(AT_FDCWD, path.c_str(), flags, kMask, record) == 0 ? 0 : errno;
    }
    const int flags = O_PATH | (traverseLink ? 0 : O_NOFOLLOW);
    const int fd = FolderOpener().open(AT_FDCWD, path, flags, FolderOpener::Rule::followLinks);
    if (fd < 0) return errno;
    const int error = statx(fd, "", kFlags | AT_EMPTY_PATH, kMask, record) == 0 ? 0 : errno;
    close(fd);
    return error;
}

PropertyList::Date dateOf(const statx_timestamp& time) {
    return {static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9};
}

}  // namespace

PropertyList fileAttributesAtPath(const std::string& path, bool traverseLink, int* error) {
    struct statx record {};
    const int failure = readRecord(path, traverseLink, &record);
    if (error) *error = failure;
    if (failure != 0) return {};
    PropertyList attributes = PropertyList::Dictionary();
    if ((record.stx_mask & STATX_BTIME) != 0) attributes.set(kFileCreationDate, dateOf(record.stx_btime));
    if ((record.stx_mask & STATX_MTIME) != 0) attributes.set(kFileModificationDate, dateOf(record.stx_mtime));
    return attributes;
}

}  // namespace kavaro
