#include <vector>

#include "cleanup/DuplicatesLog.h"
#include "cleanup/TuvNodeMD5Hash.h"
#include "model/ModelLog.h"
#include "support/Stopwatch.h"

namespace kavaro {

namespace {

void logNoRecord(const TuvNode* node) {
    if (tuvNodeMD5HashLog.debugOn())
        TuvLog::debug(tuvNodeMD5HashLog, "duplicateFiles", "no hash for %d:[%@]", node->inode(), node);
}

// Takes the members whose digest is another than the first one's out of the group.
void keepEqualMembers(TuvObjectArray* group, const std::string& digest, const TuvObjectArray* records) {
    std::vector<int> others;
    for (int i = 1; i < group->count(); ++i) {
        const TuvNode* node = group->nodeAtIndex(i);
        const TuvNodeMD5Hash* record = TuvNodeMD5Hash::recordOfNode(records, node);
        if (!record) {
            logNoRecord(node);
        } else if (record->md5Hash() != digest) {
            others.push_back(i);
        } else if (tuvNodeMD5HashLog.debugOn()) {
            TuvLog::debug(tuvNodeMD5HashLog, "duplicateFiles", "%@, %09d, %@", digest, node->inode(), node);
        }
    }
    group->removeObjectsAtIndexes(others);
}

}  // namespace

TuvRef<TuvObjectArray> TuvNodeMD5Hash::flatenArray(const TuvObjectArray* groups) {
    TuvLog::info(tuvNodeMD5HashLog, "flatenArray", "%d chunks of files", groups->count());
    int sum = 0;
    for (int i = 0; i < groups->count(); ++i) sum += groups->arrayAtIndex(i)->count();
    auto flat = make<TuvObjectArray>(sum);
    for (int i = 0; i < groups->count(); ++i)
        for (TuvObject* member : *groups->arrayAtIndex(i)) flat->addObject(member);
    TuvLog::info(tuvNodeMD5HashLog, "flatenArray", "%d files", flat->count());
    return flat;
}

TuvRef<TuvObjectArray> TuvNodeMD5Hash::fileNodesToReload(const TuvObjectArray* nodes, const TuvObjectArray* records) {
    const Stopwatch watch;
    auto stale = make<TuvObjectArray>(nodes->count());
    for (int i = 0; i < nodes->count(); ++i) {
        TuvNode* node = nodes->nodeAtIndex(i);
        const TuvNodeMD5Hash* record = recordOfNode(records, node);
        const bool holds = record && node->contentModDate() <= record->modified();
        if (!holds) stale->addObject(node);
    }
    TuvLog::info(tuvObjectArrayLog, "fileNodesToReload", "Need to figure out %d hashes out of %d files in %9.3f ms",
                 stale->count(), nodes->count(), watch.milliseconds());
    return stale;
}

int TuvNodeMD5Hash::cleanedArray(TuvObjectArray* records) {
    const int before = records->count();
    std::vector<int> removed;
    std::uint32_t remembered = 0;
    const TuvNodeMD5Hash* kept = nullptr;  // the record before, as far as it is still there
    for (int i = 0; i < before; ++i) {
        const TuvNodeMD5Hash* record = atIndex(records, i);
        if (record->inode() == remembered) {
            if (tuvNodeMD5HashLog.traceOn()) {
                TuvLog::trace(tuvNodeMD5HashLog, "cleanedArray", "recent inode  ,  %@", kept);
                TuvLog::trace(tuvNodeMD5HashLog, "cleanedArray", "same old inode,  %@", record);
            }
            removed.push_back(i);
            continue;
        }
        remembered = record->inode();
        if (record->md5Hash().empty()) {
            if (tuvNodeMD5HashLog.traceOn())
                TuvLog::trace(tuvNodeMD5HashLog, "cleanedArray", "no hash for [%@]", record);
            removed.push_back(i);
            continue;
        }
        kept = record;
    }
    const int count = static_cast<int>(removed.size());
    records->removeObjectsAtIndexes(removed);
    if (count > 0) TuvLog::info(tuvNodeMD5HashLog, "cleanedArray", "removed %d from %d files", count, before);
    return count;
}

TuvRef<TuvObjectArray> TuvNodeMD5Hash::duplicateFiles(TuvObjectArray* potentialGroups, TuvObjectArray* records) {
    const Stopwatch watch;
    const bool debugOn = tuvNodeMD5HashLog.debugOn();
    auto real = make<TuvObjectArray>();
    const int potential = potentialGroups->count();
    TuvLog::info(tuvNodeMD5HashLog, "duplicateFiles", "%d potential duplicate files", potential);
    if (debugOn) TuvLog::debug(tuvNodeMD5HashLog, "duplicateFiles", "-----------------------------------------");
    records->sortByFunction(TuvNodeMD5Hash_sortByInode);
    TuvLog::info(tuvNodeMD5HashLog, "duplicateFiles", "%d hashes", records->count());
    std::vector<int> disqualified;
    for (int i = 0; i < potential; ++i) {
        TuvObjectArray* group = potentialGroups->arrayAtIndex(i);
        const TuvNode* first = group->nodeAtIndex(0);
        const TuvNodeMD5Hash* record = first ? recordOfNode(records, first) : nullptr;
        if (!record) {
            if (first) logNoRecord(first);
            continue;
        }
        const int before = group->count();
        const int size = static_cast<int>(first->logicalSize());
        if (debugOn)
            TuvLog::debug(tuvNodeMD5HashLog, "duplicateFiles", "%d potential duplicates for size %d", before, size);
        keepEqualMembers(group, record->md5Hash(), records);
        if (group->count() < 2) {
            if (debugOn)
                TuvLog::debug(tuvNodeMD5HashLog, "duplicateFiles",
                              "This entry does not qualify, since there are %d items in the array", group->count());
            disqualified.push_back(i);
        } else {
            if (debugOn)
                TuvLog::debug(tuvNodeMD5HashLog, "duplicateFiles", "%d of %d real duplicates for size %d",
                              group->count(), before, size);
            real->addObject(group);
        }
        if (debugOn) TuvLog::debug(tuvNodeMD5HashLog, "duplicateFiles", "");
    }
    potentialGroups->removeObjectsAtIndexes(disqualified);
    TuvLog::info(tuvNodeMD5HashLog, "duplicateFiles", "Found %d real groups from %d potential groups in %9.3f ms",
                 real->count(), potential, watch.milliseconds());
    return real;
}

}  // namespace kavaro
