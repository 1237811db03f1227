#include "platform/NotificationCenter.h"

#include <algorithm>

namespace kavaro {

NotificationCenter& NotificationCenter::defaultCenter() {
    // Never destroyed: threads may still post while the process ends.
    static auto* center = new NotificationCenter;
    return *center;
}

NotificationCenter::ObserverID NotificationCenter::addObserver(std::string_view name, Observer observer) {
    std::lock_guard guard(_mutex);
    _entries.push_back({++_lastID, std::string(name), std::make_shared<const Observer>(std::move(observer))});
    return _lastID;
}

void NotificationCenter::removeObserver(ObserverID observer) {
    // The function goes after the mutex is free: what it captured may call back into the centre when it is destroyed.
    std::shared_ptr<const Observer> removed;
    std::lock_guard guard(_mutex);
    auto entry = std::find_if(_entries.begin(), _entries.end(), [=](const Entry& e) { return e.id == observer; });
    if (entry == _entries.end()) return;
    removed = std::move(entry->observer);
    _entries.erase(entry);
}

void NotificationCenter::post(std::string_view name, const std::any& object, const std::any& userInfo) {
    std::vector<Entry> called;
    {
        std::lock_guard guard(_mutex);
        for (const Entry& entry : _entries) {
            if (entry.name.empty() || entry.name == name) called.push_back(entry);
        }
    }
    const Notification notification{name, object, userInfo};
    for (const Entry& entry : called) {
        if (isThere(entry.id)) (*entry.observer)(notification);
    }
}

bool NotificationCenter::isThere(ObserverID observer) {
    std::lock_guard guard(_mutex);
    return std::any_of(_entries.begin(), _entries.end(), [=](const Entry& entry) { return entry.id == observer; });
}

}  // namespace kavaro
