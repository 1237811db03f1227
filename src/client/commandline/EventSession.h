#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "client/commandline/CommandLine.h"
#include "client/commandline/RunCommandLine.h"
#include "fsevents/TuvFSEvents.h"

namespace kavaro {

// Follows the changes of a volume in this process, without the server's threads: the command itself reads the device
// and says when a batch is taken. Main thread.
class EventSession {
  public:
    // Null, with the reason written, when the volume cannot be followed.
    static std::unique_ptr<EventSession> open(const EventsOptions& options, const CommandContext& context);
    ~EventSession();

    // Gathers changes for so many seconds. False when that was the last time: as was said, a signal came, or the volume
    // went. What has happened before that is still read, unless it takes 2 s or another signal comes.
    bool gather(double seconds, bool isLast = false);
    // What waits, ascending by inode.
    TuvRef<TuvObjectArray> take() { return _listener.events().takeAll(); }
    const std::string& volume() const { return _volume; }
    // Of the command: done unless the volume went.
    int exitCode() const { return _device->isGone() ? kExitFailed : kExitDone; }

  private:
    EventSession(std::string volume, std::unique_ptr<EventDevice> device, const CommandContext& context);

    // False when there was nothing.
    bool readDevice(double seconds);

    const CommandContext& _context;
    const std::string _volume;
    const std::unique_ptr<EventDevice> _device;
    TuvFSEvents _listener;
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
// The same for an event as coalescing left it. The number of an inode that is gone is soon that of a new entry: what
// happened to that one is put together as well.
void forEachSettledChange(const TuvFSEvent& event, const VisitChange& visit);
int changeCount(const TuvObjectArray& batch);

}  // namespace kavaro
