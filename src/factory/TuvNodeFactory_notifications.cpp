#include <algorithm>

#include "factory/FactoryLog.h"
#include "factory/TuvNodeFactory.h"
#include "platform/NotificationCenter.h"
#include "support/Backtrace.h"
#include "support/ProtocolNames.h"

namespace kavaro {

namespace {

constexpr const char* kRule = "------------------------------";
constexpr int kStackSize = 4096;
constexpr int kProgressStep = 50000;
constexpr std::size_t kMissedBytesPerNotification = 1u << 20;  // paths may be long; a message has its limit

}  // namespace

// What one pass sends.
struct TuvNodeFactory::Batch {
    ByteBuffer resolved;   // null: none
    ByteBuffer completed;  // null: the job goes on
    std::vector<MissedFolder> missed;
    std::int64_t nodes = 0;  // that leave the process with it
    std::uint64_t job = 0;
};

void TuvNodeFactory::_resolveFileNotificationTH() {
    if (_notifierStarted.exchange(true)) return;
    TuvLog::debug(factoryLog, "_resolveFileNotificationTH:", "starting ...");
    for (;;) {
        _clock.sleep(static_cast<double>(_notificationInterval.load()));
        if (_traceOn) _clock.sleep(_durations.traceNotificationPause);
        Batch batch;
        _notificationStackLock.lockWhenCondition(1);
        const bool formed = formBatch(batch);
        _notificationStackLock.unlockWithCondition(0);
        if (formed) deliver(batch);
        noteSent(batch.nodes);
    }
}

bool TuvNodeFactory::formBatch(Batch& batch) {
    batch.job = _notificationStackJob;
    if (!isCurrent(batch.job)) {
        forgetNotificationStack();
        return false;
    }
    if (_resolveFileTH_status == 2) takeRoot(batch);
    _completedNodesCount += _notificationStack->count();
    batch.resolved = _notificationStack->serialize();
    _notificationStack->unloadNodes();
    _notificationStack->removeAllObjects();
    _notificationStackCount = 0;
    batch.nodes = std::exchange(_notificationStackNodes, 0);
    if (_notificationStackSession) batch.missed = _notificationStackSession->takeMissed();
    return true;
}

void TuvNodeFactory::takeRoot(Batch& batch) {
    auto* last = static_cast<TuvDirNode*>(_notificationStack->lastObject());
    if (last != _rootOfJob.load(std::memory_order_relaxed)) {
        TuvLog::error(factoryLog, "_resolveFileNotificationTH:", "last node  was not the root node ! \"%@\"",
                      last ? last->filePath() : std::string_view());
        return;
    }
    TuvLog::info(factoryLog, "_resolveFileNotificationTH:", "completed: rootPath=\"%@\"", last->filePath());
    TuvLog::info(factoryLog, "_resolveFileNotificationTH:", kRule);
    batch.completed = last->serialize();
    _notificationStack->removeLastObject();
}

void TuvNodeFactory::forgetNotificationStack() {
    _notificationStack->removeAllObjects();
    _notificationStackCount = 0;
    noteSent(std::exchange(_notificationStackNodes, 0));
}

void TuvNodeFactory::noteSent(std::int64_t nodes) {
    if (nodes == 0) return;
    std::lock_guard lock(_unsentMutex);
    _unsentNodes -= nodes;
    _unsentChanged.notify_all();
}

void TuvNodeFactory::deliver(Batch& batch) {
    const int completed = _completedNodesCount;
    if (completed / kProgressStep != _lastProgress) {
        _lastProgress = completed / kProgressStep;
        TuvLog::info(factoryLog, "_resolveFileNotificationTH:", "completed: \"%d\" nodes", completed);
    }
    RunLoop::main().performOnMainAndWait([&] {
        // Stopped or replaced: while the batch was on its way, or by an observer of what was just posted.
        if (isCurrent(batch.job)) postMissedFolders(batch.missed);
        if (isCurrent(batch.job) && !batch.resolved.isNull())
            _resolvedFileNotificationAppkit(std::move(batch.resolved));
        if (isCurrent(batch.job) && !batch.completed.isNull())
            _completedFileNotificationAppkit(std::move(batch.completed));
    });
    // The next batch is formed when this one has left: a slow reader makes batches larger, not the server.
    if (!_localWorker && _distributedCenter) _distributedCenter->waitUntilWritten();
}

void TuvNodeFactory::_startedFileNotificationAppkit(ByteBuffer data) {
    TuvLog::info(factoryLog, "_startedFileNotificationAppkit:", "%d bytes", data.size());
    post(TuvNodeFactoryStartedNotification, std::move(data));
}

void TuvNodeFactory::_resolvedFileNotificationAppkit(ByteBuffer data) {
    if (_debugOn) TuvLog::debug(factoryLog, "_resolvedFileNotificationAppkit:", "%d bytes", data.size());
    post(TuvNodeFactoryResolvedNotification, std::move(data));
}

void TuvNodeFactory::_completedFileNotificationAppkit(ByteBuffer data) {
    TuvLog::info(factoryLog, "_completedFileNotificationAppkit:", "%d bytes", data.size());
    const std::uint64_t job = _job.load(std::memory_order_relaxed);
    post(TuvNodeFactoryCompletedNotification, std::move(data));
    if (!isCurrent(job)) return;  // an observer has started the next one

    _threadStackLock.lock();
    TuvRef<TuvDirNode> root = std::move(_rootNode);
    _threadStack->removeAllObjects();
    _threadStack->setSize(kStackSize);
    unlockThreadStack();
    _notificationStackLock.lock();
    root = nullptr;
    forgetNotificationStack();
    _notificationStack->setSize(kStackSize);
    _notificationStackLock.unlockWithCondition(0);
    _parentInodes.reset();
}

void TuvNodeFactory::_stopedFileNotificationAppkit() {
    TuvLog::info(factoryLog, "_stopedFileNotificationAppkit:", "");
    const std::uint64_t job = _job.load(std::memory_order_relaxed);
    post(TuvNodeFactoryStoppedNotification, ByteBuffer());
    if (isCurrent(job)) _parentInodes.reset();  // else an observer has started the next one
}

NotificationUserInfo TuvNodeFactory::_userInfo(std::shared_ptr<const ByteBuffer> data) const {
    NotificationUserInfo userInfo;
    if (!_localWorker) userInfo.serialized = std::move(data);
    userInfo.parentInodes = _parentInodes;
    return userInfo;
}

void TuvNodeFactory::post(std::string_view name, ByteBuffer data) {
    std::shared_ptr<const ByteBuffer> shared;
    if (!data.isNull()) shared = std::make_shared<const ByteBuffer>(std::move(data));
    post(name, shared ? std::any(shared) : std::any(), _userInfo(shared));
}

void TuvNodeFactory::post(std::string_view name, const std::any& localObject, const NotificationUserInfo& userInfo) {
    if (_localWorker) {
        NotificationCenter::defaultCenter().post(name, localObject,
                                                 userInfo.isEmpty() ? std::any() : std::any(userInfo));
        return;
    }
    std::string error = "there is no connection to other processes";
    if (_distributedCenter && _distributedCenter->post(name, kNotificationObject, userInfo, &error)) return;
    TuvLog::error(factoryLog, "post", "Exception: %@", error);
    TuvLog::error(factoryLog, "post", "(%@)", backtrace());
}

void TuvNodeFactory::postMissedFolders(const std::vector<MissedFolder>& missed) {
    for (std::size_t next = 0; next < missed.size();) {
        NotificationUserInfo userInfo;
        userInfo.folders.emplace();
        std::size_t bytes = 0;
        for (std::size_t i = 0; i < kMissedFoldersPerNotification && next < missed.size(); ++i, ++next) {
            bytes += missed[next].path.size();
            if (i > 0 && bytes > kMissedBytesPerNotification) break;
            userInfo.folders->push_back(missed[next].path);
            userInfo.reasons.emplace_back(missed[next].reason);
        }
        post(KavaroUnreadFoldersNotification, std::any(), userInfo);
    }
}

}  // namespace kavaro
