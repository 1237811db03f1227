#include "factory/FactoryLog.h"
#include "factory/TuvNodeFactory.h"
#include "platform/Thread.h"

namespace kavaro {

namespace {

constexpr const char* kRule = "------------------------------";

}  // namespace

// One step: what is taken along from under the lock.
struct TuvNodeFactory::Step {
    TuvRef<TuvDirNode> resolved;       // the folder, when this step resolved it
    const TuvDirNode* node = nullptr;  // the folder worked on; for comparing
    const TuvDirNode* root = nullptr;  // null: no root; for comparing
    std::string rootPath;              // set when the stack is empty
    std::uint64_t job = 0;
    std::shared_ptr<ScanSession> session;
};

void TuvNodeFactory::_resolveFileTH() {
    if (_workerStarted.exchange(true)) return;
    raiseThreadPriority();
    TuvLog::debug(factoryLog, "_resolveFileTH:", "starting ...");
    for (;;) {
        waitForReader();
        Step step;
        _threadStackLock.lockWhenCondition(1);
        resolveTop(step);
        unlockThreadStack();
        if (_threadStackCount.load(std::memory_order_relaxed) == 0) noteCompletion(step);
        handOver(step);
        if (_traceOn) _clock.sleep(_durations.traceStepPause);
    }
}

void TuvNodeFactory::resolveTop(Step& step) {
    step.job = _job.load(std::memory_order_relaxed);
    step.session = _session;
    step.root = _rootNode.get();
    if (!_jobStart) {
        TuvDirNode::resetStatInfo();
        TuvLog::info(factoryLog, "_resolveFileTH:", kRule);
        TuvLog::info(factoryLog, "_resolveFileTH:", "started: rootPath=\"%@\"",
                     _rootNode ? _rootNode->filePath() : std::string_view());
        _jobStart = _clock.monotonicSeconds();
        _completedNodesCount = 0;
        _resolveFileTH_status = 1;
    }
    TuvDirNode* node = _threadStack->folderAtIndex(0);
    step.node = node;
    if (!node) {
        TuvLog::error(factoryLog, "_resolveFileTH:", "No node at index 0");
        return;
    }
    if (_traceOn) TuvLog::trace(factoryLog, "_resolveFileTH:", "[%@] working ...", node->filePath());

    bool resolve = node->canBeResolved();
    if (!resolve) {
        const bool loaded = node->loadNodes();
        resolve = loaded && node->canBeResolved();
        if (!resolve) {
            const int waiting = _threadStack->count();
            _threadStack->insertUnResolvedNodes(node);
            // A folder that turned into something else is left unloaded by its listing. It has nothing to wait for,
            // and would be tried for ever.
            if (_threadStack->count() == waiting) {
                node->setHasLoadNodes();
                if (_session) _session->addMissed(std::string(node->filePath()), kReasonVanished);
            }
        }
    }
    if (resolve) {
        if (_debugOn) _clock.sleep(_durations.debugResolvePause);
        node->setIsResolved(true);
        step.resolved = TuvRef<TuvDirNode>::share(node);
        _threadStack->removeObjectAtIndex(0);
    }
    if (_threadStack->count() == 0 && _rootNode) step.rootPath = _rootNode->filePath();
}

void TuvNodeFactory::noteCompletion(const Step& step) {
    if (!step.root) {
        TuvLog::error(factoryLog, "_resolveFileTH:", "No root node !!!");
        return;
    }
    const double spent = (_clock.monotonicSeconds() - _jobStart.value_or(0)) * 1000;
    TuvLog::info(factoryLog, "_resolveFileTH:", "completed: rootPath=\"%@\" in %9.3f ms", step.rootPath, spent);
    TuvLog::info(factoryLog, "_resolveFileTH:", "%@", TuvDirNode::reportStatInfo());
    TuvLog::info(factoryLog, "_resolveFileTH:", kRule);
    _lastJobMilliseconds = spent;
    _resolveFileTH_status = 2;
    _jobStart.reset();
    if (step.node != step.root)
        TuvLog::error(factoryLog, "_resolveFileTH:", "Not the root node !, \"\"");
    else if (!step.resolved)
        TuvLog::error(factoryLog, "_resolveFileTH:", "The root node, but not resolved yet ...");
}

// The worker's reference goes to the stack: from here on the notification thread owns the folder's children.
void TuvNodeFactory::handOver(Step& step) {
    if (!step.resolved) return;
    const std::int64_t nodes = 1 + step.resolved->childrenCount();
    _notificationStackLock.lock();
    if (isCurrent(step.job)) {
        if (_notificationStackJob != step.job) {
            forgetNotificationStack();
            _notificationStackJob = step.job;
            _notificationStackSession = step.session;
        }
        _notificationStack->adoptObject(step.resolved.leak());
        _notificationStackNodes += nodes;
        _notificationStackCount = _notificationStack->count();
        std::lock_guard lock(_unsentMutex);
        _unsentNodes += nodes;
    } else {
        step.resolved = nullptr;  // of a job that was stopped or replaced meanwhile
    }
    _notificationStackLock.unlockWithCondition(_notificationStack->count() > 0 ? 1 : 0);
}

// Between two steps, holding no lock: requests are served while the client catches up.
void TuvNodeFactory::waitForReader() {
    std::unique_lock lock(_unsentMutex);
    _unsentChanged.wait(lock, [this] { return _unsentNodes <= kUnsentNodesLimit; });
}

}  // namespace kavaro
