#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/NodeIdentity.h"

namespace kavaro {

// Catalog date: whole seconds since 1904-01-01 00:00:00 UTC in the record's own layout.
struct UTCDateTime {
    std::uint16_t highSeconds = 0;
    std::uint32_t lowSeconds = 0;
    std::uint16_t fraction = 0;  // always 0 here: sub-second parts are not carried
};

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
    // Fills `entries` (room for kEntriesPerCall) and sets `count`. An entry that vanished meanwhile is left out.
    virtual CatalogStatus nextEntries(CatalogEntry* entries, int* count) = 0;
    virtual int error() const = 0;  // errno of the last failure
};

// A reference to an existing file or folder, held open. The stand-in for the platform's file reference.
struct FileReference {
    int fd = -1;        // open for reading when the folder may be read, otherwise -1
    int openError = 0;  // errno of opening a folder that exists; 0 when fd is open
    bool isDirectory = false;
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
    // Turns a path into a reference, without following a final link. False with errno when there is no such entry.
    // Paths longer than PATH_MAX are opened part by part.
    virtual bool reference(const std::string& path, FileReference* result, int* error) = 0;
    // Takes the reference. Null with errno when the folder cannot be read.
    virtual std::unique_ptr<CatalogIterator> openIterator(FileReference reference, int* error) = 0;

    struct Options {
        bool loadPseudoFileSystems = false;
        bool sameFileSystemOnly = false;
    };
    // The disk. Node identities are unique within one catalog: a job makes one for its root (see NodeIdentity).
    // An empty root: identities are relative to the mount of the first path that is asked for.
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
