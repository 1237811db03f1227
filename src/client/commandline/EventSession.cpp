#include "client/commandline/EventSession.h"

#include <poll.h>

#include <algorithm>
#include <unordered_map>
#include <utility>
#include <vector>

#include "client/commandline/Commands.h"
#include "client/commandline/Output.h"
#include "fsevents/BatchResolver.h"
#include "fsevents/KernelRecord.h"
#include "platform/Text.h"
#include "platform/UserDefaults.h"
#include "support/TuvLog.h"

namespace kavaro {

namespace {

constexpr double kLongestRead = 0.25;  // seconds: a signal that comes just before a read is seen after it
constexpr double kLastReads = 2;
constexpr std::size_t kWordColumns = 9;
constexpr std::size_t kMostOver = 10000;

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

bool isCreation(const TuvFSEvent& event) {
    return event.type() == record::kCreateFile || event.type() == record::kCreateDir;
}

// As one of its children it would be dropped though it says something new, or be taken for the same entry as before.
bool mustNotJoin(const TuvFSEvent& waiting, const TuvFSEvent& event) {
    if (!TuvFSEvent::runAsDataCollector() && isCreation(event) && waiting.type() == record::kDelete) return true;
    if (event.type() == record::kModified || event.type() != waiting.type()) return false;
    return waiting.childEvents() || !saysTheSame(waiting, event);
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
    _listener.setArrival([this](TuvRef<TuvFSEvent> event) { _arrived.push_back(std::move(event)); });
}

EventSession::~EventSession() = default;

bool EventSession::readDevice(double seconds) {
    std::uint8_t buffer[record::kReadSize];
    const int length = _device->read(buffer, sizeof buffer, seconds);
    if (length > 0) TuvFSEvents_print_event(&_listener, buffer, length);
    return length > 0;
}

bool EventSession::letIn() {
    WaitingEvents& events = _listener.events();
    for (; !_arrived.empty(); _arrived.pop_front()) {
        const TuvFSEvent& event = *_arrived.front();
        TuvFSEvent* waiting = event.shouldAddEvent() ? events.eventWithInode(event.inode()) : nullptr;
        if (waiting && mustNotJoin(*waiting, event)) {
            // Of a batch that is replayed, two events of one inode would meet after all.
            if (TuvFSEvent::runAsDataCollector() || _over.size() == kMostOver) return false;
            _over.push_back(TuvRef<TuvFSEvent>::share(waiting));
            events.remove(waiting->inode());
        }
        TuvFSEvent::addEvent(_arrived.front().leak(), &events, nullptr);
    }
    return true;
}

bool EventSession::isOver() const {
    if (_context.signalCount() > 0 || _device->isGone()) return true;
    pollfd reader{_output, 0, 0};  // none: fd -1
    return poll(&reader, 1, 0) > 0 && (reader.revents & (POLLERR | POLLHUP)) != 0;
}

bool EventSession::gather(double seconds, bool isLast) {
    const double end = _context.clock->monotonicSeconds() + seconds;
    while (!isOver()) {
        if (!letIn()) return true;
        const double left = end - _context.clock->monotonicSeconds();
        if (left <= 0 && !isLast) return true;
        if (left <= 0) break;
        readDevice(std::min(left, kLongestRead));
    }
    // What happened before the end may still be on its way here.
    if (!_lastReadsEnd) _lastReadsEnd = _context.clock->monotonicSeconds() + kLastReads;
    do {
        if (!letIn()) return true;
    } while (_context.signalCount() < 2 && _context.clock->monotonicSeconds() < *_lastReadsEnd && readDevice(0));
    if (_device->isGone()) {
        constexpr const char* kReason =
            "has been unmounted, or another volume hides it: its changes are not followed any more";
        writeError(_context, errorMessage(_volume, kReason, ""));
    }
    return false;
}

TuvRef<TuvObjectArray> EventSession::take() {
    TuvRef<TuvObjectArray> waiting = _listener.events().takeAll();
    if (_over.empty()) return waiting;
    auto batch = make<TuvObjectArray>(static_cast<int>(_over.size()) + waiting->count());
    for (TuvRef<TuvFSEvent>& event : _over) batch->adoptObject(event.leak());
    _over.clear();
    batch->addObjectsFromArray(waiting.get());
    return batch;
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

std::vector<const TuvFSEvent*> settle(TuvObjectArray& batch) {
    std::unordered_map<const TuvObject*, int> arrivals;
    for (const TuvObject* event : batch) arrivals.emplace(event, static_cast<int>(arrivals.size()));
    BatchResolver::coalesce(batch, TuvFSEvent::Covers::within);
    struct Place {
        const TuvFSEvent* event;
        int arrival;
        const Place* first;  // of its inode
    };
    std::vector<Place> places;
    places.reserve(static_cast<std::size_t>(batch.count()));
    std::unordered_map<std::uint32_t, const Place*> firsts;
    for (const TuvObject* object : batch) {
        const auto* event = static_cast<const TuvFSEvent*>(object);
        places.push_back({event, arrivals[object], nullptr});
        const Place*& first = firsts.try_emplace(event->inode(), &places.back()).first->second;
        if (places.back().arrival < first->arrival) first = &places.back();
    }
    std::vector<const Place*> order;
    for (Place& place : places) {
        place.first = firsts[place.event->inode()];
        order.push_back(&place);
    }
    std::ranges::sort(order, [](const Place* a, const Place* b) {
        if (a->first == b->first) return a->arrival < b->arrival;
        const int paths = compare(a->first->event->filePath(), b->first->event->filePath());
        return paths != 0 ? paths < 0 : a->first->arrival < b->first->arrival;
    });
    std::vector<const TuvFSEvent*> events;
    for (const Place* place : order) events.push_back(place->event);
    return events;
}

int changeCount(const TuvObjectArray& batch) {
    int count = 0;
    for (const TuvObject* event : batch)
        forEachChange(*static_cast<const TuvFSEvent*>(event), [&](const TuvFSEvent&, int times) { count += times; });
    return count;
}

}  // namespace kavaro
