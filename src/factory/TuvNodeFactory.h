#pragma once

#include <any>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cleanup/LipoRequests.h"
#include "cleanup/TuvNodeMD5Hash.h"
#include "factory/DistributedCenter.h"
#include "factory/TuvKavaroProxy.h"
#include "model/TuvDirNode.h"
#include "platform/Clock.h"
#include "platform/ConditionLock.h"
#include "platform/RunLoop.h"
#include "platform/Workspace.h"
#include "scan/ScanSession.h"

namespace kavaro {

// The engine that sizes one folder tree at a time. Requests come on the main thread. The worker thread resolves one
// folder a step from the thread stack; the notification thread collects resolved folders, makes one batch of them at
// every interval and has the main thread post it. One engine per process, made by sharedInstance(), never ended.
//
// Threads and objects: a node belongs to the worker until it enters the notification stack, and from then on its
// reference count and its children are changed under _notificationStackLock alone. No thread holds two locks at once.
class TuvNodeFactory : public TuvKavaroProxy {
  public:
    // Seconds. Handed in, so that tests do not wait for them.
    struct Durations {
        double setUpPause = 1.0;
        double notificationInterval = 0.15;
        double debugNotificationInterval = 0.5;
        double traceNotificationPause = 1.75;
        double debugResolvePause = 0.01;
        double traceStepPause = 0.25;
    };
    struct Surroundings {
        Clock* clock = &Clock::system();
        Durations durations;
        DistributedCenter* distributedCenter = nullptr;  // must outlive the engine; null: nothing can be posted there
        Workspace* workspace = &Workspace::shared();     // must outlive the engine
    };
    // Takes effect for the engine that the next first sharedInstance() makes.
    static void setSurroundings(const Surroundings& surroundings);
    static TuvNodeFactory* sharedInstance();
    static bool hasSharedInstance();

    // Main thread. Absent parent inodes are not the same as none.
    void startWorkingAtPath(const std::string& path);
    void startWorkingAtPath(const std::string& path, const std::optional<std::vector<std::uint32_t>>& parentInodes);
    // Serialised folder with its direct children; a null buffer when there is none.
    ByteBuffer prioritizeNodeWithInode(std::int32_t inode, const std::string& path);
    ByteBuffer hasFileSytemChanged(const std::string& path);
    ByteBuffer nodeWithPath(const std::string& path, bool loadChildren);
    void stopSizing();
    // Hash records in their full byte form, and the same ones with the digests of their files. Bytes that make no sense
    // give no data and an empty header. Reads all the files before it returns (TuvNodeFactory_duplicates.cpp).
    struct FileDuplicates {
        ByteBuffer data;
        MD5HashHeader headerData;
    };
    FileDuplicates fileDuplicatesHeader(ByteView data, const MD5HashHeader& header);

    // TuvNodeFactory_trash.cpp. What became of the paths is told by the Trash notification: from within the call or,
    // with a local worker, a moment later, unless another call takes its place before that.
    void moveToTrash(const std::vector<std::string>& paths);
    // With the setting to remove as root anything is; otherwise what is in users' folders alone.
    static bool isSafeToTashPathsAsSudo(const std::vector<std::string>& paths);
    // TuvNodeFactory_removals.cpp. For good. Failures are in the log alone. A language folder goes only while an
    // English one stays beside it; the first one without ends the call.
    void removeLocales(const std::vector<std::string>& paths);
    void removeNibs(const std::vector<std::string>& paths);

    // TuvNodeFactory_slimming.cpp. Tables of the files that have one; each file is opened before the call returns.
    LipoTables lipoNodesInfo(const std::vector<LipoQuestion>& files);
    // One after another; failures are in the log alone.
    void lipoNodes(const std::vector<LipoRemoval>& files);

    // The low byte of the number of waiting folders: NO for any multiple of 256. Clients rely on it, keep it so.
    signed char isWorking() const { return static_cast<signed char>(_threadStackCount.load() & 0xff); }
    TuvDirNode* currentlyWorking();
    TuvDirNode* newFromPath(const std::string& path);
    TuvDirNode* existingFromPath(const std::string& path);
    float notificationInterval() const { return _notificationInterval; }
    void setNotificationInterval(float seconds) { _notificationInterval = seconds; }
    bool localWorker() const { return _localWorker; }
    void setLocalWorker(bool flag);
    // Milliseconds that the last completed job took, 0 before the first.
    double lastJobMilliseconds() const { return _lastJobMilliseconds; }

    // Folders that hold more than this many nodes together make the worker wait until the client has taken some.
    static constexpr std::int64_t kUnsentNodesLimit = 2'000'000;
    static constexpr std::size_t kMissedFoldersPerNotification = 1000;

  private:
    explicit TuvNodeFactory(const Surroundings& surroundings);
    void _startWorkingThread();

    // TuvNodeFactory_worker.cpp
    void _resolveFileTH();
    struct Step;
    void resolveTop(Step& step) KAVARO_REQUIRES(_threadStackLock);
    void noteCompletion(const Step& step);
    void handOver(Step& step);
    void waitForReader();

    // TuvNodeFactory_notifications.cpp
    void _resolveFileNotificationTH();
    struct Batch;
    bool formBatch(Batch& batch) KAVARO_REQUIRES(_notificationStackLock);
    void takeRoot(Batch& batch) KAVARO_REQUIRES(_notificationStackLock);
    void forgetNotificationStack() KAVARO_REQUIRES(_notificationStackLock);
    void deliver(Batch& batch);
    void noteSent(std::int64_t nodes);
    void _startedFileNotificationAppkit(ByteBuffer data);
    void _resolvedFileNotificationAppkit(ByteBuffer data);
    void _completedFileNotificationAppkit(ByteBuffer data);
    void _stopedFileNotificationAppkit();
    NotificationUserInfo _userInfo(std::shared_ptr<const ByteBuffer> data) const;
    void post(std::string_view name, ByteBuffer data);
    void post(std::string_view name, const std::any& localObject, const NotificationUserInfo& userInfo);
    void postMissedFolders(const std::vector<MissedFolder>& missed);

    // TuvNodeFactory_trash.cpp
    void _moveToTrash(const std::vector<std::string>& paths);
    TuvRef<TuvNode> _moveToTrash(const std::string& path, NotificationUserInfo& userInfo);
    void _moveToTrashNotification(ByteBuffer data, const NotificationUserInfo& userInfo);

    const char* workerText() const { return _localWorker ? "isLocal" : "isRemote"; }
    void retireJob();
    void removeWaiting(const TuvDirNode* folder) KAVARO_REQUIRES(_threadStackLock);
    void unlockThreadStack() KAVARO_RELEASE(_threadStackLock);
    bool isCurrent(std::uint64_t job) const { return _job.load(std::memory_order_acquire) == job; }

    // Constant after construction.
    Clock& _clock;
    const Durations _durations;
    DistributedCenter* const _distributedCenter;
    Workspace& _workspace;
    const bool _debugOn;
    const bool _traceOn;

    // Main thread.
    std::optional<std::vector<std::uint32_t>> _parentInodes;
    RunLoop::TimerID _trashTimer = 0;

    // Read by any thread: settings and counters that the rules read without a lock.
    std::atomic<bool> _localWorker{false};
    std::atomic<float> _notificationInterval{0};   // seconds
    std::atomic<int> _completedNodesCount{0};      // folders sent in this job
    std::atomic<int> _resolveFileTH_status{0};     // 0 never started, 1 running, 2 completed
    std::atomic<int> _threadStackCount{0};         // of _threadStack
    std::atomic<int> _notificationStackCount{0};   // of _notificationStack
    std::atomic<TuvDirNode*> _rootOfJob{nullptr};  // for comparing, never followed
    std::atomic<double> _lastJobMilliseconds{0};
    // Counts starts and stops, so that nothing of an abandoned job reaches the next one's client.
    std::atomic<std::uint64_t> _job{0};
    std::atomic<bool> _workerStarted{false};
    std::atomic<bool> _notifierStarted{false};

    // Worker thread.
    std::optional<double> _jobStart;  // monotonic seconds; held from a job's first step to its completion
    // Notification thread.
    int _lastProgress = 0;

    mutable ConditionLock _threadStackLock{0};                                // 1: not empty, 0: empty
    TuvRef<TuvObjectArray> _threadStack KAVARO_GUARDED_BY(_threadStackLock);  // index 0 is the top
    TuvRef<TuvDirNode> _rootNode KAVARO_GUARDED_BY(_threadStackLock);
    std::shared_ptr<ScanSession> _session KAVARO_GUARDED_BY(_threadStackLock);

    ConditionLock _notificationStackLock{0};  // 1: not empty, 0: empty
    TuvRef<TuvObjectArray> _notificationStack KAVARO_GUARDED_BY(_notificationStackLock);
    std::uint64_t _notificationStackJob KAVARO_GUARDED_BY(_notificationStackLock) = 0;
    std::shared_ptr<ScanSession> _notificationStackSession KAVARO_GUARDED_BY(_notificationStackLock);
    std::int64_t _notificationStackNodes KAVARO_GUARDED_BY(_notificationStackLock) = 0;  // children included

    // Back-pressure: nodes in folders that are resolved and have not left the process.
    std::mutex _unsentMutex;
    std::condition_variable _unsentChanged;
    std::int64_t _unsentNodes = 0;  // guarded by _unsentMutex
};

}  // namespace kavaro
