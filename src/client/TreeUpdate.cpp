#include "client/TreeUpdate.h"

#include <algorithm>
#include <string_view>
#include <tuple>
#include <vector>

#include "client/TreeTotals.h"
#include "model/FolderWalk.h"

namespace kavaro {

namespace {

struct Child {
    std::uint32_t inode;
    std::string_view name;
    int index;
    bool isPaired = false;
};

std::vector<Child> childrenOf(const TuvObjectArray& nodes) {
    std::vector<Child> children;
    children.reserve(static_cast<std::size_t>(nodes.count()));
    for (int i = 0; i < nodes.count(); ++i) {
        const TuvNode* node = nodes.nodeAtIndex(i);
        children.push_back({node->inode(), node->fileName(), i});
    }
    std::sort(children.begin(), children.end(), [](const Child& a, const Child& b) {
        return std::tie(a.inode, a.name, a.index) < std::tie(b.inode, b.name, b.index);
    });
    return children;
}

// For each fresh node the own one that it is now, or null. By ID and name, then what is left by ID.
std::vector<TuvNode*> pairs(const TuvObjectArray& own, const TuvObjectArray& fresh) {
    std::vector<TuvNode*> found(static_cast<std::size_t>(fresh.count()));
    std::vector<Child> old = childrenOf(own);
    std::vector<Child> now = childrenOf(fresh);
    const auto pairUp = [&](auto isBefore) {
        auto a = old.begin();
        auto b = now.begin();
        while (a != old.end() && b != now.end()) {
            if (a->isPaired || isBefore(*a, *b)) {
                ++a;
            } else if (b->isPaired || isBefore(*b, *a)) {
                ++b;
            } else {
                a->isPaired = b->isPaired = true;
                found[static_cast<std::size_t>(b->index)] = own.nodeAtIndex(a->index);
                ++a, ++b;
            }
        }
    };
    pairUp([](const Child& a, const Child& b) { return std::tie(a.inode, a.name) < std::tie(b.inode, b.name); });
    pairUp([](const Child& a, const Child& b) { return a.inode < b.inode; });
    return found;
}

std::vector<std::uint32_t> inodesOf(const TuvObjectArray& nodes) {
    std::vector<std::uint32_t> inodes;
    inodes.reserve(static_cast<std::size_t>(nodes.count()));
    for (const TuvObject* node : nodes) inodes.push_back(node->objectID());
    std::sort(inodes.begin(), inodes.end());
    return inodes;
}

// Of subfolders that would stand in `folder`.
bool makesSense(const TuvDirNode& record, const TuvDirNode& folder) {
    if (!record.hasLoadNodes()) return false;
    const std::vector<std::uint32_t> folders = inodesOf(*record.folders());
    if (std::adjacent_find(folders.begin(), folders.end()) != folders.end()) return false;
    const auto hasFolder = [&](std::uint32_t inode) {
        return std::binary_search(folders.begin(), folders.end(), inode);
    };
    for (const TuvObject* file : *record.files())
        if (hasFolder(file->objectID())) return false;
    for (const TuvDirNode* above = &folder; above; above = above->parent())
        if (hasFolder(above->inode())) return false;
    return true;
}

// A folder that was listed by its parent alone.
bool isPlaceholder(const TuvDirNode& folder) {
    return !folder.isResolved() && folder.childrenCount() == 0;
}

void forgetPathsBelow(TuvDirNode& folder) {
    for (FolderWalk walk(&folder); TuvDirNode* below = walk.next();) {
        for (TuvObjectArray* list : {below->files(), below->folders()})
            for (int i = 0; i < list->count(); ++i) list->nodeAtIndex(i)->setFilePath({});
    }
}

void takeNameAndDate(TuvNode& kept, const TuvNode& fresh) {
    kept.setContentModDate(fresh.contentModDate());
    if (kept.fileName() != fresh.fileName()) kept.setFileName(fresh.fileName());
}

// Null when the fresh node stands for itself.
TuvNode* keptFile(TuvNode* own, const TuvNode& fresh) {
    if (!own) return nullptr;
    takeNameAndDate(*own, fresh);
    own->setLogicalSize(fresh.logicalSize());
    own->setPhysicalSize(fresh.physicalSize());
    return own;
}

TuvNode* keptFolder(TuvNode* node, const TuvDirNode& fresh) {
    auto* own = static_cast<TuvDirNode*>(node);
    if (!own || (isPlaceholder(*own) && !isPlaceholder(fresh))) return nullptr;
    const bool isRenamed = own->fileName() != fresh.fileName();
    takeNameAndDate(*own, fresh);
    if (isRenamed) forgetPathsBelow(*own);
    return own;
}

template <class Kept>
void replaceChildren(TuvDirNode& folder, TuvObjectArray& own, const TuvObjectArray& fresh, Kept kept) {
    const std::vector<TuvNode*> paired = pairs(own, fresh);
    auto now = make<TuvObjectArray>(fresh.count());
    for (int i = 0; i < fresh.count(); ++i) {
        TuvNode* node = kept(paired[static_cast<std::size_t>(i)], i);
        if (!node) {
            node = fresh.nodeAtIndex(i);
            node->setParent(&folder);
        }
        now->addObject(node);
    }
    own.removeAllObjects();
    own.addObjectsFromArray(now.get());
}

void sumUpToTheRoot(TuvDirNode& changed) {
    for (TuvDirNode* folder = &changed; folder; folder = folder->parent()) {
        const bool isResolved = folder->hasLoadNodes() && folder->folders()->isResolved();
        folder->setIsResolved(isResolved);
        if (!isResolved) sumChildren(*folder);
    }
}

}  // namespace

TreeUpdate applyFolderRecord(TuvDirNode& root, ByteView bytes) {
    if (bytes.empty()) return TreeUpdate::noRecord;
    const TuvRef<TuvDirNode> record = TuvDirNode::fromBytes(bytes);
    if (!record) return TreeUpdate::senseless;
    TuvDirNode* folder = &root;
    if (root.inode() != record->inode())
        folder = static_cast<TuvDirNode*>(root.childWithINode(record->inode(), false, true));
    if (!folder) return TreeUpdate::unknownFolder;
    if (!makesSense(*record, *folder)) return TreeUpdate::senseless;

    folder->setContentModDate(record->contentModDate());
    folder->setHasLoadNodes();
    const TuvObjectArray& files = *record->files();
    const TuvObjectArray& folders = *record->folders();
    replaceChildren(*folder, *folder->files(), files,
                    [&](TuvNode* own, int i) { return keptFile(own, *files.nodeAtIndex(i)); });
    replaceChildren(*folder, *folder->folders(), folders,
                    [&](TuvNode* own, int i) { return keptFolder(own, *folders.folderAtIndex(i)); });
    sumUpToTheRoot(*folder);
    return TreeUpdate::applied;
}

}  // namespace kavaro
