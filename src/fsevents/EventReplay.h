#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "fsevents/RowReader.h"
#include "fsevents/WaitingEvents.h"
#include "platform/Clock.h"
#include "platform/PropertyListReader.h"

namespace kavaro {

// Reads a recording and hands over its batches in order, each when its end row has been read. Within a batch, events
// meet each other as they do live. Broken rows are logged and skipped; what else is left out is counted. Memory is that
// of one row and one batch, whatever the size of the text. One thread, one replay.
class EventReplay {
  public:
    static constexpr double kLastPause = 1.5;      // before the end of a replay
    static constexpr double kDeliveryPause = 0.1;  // between looks whether the last batch has been taken

    // What becomes of a finished batch, which is sorted by inode.
    using Deliver = std::function<void(TuvRef<TuvObjectArray> batch)>;
    struct Totals {
        std::int64_t rows = 0;        // of events
        std::int64_t brokenRows = 0;  // that do not parse
        std::int64_t batches = 0;     // delivered
        // Events that are left out.
        std::int64_t withoutStart = 0;    // their batch has no start row
        std::int64_t withoutEnd = 0;      // it has no end row, or one that no row follows
        std::int64_t ofOtherDevices = 0;  // than the accepted one
        std::int64_t inOtherFolders = 0;  // that are never followed
        std::int64_t leftOut() const { return withoutStart + withoutEnd + ofOtherDevices + inOtherFolders; }
    };

    EventReplay(Clock& clock, Deliver deliver);
    EventReplay(const EventReplay&) = delete;
    EventReplay& operator=(const EventReplay&) = delete;

    // Lets a batch wait to be taken as soon as none waits any more. What is handed in must outlive it.
    static Deliver toWaitingEvents(WaitingEvents& events, ConditionLock& lock, Clock& clock);

    // The device of the first event becomes the accepted one, as a recording is of one volume. Before the replay.
    void acceptDeviceOfRecording() { _takesDevice = true; }
    // What is wrong with a row.
    struct Fault {
        std::uint64_t row = 0;  // the first one of the text is row 1
        std::string reason;
        std::string_view text;  // the row; none for one that was too long to be kept. Valid during the call
    };
    using TellFault = std::function<void(const Fault& fault)>;
    // Broken rows are told here and not to the log, which is not told either what cannot be read. Before the replay.
    void setTellFault(TellFault tell) { _tellFault = std::move(tell); }
    // A file that cannot be read is an empty one, and a log line. Its errno, or 0.
    int replayFile(const std::string& path);
    void replayText(std::string_view text);
    const Totals& totals() const { return _totals; }
    // There is the beginning of a row in what was read; one alone is a recording in which nothing happened.
    bool isRecording() const { return _rows.rowsRead() > 0 || _rows.rest().find("index=") != std::string_view::npos; }

    // The entries of one row; nothing, and log lines, when it does not parse.
    static std::optional<PropertyList> plistFromRow(std::string_view row);

  private:
    static std::optional<PropertyList> entriesOfRow(std::string_view row, PropertyListFault* fault);
    void handleRow(std::string_view row);
    void handleEvent(const PropertyList& entries);
    void skipLongRow(std::uint64_t bytes);
    void beginBatch(int count);
    void endBatch();
    void finish();
    void leaveOut(std::int64_t* events, std::int64_t* total, std::uint64_t row, const char* why);

    Clock& _clock;
    const Deliver _deliver;
    TellFault _tellFault;
    RowReader _rows;
    TuvRef<TuvObjectArray> _batch;  // null before the first start row
    int _batchCount = 0;            // as its start row says
    int _batchRows = 0;
    std::int64_t _waitingEvents = 0;  // read for _batch, before those of one inode met
    std::int64_t _earlyEvents = 0;    // read while it was null
    bool _takesDevice = false;
    double _batchStart = 0;
    Totals _totals;
};

}  // namespace kavaro
