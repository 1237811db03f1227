#include <atomic>

#include "model/TuvNode.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

std::atomic<int> nameComparisons{0};

const TuvNode& nodeOfSlot(const void* slot) {
    return *static_cast<const TuvNode*>(*static_cast<const TuvObject* const*>(slot));
}

template <class Key>
int ascending(Key a, Key b) {
    return a < b ? -1 : b < a ? 1 : 0;
}

}  // namespace

int TuvNode_sortByPhysicalSize(const void* a, const void* b) {
    return ascending(nodeOfSlot(b).physicalSize(), nodeOfSlot(a).physicalSize());
}

int TuvNode_sortByLogicalSize(const void* a, const void* b) {
    return ascending(nodeOfSlot(b).logicalSize(), nodeOfSlot(a).logicalSize());
}

int TuvNode_sortByModDate(const void* a, const void* b) {
    return ascending(nodeOfSlot(b).contentModDate(), nodeOfSlot(a).contentModDate());
}

int TuvNode_sortByInode(const void* a, const void* b) {
    return ascending(nodeOfSlot(a).inode(), nodeOfSlot(b).inode());
}

int TuvNode_sortByName(const void* a, const void* b) {
    nameComparisons.fetch_add(1, std::memory_order_relaxed);
    return compare(nodeOfSlot(a).fileName(), nodeOfSlot(b).fileName());
}

int TuvNode_sortByNameInsensitive(const void* a, const void* b) {
    return caseInsensitiveCompare(nodeOfSlot(a).fileName(), nodeOfSlot(b).fileName());
}

int TuvNode_sortByPath(const void* a, const void* b) {
    return compare(nodeOfSlot(a).filePath(), nodeOfSlot(b).filePath());
}

int TuvNode_sortByPathInsensitive(const void* a, const void* b) {
    return caseInsensitiveCompare(nodeOfSlot(a).filePath(), nodeOfSlot(b).filePath());
}

void TuvNode_resetSortByNameCount() {
    nameComparisons.store(0, std::memory_order_relaxed);
}

int TuvNode_sortByNameCount() {
    return nameComparisons.load(std::memory_order_relaxed);
}

}  // namespace kavaro
