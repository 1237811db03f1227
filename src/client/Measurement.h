#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "model/TuvDirNode.h"
#include "platform/BusValue.h"

namespace kavaro {

// A folder whose contents are missing from the totals, with the reason the server gave.
struct UnreadFolder {
    std::string path;
    std::string reason;
};

// The outcome of measuring one folder. `root` may be set although something failed: then it holds what was measured
// until then, `partial` is true, and unresolved folders in it are those that were not finished.
struct Measurement {
    std::string path;         // absolute
    TuvRef<TuvDirNode> root;  // null: nothing was measured
    std::vector<UnreadFolder> unread;
    double seconds = 0;        // from the start of the job to its end
    double serverSeconds = 0;  // the engine's own time, 0 when unknown
    bool partial = false;
    bool interrupted = false;            // by the user
    std::string failure;                 // for people: path, reason, what to do; empty when all went well
    std::uint64_t serverIdleMemory = 0;  // bytes before the job, 0 when unknown
    std::uint64_t serverPeakMemory = 0;  // bytes, 0 when unknown

    bool ok() const { return failure.empty() && !interrupted; }
};

// What is known while a job runs.
struct MeasurementProgress {
    std::uint64_t folders = 0;
    std::uint64_t files = 0;
    std::uint64_t physicalSize = 0;
    std::uint64_t logicalSize = 0;
    double seconds = 0;
    std::string currentFolder;  // as much of the path as is known
};

// What a command of the server came to.
struct CommandReply {
    struct PathFailure {
        std::string path;
        std::string reason;  // for people, without a full stop
    };
    std::vector<BusValue> values;
    std::vector<PathFailure> failures;  // that the notification about the Trash told meanwhile
    bool interrupted = false;           // by the user; the server may still be at work on it
    std::string failure;                // for people, with a closing stop; empty when all went well

    bool ok() const { return failure.empty() && !interrupted; }
};

// Measures folders one after another. Main thread. measure() runs the main loop until the job has ended, calling
// `progress` about every tenth of a second; `interrupted` is asked often, and true stops the job.
class MeasurementSource {
  public:
    struct Callbacks {
        std::function<void(const MeasurementProgress&)> progress;
        std::function<bool()> interrupted;
        bool showsPart = true;  // what is known when a job fails; a failure says so
    };
    virtual ~MeasurementSource() = default;
    virtual Measurement measure(const std::string& path, const Callbacks& callbacks) = 0;
    // Says that commands will follow: what they need is made ready while folders are measured.
    virtual void prepareCommands() {}
    // Has one of the other commands done, by its name on the bus, and waits for its end as long as it takes: runs the
    // main loop meanwhile and asks `interrupted` often. One that changes files is better waited for: what an abandoned
    // one still does is told nobody. The server that measured is gone by then; another one is found or started, and
    // stays for the next command.
    virtual CommandReply command(std::string_view member, const std::vector<BusValue>& arguments,
                                 const std::function<bool()>& interrupted) = 0;
    // Ends the server of the last command in the middle, and waits until it is gone. False where it is not ours to end:
    // it goes on.
    virtual bool endServer() { return false; }
};

}  // namespace kavaro
