// The passes over a batch.

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "fsevents/EventHelpers.h"
#include "fsevents/FSEventsLog.h"
#include "support/Stopwatch.h"

namespace kavaro {

namespace {

// Each has a switch of its own: trace of its own name, for what it logs at debug level.
constinit const LogComponent deleteSwitch{"TuvFSEvent_coalesce_DELETE"};
constinit const LogComponent createDirSwitch{"TuvFSEvent_coalesce_CREATE_DIR"};

// Paths of folders, and whether a text begins with one of them: one step a byte, however many folders there are. The
// paths must outlive it.
class Prefixes {
  public:
    explicit Prefixes(TuvFSEvent::Covers covers) : _endsAtSlash(covers == TuvFSEvent::Covers::within) {}
    void add(std::string_view path) {
        if (_lengths.size() <= path.size()) _lengths.resize(path.size() + 1);
        _lengths[path.size()] = true;
        std::uint64_t hash = kStart;
        for (char byte : path) hash = next(hash, byte);
        _paths.emplace(hash, path);
    }
    bool isBelow(std::string_view path) const {
        std::uint64_t hash = kStart;
        for (std::size_t length = 0; length < _lengths.size(); ++length) {
            if (_lengths[length] && mayEnd(path, length) && has(hash, path.substr(0, length))) return true;
            if (length == path.size()) return false;
            hash = next(hash, path[length]);
        }
        return false;
    }

  private:
    // FNV-1a.
    static constexpr std::uint64_t kStart = 0xcbf29ce484222325;
    static std::uint64_t next(std::uint64_t hash, char byte) {
        return (hash ^ static_cast<std::uint8_t>(byte)) * 0x100000001b3;
    }
    bool mayEnd(std::string_view path, std::size_t length) const {
        if (!_endsAtSlash) return true;
        return length < path.size() && (path[length] == '/' || (length > 0 && path[length - 1] == '/'));
    }
    bool has(std::uint64_t hash, std::string_view path) const {
        const auto [first, last] = _paths.equal_range(hash);
        for (auto entry = first; entry != last; ++entry)
            if (entry->second == path) return true;
        return false;
    }

    const bool _endsAtSlash;     // so that a folder's path is the beginning of what is within it alone
    std::vector<bool> _lengths;  // which lengths there are
    std::unordered_multimap<std::uint64_t, std::string_view> _paths;
};

// Says how many events a pass found and left.
class PassLog {
  public:
    PassLog(const char* selector, const TuvObjectArray* batch) : _selector(selector), _batch(batch) {
        if (tuvFSEventLog.debugOn()) TuvLog::debug(tuvFSEventLog, _selector, "%d events", _batch->count());
    }
    PassLog(const PassLog&) = delete;
    PassLog& operator=(const PassLog&) = delete;
    ~PassLog() {
        if (!tuvFSEventLog.debugOn()) return;
        TuvLog::debug(tuvFSEventLog, _selector, "%d left, in %9.3f ms", _batch->count(), _watch.milliseconds());
    }

  private:
    const char* _selector;
    const TuvObjectArray* _batch;
    Stopwatch _watch;
};

bool isParent(const TuvFSEvent& event, int type) {
    return event.type() == type && !event.lastChildEvent();
}

// Where the entry went last; no data when it stayed.
std::string_view lastDestination(const TuvFSEvent& event) {
    const TuvObjectArray* children = event.childEvents();
    for (int index = children ? children->count() : 0; index-- > 0;)
        if (const std::string_view path = eventAtIndex(*children, index)->filePathDestination(); path.data())
            return path;
    return event.filePathDestination();
}

bool isCovered(const TuvFSEvent& event, const Prefixes& parents, int type, TuvFSEvent::Covers covers) {
    const std::string_view path = event.filePath();
    if (!path.data() || !parents.isBelow(path)) return false;
    if (covers == TuvFSEvent::Covers::samePrefix) return true;
    static const int deleted = TuvFSEvent::intType("DELETE");
    const TuvFSEvent* last = event.lastChildEvent();
    if (type == deleted && (last ? last->type() : event.type()) != deleted) return false;
    const std::string_view destination = lastDestination(event);
    return !destination.data() || parents.isBelow(destination);
}

// Every event of the type without children is a parent; what comes behind a parent and has a path that begins with the
// parent's leaves the batch. The same as a walk from each parent to the end: an event that goes as a child of one
// parent would have taken with it only what begins with that parent's path too.
void removeBelowParents(TuvObjectArray* batch, int type, TuvFSEvent::Covers covers, const char* selector,
                        const LogComponent& logSwitch) {
    const bool logs = logSwitch.traceOn();
    Prefixes parents(covers);
    std::vector<int> removed;
    for (int index = 0; index < batch->count(); ++index) {
        const TuvFSEvent& event = *eventAtIndex(*batch, index);
        const std::string_view path = event.filePath();
        if (isCovered(event, parents, type, covers)) {
            if (logs) TuvLog::debug(tuvFSEventLog, selector, "Found parent for: %@", event);
            removed.push_back(index);
        } else if (isParent(event, type)) {
            if (logs) TuvLog::debug(tuvFSEventLog, selector, "Parent: %@", event);
            if (path.data()) parents.add(path);
        }
    }
    if (logs) TuvLog::debug(tuvFSEventLog, selector, "removed %d", static_cast<int>(removed.size()));
    batch->removeObjectsAtIndexes(removed);
}

bool isSortedByInode(const TuvObjectArray& batch) {
    for (int index = 1; index < batch.count(); ++index)
        if (signedInode(*eventAtIndex(batch, index - 1)) > signedInode(*eventAtIndex(batch, index))) return false;
    return true;
}

bool hasParent(const TuvObjectArray& batch, int type) {
    for (int index = 0; index < batch.count(); ++index)
        if (isParent(*eventAtIndex(batch, index), type)) return true;
    return false;
}

}  // namespace

void TuvFSEvent::coalesce_DELETE(TuvObjectArray* batch, Covers covers) {
    static const int deleted = intType("DELETE");
    const PassLog passLog("coalesce_DELETE", batch);
    // Nothing can be removed without a parent: then the order by path, the dear part, is not needed.
    if (hasParent(*batch, deleted)) {
        batch->sortByFunction(TuvFSEvent_sortByPathInsensitive);
        removeBelowParents(batch, deleted, covers, "coalesce_DELETE", deleteSwitch);
    }
    if (!isSortedByInode(*batch)) batch->sortByFunction(TuvFSEvent_sortByInode);
}

void TuvFSEvent::coalesce_CREATE_DIR(TuvObjectArray* batch, Covers covers) {
    static const int createDir = intType("CREATE_DIR");
    const PassLog passLog("coalesce_CREATE_DIR", batch);
    removeBelowParents(batch, createDir, covers, "coalesce_CREATE_DIR", createDirSwitch);
}

void TuvFSEvent::coalesce_CREATE_MODIFY_RENAME(TuvObjectArray* batch) {
    const PassLog passLog("coalesce_CREATE_MODIFY_RENAME", batch);
    for (int index = 0; index < batch->count(); ++index) eventAtIndex(*batch, index)->coalesce_CREATE_MODIFY_RENAME();
}

void TuvFSEvent::processItems(const TuvObjectArray* batch) {
    const Stopwatch watch;
    int events = 0;
    int children = 0;
    for (int index = 0; index < batch->count(); ++index) {
        const TuvObjectArray* list = eventAtIndex(*batch, index)->childEvents();
        ++events;
        if (list) children += list->count();
    }
    TuvLog::info(tuvFSEventLog, "processItems", "%d items, %d child items, in %9.3f ms", events, children,
                 watch.milliseconds());
}

}  // namespace kavaro
