#include "client/Slimming.h"

#include <algorithm>

namespace kavaro {

namespace {

// Makes one call after another, each with some of the files. `take` gets each answer; false ends it all.
template <class File>
SlimmingOutcome callInPortions(const char* member, MeasurementSource& source, const std::vector<File>& files,
                               std::size_t most, const SlimmingCallbacks& callbacks,
                               const std::function<bool()>& interruptsCalls,
                               const std::function<bool(const CommandReply&, SlimmingOutcome*)>& take) {
    SlimmingOutcome outcome;
    while (outcome.sent < files.size() && outcome.ok()) {
        if (callbacks.interrupted()) {
            outcome.interrupted = true;
            break;
        }
        const std::size_t count = std::min(most, files.size() - outcome.sent);
        const auto begin = files.begin() + static_cast<std::ptrdiff_t>(outcome.sent);
        const std::vector<File> some(begin, begin + static_cast<std::ptrdiff_t>(count));
        outcome.sent += count;
        const CommandReply reply = source.command(member, {busValueOf(some)}, interruptsCalls);
        outcome.interrupted = reply.interrupted;
        outcome.failure = reply.failure;
        if (outcome.ok()) outcome.answered = outcome.sent;
        if (outcome.ok() && take(reply, &outcome) && callbacks.progress) callbacks.progress(outcome.sent);
    }
    return outcome;
}

bool takeTables(const CommandReply& reply, SlimmingOutcome* outcome) {
    auto tables = reply.values.empty() ? std::nullopt : lipoTablesIn(reply.values[0]);
    if (!tables) {
        outcome->failure = "the server's answer makes no sense. It may be another version of kavarod.";
        return false;
    }
    outcome->tables.merge(*tables);
    return true;
}

}  // namespace

SlimmingOutcome askArchitectures(MeasurementSource& source, const std::vector<LipoQuestion>& files,
                                 const SlimmingCallbacks& callbacks) {
    return callInPortions("lipoNodesInfo", source, files, kMostLipoQuestions, callbacks, callbacks.interrupted,
                          takeTables);
}

SlimmingOutcome removeArchitectures(MeasurementSource& source, const std::vector<LipoRemoval>& files,
                                    const SlimmingCallbacks& callbacks) {
    // Asked all the same: after the first signal a second one ends the process.
    const auto onlyAsks = [&] {
        callbacks.interrupted();
        return false;
    };
    return callInPortions("lipoNodes", source, files, kMostLipoRemovals, callbacks, onlyAsks,
                          [](const CommandReply&, SlimmingOutcome*) { return true; });
}

}  // namespace kavaro
