#include "client/TreeTotals.h"

#include <algorithm>
#include <vector>

namespace kavaro {

namespace {

struct Level {
    const TuvDirNode* folder;
    int nextFolder;
    EntryTotals totals;
};

// What the folder holds itself, and its sizes when they are final.
EntryTotals ownTotals(const TuvDirNode& folder) {
    EntryTotals own;
    own.files = static_cast<std::uint64_t>(folder.fileCount());
    own.folders = static_cast<std::uint64_t>(folder.folderCount());
    if (folder.isResolved()) {
        own.logicalSize = folder.logicalSize();
        own.physicalSize = folder.physicalSize();
        return own;
    }
    for (int i = 0; i < folder.fileCount(); ++i) {
        const TuvNode* file = folder.files()->nodeAtIndex(i);
        own.logicalSize += file->logicalSize();
        own.physicalSize += file->physicalSize();
    }
    return own;
}

}  // namespace

EntryTotals& EntryTotals::operator+=(const EntryTotals& other) {
    logicalSize += other.logicalSize;
    physicalSize += other.physicalSize;
    files += other.files;
    folders += other.folders;
    return *this;
}

EntryTotals& EntryTotals::operator-=(const EntryTotals& other) {
    logicalSize -= std::min(logicalSize, other.logicalSize);
    physicalSize -= std::min(physicalSize, other.physicalSize);
    files -= std::min(files, other.files);
    folders -= std::min(folders, other.folders);
    return *this;
}

void sumChildren(TuvDirNode& folder) {
    folder.setLogicalSize(folder.files()->logicalSize() + folder.folders()->logicalSize());
    folder.setPhysicalSize(folder.files()->physicalSize() + folder.folders()->physicalSize());
}

TreeTotals::TreeTotals(const TuvDirNode& root, int depth) {
    std::vector<Level> levels;
    levels.push_back({&root, 0, ownTotals(root)});
    while (true) {
        Level& level = levels.back();
        if (level.nextFolder < level.folder->folderCount()) {
            const TuvDirNode* next = level.folder->folders()->folderAtIndex(level.nextFolder++);
            levels.push_back({next, 0, ownTotals(*next)});
            continue;
        }
        const Level done = level;
        levels.pop_back();
        if (static_cast<int>(levels.size()) <= depth) _kept.emplace(done.folder, done.totals);
        if (levels.empty()) {
            _root = done.totals;
            return;
        }
        EntryTotals& above = levels.back().totals;
        above.files += done.totals.files;
        above.folders += done.totals.folders;
        if (!levels.back().folder->isResolved()) {
            above.logicalSize += done.totals.logicalSize;
            above.physicalSize += done.totals.physicalSize;
        }
    }
}

const EntryTotals& TreeTotals::of(const TuvDirNode& folder) const {
    static const EntryTotals kNothing;
    const auto found = _kept.find(&folder);
    return found == _kept.end() ? kNothing : found->second;
}

}  // namespace kavaro
