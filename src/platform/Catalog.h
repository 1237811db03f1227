#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/NodeIdentity.h"

namespace kavaro {

// Catalog date: whole seconds since 1904-01-01 00:00:00 UTC in the record's own layout, eight bytes in the order of
// the fields. Readers take those bytes as one 64-bit number in host order and shift it right by 16. On a little-endian
// host that is lowSeconds + fraction * 2^32, so seconds beyond 32 bits (dates after 2040-02-06) stand in `fraction`
// there and in `highSeconds` on a big-endian host. The sub-second part is not carried. All zero: no date.
struct UTCDateTime {
    std::uint16_t highSeconds = 0;
    std::uint32_t lowSeconds = 0;
    std::uint16_t fraction = 0;
};

// Of whole seconds since 1970-01-01 00:00:00 UTC. Clamped to 1 .. 2^48 - 1 seconds after 1904: never "no date".
UTCDateTime catalogDate(std::int64_t unixSeconds);

// One entry of a folder as the catalog gives it.
struct CatalogEntry {
    std::string_view name;  // bytes of the file system; valid until the next call on the iterator
    std::uint32_t nodeID = 0;
    bool isDirectory = false;
    bool isExcluded = false;       // a folder that must not be listed (see reason)
    const char* reason = nullptr;  // static text, set when isExcluded
    UTCDateTime contentModDate;
    std::uint64_t logicalSize = 0;   // bytes of content
    std::uint64_t physicalSize = 0;  // bytes allocated
};

// What stat() says of one path.
struct CatalogStat {
    std::uint32_t nodeID = 0;
    bool isDirectory = false;
    std::int64_t modificationSeconds = 0;  // since 1970-01-01 00:00:00 UTC
    std::uint64_t size = 0;
    std::uint64_t blockSize = 0;  // preferred I/O size
};

enum class CatalogStatus {
    ok,           // more may follow
    noMoreItems,  // the entries delivered with it are the last
    error,        // the listing ends here
};

// Reads one open folder, at most 16 entries a call. Used by one thread; closes its folder when destroyed.
class CatalogIterator {
  public:
    static constexpr int kEntriesPerCall = 16;
    virtual ~CatalogIterator() = default;
    // Fills `entries` (room for kEntriesPerCall) and sets `count`, which may be 0 with any status. An entry that
    // vanished meanwhile is left out; so is one that cannot be read for another reason, which is counted.
    virtual CatalogStatus nextEntries(CatalogEntry* entries, int* count) = 0;
    // errno of the last failure, of the listing or of an entry that could not be read; 0 when there was none.
    virtual int error() const = 0;
    // Entries left out so far because they could not be read. They do not end the listing.
    virtual int unreadableEntries() const = 0;
};

// A reference to an existing file or folder, held open. The stand-in for the platform's file reference.
struct FileReference {
    // Of a folder: open for reading or, with an openError, only its place in the tree (O_PATH). -1 for a file and for
    // a folder that must not be listed.
    int fd = -1;
    int openError = 0;  // errno of opening a folder that exists for reading; 0 when it may be read
    bool isDirectory = false;
    // Static text when the folder must not be listed; its iterator delivers nothing.
    const char* excludedReason = nullptr;
    FileReference() = default;
    FileReference(FileReference&& other) noexcept;
    FileReference& operator=(FileReference&& other) noexcept;
    ~FileReference();
};

// Access to the disk for the scanner. Tests put a fake one in its place. Safe from several threads: the node
// identities are shared under a lock, everything else belongs to the iterator.
class Catalog {
  public:
    virtual ~Catalog() = default;

    // Follows a final link. False when the path cannot be stat'ed; errno in *error.
    virtual bool stat(const std::string& path, CatalogStat* result, int* error) = 0;
    // Turns a path into a reference. Follows no link below the root, so that a folder swapped for a link during a walk
    // is not entered; the root itself is opened through a final link as stat() does. False with errno when there is no
    // such entry. Paths longer than PATH_MAX are opened part by part. One system call for a folder on the root's mount.
    virtual bool reference(const std::string& path, FileReference* result, int* error) = 0;
    // Takes the reference. Null with errno when the folder cannot be read: the caller keeps the reference then.
    virtual std::unique_ptr<CatalogIterator> openIterator(FileReference&& reference, int* error) = 0;

    struct Options {
        bool loadPseudoFileSystems = false;
        bool sameFileSystemOnly = false;
    };
    // The disk. Node identities are unique within one catalog: a job makes one for its root (see NodeIdentity). Holds
    // the root open. An empty root: identities are relative to the mount of the first path that is asked for, and a
    // path is followed through links up to its last name. Iterators may outlive the catalog.
    static std::shared_ptr<Catalog> forRoot(const std::string& root, const Options& options);
};

// Reasons why a folder was left out or could not be read, as they are reported.
inline constexpr const char* kReasonPermission = "permission";
inline constexpr const char* kReasonVanished = "vanished";
inline constexpr const char* kReasonReadError = "read error";
inline constexpr const char* kReasonPseudoFileSystem = "pseudo file system";
inline constexpr const char* kReasonOtherFileSystem = "other file system";
inline constexpr const char* kReasonBackupFolder = "backup folder";

}  // namespace kavaro
