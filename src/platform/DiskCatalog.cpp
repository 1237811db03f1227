#include "platform/DiskCatalog.h"

#include <errno.h>
#include <limits.h>
#include <unistd.h>

#include <string_view>
#include <utility>

#include "platform/Clock.h"
#include "platform/DiskCatalogIterator.h"
#include "platform/FileSystemType.h"

namespace kavaro {

namespace {

constexpr int kRecordFlags = AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
constexpr int kListFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK;

bool recordOfOpenFile(int fd, struct statx* about) {
    return statx(fd, "", kRecordFlags | AT_EMPTY_PATH, DiskCatalog::kRecordMask, about) == 0;
}

// As stat(2): follows a final link. Any length of path.
bool recordOfPath(const FolderOpener& opener, const std::string& path, struct statx* about) {
    if (path.find('\0') != std::string::npos) {
        errno = ENOENT;
        return false;
    }
    if (path.size() < PATH_MAX) {
        return statx(AT_FDCWD, path.c_str(), kRecordFlags, DiskCatalog::kRecordMask, about) == 0;
    }
    FileReference file;
    file.fd = opener.open(AT_FDCWD, path, O_PATH, FolderOpener::Rule::followLinks);
    return file.fd >= 0 && recordOfOpenFile(file.fd, about);
}

std::string withoutEndingSlashes(std::string path) {
    while (!path.empty() && path.back() == '/') path.pop_back();
    return path;
}

}  // namespace

std::shared_ptr<Catalog> Catalog::forRoot(const std::string& root, const Options& options) {
    return std::make_shared<DiskCatalog>(root, options);
}

DiskCatalog::DiskCatalog(const std::string& root, const Options& options, FolderOpener opener)
    : _opener(opener), _options(options), _root(withoutEndingSlashes(root)) {
    struct statx about;
    if (root.empty() || !recordOfPath(_opener, root, &about)) return;
    identityForMount(mountOf(about));
    if (!S_ISDIR(about.stx_mode)) return;
    _rootFd = _opener.open(AT_FDCWD, root, O_PATH | O_DIRECTORY, FolderOpener::Rule::followLinks);
    if (_rootFd >= 0 && !_options.loadPseudoFileSystems && isOnPseudoFileSystem(_rootFd)) {
        _rootReason = kReasonPseudoFileSystem;
    }
}

DiskCatalog::~DiskCatalog() {
    if (_rootFd >= 0) close(_rootFd);
}

bool DiskCatalog::stat(const std::string& path, CatalogStat* result, int* error) {
    struct statx about;
    if (!recordOfPath(_opener, path, &about)) {
        *error = errno;
        return false;
    }
    const std::uint64_t mount = mountOf(about);
    result->nodeID = identityForMount(mount).nodeID(mount, deviceOf(about), about.stx_ino);
    result->isDirectory = S_ISDIR(about.stx_mode);
    result->modificationSeconds = about.stx_mtime.tv_sec;
    result->size = about.stx_size;
    result->blockSize = about.stx_blksize;
    return true;
}

DiskCatalog::Location DiskCatalog::locate(const std::string& path) const {
    Location location;
    location.path = path.c_str();
    location.length = path.size();
    const bool hasPrefix = path.compare(0, _root.size(), _root) == 0;
    if (_rootFd < 0) {
        location.isRoot = hasPrefix && path.find_first_not_of('/', _root.size()) == std::string::npos;
        return location;
    }
    if (!hasPrefix || (path.size() > _root.size() && path[_root.size()] != '/')) return location;
    const std::size_t start = path.find_first_not_of('/', _root.size());
    location.folder = _rootFd;
    location.isRoot = start == std::string::npos;
    location.isOnRootMount = true;
    location.path = location.isRoot ? "." : path.c_str() + start;
    location.length = location.isRoot ? 1 : path.size() - start;
    return location;
}

bool DiskCatalog::reference(const std::string& path, FileReference* result, int* error) {
    *result = {};
    *error = 0;
    if (path.empty() || path.find('\0') != std::string::npos) {
        *error = ENOENT;
        return false;
    }
    const Location location = locate(path);
    const Location nearer = locateNearer(location);
    if (nearer.waypoint && referenceAt(nearer, result, error)) return true;
    return referenceAt(location, result, error);
}

// The same place from a waypoint, when it is far away and there is one.
DiskCatalog::Location DiskCatalog::locateNearer(const Location& location) {
    if (!location.isBelowRoot() || location.length <= kLongWay) return location;
    std::shared_ptr<const Waypoint> waypoint;
    {
        std::lock_guard lock(_mutex);
        waypoint = _waypoint;
    }
    const std::string_view path(location.path, location.length);
    if (waypoint && Clock::system().monotonicSeconds() - waypoint->openedAt > kWaypointSeconds) waypoint = nullptr;
    if (!waypoint || !path.starts_with(waypoint->path) || path.size() - waypoint->path.size() > kLongWay) {
        waypoint = openWaypoint(location, std::move(waypoint));
        std::lock_guard lock(_mutex);
        _waypoint = waypoint;
    }
    if (!waypoint) return location;
    // What is left must not begin with a slash: it would be absolute.
    const std::size_t start = path.find_first_not_of('/', waypoint->path.size());
    if (start == std::string_view::npos) return location;
    Location nearer;
    nearer.folder = waypoint->place.fd;
    nearer.path = location.path + start;
    nearer.length = location.length - start;
    nearer.isOnRootMount = waypoint->isOnRootMount;
    nearer.waypoint = std::move(waypoint);
    return nearer;
}

// A folder half of kLongWay above the place, so that the next places on the way down and up need no other. Goes on
// from the last one when that lies on the way. Null when it cannot be opened.
std::shared_ptr<const DiskCatalog::Waypoint> DiskCatalog::openWaypoint(const Location& location,
                                                                       std::shared_ptr<const Waypoint> last) const {
    const std::string_view path(location.path, location.length);
    const std::size_t slash = path.rfind('/', path.size() - kLongWay / 2);
    if (slash == std::string_view::npos) return nullptr;
    auto waypoint = std::make_shared<Waypoint>();
    waypoint->path = path.substr(0, slash + 1);
    waypoint->openedAt = Clock::system().monotonicSeconds();
    std::size_t start = 0;
    int from = location.folder;
    bool mayBeOnRootMount = _opener.usesOpenat2();
    if (last && waypoint->path.starts_with(last->path)) {
        start = waypoint->path.find_first_not_of('/', last->path.size());
        if (start == std::string::npos) return nullptr;
        from = last->place.fd;
        mayBeOnRootMount = last->isOnRootMount;
        waypoint->openedAt = last->openedAt;
    }
    const std::string rest = waypoint->path.substr(start);
    constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW;
    int& fd = waypoint->place.fd;
    if (mayBeOnRootMount) fd = _opener.open(from, rest, kFlags, FolderOpener::Rule::sameMount);
    waypoint->isOnRootMount = fd >= 0;
    if (fd < 0) fd = _opener.open(from, rest, kFlags, FolderOpener::Rule::noLinks);
    return fd < 0 ? nullptr : waypoint;
}

bool DiskCatalog::referenceAt(const Location& location, FileReference* result, int* error) const {
    *result = {};
    const int flags = kListFlags | (location.isRoot ? 0 : O_NOFOLLOW);
    int fd = -1;
    errno = EXDEV;
    if (location.isBelowRoot() && location.isOnRootMount && _opener.usesOpenat2()) {
        fd = location.open(_opener, flags, FolderOpener::Rule::sameMount);
        if (fd >= 0) {
            accept(fd, _rootReason, result);
            return true;
        }
    }
    const auto rule = location.isBelowRoot() ? FolderOpener::Rule::noLinks : FolderOpener::Rule::followLinks;
    if (errno == EXDEV) fd = location.open(_opener, flags, rule);
    if (fd < 0) return acceptUnopened(location, rule, errno, result, error);
    accept(fd, reasonOfOpenFolder(fd), result);
    return true;
}

// Takes an open folder.
void DiskCatalog::accept(int fd, const char* reason, FileReference* result) const {
    result->fd = fd;
    result->isDirectory = true;
    result->excludedReason = reason;
    if (!reason) return;
    close(fd);
    result->fd = -1;
}

// The path could not be opened as a folder for reading: a file, a folder that may not be read, or nothing.
bool DiskCatalog::acceptUnopened(const Location& location, FolderOpener::Rule rule, int openError,
                                 FileReference* result, int* error) const {
    FileReference file;
    file.fd = location.open(_opener, O_PATH | (location.isRoot ? 0 : O_NOFOLLOW), rule);
    struct statx about;
    if (file.fd < 0 || !recordOfOpenFile(file.fd, &about)) {
        *error = errno;
        return false;
    }
    if (!S_ISDIR(about.stx_mode)) return true;
    result->isDirectory = true;
    result->openError = openError;
    result->excludedReason = reasonOfOpenFolder(file.fd);
    if (!result->excludedReason) result->fd = std::exchange(file.fd, -1);
    return true;
}

// Of a folder of which only its descriptor is known; one call, with sameFileSystemOnly two.
const char* DiskCatalog::reasonOfOpenFolder(int fd) const {
    if (!_options.loadPseudoFileSystems && isOnPseudoFileSystem(fd)) return kReasonPseudoFileSystem;
    if (!_options.sameFileSystemOnly) return nullptr;
    const NodeIdentity* identity = _identity.load(std::memory_order_acquire);
    struct statx about;
    if (!identity || !recordOfOpenFile(fd, &about)) return nullptr;
    return mountOf(about) == identity->rootMount() ? nullptr : kReasonOtherFileSystem;
}

const char* DiskCatalog::reasonToExcludeMount(const struct statx& about, int parent, const char* name) const {
    // A kernel that does not mark the roots of mounts has every folder on another device looked at.
    const bool maybeMountRoot =
        (about.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0 || (about.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0;
    if (maybeMountRoot && !_options.loadPseudoFileSystems) {
        FileReference folder;
        folder.fd = openat(parent, name, O_PATH | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC);
        if (folder.fd >= 0 && isOnPseudoFileSystem(folder.fd)) return kReasonPseudoFileSystem;
    }
    if (!_options.sameFileSystemOnly) return nullptr;
    const bool otherMount = mountOf(about) != _identity.load(std::memory_order_relaxed)->rootMount();
    return otherMount || (about.stx_attributes & STATX_ATTR_AUTOMOUNT) != 0 ? kReasonOtherFileSystem : nullptr;
}

std::unique_ptr<CatalogIterator> DiskCatalog::openIterator(FileReference&& reference, int* error) {
    *error = 0;
    if (reference.excludedReason) {
        return std::make_unique<DiskCatalogIterator>(shared_from_this(), nullptr, std::move(reference));
    }
    if (reference.fd < 0 || reference.openError != 0) {
        *error = reference.openError != 0 ? reference.openError : ENOTDIR;
        return nullptr;
    }
    NodeIdentity* identity = _identity.load(std::memory_order_acquire);
    if (!identity) {
        struct statx about;
        if (!recordOfOpenFile(reference.fd, &about)) {
            *error = errno;
            return nullptr;
        }
        identity = &identityForMount(mountOf(about));
    }
    return std::make_unique<DiskCatalogIterator>(shared_from_this(), identity, std::move(reference));
}

// The identities, made for this mount when there are none yet.
NodeIdentity& DiskCatalog::identityForMount(std::uint64_t mount) {
    if (NodeIdentity* known = _identity.load(std::memory_order_acquire)) return *known;
    std::lock_guard lock(_mutex);
    if (!_ownIdentity) {
        _ownIdentity = std::make_unique<NodeIdentity>(mount);
        _identity.store(_ownIdentity.get(), std::memory_order_release);
    }
    return *_ownIdentity;
}

DiskCatalog::Buffer DiskCatalog::takeBuffer() {
    {
        std::lock_guard lock(_mutex);
        if (!_buffers.empty()) {
            Buffer buffer = std::move(_buffers.back());
            _buffers.pop_back();
            return buffer;
        }
    }
    return std::make_unique_for_overwrite<char[]>(kBufferSize);
}

void DiskCatalog::giveBuffer(Buffer buffer) {
    std::lock_guard lock(_mutex);
    if (_buffers.size() < kKeptBuffers) _buffers.push_back(std::move(buffer));
}

}  // namespace kavaro
