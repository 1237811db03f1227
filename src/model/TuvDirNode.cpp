#include "model/TuvDirNode.h"

#include <algorithm>
#include <atomic>

#include "model/FolderWalk.h"
#include "model/ModelLog.h"
#include "support/LogFormat.h"

namespace kavaro {

namespace {

// Folders of this thread whose count has come to 0 while another folder was being taken down.
thread_local constinit TuvDirNode* dyingFolders = nullptr;
thread_local constinit bool takingDown = false;

std::atomic<int> loadCount{0};
std::atomic<double> loadMilliseconds{0};

}  // namespace

TuvDirNode::TuvDirNode() : TuvNode(kFolder), _files(make<TuvObjectArray>()), _folders(make<TuvObjectArray>()) {}

TuvDirNode::~TuvDirNode() {
    if (tuvDirNodeLog.traceOn())
        TuvLog::trace(tuvDirNodeLog, "~TuvDirNode", "[%8d] %@ %d files, %d folders", instanceCount(), fileName(),
                      _files->count(), _folders->count());
}

// A folder dies whole before its subfolders do, one after another: the stack does not grow with the depth. They wait
// in a chain of their parent pointers, which are of no more use.
void TuvDirNode::destroy() {
    _parent = dyingFolders;
    dyingFolders = this;
    if (takingDown) return;
    takingDown = true;
    while (TuvDirNode* folder = dyingFolders) {
        dyingFolders = folder->_parent;
        folder->_parent = nullptr;
        delete folder;
    }
    takingDown = false;
}

int TuvDirNode::recursiveFileCount() const {
    int sum = 0;
    for (FolderWalk walk(this); const TuvDirNode* folder = walk.next();) sum += folder->fileCount();
    return sum;
}

int TuvDirNode::recursiveFolderCount() const {
    int sum = 0;
    for (FolderWalk walk(this); const TuvDirNode* folder = walk.next();) sum += folder->folderCount();
    return sum;
}

void TuvDirNode::setIsResolved(bool flag) {
    TuvNode::setIsResolved(flag);
    setLogicalSize(flag ? _files->logicalSize() + _folders->logicalSize() : 0);
    setPhysicalSize(flag ? _files->physicalSize() + _folders->physicalSize() : 0);
}

void TuvDirNode::setIsResolved(bool flag, bool propagate) {
    setIsResolved(flag);
    if (!propagate) return;
    for (TuvDirNode* ancestor = parent(); ancestor; ancestor = ancestor->parent()) ancestor->setIsResolved(flag);
}

bool TuvDirNode::canBeResolved() const {
    return isResolved() || (hasLoadNodes() && _folders->isResolved());
}

std::vector<std::uint32_t> TuvDirNode::parentINodes(const TuvNode& node) const {
    if (tuvDirNodeLog.infoOn()) TuvLog::info(tuvDirNodeLog, "parentINodes", "[%8ul] %@", inode(), description());
    std::vector<std::uint32_t> inodes{inode()};
    parentINodes(node.inode(), inodes);
    return inodes;
}

void TuvDirNode::parentINodes(std::uint32_t stopInode, std::vector<std::uint32_t>& inodes) const {
    std::vector<std::uint32_t> chain;  // innermost first
    for (const TuvDirNode* ancestor = parent(); ancestor; ancestor = ancestor->parent()) {
        if (tuvDirNodeLog.infoOn())
            TuvLog::info(tuvDirNodeLog, "parentINodes", "[%8ul] %@", ancestor->inode(), ancestor->description());
        chain.push_back(ancestor->inode());
        if (ancestor->inode() == stopInode) break;
    }
    inodes.insert(inodes.begin(), chain.rbegin(), chain.rend());
}

void TuvDirNode::resetStatInfo() {
    loadCount.store(0, std::memory_order_relaxed);
    loadMilliseconds.store(0, std::memory_order_relaxed);
}

void TuvDirNode::appendStatInfo(double milliseconds) {
    loadCount.fetch_add(1, std::memory_order_relaxed);
    loadMilliseconds.fetch_add(milliseconds, std::memory_order_relaxed);
}

std::string TuvDirNode::reportStatInfo() {
    return formatted<int, double>("%d hits in %9.6f ms", loadCount.load(std::memory_order_relaxed),
                                  loadMilliseconds.load(std::memory_order_relaxed));
}

}  // namespace kavaro
