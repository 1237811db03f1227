#include "fsevents/EventReplay.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "fsevents/EventRecording.h"
#include "fsevents/FSEventsLog.h"
#include "platform/FileContent.h"
#include "support/Backtrace.h"

namespace kavaro {

namespace {

constexpr const char* kSelector = "_listenForFSEventsFromFileTH:";
// What a recording says of a batch's size is a hint; more room than this is made when events come.
constexpr int kMostRoom = 65536;
constexpr const char* kNoStart = "their start row is missing or broken";

// Without the mark behind the last child's entries.
std::string_view withoutChildrenEnd(std::string_view row) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::string_view mark = kChildrenEnd.substr(kChildrenEnd.find_first_not_of(kBlanks));
    const std::size_t last = row.find_last_not_of(kBlanks);
    const std::string_view text = row.substr(0, last == std::string_view::npos ? 0 : last + 1);
    return text.ends_with(mark) ? text.substr(0, text.size() - mark.size()) : row;
}

std::string_view textOfRow(const PropertyList& row, const char* key) {
    const PropertyList* value = row.get(key);
    return value && value->string() ? std::string_view(*value->string()) : std::string_view();
}

}  // namespace

EventReplay::EventReplay(Clock& clock, Deliver deliver)
    : _clock(clock),
      _deliver(std::move(deliver)),
      _rows([this](std::string_view row) { handleRow(row); }, [this](std::uint64_t bytes) { skipLongRow(bytes); }) {}

EventReplay::Deliver EventReplay::toWaitingEvents(WaitingEvents& events, ConditionLock& lock, Clock& clock) {
    return [&events, &lock, &clock](TuvRef<TuvObjectArray> batch) {
        lock.lock();
        while (events.count() > 0) {
            lock.unlock();
            clock.sleep(kDeliveryPause);
            lock.lock();
        }
        for (TuvObject* event : *batch) events.insert(static_cast<TuvFSEvent*>(event));
        batch = nullptr;  // under the lock, as every change of a reference count
        lock.unlockWithCondition(events.count() > 0 ? 1 : 0);
    };
}

int EventReplay::replayFile(const std::string& path) {
    const int error = readFileInPieces(path, [this](std::string_view piece) { _rows.read(piece); });
    const char* reason = error == EINVAL ? "is no regular file" : std::strerror(error);
    if (error != 0 && !_tellFault) TuvLog::error(tuvFSEventsLog, kSelector, "%@: %s", path, reason);
    finish();
    return error;
}

void EventReplay::replayText(std::string_view text) {
    _rows.read(text);
    finish();
}

void EventReplay::finish() {
    if (_rows.bytesRead() > kRowStart.size()) {
        TuvLog::info(tuvFSEventsLog, kSelector, "parsing items from file ...");
        _clock.sleep(kLastPause);
        if (_rows.rowsRead() == 0 && !_tellFault)
            TuvLog::error(tuvFSEventsLog, kSelector, "no row in %llu bytes", _rows.bytesRead());
    }
    // The last row is never read, not even one that was meant to be.
    if (_rows.rest().find("inode=") != std::string_view::npos) ++(_batch ? _waitingEvents : _earlyEvents);
    const std::uint64_t end = _rows.rowsRead() + 1;
    leaveOut(&_earlyEvents, &_totals.withoutStart, end, kNoStart);
    leaveOut(&_waitingEvents, &_totals.withoutEnd, end, "the end row is missing or the last row of the text");
    _batch = nullptr;
    TuvLog::info(tuvFSEventsLog, kSelector, "completed");
}

std::optional<PropertyList> EventReplay::entriesOfRow(std::string_view row, PropertyListFault* fault) {
    std::string text = "{";
    text += withoutChildrenEnd(row);
    text += "\n}";  // the row may end in a comment
    std::optional<PropertyList> entries = propertyListFromText(text, fault);
    if (!entries && fault->line == 1) --fault->column;  // in the row, which has no brace
    return entries;
}

std::optional<PropertyList> EventReplay::plistFromRow(std::string_view row) {
    PropertyListFault fault;
    std::optional<PropertyList> entries = entriesOfRow(row, &fault);
    if (!entries && tuvFSEventsLog.errorOn()) {
        constexpr const char* kRowSelector = "_plistFromRow:";
        TuvLog::error(tuvFSEventsLog, kRowSelector, "rowString: %@", row);
        TuvLog::error(tuvFSEventsLog, kRowSelector, "Exception: %@", fault.description());
        TuvLog::error(tuvFSEventsLog, kRowSelector, "(%@)", backtrace());
    }
    return entries;
}

void EventReplay::skipLongRow(std::uint64_t bytes) {
    ++_totals.brokenRows;
    if (_tellFault)
        _tellFault({_rows.rowsRead(), std::to_string(bytes) + " bytes are too long for a row", {}});
    else
        TuvLog::error(tuvFSEventsLog, kSelector, "a row of %llu bytes is too long and skipped", bytes);
}

void EventReplay::handleRow(std::string_view row) {
    PropertyListFault fault;
    const std::optional<PropertyList> entries = _tellFault ? entriesOfRow(row, &fault) : plistFromRow(row);
    if (!entries) {
        ++_totals.brokenRows;
        if (_tellFault) _tellFault({_rows.rowsRead(), fault.description(), row});
        return;
    }
    const std::string_view mark = textOfRow(*entries, "eventBatch");
    if (mark == "begin") {
        const PropertyList* count = entries->get("batchCount");
        beginBatch(static_cast<int>(count ? std::clamp<std::int64_t>(count->intValue(), 0, INT32_MAX) : 0));
    } else if (mark == "end") {
        endBatch();
    } else {
        handleEvent(*entries);
    }
}

void EventReplay::handleEvent(const PropertyList& entries) {
    TuvRef<TuvFSEvent> event = TuvFSEvent::eventFromString(entries, false);
    if (_takesDevice && entries.get("device")) {
        TuvFSEvent::setAcceptedDevice(event->device());
        _takesDevice = false;
    }
    // Another recording may follow the row that closes one.
    const bool isChange = entries.get("type") || entries.get("filePath");
    if (!_batch) {
        if (isChange) ++_earlyEvents;
        return;
    }
    ++_batchRows;
    ++_totals.rows;
    if (isChange) {
        if (event->device() != TuvFSEvent::acceptedDevice())
            ++_totals.ofOtherDevices;
        else
            ++(event->shouldAddEvent() ? _waitingEvents : _totals.inOtherFolders);
    }
    TuvFSEvent::addEvent(event.leak(), _batch.get(), nullptr);
}

// Events that waited for another row than the one that has come.
void EventReplay::leaveOut(std::int64_t* events, std::int64_t* total, std::uint64_t row, const char* why) {
    if (*events == 0) return;
    TuvLog::error(tuvFSEventsLog, kSelector, "%lld items up to row %llu are left out: %s", *events, row, why);
    *total += std::exchange(*events, 0);
}

void EventReplay::beginBatch(int count) {
    leaveOut(&_earlyEvents, &_totals.withoutStart, _rows.rowsRead(), kNoStart);
    leaveOut(&_waitingEvents, &_totals.withoutEnd, _rows.rowsRead(), "this row starts a batch and none ended theirs");
    _batchStart = _clock.monotonicSeconds();
    _batchCount = count;
    _batchRows = 0;
    _batch = make<TuvObjectArray>(2 * std::min(count, kMostRoom / 2));
    TuvLog::info(tuvFSEventsLog, kSelector, "starting batch with %d items", count);
}

void EventReplay::endBatch() {
    const double milliseconds = (_clock.monotonicSeconds() - _batchStart) * 1000;
    TuvLog::info(tuvFSEventsLog, kSelector, "got %d items (%d top level added) for batch with %d items, in %9.3f ms",
                 _batchRows, _batch ? _batch->count() : 0, _batchCount, milliseconds);
    leaveOut(&_earlyEvents, &_totals.withoutStart, _rows.rowsRead(), kNoStart);
    if (!_batch) return;
    ++_totals.batches;
    _waitingEvents = 0;
    // Rows up to the next start row belong to the next end row.
    _deliver(std::exchange(_batch, make<TuvObjectArray>()));
}

}  // namespace kavaro
