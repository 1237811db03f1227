#pragma once

#include <memory>
#include <string>

#include "client/Measurement.h"

namespace kavaro {

struct RemoteOptions {
    std::string bus = "session";  // "session", "system" or an address
    bool verbose = false;         // the server's log goes to standard error
    bool sameFileSystem = false;  // leave out other mounts
};

// Measures through the server: the one that runs, or one that it starts and ends.
std::unique_ptr<MeasurementSource> makeRemoteSource(const RemoteOptions& options);

// Measures in this process, without a bus. Reads the settings of UserDefaults::standard().
std::unique_ptr<MeasurementSource> makeEmbeddedSource();

// The same for many folders in a row: without the pauses that the engine makes before its first job and between what it
// tells. For a process that has made no engine yet.
std::unique_ptr<MeasurementSource> makeQuickSource();

// A server that may be running. Never starts one.
class ServerControl {
  public:
    struct Answer {
        bool isRunning = false;
        std::string version;  // of a running server
        std::string failure;  // for people; empty when the question could be asked
    };
    virtual ~ServerControl() = default;
    virtual Answer version() = 0;
    // Returns when the server has left the bus. isRunning: there was one.
    virtual Answer stop() = 0;
};
std::unique_ptr<ServerControl> makeServerControl(const RemoteOptions& options);

}  // namespace kavaro
