#include "model/ModelLog.h"
#include "model/TuvDirNode.h"

namespace kavaro {

bool TuvDirNode::diffNodes() {
    TuvLog::info(tuvDirNodeLog, "diffNodes", "[%@]", filePath());
    auto freshFiles = make<TuvObjectArray>();
    auto freshFolders = make<TuvObjectArray>();
    // Subfolders keep their nodes: only the files are brought up to date here.
    if (loadNodes(freshFiles.get(), freshFolders.get())) mergeFiles(freshFiles.get());
    return true;
}

// Sizes are unsigned and every sum is modular, so a difference may be added whichever way it points.
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
            TuvLog::info(tuvDirNodeLog, "mergeFiles", "Added [%@]", node->filePath());
            pending->addObject(node);
            node->setParent(this);
            changed = true;
        }
    }
    std::vector<int> gone;
    for (int i = 0; i < own->count(); ++i) {
        TuvNode* node = own->nodeAtIndex(i);
        if (fresh->binaryObjectWithID(node->inode())) continue;
        TuvLog::info(tuvDirNodeLog, "mergeFiles", "Removed [%@]", node->filePath());
        gone.push_back(i);
        changed = true;
    }
    own->removeObjectsAtIndexes(gone);
    own->addObjectsFromArray(pending.get());

    const std::uint64_t newLogical = own->logicalSize() + otherLogical;
    const std::uint64_t newPhysical = own->physicalSize() + otherPhysical;
    for (TuvDirNode* ancestor = parent(); ancestor; ancestor = ancestor->parent()) {
        ancestor->setLogicalSize(ancestor->logicalSize() + (newLogical - oldLogical));
        ancestor->setPhysicalSize(ancestor->physicalSize() + (newPhysical - oldPhysical));
    }
    setLogicalSize(newLogical);
    setPhysicalSize(newPhysical);
    if (changed) TuvLog::info(tuvDirNodeLog, "mergeFiles", "Merged [%@]", filePath());
    return true;
}

}  // namespace kavaro
