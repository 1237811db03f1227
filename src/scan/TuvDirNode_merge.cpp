#include "model/ModelLog.h"
#include "model/TuvDirNode.h"

namespace kavaro {

namespace {

// Sizes are unsigned and every sum is modular, so a difference may be added whichever way it points.
void addToAncestors(const TuvDirNode& folder, std::uint64_t logical, std::uint64_t physical) {
    for (TuvDirNode* ancestor = folder.parent(); ancestor; ancestor = ancestor->parent()) {
        ancestor->setLogicalSize(ancestor->logicalSize() + logical);
        ancestor->setPhysicalSize(ancestor->physicalSize() + physical);
    }
}

}  // namespace

bool TuvDirNode::diffNodes() {
    TuvLog::info(tuvDirNodeLog, "diffNodes", "[%@]", filePath());
    auto freshFiles = make<TuvObjectArray>();
    auto freshFolders = make<TuvObjectArray>();
    // Subfolders keep their nodes: only the files are brought up to date here.
    if (loadNodes(freshFiles.get(), freshFolders.get())) mergeFiles(freshFiles.get());
    return true;
}

bool TuvDirNode::mergeFiles(TuvObjectArray* fresh) {
    TuvLog::info(tuvDirNodeLog, "mergeFiles", "[%@]", filePath());
    TuvObjectArray* own = files();
    auto pending = make<TuvObjectArray>();
    const std::uint64_t oldLogical = logicalSize();
    const std::uint64_t oldPhysical = physicalSize();
    fresh->sortByFunction(TuvNode_sortByInode);
    own->sortByFunction(TuvNode_sortByInode);
    const std::uint64_t otherLogical = oldLogical - own->logicalSize();
    const std::uint64_t otherPhysical = oldPhysical - own->physicalSize();

    bool changed = false;
    for (int i = 0; i < fresh->count(); ++i) {
        TuvNode* node = fresh->nodeAtIndex(i);
        if (auto* existing = static_cast<TuvNode*>(own->binaryObjectWithID(node->inode()))) {
            changed = existing->mergeNode(*node);  // overwritten, not accumulated
        } else {
            if (tuvDirNodeLog.infoOn()) TuvLog::info(tuvDirNodeLog, "mergeFiles", "Added [%@]", node->filePath());
            pending->addObject(node);
            node->setParent(this);
            changed = true;
        }
    }
    std::vector<int> gone;
    for (int i = 0; i < own->count(); ++i) {
        TuvNode* node = own->nodeAtIndex(i);
        if (fresh->binaryObjectWithID(node->inode())) continue;
        if (tuvDirNodeLog.infoOn()) TuvLog::info(tuvDirNodeLog, "mergeFiles", "Removed [%@]", node->filePath());
        gone.push_back(i);
        changed = true;
    }
    own->removeObjectsAtIndexes(gone);
    own->addObjectsFromArray(pending.get());

    const std::uint64_t newLogical = own->logicalSize() + otherLogical;
    const std::uint64_t newPhysical = own->physicalSize() + otherPhysical;
    addToAncestors(*this, newLogical - oldLogical, newPhysical - oldPhysical);
    setLogicalSize(newLogical);
    setPhysicalSize(newPhysical);
    if (changed) TuvLog::info(tuvDirNodeLog, "mergeFiles", "Merged [%@]", filePath());
    return true;
}

bool TuvDirNode::mergeFolders(TuvObjectArray* fresh) {
    TuvLog::info(tuvDirNodeLog, "mergeFolders", "[%@]", filePath());
    TuvObjectArray* own = folders();
    auto pending = make<TuvObjectArray>();
    fresh->sortByFunction(TuvNode_sortByInode);
    own->sortByFunction(TuvNode_sortByInode);

    bool changed = false;
    for (int i = 0; i < fresh->count(); ++i) {
        TuvDirNode* node = fresh->folderAtIndex(i);
        if (own->binaryObjectWithID(node->inode())) {
            if (tuvDirNodeLog.infoOn()) TuvLog::info(tuvDirNodeLog, "mergeFolders", "Merge [%@]", node->filePath());
            continue;
        }
        if (tuvDirNodeLog.infoOn()) TuvLog::info(tuvDirNodeLog, "mergeFolders", "Added [%@]", node->filePath());
        pending->addObject(node);
        node->setParent(this);
        changed = true;
    }
    std::uint64_t logicalDelta = 0;
    std::uint64_t physicalDelta = 0;
    std::vector<int> gone;
    for (int i = 0; i < own->count(); ++i) {
        const TuvDirNode* node = own->folderAtIndex(i);
        if (fresh->binaryObjectWithID(node->inode())) continue;
        if (tuvDirNodeLog.infoOn()) TuvLog::info(tuvDirNodeLog, "mergeFolders", "Removed [%@]", node->filePath());
        logicalDelta -= node->logicalSize();
        physicalDelta -= node->physicalSize();
        gone.push_back(i);
        changed = true;
    }
    const bool added = pending->count() > 0;
    own->removeObjectsAtIndexes(gone);
    own->addObjectsFromArray(pending.get());

    addToAncestors(*this, logicalDelta, physicalDelta);
    // The other way round than the ancestors: this is meant so.
    setLogicalSize(logicalSize() - logicalDelta);
    setPhysicalSize(physicalSize() - physicalDelta);
    if (added) setIsResolved(false, true);
    if (changed) TuvLog::info(tuvDirNodeLog, "mergeFolders", "Merged [%@]", filePath());
    return !added;
}

}  // namespace kavaro
