#pragma once

#include <functional>
#include <string>

#include "client/DigestJob.h"
#include "client/DuplicateSearch.h"
#include "client/Measurement.h"
#include "platform/Clock.h"

namespace kavaro {

// The line on a terminal that tells how far a job is: drawn over itself at most ten times a second, taken away before
// anything else is written. Main thread.
class LiveLine {
  public:
    static constexpr double kInterval = 0.1;  // seconds

    // Writes to `fd`, which must be a terminal. `columns` is asked before each drawing, as windows change; less than 0
    // says that the terminal is not ours now.
    LiveLine(int fd, std::function<int()> columns, Clock& clock)
        : _fd(fd), _columns(std::move(columns)), _clock(clock) {}
    LiveLine(const LiveLine&) = delete;
    LiveLine& operator=(const LiveLine&) = delete;
    ~LiveLine() { erase(); }

    void show(const MeasurementProgress& progress);
    void show(const SampleProgress& progress);
    void show(const DigestProgress& progress);
    void erase();

  private:
    // `text` is given the columns that it may take.
    void draw(const std::function<std::string(std::size_t)>& text);
    double rate(const MeasurementProgress& progress);
    std::string text(const MeasurementProgress& progress, std::size_t columns);

    const int _fd;
    const std::function<int()> _columns;
    Clock& _clock;
    bool _isShown = false;
    double _lastDrawn = 0;
    // Folders a second, over the last whole second.
    double _windowBegin = 0, _rate = 0;
    std::uint64_t _windowFolders = 0;
};

}  // namespace kavaro
