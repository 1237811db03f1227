#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "cleanup/TuvNodeMD5Hash.h"

namespace kavaro {

// What tells one state of a file from others of it and of other files: a change of the content, also one that puts size
// and date back, changes the time of the last change of status, which nobody can set. Two things can escape it: what a
// process stores through a mapping of the file, where that time moves only with the first store into a page that is
// clean (a file system in memory never cleans one), and a change after the clock was set back.
struct FileIdentity {
    std::uint64_t device = 0, inode = 0, size = 0;
    std::int64_t modified = 0, changed = 0;  // nanoseconds since 1970
    bool operator==(const FileIdentity&) const = default;
};

// The hash records of earlier searches, in one file. Node IDs hold within one job alone, so a record is found by its
// path here, and it counts only while the disk gives the file the very identity that it had when its digest was made.
// A file that is missing, damaged, or of another version is an empty cache.
//
// Limits: kMostRecords records; those of the last search go before older ones. Main thread.
class DigestCache {
  public:
    static constexpr std::size_t kMostRecords = 1'000'000;
    // A file that was changed so shortly before its digest was made may change again and look the same: within the same
    // tick of the file system's clock, or through a mapping, until the kernel has written the page to the disk (after
    // 30 s, looked for every 5 s, unless the system is told otherwise). Its record is not kept.
    static constexpr std::int64_t kUncertainNanoseconds = 40'000'000'000;

    // Empty: nothing is read, nothing kept.
    explicit DigestCache(std::string path) : _path(std::move(path)) {}

    void load();
    // The digest of the file at a path, when it is known for this identity. What was asked for counts as used.
    std::optional<std::string> find(const std::string& path, const FileIdentity& identity);
    // `now`: when the identity was seen, before the digest was made; in nanoseconds since 1970.
    void add(const TuvNodeMD5Hash& record, const FileIdentity& identity, std::int64_t now);
    // Forgets what was not used below a folder that has been searched as a whole.
    void forgetUnusedBelow(std::string_view folder);
    // Writes the file anew when there is something new in it. An errno value, 0 for success.
    int save();

    std::size_t count() const { return _entries.size(); }

  private:
    struct Entry {
        FileIdentity identity;
        TuvRef<TuvNodeMD5Hash> record;
        bool isUsed = false;
    };
    bool read(ByteView bytes);

    const std::string _path;
    std::unordered_map<std::string, Entry> _entries;  // by path
    bool _isChanged = false;
};

}  // namespace kavaro
