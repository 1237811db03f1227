#include "factory/TuvNodeFactory.h"

#include <unordered_set>

#include "factory/FactoryLog.h"
#include "platform/Text.h"
#include "platform/Thread.h"

namespace kavaro {

namespace {

constexpr int kStackSize = 4096;
constexpr float kUnsetInterval = 0;

TuvNodeFactory::Surroundings& surroundings() {
    static TuvNodeFactory::Surroundings& surroundings = *new TuvNodeFactory::Surroundings;
    return surroundings;
}

std::atomic<TuvNodeFactory*> sharedFactory{nullptr};

std::string joined(const std::optional<std::vector<std::uint32_t>>& inodes) {
    std::string text;
    if (!inodes) return text;
    for (std::uint32_t inode : *inodes) text += (text.empty() ? "" : ", ") + std::to_string(inode);
    return text;
}

TuvDirNode* asFolder(const TuvRef<TuvNode>& node) {
    return node && node->isDirectory() ? static_cast<TuvDirNode*>(node.get()) : nullptr;
}

}  // namespace

void TuvNodeFactory::setSurroundings(const Surroundings& wanted) {
    surroundings() = wanted;
}

bool TuvNodeFactory::hasSharedInstance() {
    return sharedFactory.load() != nullptr;
}

TuvNodeFactory* TuvNodeFactory::sharedInstance() {
    if (!sharedFactory.load()) {
        auto* factory = new TuvNodeFactory(surroundings());  // lives as long as the process, like its threads
        sharedFactory.store(factory);
        factory->setNotificationInterval(static_cast<float>(factory->_durations.notificationInterval));
        factory->_startWorkingThread();
    }
    return sharedFactory.load();
}

TuvNodeFactory::TuvNodeFactory(const Surroundings& wanted)
    : _clock(*wanted.clock),
      _durations(wanted.durations),
      _distributedCenter(wanted.distributedCenter),
      _workspace(*wanted.workspace),
      _debugOn(TuvLog::debugLevel(factoryLog)),
      _traceOn(TuvLog::traceLevel(factoryLog)),
      _notificationInterval(kUnsetInterval),
      _threadStack(make<TuvObjectArray>(kStackSize)),
      _notificationStack(make<TuvObjectArray>(kStackSize)) {}

void TuvNodeFactory::_startWorkingThread() {
    TuvLog::info(factoryLog, "_startWorkingThread", "Setting up worker threads");
    RunLoop::main();  // the main thread is the one that asks for it first
    if (_debugOn) setNotificationInterval(static_cast<float>(_durations.debugNotificationInterval));
    detachThread("notifications", [this] { _resolveFileNotificationTH(); });
    detachThread("sizing", [this] { _resolveFileTH(); });
    _clock.sleep(_durations.setUpPause);
}

void TuvNodeFactory::setLocalWorker(bool flag) {
    TuvLog::info(factoryLog, "setLocalWorker:", "%@", flag ? "YES" : "NO");
    _localWorker = flag;
}

void TuvNodeFactory::unlockThreadStack() {
    const int count = _threadStack->count();
    _threadStackCount.store(count, std::memory_order_relaxed);
    _threadStackLock.unlockWithCondition(count > 0 ? 1 : 0);
}

// Takes the old job off both stacks. Its tree goes under the notification lock: folders of it may still be waiting
// there, or be on their way, and the counts of those change under no other lock.
void TuvNodeFactory::retireJob() {
    _threadStackLock.lock();
    _job.fetch_add(1, std::memory_order_acq_rel);
    TuvRef<TuvObjectArray> stack = std::exchange(_threadStack, make<TuvObjectArray>(kStackSize));
    TuvRef<TuvDirNode> root = std::move(_rootNode);
    unlockThreadStack();

    _notificationStackLock.lock();
    forgetNotificationStack();
    stack = nullptr;
    root = nullptr;
    _notificationStackLock.unlockWithCondition(0);
}

void TuvNodeFactory::startWorkingAtPath(const std::string& path) {
    startWorkingAtPath(path, std::nullopt);
}

void TuvNodeFactory::startWorkingAtPath(const std::string& path,
                                        const std::optional<std::vector<std::uint32_t>>& parentInodes) {
    const std::string inodes = joined(parentInodes);
    TuvLog::info(factoryLog, "startWorkingAtPath:parentInodes:", "%@ parentNodes [%@]", path, inodes);
    retireJob();

    _threadStackLock.lock();
    _parentInodes = parentInodes;
    _session = ScanSession::begin(path);
    TuvRef<TuvNode> node = TuvDirNode::loadFromPath(path);
    TuvDirNode* root = asFolder(node);
    if (!root) {
        TuvLog::error(factoryLog,
                      "startWorkingAtPath:parentInodes:", "%@ %@ Please pass in a folder path as argument !!!", path,
                      inodes);
        unlockThreadStack();
        return;
    }
    // The one reference of this thread goes into the field: the root belongs to the worker once the lock is free.
    node.leak();
    _rootNode = TuvRef<TuvDirNode>::adopt(root);
    _rootOfJob.store(root, std::memory_order_relaxed);
    root->createDotTrashIfNeeded();
    root->loadNodes();
    if (parentInodes) {
        root->setFileName(lastPathComponent(path));
        root->setFilePath(path);
    }
    _startedFileNotificationAppkit(root->serialize());
    _completedNodesCount = 0;
    _threadStack->insertObjectAtIndex(root, 0);
    unlockThreadStack();
}

ByteBuffer TuvNodeFactory::prioritizeNodeWithInode(std::int32_t inode, const std::string& path) {
    TuvLog::info(factoryLog, "prioritizeNodeWithInode:path:", "%d [%d on _notificationStack]", inode,
                 _notificationStackCount.load());
    ByteBuffer data;
    _threadStackLock.lock();
    auto* folder = static_cast<TuvDirNode*>(_threadStack->objectWithINode(static_cast<std::uint32_t>(inode)));
    if (!folder) {
        ScanSession::Scope scope(ScanSession::forOneShot(path));
        TuvRef<TuvNode> node = TuvDirNode::loadFromPath(path);
        if (TuvDirNode* fresh = asFolder(node)) {
            fresh->loadNodes();
            data = fresh->serialize();
        } else {
            TuvLog::error(factoryLog, "prioritizeNodeWithInode:path:",
                          "%d [%d on _notificationStack], Please pass in a folder path as argument !!!", inode,
                          _notificationStackCount.load());
        }
    } else if (folder->isResolved()) {
        TuvLog::error(factoryLog, "prioritizeNodeWithInode:path:", "This has been resolved already inode [%d]", inode);
    } else {
        auto kept = TuvRef<TuvDirNode>::share(folder);
        removeWaiting(folder);
        folder->loadNodes();
        data = folder->serialize();
        _threadStack->insertObjectAtIndex(folder, 0);
    }
    unlockThreadStack();
    return data;
}

// Takes the folder and all that waits below it off the stack. Resolved folders are none of that, and they belong to
// the notification thread: they are not looked into.
void TuvNodeFactory::removeWaiting(const TuvDirNode* folder) {
    std::vector<const TuvDirNode*> below{folder};
    std::unordered_set<const TuvObject*> leaving{folder};
    for (std::size_t i = 0; i < below.size(); ++i) {
        for (TuvObject* object : *below[i]->folders()) {
            const auto* subfolder = static_cast<const TuvDirNode*>(object);
            if (!subfolder->isResolved() && leaving.insert(subfolder).second) below.push_back(subfolder);
        }
    }
    // One pass: a folder may have hundreds of thousands of subfolders waiting.
    std::vector<int> indexes;
    for (int i = 0; i < _threadStack->count() && indexes.size() < leaving.size(); ++i)
        if (leaving.contains(_threadStack->objectAtIndex(i))) indexes.push_back(i);
    _threadStack->removeObjectsAtIndexes(indexes);
}

ByteBuffer TuvNodeFactory::hasFileSytemChanged(const std::string& path) {
    TuvLog::info(factoryLog, "hasFileSytemChanged:", "%@", path);
    ScanSession::Scope scope(ScanSession::forOneShot(path));
    TuvRef<TuvNode> node = TuvDirNode::loadFromPath(path);
    TuvDirNode* folder = asFolder(node);
    if (!folder) {
        TuvLog::error(factoryLog, "hasFileSytemChanged:", "%@, Please pass in a folder path as argument !!!", path);
        return {};
    }
    folder->loadNodes();
    return folder->serialize();
}

ByteBuffer TuvNodeFactory::nodeWithPath(const std::string& path, bool loadChildren) {
    TuvLog::info(factoryLog, "nodeWithPath:loadChildren:", "%@ %d", path, loadChildren);
    ScanSession::Scope scope(ScanSession::forOneShot(path));
    TuvRef<TuvNode> node = TuvDirNode::loadFromPath(path);
    if (!node) return {};
    TuvDirNode* folder = asFolder(node);
    if (folder && loadChildren) folder->loadNodes();
    return node->serialize();
}

void TuvNodeFactory::stopSizing() {
    if (_debugOn) TuvLog::debug(factoryLog, "stopSizing", "%@", "stopping ...");
    _threadStackLock.lock();
    _job.fetch_add(1, std::memory_order_acq_rel);
    _threadStack->removeAllObjects();
    unlockThreadStack();
    _notificationStackLock.lock();
    forgetNotificationStack();
    _notificationStackLock.unlockWithCondition(0);
    _stopedFileNotificationAppkit();
}

TuvDirNode* TuvNodeFactory::currentlyWorking() {
    _threadStackLock.lock();
    TuvDirNode* top = _threadStack->folderAtIndex(0);
    unlockThreadStack();
    return top;
}

TuvDirNode* TuvNodeFactory::newFromPath(const std::string&) {
    _threadStackLock.lock();
    unlockThreadStack();
    return nullptr;
}

TuvDirNode* TuvNodeFactory::existingFromPath(const std::string& path) {
    return newFromPath(path);
}

}  // namespace kavaro
