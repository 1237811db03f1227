#include "fsevents/EventReplay.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "fsevents/EventRecording.h"
#include "fsevents/FSEventsLog.h"
#include "platform/FileContent.h"
#include "platform/PropertyListReader.h"
#include "support/Backtrace.h"

namespace kavaro {

namespace {

constexpr const char* kSelector = "_listenForFSEventsFromFileTH:";
// What a recording says of a batch's size is a hint; more room than this is made when events come.
constexpr int kMostRoom = 65536;

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
    if (error != 0) TuvLog::error(tuvFSEventsLog, kSelector, "%@: %s", path, std::strerror(error));
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
        if (_rows.rowsRead() == 0) TuvLog::error(tuvFSEventsLog, kSelector, "no row in %llu bytes", _rows.bytesRead());
    }
    if (_batch && _batch->count() > 0) {
        _totals.undelivered = _batch->count();
        TuvLog::error(tuvFSEventsLog, kSelector,
                      "the last batch is left out (%d items): its end row is missing or the last row of the text",
                      _batch->count());
    }
    _batch = nullptr;
    TuvLog::info(tuvFSEventsLog, kSelector, "completed");
}

std::optional<PropertyList> EventReplay::plistFromRow(std::string_view row) {
    std::string text = "{";
    text += withoutChildrenEnd(row);
    text += "\n}";  // the row may end in a comment
    PropertyListFault fault;
    std::optional<PropertyList> entries = propertyListFromText(text, &fault);
    if (!entries && tuvFSEventsLog.errorOn()) {
        if (fault.line == 1) --fault.column;  // in the row, which has no brace
        constexpr const char* kRowSelector = "_plistFromRow:";
        TuvLog::error(tuvFSEventsLog, kRowSelector, "rowString: %@", row);
        TuvLog::error(tuvFSEventsLog, kRowSelector, "Exception: %@", fault.description());
        TuvLog::error(tuvFSEventsLog, kRowSelector, "(%@)", backtrace());
    }
    return entries;
}

void EventReplay::skipLongRow(std::uint64_t bytes) {
    ++_totals.brokenRows;
    TuvLog::error(tuvFSEventsLog, kSelector, "a row of %llu bytes is too long and skipped", bytes);
}

void EventReplay::handleRow(std::string_view row) {
    const std::optional<PropertyList> entries = plistFromRow(row);
    if (!entries) {
        ++_totals.brokenRows;
        return;
    }
    const std::string_view mark = textOfRow(*entries, "eventBatch");
    if (mark == "begin") {
        const PropertyList* count = entries->get("batchCount");
        beginBatch(static_cast<int>(count ? std::clamp<std::int64_t>(count->intValue(), 0, INT32_MAX) : 0));
    } else if (mark == "end") {
        endBatch();
    } else if (_batch) {
        ++_batchRows;
        ++_totals.rows;
        TuvFSEvent::addEvent(TuvFSEvent::eventFromString(*entries, false).leak(), _batch.get(), nullptr);
    }
}

void EventReplay::beginBatch(int count) {
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
    if (!_batch) return;
    ++_totals.batches;
    _deliver(
        std::exchange(_batch, make<TuvObjectArray>()));  // rows up to the next start row belong to the next end row
}

}  // namespace kavaro
