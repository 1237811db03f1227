// Trees out of flat lists of folders, and the part of a waiting list that belongs to a folder.

#include <algorithm>
#include <tuple>
#include <unordered_map>

#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "support/Stopwatch.h"

namespace kavaro {

namespace {

// A slot of a folder's folders, by the inode of what stands there.
struct Place {
    std::uint32_t inode;
    int owner;  // number of the folder
    int slot;
    bool operator<(const Place& other) const {
        return std::tie(inode, owner, slot) < std::tie(other.inode, other.owner, other.slot);
    }
};

// All places of some folders. A list of n folders is put together with one look-up per folder: replacing a
// placeholder leaves the inode of its place as it was, so the places stay true meanwhile.
class Places {
  public:
    void add(int owner, const TuvDirNode* folder) {
        const TuvObjectArray* folders = folder->folders();
        for (int slot = 0; slot < folders->count(); ++slot)
            _places.push_back({folders->nodeAtIndex(slot)->inode(), owner, slot});
    }
    void sort() { std::sort(_places.begin(), _places.end()); }

    // The first place of the inode in the nearest owner from `owner` on.
    const Place* atOrAfter(std::uint32_t inode, int owner) const {
        const auto found = std::lower_bound(_places.begin(), _places.end(), Place{inode, owner, 0});
        return found != _places.end() && found->inode == inode ? &*found : nullptr;
    }
    const Place* before(std::uint32_t inode, int owner) const {
        const auto next = std::lower_bound(_places.begin(), _places.end(), Place{inode, owner, 0});
        if (next == _places.begin() || std::prev(next)->inode != inode) return nullptr;
        return atOrAfter(inode, std::prev(next)->owner);
    }

  private:
    std::vector<Place> _places;
};

// The folder and, below folders whose children are loaded, all subfolders; every folder after its subfolders.
std::vector<const TuvDirNode*> loadedFoldersChildrenFirst(const TuvDirNode* folder) {
    std::vector<const TuvDirNode*> folders;
    std::vector<const TuvDirNode*> waiting{folder};
    while (!waiting.empty()) {
        const TuvDirNode* next = waiting.back();
        waiting.pop_back();
        folders.push_back(next);
        if (!next->hasLoadNodes()) continue;
        for (int i = 0; i < next->folderCount(); ++i) waiting.push_back(next->folders()->folderAtIndex(i));
    }
    std::reverse(folders.begin(), folders.end());
    return folders;
}

}  // namespace

void TuvObjectArray::attachAt(TuvDirNode* owner, int slot, TuvDirNode* child) {
    owner->folders()->replaceSlot(slot, child);
    child->setParent(owner);
}

void TuvObjectArray::rebuildTree(bool backwards) {
    const Stopwatch watch;
    const int initial = _count;
    Places places;
    for (int i = 0; i < _count; ++i) places.add(i, folderAtIndex(i));
    places.sort();
    std::vector<int> attached;
    for (int step = 0; step < _count; ++step) {
        const int i = backwards ? _count - 1 - step : step;
        TuvDirNode* folder = folderAtIndex(i);
        const Place* place = backwards ? places.before(folder->inode(), i) : places.atOrAfter(folder->inode(), i + 1);
        if (!place) continue;
        attachAt(folderAtIndex(place->owner), place->slot, folder);
        attached.push_back(i);
    }
    if (backwards) std::reverse(attached.begin(), attached.end());
    removeObjectsAtIndexes(attached);
    if (tuvObjectArrayLog.debugOn())
        TuvLog::debug(tuvObjectArrayLog, backwards ? "rebuildTreeBackWards" : "rebuildTree",
                      "%d initial nodes, %d current in %9.3f ms", initial, _count, watch.milliseconds());
}

void TuvObjectArray::rebuildTree() {
    rebuildTree(false);
}

void TuvObjectArray::rebuildTreeBackWards() {
    rebuildTree(true);
}

void TuvObjectArray::attachToRootNode(TuvDirNode* root) {
    Places places;
    places.add(0, root);
    places.sort();
    std::vector<int> attached;
    for (int i = 0; i < _count; ++i) {
        TuvDirNode* folder = folderAtIndex(i);
        const Place* place = folder == root ? nullptr : places.atOrAfter(folder->inode(), 0);
        if (!place) continue;
        attachAt(root, place->slot, folder);
        attached.push_back(i);
    }
    removeObjectsAtIndexes(attached);
}

void TuvObjectArray::insertUnResolvedNodes(const TuvDirNode* folder) {
    auto unresolved = make<TuvObjectArray>(folder->folderCount() + 1);
    for (TuvObject* object : *folder->folders())
        if (!asNode(object)->isResolved()) unresolved->addObject(object);
    insertObjectsAtIndex(unresolved.get(), 0);
}

// Every folder takes the first element of its inode away, subfolders before their folder. Without a log to write,
// which of them is first makes no difference, and one pass that ends with the last find does it.
void TuvObjectArray::removeFoldersFromNodeRecursively(const TuvDirNode* folder) {
    if (!folder) return;
    const std::vector<const TuvDirNode*> leaving = loadedFoldersChildrenFirst(folder);
    if (tuvObjectArrayLog.debugOn()) {
        for (const TuvDirNode* one : leaving) removeObject(one);
        return;
    }
    std::unordered_map<std::uint32_t, int> wanted;
    for (const TuvDirNode* one : leaving) ++wanted[one->inode()];
    std::vector<int> indexes;
    for (int i = 0; i < _count && indexes.size() < leaving.size(); ++i) {
        const auto found = wanted.find(nodeAtIndex(i)->inode());
        if (found == wanted.end() || found->second == 0) continue;
        --found->second;
        indexes.push_back(i);
    }
    removeObjectsAtIndexes(indexes);
}

}  // namespace kavaro
