#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "client/DigestCache.h"
#include "client/Measurement.h"
#include "model/TuvDirNode.h"
#include "platform/Clock.h"

namespace kavaro {

// One name of a file that has duplicates.
struct DuplicateFile {
    std::string path;
    const TuvNode* node = nullptr;   // in its measured tree
    std::uint32_t inode = 0;         // its node ID in the job that measured it
    int sameAs = -1;                 // index in the group of an earlier name of the same file: a hard link of it
    bool hasNamesElsewhere = false;  // the file has more names than those in the group
};

// Names of files of the same content, in the order of their paths.
struct DuplicateGroup {
    std::uint64_t size = 0;   // logical, of each
    std::uint64_t waste = 0;  // bytes on disk that come free when all of them but one file go
    std::string digest;       // empty where all are hard links of one file: that needs none
    std::vector<DuplicateFile> files;
};

struct UndigestedFile {
    std::string path;
    std::string reason;
};

// How far the look at beginnings and ends is.
struct SampleProgress {
    std::uint64_t files = 0, totalFiles = 0;
};

// A search for files of the same content in measured folders: which of them need a digest, and what the digests tell.
// Looks at files on the disk once more: links, and what has gone or has another size by now, are left out; names of one
// file are known by it; files whose beginnings or ends differ need no digest. A name that is reached by several ways,
// through links to folders or folders that are mounted twice, is one: by its folder's device and inode. Calls in this
// order: addFolder() for each folder, prepare(), then nodesToDigest() are digested, finish(). Main thread.
class DuplicateSearch {
  public:
    explicit DuplicateSearch(std::uint64_t smallestSize) : _smallestSize(smallestSize) {}
    DuplicateSearch(const DuplicateSearch&) = delete;
    DuplicateSearch& operator=(const DuplicateSearch&) = delete;

    // Another clock, for tests: seconds since 1970.
    void setNow(std::function<double()> now) { _now = std::move(now); }
    // Takes over the tree. REQUIRES: there is one.
    void addFolder(TuvRef<TuvDirNode> root) { _roots.push_back(std::move(root)); }
    // Is told how far prepare() is, often; false gives up.
    using GoesOn = std::function<bool(const SampleProgress&)>;
    // Finds files of the same size and what the cache knows of their digests (null: none), and leaves out those that
    // a look at their beginnings and ends tells apart. False when it was given up.
    bool prepare(DigestCache* cache, const GoesOn& goesOn = nullptr);
    // One name of each file without a digest. Node IDs tell files apart over all folders now.
    const TuvObjectArray* nodesToDigest() const { return _toDigest.get(); }
    // `fresh`: the records of those nodes, as far as they were made; they go into the cache, too. The largest waste
    // comes first.
    std::vector<DuplicateGroup> finish(const TuvObjectArray* fresh, DigestCache& cache);

    std::uint64_t candidates() const { return _candidates; }
    // Of the fresh records, those without a digest, and why, as far as this process can see it.
    const std::vector<UndigestedFile>& undigested() const { return _undigested; }

  private:
    // A file, whatever its names.
    struct File {
        bool isKnown = false;  // the disk told what follows
        FileIdentity identity;
        std::uint64_t links = 0;              // names that the disk counts
        std::uint64_t names = 0;              // found so far
        std::int64_t seen = 0;                // when; nanoseconds since 1970
        bool hasDigest = false;               // that was known before
        std::optional<std::uint64_t> sample;  // of its content; nothing: not taken, or it cannot be read by us
    };
    using FileKey = std::pair<std::uint64_t, std::uint64_t>;
    using FolderKey = std::pair<FileKey, std::string>;  // device and inode; where they are not known, the path

    const FolderKey& folderOf(const TuvNode* node);
    bool lookAt(TuvNode* node);
    void takeGroup(const TuvObjectArray* group);
    void addGroup(TuvRef<TuvObjectArray> members);
    void takeKnownDigests(DigestCache& cache);
    bool isWhollyKnown(const TuvObjectArray* group) const;
    bool takeSamples(const GoesOn& goesOn);
    void splitBySample();
    TuvRef<TuvObjectArray> oneNameOfEach(const TuvObjectArray* groups) const;
    void takeIn(const TuvObjectArray* fresh, DigestCache& cache);
    TuvRef<TuvObjectArray> splitByDigest(const TuvObjectArray* records) const;
    DuplicateGroup described(const TuvObjectArray* group) const;
    std::uint64_t wasteOf(const TuvObjectArray* group) const;
    const File& fileOf(const TuvNode* node) const { return _files[node->inode() - 1]; }
    File& fileOf(const TuvNode* node) { return _files[node->inode() - 1]; }

    const std::uint64_t _smallestSize;
    std::function<double()> _now = [] { return Clock::system().wallSeconds(); };
    std::vector<TuvRef<TuvDirNode>> _roots;
    std::uint64_t _candidates = 0;
    std::vector<File> _files;                                    // by node ID - 1
    std::map<std::pair<bool, FileKey>, std::uint32_t> _fileIDs;  // true: device and inode; false: tree and node ID
    std::unordered_map<const TuvNode*, FolderKey> _folders;      // by the node of the folder
    std::unordered_map<const TuvNode*, std::uint32_t> _measuredIDs;
    TuvRef<TuvObjectArray> _groups = make<TuvObjectArray>();      // of one size, more than one file each
    TuvRef<TuvObjectArray> _linkGroups = make<TuvObjectArray>();  // names of one file alone
    TuvRef<TuvObjectArray> _records = make<TuvObjectArray>();     // with their digests
    TuvRef<TuvObjectArray> _toDigest = make<TuvObjectArray>();
    std::vector<UndigestedFile> _undigested;
};

}  // namespace kavaro
