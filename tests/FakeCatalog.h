#pragma once

#include <errno.h>
#include <fcntl.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/Catalog.h"

namespace kavaro {

// A disk in memory. Fill it before use (folders and entries may be changed between listings, by the test's thread,
// while nothing lists); listing is then safe from several threads. Listings hold a copy of their folder.
// Paths are compared as strings, without links: "/a/b", no slash at the end except "/" itself.
//
//     FakeCatalog catalog;
//     catalog.addFolder("/root", 10);
//     catalog.addFile("/root/file", 11, 100, 4096);
//     catalog.folder("/root").failAfter = 1;  // status error after one entry
class FakeCatalog final : public Catalog {
  public:
    static constexpr std::int64_t kDefaultDate = 1000000000;  // 2001-09-09 01:46:40 UTC

    struct Entry {
        std::string name;
        std::uint32_t nodeID = 0;
        bool isDirectory = false;
        std::uint64_t logicalSize = 0;
        std::uint64_t physicalSize = 0;
        std::int64_t modificationSeconds = kDefaultDate;  // since 1970
        const char* excludedReason = nullptr;
    };

    struct Folder {
        std::uint32_t nodeID = 0;
        std::int64_t modificationSeconds = kDefaultDate;
        std::vector<Entry> entries;
        int entriesPerCall = CatalogIterator::kEntriesPerCall;
        bool lastEntriesWithNoMoreItems = true;  // false: an empty call ends the listing, as on the disk
        int failAfter = INT_MAX;                 // entries delivered before status error
        int failError = EIO;
        int entriesWithError = 0;   // delivered together with status error, beyond failAfter
        int unreadableEntries = 0;  // counted, not delivered; their errno:
        int unreadableError = EACCES;
        int openError = 0;       // not 0: exists, may not be read
        int iteratorError = 0;   // not 0: reference() succeeds, openIterator() fails
        int referenceError = 0;  // not 0: reference() fails
        const char* excludedReason = nullptr;
    };

    // Makes the folder, and its entry in the parent folder when that is there.
    Folder& addFolder(const std::string& path, std::uint32_t nodeID, std::int64_t date = kDefaultDate) {
        Folder& made = _folders[path];
        made.nodeID = nodeID;
        made.modificationSeconds = date;
        addEntry(path, {{}, nodeID, true, 0, 0, date, nullptr});
        return made;
    }
    // Makes the file, and its entry in the parent folder when that is there.
    void addFile(const std::string& path, std::uint32_t nodeID, std::uint64_t logicalSize, std::uint64_t physicalSize,
                 std::int64_t date = kDefaultDate) {
        const Entry entry{{}, nodeID, false, logicalSize, physicalSize, date, nullptr};
        _files[path] = entry;
        addEntry(path, entry);
    }
    // A folder that the listing of its parent leaves out, with the reason.
    void addExcludedFolder(const std::string& path, std::uint32_t nodeID, const char* reason) {
        addFolder(path, nodeID).excludedReason = reason;
        if (Entry* entry = entryOf(path)) entry->excludedReason = reason;
    }
    // Takes the path away, its entry in the parent folder too. What lies below stays, unreachable.
    void remove(const std::string& path) {
        vanish(path);
        auto parent = _folders.find(parentOf(path));
        if (parent == _folders.end()) return;
        std::erase_if(parent->second.entries, [&](const Entry& entry) { return entry.name == nameOf(path); });
    }
    // Takes the path away and leaves its entry in the parent folder: it vanished after the listing.
    void vanish(const std::string& path) {
        _folders.erase(path);
        _files.erase(path);
    }
    Folder& folder(const std::string& path) { return _folders[path]; }
    Entry* entryOf(const std::string& path) {
        auto parent = _folders.find(parentOf(path));
        if (parent == _folders.end()) return nullptr;
        for (Entry& entry : parent->second.entries) {
            if (entry.name == nameOf(path)) return &entry;
        }
        return nullptr;
    }

    // What was asked of the catalog, in order.
    std::vector<std::string> statPaths() const { return locked(_statPaths); }
    std::vector<std::string> referencePaths() const { return locked(_referencePaths); }
    std::vector<std::string> listedPaths() const { return locked(_listedPaths); }
    int openIterators() const { return *_openIterators; }

    bool stat(const std::string& path, CatalogStat* result, int* error) override {
        std::lock_guard lock(_mutex);
        _statPaths.push_back(path);
        if (auto found = _folders.find(path); found != _folders.end()) {
            *result = {found->second.nodeID, true, found->second.modificationSeconds, 4096, 4096};
            return true;
        }
        if (auto found = _files.find(path); found != _files.end()) {
            const Entry& file = found->second;
            *result = {file.nodeID, false, file.modificationSeconds, file.logicalSize, 4096};
            return true;
        }
        *error = ENOENT;
        return false;
    }

    bool reference(const std::string& path, FileReference* result, int* error) override {
        std::lock_guard lock(_mutex);
        _referencePaths.push_back(path);
        *result = {};
        auto found = _folders.find(path);
        if (found == _folders.end()) {
            if (_files.count(path) != 0) return true;
            *error = ENOENT;
            return false;
        }
        const Folder& wanted = found->second;
        *error = wanted.referenceError;
        if (wanted.referenceError != 0) return false;
        result->isDirectory = true;
        result->openError = wanted.openError;
        result->excludedReason = wanted.excludedReason;
        if (wanted.openError != 0 || wanted.excludedReason) return true;
        result->fd = open("/dev/null", O_RDONLY | O_CLOEXEC);  // a number of its own, given back by the reference
        _pathOfReference[result->fd] = path;
        return true;
    }

    std::unique_ptr<CatalogIterator> openIterator(FileReference&& reference, int* error) override {
        std::lock_guard lock(_mutex);
        if (reference.excludedReason) return std::make_unique<Iterator>(std::move(reference), Folder{}, _openIterators);
        auto found = _pathOfReference.find(reference.fd);
        if (found == _pathOfReference.end()) {
            *error = reference.openError != 0 ? reference.openError : ENOTDIR;
            return nullptr;
        }
        const Folder& wanted = _folders[found->second];
        *error = wanted.iteratorError;
        if (wanted.iteratorError != 0) return nullptr;
        _listedPaths.push_back(found->second);
        return std::make_unique<Iterator>(std::move(reference), wanted, _openIterators);
    }

  private:
    class Iterator final : public CatalogIterator {
      public:
        Iterator(FileReference reference, Folder folder, std::shared_ptr<std::atomic<int>> openIterators)
            : _reference(std::move(reference)), _folder(std::move(folder)), _openIterators(std::move(openIterators)) {
            ++*_openIterators;
            if (_folder.unreadableEntries != 0) _error = _folder.unreadableError;
        }
        ~Iterator() override { --*_openIterators; }

        CatalogStatus nextEntries(CatalogEntry* entries, int* count) override {
            *count = 0;
            while (*count < _folder.entriesPerCall && _next < size() && _next < _folder.failAfter) {
                fill(&entries[(*count)++], _folder.entries[static_cast<std::size_t>(_next++)]);
            }
            if (_next >= _folder.failAfter && *count == 0) {
                while (*count < _folder.entriesWithError && _next < size()) {
                    fill(&entries[(*count)++], _folder.entries[static_cast<std::size_t>(_next++)]);
                }
                _error = _folder.failError;
                return CatalogStatus::error;
            }
            const bool ended = _next == size() && _next < _folder.failAfter;
            return ended && (*count == 0 || _folder.lastEntriesWithNoMoreItems) ? CatalogStatus::noMoreItems
                                                                                : CatalogStatus::ok;
        }
        int error() const override { return _error; }
        int unreadableEntries() const override { return _folder.unreadableEntries; }

      private:
        int size() const { return static_cast<int>(_folder.entries.size()); }
        static void fill(CatalogEntry* out, const Entry& entry) {
            *out = {entry.name,           entry.nodeID,
                    entry.isDirectory,    entry.excludedReason != nullptr,
                    entry.excludedReason, catalogDate(entry.modificationSeconds),
                    entry.logicalSize,    entry.physicalSize};
        }

        FileReference _reference;
        Folder _folder;
        std::shared_ptr<std::atomic<int>> _openIterators;
        int _next = 0;
        int _error = 0;
    };

    static std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }
    static std::string parentOf(const std::string& path) {
        const std::size_t slash = path.rfind('/');
        return slash == 0 ? "/" : path.substr(0, slash);
    }
    void addEntry(const std::string& path, Entry entry) {
        if (path == "/") return;
        entry.name = nameOf(path);
        if (auto parent = _folders.find(parentOf(path)); parent != _folders.end()) {
            parent->second.entries.push_back(std::move(entry));
        }
    }
    std::vector<std::string> locked(const std::vector<std::string>& paths) const {
        std::lock_guard lock(_mutex);
        return paths;
    }

    mutable std::mutex _mutex;
    std::map<std::string, Folder> _folders;
    std::map<std::string, Entry> _files;
    std::map<int, std::string> _pathOfReference;  // a number is used again after its reference has gone
    std::vector<std::string> _statPaths, _referencePaths, _listedPaths;
    std::shared_ptr<std::atomic<int>> _openIterators = std::make_shared<std::atomic<int>>(0);
};

}  // namespace kavaro
