#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "fsevents/RowReader.h"
#include "fsevents/WaitingEvents.h"
#include "platform/Clock.h"

namespace kavaro {

// Reads a recording and hands over its batches in order, each when its end row has been read. Within a batch, events
// meet each other as they do live. Broken rows are logged and skipped. Memory is that of one row and one batch,
// whatever the size of the text. One thread, one replay.
class EventReplay {
  public:
    static constexpr double kLastPause = 1.5;      // before the end of a replay
    static constexpr double kDeliveryPause = 0.1;  // between looks whether the last batch has been taken

    // What becomes of a finished batch, which is sorted by inode.
    using Deliver = std::function<void(TuvRef<TuvObjectArray> batch)>;
    struct Totals {
        std::int64_t rows = 0;         // of events
        std::int64_t brokenRows = 0;   // that do not parse
        std::int64_t batches = 0;      // delivered
        std::int64_t undelivered = 0;  // events whose batch has no end row, or one that no row follows
    };

    EventReplay(Clock& clock, Deliver deliver);
    EventReplay(const EventReplay&) = delete;
    EventReplay& operator=(const EventReplay&) = delete;

    // Lets a batch wait to be taken as soon as none waits any more. What is handed in must outlive it.
    static Deliver toWaitingEvents(WaitingEvents& events, ConditionLock& lock, Clock& clock);

    // A file that cannot be read is an empty one, and a log line. Its errno, or 0.
    int replayFile(const std::string& path);
    void replayText(std::string_view text);
    const Totals& totals() const { return _totals; }

    // The entries of one row; nothing, and log lines, when it does not parse.
    static std::optional<PropertyList> plistFromRow(std::string_view row);

  private:
    void handleRow(std::string_view row);
    void skipLongRow(std::uint64_t bytes);
    void beginBatch(int count);
    void endBatch();
    void finish();

    Clock& _clock;
    const Deliver _deliver;
    RowReader _rows;
    TuvRef<TuvObjectArray> _batch;  // null before the first start row
    int _batchCount = 0;            // as its start row says
    int _batchRows = 0;
    double _batchStart = 0;
    Totals _totals;
};

}  // namespace kavaro
