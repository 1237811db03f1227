#include "client/TreeAssembler.h"

#include "client/TreeTotals.h"

namespace kavaro {

void TreeAssembler::start(TuvRef<TuvDirNode> root) {
    *this = TreeAssembler();
    _root = std::move(root);
}

bool TreeAssembler::resolved(ByteView bytes) {
    TuvRef<TuvObjectArray> batch = TuvObjectArray::fromBytes(bytes);
    if (!batch) return false;
    for (TuvObject* object : *batch) {
        auto* node = static_cast<TuvNode*>(object);
        if (node->isDirectory()) takeIn(static_cast<TuvDirNode*>(node));
    }
    return true;
}

bool TreeAssembler::completed(ByteView bytes) {
    TuvRef<TuvDirNode> root = TuvDirNode::fromBytes(bytes);
    if (!root) return false;
    takeIn(root.get());
    _waiting.erase(root->inode());
    _root = std::move(root);
    _finished = 0;
    _complete = _waiting.empty() && _counts.folders == _placeholders + 1;
    return true;
}

void TreeAssembler::takeIn(TuvDirNode* folder) {
    if (_waiting.contains(folder->inode())) return;
    attachArrived(folder);
    ++_counts.folders;
    _counts.files += static_cast<std::uint64_t>(folder->fileCount());
    _counts.logicalSize += folder->files()->logicalSize();
    _counts.physicalSize += folder->files()->physicalSize();
    _placeholders += static_cast<std::uint64_t>(folder->folderCount());
    _lastName = folder->fileName();
    _lastInode = folder->inode();
    _waiting.emplace(folder->inode(), TuvRef<TuvDirNode>::share(folder));
}

void TreeAssembler::attachArrived(TuvDirNode* folder) {
    TuvObjectArray* placeholders = folder->folders();
    for (int i = 0; i < placeholders->count(); ++i) {
        auto arrived = _waiting.find(placeholders->folderAtIndex(i)->inode());
        if (arrived == _waiting.end()) continue;
        placeholders->replaceObjectAtIndex(i, arrived->second.get());
        arrived->second->setParent(folder);
        _waiting.erase(arrived);
    }
}

// The walk takes the root's folders in their order, so this is the one that was being sized.
TuvDirNode* TreeAssembler::firstUnfinished() const {
    if (!_root) return nullptr;
    const TuvObjectArray* folders = _root->folders();
    for (; _finished < folders->count(); ++_finished) {
        TuvDirNode* folder = folders->folderAtIndex(_finished);
        if (!folder->isResolved() && !_waiting.contains(folder->inode())) return folder;
    }
    return nullptr;
}

std::string TreeAssembler::lastFolder() const {
    const TuvDirNode* top = _complete ? nullptr : firstUnfinished();
    // A subfolder of the root itself arrives when all below it has.
    const bool isOfRoot = _finished > 0 && _root->folders()->folderAtIndex(_finished - 1)->inode() == _lastInode;
    if (!top || isOfRoot) return _lastName;
    return std::string(top->fileName()) + "/.../" + _lastName;
}

void TreeAssembler::hangOrphans() {
    attachArrived(_root.get());
    TuvDirNode* unfinished = firstUnfinished();
    TuvDirNode* home = unfinished ? unfinished : _root.get();
    for (auto& [inode, orphan] : _waiting) {
        home->folders()->addObject(orphan.get());
        orphan->setParent(home);
    }
    _waiting.clear();
    if (unfinished) sumChildren(*unfinished);
    sumChildren(*_root);
}

TuvRef<TuvDirNode> TreeAssembler::takeTree() {
    if (_root && !_complete) hangOrphans();
    return std::move(_root);
}

}  // namespace kavaro
