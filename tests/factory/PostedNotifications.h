#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "factory/DistributedCenter.h"
#include "factory/NotificationUserInfo.h"
#include "model/TuvDirNode.h"
#include "platform/NotificationCenter.h"
#include "support/ProtocolNames.h"

namespace kavaro {

// Everything that the engine posts, by either way, in order. Posts come on the main thread; waitUntilWritten() on the
// notification thread.
class PostedNotifications final : public DistributedCenter {
  public:
    struct Posted {
        std::string name;
        bool local;
        std::string object;                      // remote delivery alone
        std::shared_ptr<const ByteBuffer> data;  // the local object, or "serialized"
        bool hasUserInfo;
        NotificationUserInfo userInfo;
    };

    PostedNotifications() {
        NotificationCenter::defaultCenter().addObserver(
            "", [this](const NotificationCenter::Notification& notification) { noteLocal(notification); });
    }

    bool post(std::string_view name, std::string_view object, const NotificationUserInfo& userInfo,
              std::string* error) override {
        note({std::string(name), false, std::string(object), userInfo.serialized, !userInfo.isEmpty(), userInfo});
        if (_failure.empty()) return true;
        *error = _failure;
        return false;
    }
    void waitUntilWritten() override {
        ++_waits;
        if (onWait) onWait();
    }

    // From now on nothing can be posted to other processes.
    void fail(const std::string& reason) { _failure = reason; }
    // Called on the main thread from within the post, once it has been written down.
    std::function<void(const Posted&)> onPost;
    std::function<void()> onWait;
    int waits() const { return _waits; }

    const std::vector<Posted>& all() const { return _posted; }
    void clear() { _posted.clear(); }
    // Without the common beginning and end: "Started", "Resolved", "Completed", "Stopped", "UnreadFolders".
    static std::string shortName(std::string name) {
        for (const std::string part : {"TuvNodeFactory", "Kavaro", "Notification"})
            if (auto at = name.find(part); at != std::string::npos) name.erase(at, part.size());
        return name;
    }
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const Posted& posted : _posted) names.push_back(shortName(posted.name));
        return names;
    }
    int count(std::string_view shortNameWanted) const {
        const auto all = names();
        return static_cast<int>(std::count(all.begin(), all.end(), shortNameWanted));
    }
    const Posted* last(std::string_view shortNameWanted) const {
        for (auto it = _posted.rbegin(); it != _posted.rend(); ++it)
            if (shortName(it->name) == shortNameWanted) return &*it;
        return nullptr;
    }

    static TuvRef<TuvDirNode> folderOf(const Posted* posted) {
        return posted && posted->data ? TuvDirNode::fromBytes(posted->data->view()) : nullptr;
    }
    // The folders of all batches, in order.
    TuvRef<TuvObjectArray> resolved() const {
        auto folders = make<TuvObjectArray>();
        for (const Posted& posted : _posted) {
            if (posted.name != TuvNodeFactoryResolvedNotification || !posted.data) continue;
            auto batch = TuvObjectArray::fromBytes(posted.data->view());
            if (batch) folders->addObjectsFromArray(batch.get());
        }
        return folders;
    }
    std::vector<std::string> resolvedNames() const { return namesOf(*resolved()); }
    static std::vector<std::string> namesOf(const TuvObjectArray& array) {
        std::vector<std::string> names;
        for (int i = 0; i < array.count(); ++i) names.emplace_back(array.nodeAtIndex(i)->fileName());
        return names;
    }
    // "path: reason" of all unread folders, in order.
    std::vector<std::string> unread() const {
        std::vector<std::string> lines;
        for (const Posted& posted : _posted) {
            if (!posted.userInfo.folders) continue;
            for (std::size_t i = 0; i < posted.userInfo.folders->size(); ++i)
                lines.push_back((*posted.userInfo.folders)[i] + ": " + posted.userInfo.reasons[i]);
        }
        return lines;
    }

  private:
    void noteLocal(const NotificationCenter::Notification& notification) {
        Posted posted{std::string(notification.name), true, {}, nullptr, notification.userInfo.has_value(), {}};
        if (const auto* data = std::any_cast<std::shared_ptr<const ByteBuffer>>(&notification.object))
            posted.data = *data;
        if (const auto* info = std::any_cast<NotificationUserInfo>(&notification.userInfo)) posted.userInfo = *info;
        note(std::move(posted));
    }
    void note(Posted posted) {
        _posted.push_back(posted);
        const auto current = onPost;  // it may take itself away
        if (current) current(posted);
    }

    std::vector<Posted> _posted;
    std::string _failure;
    std::atomic<int> _waits{0};
};

}  // namespace kavaro
