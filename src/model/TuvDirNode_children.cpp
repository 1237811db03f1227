#include <algorithm>

#include "model/FolderWalk.h"
#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "support/Stopwatch.h"

namespace kavaro {

namespace {

// The entries of a list that is sorted by inode, each found once at most.
class RemovalList {
  public:
    explicit RemovalList(const TuvObjectArray* sorted)
        : _sorted(sorted), _used(sorted->count()), _left(sorted->count()) {}
    bool isEmpty() const { return _left == 0; }
    bool take(std::uint32_t inode) {
        auto entry = std::lower_bound(_sorted->begin(), _sorted->end(), inode,
                                      [](TuvObject* object, std::uint32_t id) { return object->objectID() < id; });
        for (; entry != _sorted->end() && (*entry)->objectID() == inode; ++entry) {
            const auto index = static_cast<std::size_t>(entry - _sorted->begin());
            if (_used[index]) continue;
            _used[index] = true;
            --_left;
            return true;
        }
        return false;
    }
    std::vector<int> used() const {
        std::vector<int> indexes;
        for (std::size_t i = 0; i < _used.size(); ++i)
            if (_used[i]) indexes.push_back(static_cast<int>(i));
        return indexes;
    }

  private:
    const TuvObjectArray* _sorted;
    std::vector<bool> _used;
    int _left;
};

bool removeListed(TuvObjectArray* children, RemovalList& list) {
    std::vector<int> indexes;
    for (int i = 0; i < children->count() && !list.isEmpty(); ++i)
        if (list.take(children->nodeAtIndex(i)->inode())) indexes.push_back(i);
    children->removeObjectsAtIndexes(indexes);
    return !indexes.empty();
}

}  // namespace

TuvRef<TuvObjectArray> TuvDirNode::children() const {
    auto all = make<TuvObjectArray>(childrenCount() + 1);
    children(all.get(), false);
    return all;
}

void TuvDirNode::children(TuvObjectArray* array, bool recursive) const {
    for (FolderWalk walk(this); const TuvDirNode* folder = walk.next();) {
        array->addObjectsFromArray(folder->files());
        array->addObjectsFromArray(folder->folders());
        if (!recursive) return;
    }
}

TuvRef<TuvObjectArray> TuvDirNode::recursiveChildren() const {
    auto all = make<TuvObjectArray>(recursiveFileCount() + recursiveFolderCount() + 1);
    children(all.get(), true);
    return all;
}

TuvDirNode* TuvDirNode::folderWithFileName(std::string_view name) const {
    for (int i = 0; i < _folders->count(); ++i) {
        TuvDirNode* folder = _folders->folderAtIndex(i);
        if (folder->hasFileName() && folder->fileName() == name) return folder;
    }
    return nullptr;
}

TuvNode* TuvDirNode::childWithINode(std::uint32_t inode, bool includeFiles, bool recursive) const {
    for (FolderWalk walk(this); const TuvDirNode* folder = walk.next();) {
        if (TuvNode* found = folder->folders()->objectWithINode(inode)) return found;
        if (includeFiles)
            if (TuvNode* found = folder->files()->objectWithINode(inode)) return found;
        if (!recursive) break;
    }
    return nullptr;
}

bool TuvDirNode::attachChildNode(TuvDirNode* folder) {
    if (folder == this || !_folders->replaceObject(folder)) return false;
    folder->setParent(this);
    return true;
}

bool TuvDirNode::attachChildNodeRecursively(TuvDirNode* folder) {
    for (FolderWalk walk(this); TuvDirNode* place = walk.next();)
        if (place->attachChildNode(folder)) return true;
    return false;
}

bool TuvDirNode::removeChildNode(const TuvNode* node) {
    TuvObjectArray* const lists[] = {_files.get(), _folders.get()};
    for (TuvObjectArray* list : lists) {
        const int index = list->indexOfObject(node);
        if (index == TuvObjectArray::kNotFound) continue;
        list->removeObjectAtIndex(index);
        setIsResolved(true, true);
        return true;
    }
    return false;
}

void TuvDirNode::removeChildNodes(const TuvObjectArray* nodes) {
    const Stopwatch watch;
    const int asked = nodes->count();
    auto sorted = make<TuvObjectArray>(asked + 1);
    sorted->addObjectsFromArray(nodes);
    sorted->sortByFunction(TuvNode_sortByInode);
    removeChildNodesRecursive(sorted.get());
    sorted = nullptr;
    TuvLog::info(tuvDirNodeLog, "removeChildNodes", "removed %d Nodes in %9.3f ms", asked, watch.milliseconds());
}

// Each folder whose subtree lost something is summed once, after its subfolders.
void TuvDirNode::removeChildNodesRecursive(TuvObjectArray* sortedNodes) {
    struct Level {
        TuvDirNode* folder;
        int next;
        bool changed;
    };
    RemovalList list(sortedNodes);
    std::vector<Level> levels;
    const auto enter = [&](TuvDirNode* folder) {
        const bool lostFiles = removeListed(folder->files(), list);
        const bool lostFolders = removeListed(folder->folders(), list);
        levels.push_back({folder, 0, lostFiles || lostFolders});
    };
    if (!list.isEmpty()) enter(this);
    while (!levels.empty()) {
        Level& level = levels.back();
        TuvDirNode* child = list.isEmpty() ? nullptr : level.folder->folders()->folderAtIndex(level.next);
        if (child) {
            ++level.next;
            enter(child);
            continue;
        }
        const Level done = level;
        levels.pop_back();
        if (!done.changed) continue;
        done.folder->setIsResolved(true);
        TuvDirNode* above = done.folder->parent();
        if (!levels.empty() && levels.back().folder == above)
            levels.back().changed = true;
        else if (above)
            above->setIsResolved(true, true);
    }
    sortedNodes->removeObjectsAtIndexes(list.used());
}

}  // namespace kavaro
