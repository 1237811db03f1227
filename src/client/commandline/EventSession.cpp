#include "client/commandline/EventSession.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "client/commandline/Commands.h"
#include "client/commandline/Output.h"
#include "fsevents/KernelRecord.h"
#include "platform/Text.h"
#include "platform/UserDefaults.h"
#include "support/TuvLog.h"

namespace kavaro {

namespace {

constexpr double kLongestRead = 0.25;  // seconds: a signal that comes just before a read is seen after it
constexpr double kLastReads = 2;
constexpr std::size_t kWordColumns = 9;

std::string wordOf(const TuvFSEvent& event) {
    switch (event.type()) {
        case record::kCreateFile:
        case record::kCreateDir:
            return "created";
        case record::kDelete:
            return "deleted";
        case record::kRename:
            return "renamed";
        case record::kModified:
            return "modified";
        default: {
            const char* name = TuvFSEvent::stringType(event.type());
            if (!name) return "unknown";
            return name == std::string_view("UPDATED") ? "updated" : name;
        }
    }
}

// The event, then its children.
std::vector<TuvFSEvent*> changesOf(const TuvFSEvent& event) {
    std::vector<TuvFSEvent*> changes{const_cast<TuvFSEvent*>(&event)};
    if (!event.childEvents()) return changes;
    for (TuvObject* child : *event.childEvents()) changes.push_back(static_cast<TuvFSEvent*>(child));
    return changes;
}

bool saysTheSame(const TuvFSEvent& a, const TuvFSEvent& b) {
    return a.type() == b.type() && a.filePath() == b.filePath() && a.filePathDestination() == b.filePathDestination();
}

void visitRuns(const std::vector<TuvFSEvent*>& changes, const VisitChange& visit) {
    int times = 0;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        ++times;
        if (i + 1 < changes.size() && saysTheSame(*changes[i], *changes[i + 1])) continue;
        visit(*changes[i], std::exchange(times, 0));
    }
}

}  // namespace

LogErrors::LogErrors(const CommandContext& context) {
    TuvLog::setDestinationEnabled(false);
    TuvLog::setObserver([&context](const TuvLog::Line& line) {
        const bool isCallStack = line.text.starts_with('(');
        if (line.level == LogLevel::error && !isCallStack) writeError(context, withProgramName(printable(line.text)));
    });
}

LogErrors::~LogErrors() {
    TuvLog::setObserver({});
}

std::unique_ptr<EventSession> EventSession::open(const EventsOptions& options, const CommandContext& context) {
    std::string volume = options.volume;
    if (volume.empty()) volume = UserDefaults::standard().stringForKey("fsEventsVolume").value_or("");
    if (volume.empty()) volume = "/";
    EventDevice::Problem problem;
    std::unique_ptr<EventDevice> device = context.openEventDevice(volume, &problem);
    if (device) return std::unique_ptr<EventSession>(new EventSession(volume, std::move(device), context));
    if (problem.isVolume) {
        writeError(context, withProgramName(printable(problem.text) + "."));
    } else {
        const char* hint =
            problem.needsRights ? "That needs administrator rights: run it as root, for example with sudo" : "";
        writeError(context, errorMessage(volume, "its changes cannot be followed: " + problem.text, hint));
    }
    return nullptr;
}

EventSession::EventSession(std::string volume, std::unique_ptr<EventDevice> device, const CommandContext& context)
    : _context(context), _volume(std::move(volume)), _device(std::move(device)) {
    TuvFSEvent::setAcceptedDevice(_device->device());
}

EventSession::~EventSession() = default;

bool EventSession::readDevice(double seconds) {
    std::uint8_t buffer[record::kReadSize];
    const int length = _device->read(buffer, sizeof buffer, seconds);
    if (length > 0) TuvFSEvents_print_event(&_listener, buffer, length);
    return length > 0;
}

bool EventSession::gather(double seconds, bool isLast) {
    const double end = _context.clock->monotonicSeconds() + seconds;
    while (_context.signalCount() == 0 && !_device->isGone()) {
        const double left = end - _context.clock->monotonicSeconds();
        if (left <= 0 && !isLast) return true;
        if (left <= 0) break;
        readDevice(std::min(left, kLongestRead));
    }
    // What happened before the end may still be on its way here.
    const double last = _context.clock->monotonicSeconds() + kLastReads;
    while (_context.signalCount() < 2 && _context.clock->monotonicSeconds() < last && readDevice(0)) {
    }
    if (_device->isGone())
        writeError(_context, errorMessage(_volume, "has been unmounted: its changes are not followed any more", ""));
    return false;
}

std::string eventLine(const TuvFSEvent& event) {
    std::string text = wordOf(event);
    text.resize(std::max(kWordColumns, text.size()) + 1, ' ');
    text += event.filePath().data() ? printable(event.filePath()) : "(no path)";
    if (event.type() == record::kCreateDir) text += "/";
    if (event.filePathDestination().data()) text += " -> " + printable(event.filePathDestination());
    return text;
}

void forEachChange(const TuvFSEvent& event, const VisitChange& visit) {
    visitRuns(changesOf(event), visit);
}

void forEachSettledChange(const TuvFSEvent& event, const VisitChange& visit) {
    const std::vector<TuvFSEvent*> changes = changesOf(event);
    const auto isCreated = [](const TuvFSEvent* change) {
        return change->type() == record::kCreateFile || change->type() == record::kCreateDir;
    };
    auto next = std::find_if(changes.begin() + 1, changes.end(), isCreated);
    visitRuns({changes.begin(), next}, visit);
    while (next != changes.end()) {
        const TuvRef<TuvFSEvent> entry = (*next)->clone();
        const auto end = std::find_if(next + 1, changes.end(), isCreated);
        std::for_each(next + 1, end, [&](TuvFSEvent* change) { entry->addChildEvent(change); });
        entry->coalesce_CREATE_MODIFY_RENAME();
        forEachChange(*entry, visit);
        next = end;
    }
}

int changeCount(const TuvObjectArray& batch) {
    int count = 0;
    for (const TuvObject* event : batch)
        forEachChange(*static_cast<const TuvFSEvent*>(event), [&](const TuvFSEvent&, int times) { count += times; });
    return count;
}

}  // namespace kavaro
