// kavaro events replay
#include <errno.h>

#include <algorithm>
#include <utility>

#include "client/commandline/Commands.h"
#include "client/commandline/EventSession.h"
#include "client/commandline/Output.h"
#include "fsevents/BatchResolver.h"
#include "fsevents/EventRecording.h"
#include "fsevents/EventReplay.h"
#include "platform/Environment.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

constexpr std::int64_t kMostShownFaults = 5;
constexpr std::size_t kMostShownBytes = 200;  // of a row
constexpr const char* kAdvice = "Name a file that \"kavaro events record\" has written";

// What stands for somebody's time passes at once.
class NoPauses : public Clock {
  public:
    double monotonicSeconds() override { return Clock::system().monotonicSeconds(); }
    double wallSeconds() override { return Clock::system().wallSeconds(); }
    void sleep(double) override {}
};

// One line; empty when nothing was.
std::string leftOutText(const EventReplay::Totals& totals) {
    if (totals.leftOut() == 0) return {};
    std::string reasons;
    const auto add = [&](std::int64_t count, const std::string& reason) {
        if (count == 0) return;
        reasons += reasons.empty() ? "" : ", ";
        reasons += counted(static_cast<std::uint64_t>(count), reason.c_str(), reason.c_str());
    };
    add(totals.withoutStart, "without the start of their batch");
    add(totals.withoutEnd, "without its end");
    add(totals.ofOtherDevices, "of other devices than " + std::to_string(TuvFSEvent::acceptedDevice()));
    add(totals.inOtherFolders, "in folders that are never followed");
    return counted(static_cast<std::uint64_t>(totals.leftOut()), "change", "changes") + " left out: " + reasons +
           " (docs/recordings.md says more)\n";
}

// Shows every batch as it was recorded and as a server would have made it.
class Replay {
  public:
    explicit Replay(const CommandContext& context) : _context(context), _output(context.output) {}

    int run(const std::string& path) {
        EventReplay replay(_clock, [this](TuvRef<TuvObjectArray> batch) { show(*batch); });
        replay.acceptDeviceOfRecording();
        // Nothing that was recorded is left out for having been undone.
        TuvFSEvent::setRunAsDataCollector(true);
        replay.setTellFault([&](const EventReplay::Fault& fault) { showFault(path, fault); });
        const int error = replay.replayFile(path);
        if (error != 0) return fail(path, readFailure(error));
        if (!replay.isRecording()) return fail(path, "is no recording of changes");
        const EventReplay::Totals& totals = replay.totals();
        _output.write(counted(_batches, "batch", "batches") + ", " + counted(_before, "change", "changes") + ", " +
                      counted(_after, "change", "changes") + " after coalescing\n");
        if (totals.brokenRows > 0)
            _output.write(counted(static_cast<std::uint64_t>(totals.brokenRows), "broken row", "broken rows") +
                          " left out" + moreFaultsText(totals.brokenRows) + "\n");
        _output.write(leftOutText(totals));
        _output.flush();
        if (_output.failed() && _output.error() != EPIPE) {
            writeError(_context,
                       errorMessage("standard output", "cannot be written: " + errorText(_output.error()), ""));
            return kExitFailed;
        }
        return kExitDone;
    }

  private:
    static std::string readFailure(int error) {
        if (error == EISDIR) return "is a folder";
        return error == EINVAL ? "is no regular file" : "cannot be read: " + errorText(error);
    }

    int fail(const std::string& path, const std::string& reason) {
        _output.flush();
        writeError(_context, errorMessage(path, reason, kAdvice));
        return kExitFailed;
    }

    void showFault(const std::string& path, const EventReplay::Fault& fault) {
        if (++_faults > kMostShownFaults) return;
        std::string text = "row " + std::to_string(fault.row) + " is left out: " + fault.reason;
        constexpr const char* kBlanks = " \t\r\n";
        const std::size_t begin = std::min(fault.text.find_first_not_of(kBlanks), fault.text.size());
        const std::string_view row = fault.text.substr(begin, fault.text.find_last_not_of(kBlanks) + 1 - begin);
        text += row.empty() ? "." : ": " + std::string(row.substr(0, kMostShownBytes));
        if (row.size() > kMostShownBytes) text += " ...";
        writeError(_context, withProgramName(printable(path) + ": " + printable(text)));
    }

    static std::string moreFaultsText(std::int64_t faults) {
        if (faults <= kMostShownFaults) return {};
        return ", " + counted(static_cast<std::uint64_t>(faults - kMostShownFaults), "more", "more") +
               " than were shown";
    }

    void show(const TuvObjectArray& batch) {
        ++_batches;
        const std::string title = "Batch " + std::to_string(_batches);
        list(title, batch, &_before);
        // Read again as events arrive at a server, where some put an end to others.
        std::string text;
        writeBatch(batch, [&](std::string_view piece) { text += piece; });
        text += kRecordingEnd;
        EventReplay live(_clock, [&](TuvRef<TuvObjectArray> events) {
            BatchResolver::coalesce(*events);
            list(title + ", coalesced", *events, &_after);
        });
        TuvFSEvent::setRunAsDataCollector(false);
        live.replayText(text);
        TuvFSEvent::setRunAsDataCollector(true);
        _output.flush();
    }

    void list(const std::string& title, const TuvObjectArray& batch, std::uint64_t* total) {
        const int count = changeCount(batch);
        *total += static_cast<std::uint64_t>(count);
        _output.write(title + ": " + counted(static_cast<std::uint64_t>(count), "change", "changes") + "\n");
        for (const TuvObject* object : batch) {
            const auto* event = static_cast<const TuvFSEvent*>(object);
            const char* indent = "  ";
            forEachChange(*event, [&](const TuvFSEvent& change, int times) {
                _output.write(std::exchange(indent, "    ") + eventLine(change));
                if (times > 1) _output.write(" (" + counted(static_cast<std::uint64_t>(times), "time", "times") + ")");
                _output.put('\n');
            });
        }
        _output.put('\n');
    }

    const CommandContext& _context;
    Output _output;
    NoPauses _clock;
    std::uint64_t _batches = 0, _before = 0, _after = 0;
    std::int64_t _faults = 0;
};

}  // namespace

int runEventsReplay(const EventsOptions& options, const CommandContext& context) {
    const LogErrors log(context);
    context.setLeaveAtOnce(true);  // nothing is lost when it is interrupted
    return Replay(context).run(options.file);
}

}  // namespace kavaro
