#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/commandline/CommandLine.h"
#include "client/commandline/RunCommandLine.h"
#include "fsevents/TuvFSEvents.h"

namespace kavaro {

// Follows the changes of a volume in this process, without the server's threads: the command itself reads the device
// and says when a batch is taken. One event waits for each inode, with what came after it, but none that would be left
// out there though it says something new, as a second rename, and, unless everything is collected, no life of another
// entry with the number of one that is gone. Main thread.
class EventSession {
  public:
    // Null, with the reason written, when the volume cannot be followed.
    static std::unique_ptr<EventSession> open(const EventsOptions& options, const CommandContext& context);
    ~EventSession();

    // Where the changes go: when nobody reads it any more, gathering ends.
    void setOutput(int fd) { _output = fd; }
    // Gathers changes for so many seconds, or less when what waits must be taken before the next one. False when that
    // was the last time: as was said, a signal came, the volume went, or the reader. What has happened before that is
    // still read, unless it takes 2 s or another signal comes.
    bool gather(double seconds, bool isLast = false);
    // What waits, ascending by inode; before it, in their order, the events that were over when another one of their
    // inode came. There are none of these while everything is collected.
    TuvRef<TuvObjectArray> take();
    const std::string& volume() const { return _volume; }
    // Of the command: done unless the volume went.
    int exitCode() const { return _device->isGone() ? kExitFailed : kExitDone; }

  private:
    EventSession(std::string volume, std::unique_ptr<EventDevice> device, const CommandContext& context);

    // False when there was nothing.
    bool readDevice(double seconds);
    // Lets what has arrived wait. False when a batch has to be taken first.
    bool letIn();
    bool isOver() const;

    const CommandContext& _context;
    const std::string _volume;
    const std::unique_ptr<EventDevice> _device;
    int _output = -1;
    std::optional<double> _lastReadsEnd;
    TuvFSEvents _listener;
    std::deque<TuvRef<TuvFSEvent>> _arrived;  // of one read
    std::vector<TuvRef<TuvFSEvent>> _over;    // at most kMostOver
};

// While it lives, errors of the log go to the command's error output, and nothing else of the log anywhere.
class LogErrors {
  public:
    explicit LogErrors(const CommandContext& context);
    ~LogErrors();
    LogErrors(const LogErrors&) = delete;
    LogErrors& operator=(const LogErrors&) = delete;
};

// One line, without its end: "modified  PATH", for a rename "renamed   PATH -> PATH". "/" follows a new folder.
std::string eventLine(const TuvFSEvent& event);
// The event and, in their order, those that came after it on the same inode; once, with their number, those that follow
// each other and say the same.
using VisitChange = std::function<void(const TuvFSEvent& change, int times)>;
void forEachChange(const TuvFSEvent& event, const VisitChange& visit);
// Coalesces a batch that EventSession::take() gave, for somebody who wants to know of every entry that is there. By
// path, but what happened to one inode together and in its order.
std::vector<const TuvFSEvent*> settle(TuvObjectArray& batch);
int changeCount(const TuvObjectArray& batch);

}  // namespace kavaro
