// kavaro events replay
#include <errno.h>

#include <cstdlib>
#include <fstream>
#include <optional>
#include <utility>

#include "client/commandline/Commands.h"
#include "client/commandline/EventSession.h"
#include "client/commandline/Output.h"
#include "fsevents/BatchResolver.h"
#include "fsevents/EventRecording.h"
#include "fsevents/EventReplay.h"
#include "platform/Environment.h"

namespace kavaro {

namespace {

// What stands for somebody's time passes at once.
class NoPauses : public Clock {
  public:
    double monotonicSeconds() override { return Clock::system().monotonicSeconds(); }
    double wallSeconds() override { return Clock::system().wallSeconds(); }
    void sleep(double) override {}
};

// The device of the first event, as a recording is of one volume. Nothing where there is none nearby.
std::optional<std::uint32_t> deviceOfRecording(const std::string& path) {
    constexpr std::string_view kKey = " device=\"";
    constexpr std::size_t kFarthest = 1 << 20;
    std::ifstream stream(path, std::ios::binary);
    std::string text(kFarthest, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    const std::size_t at = text.find(kKey);
    if (at == std::string::npos) return std::nullopt;
    return static_cast<std::uint32_t>(std::strtoll(text.c_str() + at + kKey.size(), nullptr, 10));
}

// Shows every batch as it was recorded and as a server would have made it.
class Replay {
  public:
    explicit Replay(const CommandContext& context) : _context(context), _output(context.output) {}

    int run(const std::string& path) {
        if (const auto device = deviceOfRecording(path)) TuvFSEvent::setAcceptedDevice(*device);
        EventReplay replay(_clock, [this](TuvRef<TuvObjectArray> batch) { show(*batch); });
        // Nothing that was recorded is left out for having been undone.
        TuvFSEvent::setRunAsDataCollector(true);
        const int error = replay.replayFile(path);
        if (error != 0) return kExitFailed;  // the log has said it
        const EventReplay::Totals& totals = replay.totals();
        _output.write(counted(_batches, "batch", "batches") + ", " + counted(_before, "change", "changes") + ", " +
                      counted(_after, "change", "changes") + " after coalescing\n");
        if (totals.brokenRows > 0)
            _output.write(counted(static_cast<std::uint64_t>(totals.brokenRows), "broken row", "broken rows") +
                          " left out\n");
        _output.flush();
        if (_output.failed() && _output.error() != EPIPE) {
            writeError(_context,
                       errorMessage("standard output", "cannot be written: " + errorText(_output.error()), ""));
            return kExitFailed;
        }
        return kExitDone;
    }

  private:
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
};

}  // namespace

int runEventsReplay(const EventsOptions& options, const CommandContext& context) {
    const LogErrors log(context);
    context.setLeaveAtOnce(true);  // nothing is lost when it is interrupted
    return Replay(context).run(options.file);
}

}  // namespace kavaro
