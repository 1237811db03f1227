#include "client/commandline/CleanupRun.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>

#include "client/commandline/Commands.h"
#include "client/commandline/Output.h"
#include "platform/RemovalObstacle.h"
#include "platform/SafeFolder.h"
#include "platform/Text.h"
#include "platform/Trash.h"
#include "support/StringHelpers.h"
#include "support/TuvLog.h"

namespace kavaro {

namespace {

using Call = CleanupCall;

constexpr std::size_t kMostPaths = 500;       // in one call
constexpr double kShortCall = 0.1;            // seconds; after less the next one may have twice as many
constexpr double kLongCall = 0.3;             // after more, half as many
constexpr int kSignalToLeaveAt = 3;           // the first one ends the calls, the second one what is on its way
constexpr std::size_t kMostBytes = 1u << 20;  // of paths, likewise
constexpr std::size_t kShownOnTerminal = 50;
constexpr std::size_t kSizeColumns = 11;
constexpr std::string_view kEraseLine = "\r\x1b[K";

struct Words {
    const char* plan;
    const char* one;
    const char* many;
    const char* freed;  // behind the bytes of the plan
    const char* question;
    const char* done;  // "3 entries ..."
};

const Words& wordsOf(Call call) {
    static constexpr Words kTrash = {"To be moved to the Trash:",
                                     "entry",
                                     "entries",
                                     " that are free once the Trash is emptied",
                                     "Move this to the Trash?",
                                     "moved to the Trash"};
    static constexpr Words kLocales = {"To be removed for good:", "language folder",       "language folders",
                                       " that this frees",        "Remove this for good?", "removed"};
    static constexpr Words kNibs = {"To be removed for good:", "nib file", "nib files", " that this frees",
                                    "Remove this for good?",   "removed"};
    return call == Call::moveToTrash ? kTrash : call == Call::removeLocales ? kLocales : kNibs;
}

// On the bus.
const char* memberOf(Call call) {
    switch (call) {
        case Call::moveToTrash:
            return "moveToTrash";
        case Call::removeLocales:
            return "removeLocales";
        case Call::removeNibs:
            return "removeNibs";
    }
    return "";
}

class CleanupRun {
  public:
    CleanupRun(const CleanupPlan& plan, const MeasureOptions& options, const CommandContext& context)
        : _plan(plan), _options(options), _context(context), _words(wordsOf(plan.call)) {}

    int run(MeasurementSource& source, const ConfirmOptions& confirm) {
        if (!show()) return _exitCode;
        if (const std::optional<int> refusal = askToGoAhead(confirm, _context, _words.question)) return *refusal;
        perform(source);
        report();
        return _exitCode;
    }

  private:
    std::string countText(std::uint64_t number) const { return counted(number, _words.one, _words.many); }

    void fail(int exitCode) {
        if (_exitCode != kExitInterrupted) _exitCode = exitCode;
    }

    bool show() {
        Output output(_context.output);
        output.write(std::string(_words.plan) + "\n");
        const bool isShort = _context.outputIsTerminal && _plan.items.size() > kShownOnTerminal + 1;
        std::size_t left = isShort ? kShownOnTerminal : _plan.items.size();
        std::uint64_t bytes = 0;
        for (const CleanupItem& item : _plan.items) {
            bytes += item.bytes;
            if (left == 0) continue;
            --left;
            const std::string size = compactStringFromSize(item.bytes);
            const std::size_t blanks = size.size() < kSizeColumns ? kSizeColumns - size.size() : 0;
            output.write(std::string(blanks, ' ') + size + "  " + printable(item.path) +
                         (item.isFolder ? "/\n" : "\n"));
        }
        if (isShort) output.write("  and " + countText(_plan.items.size() - kShownOnTerminal) + " more\n");
        output.write(countText(_plan.items.size()) + ", " + (_plan.isLowerBound ? "at least " : "") +
                     compactStringFromSize(bytes) + _words.freed + "\n");
        output.flush();
        if (!output.failed()) return true;
        // Nobody has seen what would be done.
        writeError(_context, withProgramName("what was to be done cannot be shown, so nothing was changed."));
        fail(kExitFailed);
        return false;
    }

    // After an interruption the call that was made is waited for: nothing else says what became of it. A second one
    // ends the server, so that nothing goes on when this process has ended. What this process does itself ends with it.
    void perform(MeasurementSource& source) {
        TuvLog::setDestinationEnabled(_options.verbose);
        if (!_options.embedded) _context.leaveAtSignal(kSignalToLeaveAt);
        bool isProgressShown = false;
        std::size_t most = 1;
        while (_sent < _plan.items.size() && _failure.empty() && _context.signalCount() == 0) {
            const std::size_t count = cleanupPortion(_plan.items, _sent, most);
            std::vector<std::string> paths;
            for (std::size_t i = 0; i < count; ++i) paths.push_back(_plan.items[_sent + i].path);
            const double begin = _context.clock->monotonicSeconds();
            CommandReply reply = source.command(memberOf(_plan.call), {BusValue::paths(paths)},
                                                [this] { return _context.signalCount() >= kSignalToLeaveAt - 1; });
            most = nextCleanupMost(most, _context.clock->monotonicSeconds() - begin);
            for (CommandReply::PathFailure& failure : reply.failures)
                _reasons[std::move(failure.path)] = std::move(failure.reason);
            _failure = std::move(reply.failure);
            if (reply.interrupted) {
                _abandoned = source.endServer() ? Abandoned::ended : Abandoned::goesOn;
                break;
            }
            if (_failure.empty()) _sent += count;
            // Less than 0 columns: this process is in the terminal's background.
            if (!_context.errorIsTerminal || _context.errorColumns() < 0) continue;
            isProgressShown = true;
            writeError(_context,
                       std::string(kEraseLine) + std::to_string(_sent) + " of " + countText(_plan.items.size()));
        }
        if (isProgressShown) writeError(_context, kEraseLine);
    }

    // Goes by what is there now, whatever the server said.
    void report() {
        std::uint64_t gone = 0, freed = 0, left = 0;
        std::set<std::string> folders;  // out of which something went
        for (std::size_t i = 0; i < _plan.items.size(); ++i) {
            const CleanupItem& item = _plan.items[i];
            const auto reason = _reasons.find(item.path);
            if (reason != _reasons.end()) {
                fail(kExitFailed);
                const bool isGone = !isThere(item.path);  // whoever took it away: the server could not
                writeError(_context, errorMessage(item.path, isGone ? "it is no longer there" : reason->second, ""));
            } else if (!isThere(item.path)) {
                ++gone;
                folders.insert(stringByDeletingLastPathComponent(item.path));
                freed += item.bytes;
            } else if (i >= _sent) {
                ++left;
            } else {
                fail(kExitFailed);
                writeError(_context, errorMessage(item.path, why(item), ""));
            }
        }
        sayDetours(folders);
        if (!_failure.empty()) {
            fail(kExitFailed);
            writeError(_context, withProgramName(_failure));
        }
        if (left > 0) {
            const bool isInterrupted = _failure.empty();
            if (isInterrupted) fail(kExitInterrupted);
            writeError(_context, withProgramName((isInterrupted ? "interrupted, " : "") + countText(left) +
                                                 (isInterrupted ? " left." + abandonedText() : " still there.")));
        } else if (_abandoned != Abandoned::none) {
            fail(kExitInterrupted);
        }
        std::string text = countText(gone) + " " + _words.done;
        text += _plan.call == Call::moveToTrash ? ".\n" : ", " + compactStringFromSize(freed) + " freed.\n";
        if (const int exitCode = writeResult(_context, text); exitCode != kExitDone) fail(exitCode);
    }

    // Of what went to a Trash where nobody would look for it.
    void sayDetours(const std::set<std::string>& folders) const {
        if (_plan.call != Call::moveToTrash || !isAsThisUser()) return;
        std::set<std::string> said;
        for (const std::string& folder : folders) {
            const std::optional<TrashDetour> detour = trashDetour(folder);
            if (!detour || !said.insert(detour->trashFolder).second) continue;
            writeError(_context,
                       errorMessage(detour->userTrash,
                                    "cannot be used (" + detour->reason + "), so what lay on its volume is in " +
                                        printable(detour->trashFolder),
                                    ""));
        }
    }

    bool isAsThisUser() const { return _options.embedded || _options.bus == "session"; }

    std::string abandonedText() const {
        if (_abandoned == Abandoned::none) return {};
        if (_abandoned == Abandoned::goesOn) return " The server is shared, and finishes what it is at.";
        if (_plan.call != Call::removeLocales) return " The server was ended.";
        return " The server was ended at its work: one of them may have lost a part of what it held.";
    }

    static bool isThere(const std::string& path) {
        SafePlace place;
        const int error = openSafePlace(path, &place);
        return error == 0 ? entryExists(place) : error != ENOENT && error != ENOTDIR;
    }

    // Where the server's answer does not say it.
    std::string why(const CleanupItem& item) const {
        if (_plan.call == Call::moveToTrash && item.path.find(".Trash") != std::string::npos)
            return "it is in a Trash already, as \".Trash\" in its path says";
        if (_plan.call == Call::removeLocales) {
            SafePlace place;
            if (openSafePlace(item.path, &place) == 0 && !hasSibling(place, "English.lproj") &&
                !hasSibling(place, "en.lproj"))
                return "no English language folder stays beside it; the server ends there and leaves the rest";
        }
        const RemovalKind kind = _plan.call == Call::removeNibs ? RemovalKind::onlyNoFolder : RemovalKind::tree;
        const std::string obstacle = removalObstacle(item.path, kind, isAsThisUser());
        if (!obstacle.empty()) return obstacle;
        return "the server left it; its log says why (--verbose shows it)";
    }

    const CleanupPlan& _plan;
    const MeasureOptions& _options;
    const CommandContext& _context;
    const Words& _words;
    std::size_t _sent = 0;                        // items in calls that were answered
    std::map<std::string, std::string> _reasons;  // of what the server says it could not move
    std::string _failure;                         // of the whole, for people; empty when every call was answered
    // What became of a call that was not waited for.
    enum class Abandoned { none, ended, goesOn } _abandoned = Abandoned::none;
    int _exitCode = kExitDone;
};

}  // namespace

bool isBelowAny(std::string_view path, const std::set<std::string, std::less<>>& paths) {
    for (std::size_t slash = path.rfind('/'); slash != std::string_view::npos && slash > 0;
         slash = path.rfind('/', slash - 1))
        if (paths.contains(path.substr(0, slash))) return true;
    return false;
}

std::size_t cleanupPortion(const std::vector<CleanupItem>& items, std::size_t begin, std::size_t most) {
    std::size_t bytes = 0;
    std::size_t count = 0;
    while (begin + count < items.size() && count < most) {
        bytes += items[begin + count].path.size();
        if (count > 0 && bytes > kMostBytes) break;
        ++count;
    }
    return count;
}

std::size_t nextCleanupMost(std::size_t most, double seconds) {
    if (seconds < kShortCall) return std::min(most * 2, kMostPaths);
    return seconds > kLongCall ? std::max<std::size_t>(most / 2, 1) : most;
}

int runCleanup(const CleanupPlan& plan, FolderMeasurements& measurements, const MeasureOptions& options,
               const ConfirmOptions& confirm, const CommandContext& context) {
    return CleanupRun(plan, options, context).run(measurements.source(), confirm);
}

}  // namespace kavaro
