#include "platform/FileAttributes.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/AccountNames.h"
#include "platform/FolderOpener.h"

namespace kavaro {

namespace {

constexpr unsigned kDates = STATX_MTIME | STATX_BTIME;
constexpr unsigned kAll = kDates | STATX_BASIC_STATS;
constexpr int kFlags = AT_NO_AUTOMOUNT | AT_STATX_SYNC_AS_STAT;

// 0 or an errno value.
int readRecord(const std::string& path, bool traverseLink, unsigned mask, struct statx* record) {
    if (path.find('\0') != std::string::npos) return ENOENT;
    if (path.size() < PATH_MAX) {
        const int flags = kFlags | (traverseLink ? 0 : AT_SYMLINK_NOFOLLOW);
        return statx(AT_FDCWD, path.c_str(), flags, mask, record) == 0 ? 0 : errno;
    }
    const int flags = O_PATH | (traverseLink ? 0 : O_NOFOLLOW);
    const int fd = FolderOpener().open(AT_FDCWD, path, flags, FolderOpener::Rule::followLinks);
    if (fd < 0) return errno;
    const int error = statx(fd, "", kFlags | AT_EMPTY_PATH, mask, record) == 0 ? 0 : errno;
    close(fd);
    return error;
}

PropertyList::Date dateOf(const statx_timestamp& time) {
    return {static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9};
}

PropertyList datesOf(const struct statx& record) {
    PropertyList attributes = PropertyList::Dictionary();
    if ((record.stx_mask & STATX_BTIME) != 0) attributes.set(kFileCreationDate, dateOf(record.stx_btime));
    if ((record.stx_mask & STATX_MTIME) != 0) attributes.set(kFileModificationDate, dateOf(record.stx_mtime));
    return attributes;
}

const char* typeOf(std::uint16_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return kFileTypeRegular;
        case S_IFDIR:
            return kFileTypeDirectory;
        case S_IFLNK:
            return kFileTypeSymbolicLink;
        case S_IFSOCK:
            return kFileTypeSocket;
        case S_IFCHR:
            return kFileTypeCharacterSpecial;
        case S_IFBLK:
            return kFileTypeBlockSpecial;
        default:
            return kFileTypeUnknown;
    }
}

}  // namespace

PropertyList fileAttributesAtPath(const std::string& path, bool traverseLink, int* error) {
    struct statx record {};
    const int failure = readRecord(path, traverseLink, kDates, &record);
    if (error) *error = failure;
    return failure == 0 ? datesOf(record) : PropertyList();
}

PropertyList allFileAttributesAtPath(const std::string& path, bool traverseLink, int* error) {
    struct statx record {};
    const int failure = readRecord(path, traverseLink, kAll, &record);
    if (error) *error = failure;
    if (failure != 0) return {};
    PropertyList attributes = datesOf(record);
    attributes.set(kFileType, typeOf(record.stx_mode));
    attributes.set(kFileSize, record.stx_size);
    attributes.set(kFilePosixPermissions, record.stx_mode & 07777);
    attributes.set(kFileReferenceCount, record.stx_nlink);
    attributes.set(kFileSystemFileNumber, record.stx_ino);
    attributes.set(kFileOwnerAccountID, record.stx_uid);
    attributes.set(kFileGroupOwnerAccountID, record.stx_gid);
    const std::string owner = userName(record.stx_uid);
    if (!owner.empty()) attributes.set(kFileOwnerAccountName, owner);
    const std::string groupOwner = groupName(record.stx_gid);
    if (!groupOwner.empty()) attributes.set(kFileGroupOwnerAccountName, groupOwner);
    return attributes;
}

}  // namespace kavaro
