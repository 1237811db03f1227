#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Catalog.h"
#include "platform/FolderOpener.h"

namespace kavaro {

// The catalog of the real disk (Catalog::forRoot). Owned by the job and by the iterators that are still open; safe
// from any thread. Holds one descriptor, the root's, and opens every folder below it by the rest of its path. So no
// link below the root is ever followed, and a folder that is not on the root's mount shows itself when it is opened,
// without another call. Folders outside the root (and all of them without a root) are looked at after opening.
// Folders whose path below the root is longer than kLongWay are opened from a folder on the way that was opened within
// the last kWaypointSeconds, so that a chain of N folders does not cost N² names; moved meanwhile, it is where it was.
class DiskCatalog final : public Catalog, public std::enable_shared_from_this<DiskCatalog> {
  public:
    DiskCatalog(const std::string& root, const Options& options, FolderOpener opener = FolderOpener());
    ~DiskCatalog() override;
    DiskCatalog(const DiskCatalog&) = delete;
    DiskCatalog& operator=(const DiskCatalog&) = delete;

    bool stat(const std::string& path, CatalogStat* result, int* error) override;
    bool reference(const std::string& path, FileReference* result, int* error) override;
    std::unique_ptr<CatalogIterator> openIterator(FileReference&& reference, int* error) override;

    // For iterators. The reason why a folder must not be listed, or null: `about` is its record, `name` its name in the
    // open folder `parent`.
    const char* reasonToExclude(const struct statx& about, int parent, const char* name) const {
        const bool entersMount = (about.stx_attributes & (STATX_ATTR_MOUNT_ROOT | STATX_ATTR_AUTOMOUNT)) != 0;
        if (!entersMount && mountOf(about) == _identity.load(std::memory_order_relaxed)->rootMount()) return nullptr;
        return reasonToExcludeMount(about, parent, name);
    }
    // For iterators. Reading buffers are used again by the next folders, up to kKeptBuffers of them.
    static constexpr std::size_t kBufferSize = 64 * 1024;
    using Buffer = std::unique_ptr<char[]>;
    Buffer takeBuffer();
    void giveBuffer(Buffer buffer);

    static constexpr std::size_t kLongWay = 1024;  // bytes
    static constexpr double kWaypointSeconds = 1;

    // What is asked of every entry. Where the kernel does not tell mounts apart, the device stands for the mount.
    static constexpr unsigned kRecordMask = STATX_BASIC_STATS | STATX_MNT_ID;
    static std::uint64_t mountOf(const struct statx& about) {
        return (about.stx_mask & STATX_MNT_ID) != 0 ? about.stx_mnt_id : deviceOf(about);
    }
    static std::uint64_t deviceOf(const struct statx& about) {
        return (std::uint64_t{about.stx_dev_major} << 32) | about.stx_dev_minor;
    }

  private:
    static constexpr std::size_t kKeptBuffers = 8;

    // A folder far below the root, and how it was reached.
    struct Waypoint {
        std::string path;  // below the root, with its last slash
        FileReference place;
        bool isOnRootMount = false;
        double openedAt = 0;
    };
    // Where a path starts from: the rest of it below the root's descriptor or a waypoint's, or the whole path.
    struct Location {
        int folder = AT_FDCWD;
        const char* path = nullptr;
        std::size_t length = 0;
        bool isRoot = false;
        bool isOnRootMount = false;
        std::shared_ptr<const Waypoint> waypoint;
        int open(const FolderOpener& opener, int flags, FolderOpener::Rule rule) const {
            return opener.open(folder, path, length, flags, rule);
        }
        bool isBelowRoot() const { return folder != AT_FDCWD; }
    };
    Location locate(const std::string& path) const;
    Location locateNearer(const Location& location);
    std::shared_ptr<const Waypoint> openWaypoint(const Location& location, std::shared_ptr<const Waypoint> last) const;
    bool referenceAt(const Location& location, FileReference* result, int* error) const;
    void accept(int fd, const char* reason, FileReference* result) const;
    bool acceptUnopened(const Location& location, FolderOpener::Rule rule, int openError, FileReference* result,
                        int* error) const;
    const char* reasonOfOpenFolder(int fd) const;
    const char* reasonToExcludeMount(const struct statx& about, int parent, const char* name) const;
    NodeIdentity& identityForMount(std::uint64_t mount);

    const FolderOpener _opener;
    const Options _options;
    const std::string _root;  // without slashes at its end: "" for "/" and for no root
    int _rootFd = -1;         // O_PATH; -1 when there is no root or it is no folder
    const char* _rootReason = nullptr;

    std::mutex _mutex;
    std::vector<Buffer> _buffers;                // guarded by _mutex
    std::shared_ptr<const Waypoint> _waypoint;   // guarded by _mutex
    std::unique_ptr<NodeIdentity> _ownIdentity;  // set once, under _mutex
    std::atomic<NodeIdentity*> _identity{nullptr};
};

}  // namespace kavaro
