#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kavaro {

// Notifications within one process. post() calls the observers of the name on the posting thread, in the order in
// which they were added, and returns when the last has returned. Observers may be added and removed from any thread,
// also from within an observer: no lock is held while one is called. An observer that is added during a post hears of
// the next one; one that is removed is not called any more, but a call that already runs on another thread goes on
// after removeObserver() returned.
class NotificationCenter {
  public:
    using ObserverID = std::uint64_t;
    // `object` and `userInfo` are what the poster says they are; an empty any stands for null.
    struct Notification {
        std::string_view name;
        const std::any& object;
        const std::any& userInfo;
    };
    using Observer = std::function<void(const Notification&)>;

    // The centre that all parts of the process share.
    static NotificationCenter& defaultCenter();

    // An empty name observes every notification.
    ObserverID addObserver(std::string_view name, Observer observer);
    void removeObserver(ObserverID observer);
    void post(std::string_view name, const std::any& object = {}, const std::any& userInfo = {});

  private:
    struct Entry {
        ObserverID id;
        std::string name;
        std::shared_ptr<const Observer> observer;  // shared with the posts that are under way
    };
    bool isThere(ObserverID observer);

    std::mutex _mutex;
    std::vector<Entry> _entries;  // guarded by _mutex
    ObserverID _lastID = 0;       // guarded by _mutex
};

}  // namespace kavaro
