#pragma once

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "support/TuvLog.h"

namespace kavaro {

// Collects the log's lines, in the order in which they were written, instead of letting them go to standard error.
// One at a time; any thread may log meanwhile. With a level, every component that has not yet asked for its level gets
// that one: take the capture before the first use of the classes under test.
class LogCapture {
  public:
    struct Line {
        LogLevel level;
        std::string component;
        std::string selector;
        std::string text;
    };

    LogCapture() { install(); }
    explicit LogCapture(LogLevel level) {
        TuvLog::setDefaultLevel(level);
        install();
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture() {
        TuvLog::setObserver({});
        TuvLog::setDestinationEnabled(true);
        TuvLog::setDefaultLevel(_oldLevel);
    }

    std::vector<Line> lines() const {
        std::lock_guard lock(_store->mutex);
        return _store->lines;
    }
    std::vector<std::string> texts() const {
        std::vector<std::string> texts;
        for (Line& line : lines()) texts.push_back(std::move(line.text));
        return texts;
    }
    // Number of lines whose text has `part` in it.
    int count(std::string_view part) const {
        std::lock_guard lock(_store->mutex);
        return static_cast<int>(std::count_if(_store->lines.begin(), _store->lines.end(), [&](const Line& line) {
            return line.text.find(part) != std::string::npos;
        }));
    }
    int count(LogLevel level, std::string_view part) const {
        std::lock_guard lock(_store->mutex);
        return static_cast<int>(std::count_if(_store->lines.begin(), _store->lines.end(), [&](const Line& line) {
            return line.level == level && line.text.find(part) != std::string::npos;
        }));
    }
    bool contains(std::string_view part) const { return count(part) > 0; }
    void clear() {
        std::lock_guard lock(_store->mutex);
        _store->lines.clear();
    }

  private:
    struct Store {
        std::mutex mutex;
        std::vector<Line> lines;
    };

    void install() {
        TuvLog::setDestinationEnabled(false);
        // Shared with the observer: a call on another thread may still be in it when the capture goes.
        TuvLog::setObserver([store = _store](const TuvLog::Line& line) {
            std::lock_guard lock(store->mutex);
            store->lines.push_back(
                {line.level, std::string(line.component), std::string(line.selector), std::string(line.text)});
        });
    }

    std::shared_ptr<Store> _store = std::make_shared<Store>();
    const LogLevel _oldLevel = TuvLog::configuredLevel(nullptr);
};

}  // namespace kavaro
