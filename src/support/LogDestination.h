#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "support/TuvLog.h"

namespace kavaro {

// Where log lines end up: standard error, or a file that is rotated when it has grown to `maximumBytes`, keeping
// `keptFiles` old ones. Safe from any thread; a line that cannot be written is dropped.
class LogDestination {
  public:
    struct File {
        std::string path;
        std::uint64_t maximumBytes = 10u << 20;
        int keptFiles = 3;
    };
    static std::shared_ptr<LogDestination> standardError();
    // Null when the file cannot be opened for writing.
    static std::shared_ptr<LogDestination> file(const File& file);
    ~LogDestination();

    void write(const TuvLog::Line& line);

  private:
    struct Impl;
    explicit LogDestination(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> _impl;
};

}  // namespace kavaro
