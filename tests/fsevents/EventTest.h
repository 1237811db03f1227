#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "fsevents/EventRecording.h"
#include "fsevents/TuvFSEvent.h"
#include "fsevents/WaitingEvents.h"
#include "platform/Clock.h"

namespace kavaro {

inline constexpr std::uint32_t kDevice = TuvFSEvent::kFirstDevice;

// Of the accepted device.
inline TuvRef<TuvFSEvent> newEvent(const char* type, std::uint32_t inode, std::string_view path) {
    auto event = make<TuvFSEvent>(TuvFSEvent::intType(type));
    event->setInode(inode);
    event->setDevice(kDevice);
    event->setFilePath(path);
    return event;
}

inline TuvRef<TuvFSEvent> newRename(std::uint32_t inode, std::string_view path, std::string_view destination) {
    auto event = newEvent("RENAME", inode, path);
    event->setInode(inode);
    event->setDevice(kDevice);
    event->setFilePath(destination);
    return event;
}

inline TuvFSEvent* eventAt(const TuvObjectArray& array, int index) {
    return static_cast<TuvFSEvent*>(array.objectAtIndex(index));
}

// "TYPE inode path[ -> destination]", and in brackets the same of the later events.
inline std::string textOf(const TuvFSEvent& event) {
    const char* name = TuvFSEvent::stringType(event.type());
    std::string text = name ? name : "?";
    text += " " + std::to_string(event.inode()) + " " + std::string(event.filePath());
    if (event.filePathDestination().data()) text += " -> " + std::string(event.filePathDestination());
    if (!event.childEvents()) return text;
    text += " [";
    for (int index = 0; index < event.childEvents()->count(); ++index) {
        if (index > 0) text += ", ";
        text += textOf(*eventAt(*event.childEvents(), index));
    }
    return text + "]";
}

inline std::vector<std::string> textsOf(const TuvObjectArray& batch) {
    std::vector<std::string> texts;
    for (int index = 0; index < batch.count(); ++index) texts.push_back(textOf(*eventAt(batch, index)));
    return texts;
}

inline std::string recordingOf(const TuvObjectArray& batch) {
    std::string text;
    writeBatch(batch, [&](std::string_view piece) { text += piece; });
    return text;
}

class CollectorMode {
  public:
    CollectorMode() { TuvFSEvent::setRunAsDataCollector(true); }
    ~CollectorMode() { TuvFSEvent::setRunAsDataCollector(false); }
};

// A clock on which no time passes. Says what was slept, and calls what a test wants done meanwhile.
class PauseClock final : public Clock {
  public:
    double monotonicSeconds() override { return 0; }
    double wallSeconds() override { return 1000000000; }
    void sleep(double seconds) override {
        {
            std::lock_guard lock(_mutex);
            _sleeps.push_back(seconds);
        }
        if (during) during(seconds);
    }
    std::vector<double> sleeps() const {
        std::lock_guard lock(_mutex);
        return _sleeps;
    }

    std::function<void(double seconds)> during;

  private:
    mutable std::mutex _mutex;
    std::vector<double> _sleeps;
};

}  // namespace kavaro
