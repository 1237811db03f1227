#include "platform/DiskCatalogIterator.h"

#include <errno.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <utility>

namespace kavaro {

namespace {

bool isDotName(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

DiskCatalogIterator::DiskCatalogIterator(std::shared_ptr<DiskCatalog> catalog, NodeIdentity* identity,
                                         FileReference reference)
    : _catalog(std::move(catalog)), _identity(identity), _reference(std::move(reference)) {
    if (!_identity) {
        _status = CatalogStatus::noMoreItems;
        return;
    }
    _buffer = _catalog->takeBuffer();
}

DiskCatalogIterator::~DiskCatalogIterator() {
    if (_buffer) _catalog->giveBuffer(std::move(_buffer));
}

CatalogStatus DiskCatalogIterator::nextEntries(CatalogEntry* entries, int* count) {
    int filled = 0;
    while (filled < kEntriesPerCall) {
        if (_next == _end && (filled > 0 || !readNames())) break;
        const auto* item = static_cast<const dirent64*>(static_cast<const void*>(_next));
        _next += item->d_reclen;
        if (!isDotName(item->d_name) && readEntry(item->d_name, &entries[filled])) ++filled;
    }
    *count = filled;
    return filled > 0 ? CatalogStatus::ok : _status;
}

// Fills the buffer with the next names; false at the end, with the status set.
bool DiskCatalogIterator::readNames() {
    if (_status != CatalogStatus::ok) return false;
    long bytes;
    do {
        bytes = syscall(SYS_getdents64, _reference.fd, _buffer.get(), DiskCatalog::kBufferSize);
    } while (bytes < 0 && errno == EINTR);
    if (bytes <= 0) {
        _status = bytes == 0 ? CatalogStatus::noMoreItems : CatalogStatus::error;
        if (bytes < 0) _error = errno;
        return false;
    }
    _next = _buffer.get();
    _end = _next + bytes;
    return true;
}

bool DiskCatalogIterator::readEntry(const char* name, CatalogEntry* entry) {
    struct statx about;
    constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
    while (statx(_reference.fd, name, kFlags, DiskCatalog::kRecordMask, &about) != 0) {
        if (errno == EINTR) continue;
        if (errno != ENOENT) {
            ++_unreadable;
            _error = errno;
        }
        return false;
    }
    entry->name = name;
    entry->nodeID = _identity->nodeID(DiskCatalog::mountOf(about), DiskCatalog::deviceOf(about), about.stx_ino);
    entry->isDirectory = S_ISDIR(about.stx_mode);
    entry->contentModDate = catalogDate(about.stx_mtime.tv_sec);
    if (entry->isDirectory) {
        entry->reason = _catalog->reasonToExclude(about, _reference.fd, name);
        entry->logicalSize = 0;
        entry->physicalSize = 0;
    } else {
        entry->reason = nullptr;
        entry->logicalSize = about.stx_size;
        entry->physicalSize = about.stx_blocks * 512;
    }
    entry->isExcluded = entry->reason != nullptr;
    return true;
}

}  // namespace kavaro
