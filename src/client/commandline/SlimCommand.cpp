#include <algorithm>
#include <set>

#include "cleanup/LipoTool.h"
#include "client/Slimming.h"
#include "client/commandline/Commands.h"
#include "client/commandline/Confirmation.h"
#include "client/commandline/FolderMeasurements.h"
#include "client/commandline/SlimOutput.h"
#include "platform/FileAttributes.h"
#include "platform/FileStatus.h"
#include "platform/RemovalObstacle.h"
#include "platform/Text.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

constexpr std::string_view kEraseLine = "\r\x1b[K";

// A program that is to be rewritten.
struct SlimTask {
    LipoRemoval removal;  // by a path without links: none is followed then
    std::uint64_t freed = 0;
};

// Measures folders, has the server look into the programs in them, and lists what could go or has it removed.
class SlimCommand {
  public:
    SlimCommand(const SlimOptions& options, const CommandContext& context)
        : _options(options), _context(context), _measurements(options, context, FolderMeasurements::Part::isNotShown) {}

    int run() {
        if (_options.apply) _measurements.resolveLinks();
        _measurements.prepareCommands();
        _measurements.run([this](const std::string& argument, Measurement& measurement) {
            if (measurement.interrupted) return false;
            _offers.push_back(slimCandidates(argument, std::move(measurement)));
            return true;
        });
        if (_measurements.exitCode() == kExitInterrupted || _offers.empty()) return _measurements.exitCode();
        if (!fillOffers()) return _measurements.exitCode();
        if (_options.apply) return apply();
        _context.setLeaveAtOnce(true);  // nothing is left to stop on the server
        show();
        return _measurements.exitCode();
    }

  private:
    bool isFamily() const { return _options.architectures.empty(); }
    MeasurementSource& source() { return _measurements.source(); }
    int fail(const std::string& sentence, int exitCode) {
        writeError(_context, withProgramName(sentence));
        _measurements.fail(exitCode);
        return _measurements.exitCode();
    }

    bool fillOffers() {
        std::vector<LipoQuestion> files;
        for (const SlimOffer& offer : _offers)
            for (int i = 0; i < offer.candidates->count(); ++i)
                files.push_back({static_cast<std::uint32_t>(files.size()),
                                 std::string(offer.candidates->nodeAtIndex(i)->filePath())});
        SlimmingOutcome outcome =
            askArchitectures(source(), files, {[this] { return _measurements.isInterrupted(); }, {}});
        if (!outcome.failure.empty()) fail(outcome.failure, kExitFailed);
        if (outcome.interrupted) fail("interrupted.", kExitInterrupted);
        if (!outcome.ok()) return false;
        std::uint32_t first = 0;
        for (SlimOffer& offer : _offers) {
            fillSlimOffer(&offer, &outcome.tables, first, _options.architectures);
            first += static_cast<std::uint32_t>(offer.candidates->count());
        }
        return true;
    }

    // False when nobody sees it.
    bool show() {
        const ColorDepth color = colorDepth(_options.color, _context.outputIsTerminal);
        const bool isArray = _options.json && _options.folders.size() > 1;
        Output output(_context.output);
        if (isArray) output.put('[');
        for (std::size_t i = 0; i < _offers.size(); ++i) {
            const SlimOffer& offer = _offers[i];
            if (i > 0) output.write(_options.json ? ",\n" : "\n");
            if (_options.json)
                writeSlimOfferJson(output, offer);
            else
                writeSlimOffer(output, offer, isFamily(), color);
        }
        if (_options.json) output.write(isArray ? "]\n" : "\n");
        _measurements.finishOutput(output);
        if (output.failed()) return false;
        for (const SlimOffer& offer : _offers)
            if (!_options.json) _measurements.reportUnread(offer.argument, offer.measurement, _options.errors);
        return true;
    }

    int apply() {
        if (_measurements.exitCode() != kExitDone) return fail("nothing was changed.", kExitFailed);
        const bool isShown = show();
        makeTasks();
        if (!isShown) return fail("what was to be done cannot be shown, so nothing was changed.", kExitFailed);
        if (_tasks.empty()) return kExitDone;
        std::uint64_t freed = 0;
        for (const SlimTask& task : _tasks) freed += task.freed;
        const std::string question = "Rewrite " + counted(_tasks.size(), "program", "programs") +
                                     " without this code, which frees " + compactStringFromSize(freed) + "?";
        if (const std::optional<int> refusal = askToGoAhead(_options.confirm, _context, question)) return *refusal;
        perform();
        return _measurements.exitCode();
    }

    // A program that lies in two of the folders is one task.
    void makeTasks() {
        std::set<std::string> paths;
        for (const SlimOffer& offer : _offers) {
            for (const SlimProgram& program : offer.programs) {
                std::vector<std::string> names = program.going();
                if (names.empty()) continue;
                std::string path(program.node->filePath());
                if (paths.insert(path).second) _tasks.push_back({{path, std::move(names)}, program.freed});
            }
        }
    }

    void perform() {
        std::vector<LipoRemoval> removals;
        for (const SlimTask& task : _tasks) removals.push_back(task.removal);
        bool isProgressShown = false;
        const auto progress = [&](std::size_t done) {
            // Less than 0 columns: this process is in the terminal's background.
            if (!_context.errorIsTerminal || _context.errorColumns() < 0) return;
            isProgressShown = true;
            writeError(_context, std::string(kEraseLine) + std::to_string(done) + " of " +
                                     counted(_tasks.size(), "program", "programs"));
        };
        const SlimmingOutcome outcome =
            removeArchitectures(source(), removals, {[this] { return _measurements.isInterrupted(); }, progress});
        if (isProgressShown) writeError(_context, kEraseLine);
        report(outcome);
    }

    // Goes by what is there now: the server does not say what it could not do.
    void report(const SlimmingOutcome& removal) {
        std::vector<LipoQuestion> files;
        for (std::size_t i = 0; i < removal.sent; ++i)
            files.push_back({static_cast<std::uint32_t>(i), _tasks[i].removal.filePath});
        const SlimmingOutcome now = askArchitectures(source(), files, {[] { return false; }, {}});
        std::uint64_t freed = 0;
        std::size_t done = 0, untried = _tasks.size() - removal.sent;
        for (std::size_t i = 0; i < removal.sent && now.ok(); ++i) {
            const SlimTask& task = _tasks[i];
            const auto table = now.tables.find(static_cast<std::uint32_t>(i));
            const std::string reason = whyNot(task, table == now.tables.end() ? PropertyList() : table->second);
            if (reason.empty()) {
                ++done;
                freed += task.freed;
            } else if (i >= removal.answered) {
                ++untried;  // the server went before it came to it
            } else {
                writeError(_context, errorMessage(task.removal.filePath, reason, ""));
                _measurements.fail(kExitFailed);
            }
        }
        if (!removal.failure.empty()) fail(removal.failure, kExitFailed);
        if (!now.ok()) fail("what became of the programs cannot be told: " + now.failure, kExitFailed);
        const std::string left = counted(untried, "program", "programs") + " not tried.";
        if (removal.interrupted)
            fail("interrupted, " + left, kExitInterrupted);
        else if (untried > 0)
            fail(left, kExitFailed);
        if (!now.ok()) return;
        const std::string text =
            counted(done, "program", "programs") + " rewritten, " + compactStringFromSize(freed) + " freed.\n";
        if (const int exitCode = writeResult(_context, text); exitCode != kExitDone) _measurements.fail(exitCode);
    }

    // Empty when the program holds none of it any more.
    std::string whyNot(const SlimTask& task, const PropertyList& table) const {
        const std::string& path = task.removal.filePath;
        const std::vector<std::string>& names = task.removal.archTypes;
        int error = 0;
        if (fileAttributesAtPath(path, false, &error).isNull() && error == ENOENT) return "it does not exist any more";
        const bool holdsSome = std::any_of(names.begin(), names.end(),
                                           [&](const std::string& name) { return table.get(name) != nullptr; });
        if (!holdsSome) return {};
        const bool isThisUser = _options.embedded || _options.bus == "session";
        std::string obstacle = isThisUser ? lipoObstacle(path, names) : std::string();
        struct stat status {};
        if (isThisUser && obstacle.empty() && fileStatusAtPath(path, &status) == 0) {
            const auto size = static_cast<std::uint64_t>(status.st_size);
            obstacle = rewriteObstacle(path, size - std::min(size, task.freed));
        }
        return obstacle.empty() ? "the server left it as it was; its log says why (--verbose shows it)" : obstacle;
    }

    const SlimOptions& _options;
    const CommandContext& _context;
    FolderMeasurements _measurements;
    std::vector<SlimOffer> _offers;
    std::vector<SlimTask> _tasks;
};

}  // namespace

int runSlim(const SlimOptions& options, const CommandContext& context) {
    return SlimCommand(options, context).run();
}

}  // namespace kavaro
