#include <optional>

#include "client/DigestJob.h"
#include "client/DuplicateSearch.h"
#include "client/commandline/Commands.h"
#include "client/commandline/DuplicatesOutput.h"
#include "client/commandline/FolderMeasurements.h"
#include "client/commandline/LiveLine.h"
#include "client/commandline/Output.h"
#include "client/commandline/TableOutput.h"
#include "platform/Environment.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

// Measures folders, has the files that may be duplicates digested, and shows those that are.
class DuplicatesCommand {
  public:
    DuplicatesCommand(const DuplicatesOptions& options, const CommandContext& context)
        : _options(options),
          _context(context),
          _measurements(options, context, FolderMeasurements::Part::isNotShown),
          _search(options.minSize),
          _cache(cachePath()) {}

    int run() {
        const double begin = _context.clock->monotonicSeconds();
        _measurements.prepareCommands();
        _measurements.run([this](const std::string&, Measurement& measurement) { return take(measurement); });
        if (_measurements.exitCode() == kExitInterrupted || _outcome.folders.empty()) return _measurements.exitCode();
        _cache.load();
        DigestResult digests = {make<TuvObjectArray>(), true, {}};
        if (prepare()) digests = digest();
        if (!digests.failure.empty()) {
            writeError(_context, withProgramName(digests.failure));
            _measurements.fail(kExitFailed);
        }
        if (digests.interrupted) _measurements.fail(kExitInterrupted);
        _context.setLeaveAtOnce(true);  // nothing is left to stop on the server
        _outcome.groups = _search.finish(digests.records.get(), _cache);
        _outcome.undigested = _search.undigested();
        _outcome.candidates = _search.candidates();
        _outcome.partial |= !digests.failure.empty();
        if (!digests.failure.empty())
            _outcome.uncompared =
                static_cast<std::uint64_t>(_search.nodesToDigest()->count() - digests.records->count());
        const bool isSaved = saveCache(digests);
        if (digests.interrupted)
            writeError(_context, withProgramName(isSaved && digests.records->count() > 0
                                                     ? "interrupted. What was read until then is known to the next "
                                                       "search."
                                                     : "interrupted."));
        // After an interruption nothing would be whole: neither the groups nor what they waste.
        if (!digests.interrupted) {
            _outcome.seconds = _context.clock->monotonicSeconds() - begin;
            show();
        }
        return _measurements.exitCode();
    }

  private:
    static std::string cachePath() {
        const std::string folder = cacheFolder();
        return folder.empty() ? "" : stringByAppendingPathComponent(folder, "digests");
    }

    bool take(Measurement& measurement) {
        if (measurement.interrupted) return false;
        _outcome.folders.push_back(measurement.path);
        _outcome.partial |= measurement.partial;
        for (UnreadFolder& folder : measurement.unread) _outcome.unread.push_back(std::move(folder));
        if (measurement.partial || !measurement.unread.empty()) _isWhole = false;
        _search.addFolder(std::move(measurement.root));
        return true;
    }

    void showLine(std::optional<LiveLine>& line) const {
        if (_context.errorIsTerminal) line.emplace(_context.error, _context.errorColumns, *_context.clock);
    }

    // False when the user has had enough.
    bool prepare() {
        std::optional<LiveLine> line;
        showLine(line);
        return _search.prepare(_options.fresh ? nullptr : &_cache, [&](const SampleProgress& progress) {
            if (line) line->show(progress);
            return !_measurements.isInterrupted();
        });
    }

    DigestResult digest() {
        const TuvObjectArray* nodes = _search.nodesToDigest();
        if (nodes->count() == 0) return {make<TuvObjectArray>(), false, {}};
        std::optional<LiveLine> line;
        showLine(line);
        return digestFiles(
            nodes, _measurements.source(),
            [&](const DigestProgress& progress) {
                if (line) line->show(progress);
            },
            [this] { return _measurements.isInterrupted(); });
    }

    // A search that went through whole folders knows which records are of no more use there.
    bool saveCache(const DigestResult& digests) {
        const bool isWhole = _isWhole && _options.minSize <= 1 && digests.failure.empty() && !digests.interrupted;
        if (isWhole)
            for (const std::string& folder : _outcome.folders) _cache.forgetUnusedBelow(folder);
        const int error = _cache.save();
        if (error != 0)
            writeError(_context, errorMessage(cachePath(), "cannot be written: " + errorText(error),
                                              "The next search reads all files again"));
        return error == 0 && !cachePath().empty();
    }

    void show() {
        Output output(_context.output);
        if (_options.json)
            writeDuplicatesJson(output, _outcome);
        else if (_options.fdupes)
            writeDuplicatesAsFdupes(output, _outcome);
        else
            writeDuplicates(output, _outcome);
        _measurements.finishOutput(output);
        if (!_options.json) reportMissing();
    }

    // On standard error: what stands on the other output are paths, or a table of them.
    void reportMissing() {
        std::string reason;
        const auto add = [&](std::uint64_t count, const char* one, const char* many) {
            if (count > 0) reason += (reason.empty() ? "" : ", ") + counted(count, one, many);
        };
        const auto [unreadable, leftOut] = countMissing(_outcome.unread);
        add(_outcome.undigested.size(), "file could not be read", "files could not be read");
        add(unreadable, "folder could not be read", "folders could not be read");
        add(leftOut, "folder was left out", "folders were left out");
        if (reason.empty()) return;
        writeError(_context, withProgramName(reason + "; there may be more duplicates." +
                                             (_options.errors ? "" : " --errors lists them.")));
        if (!_options.errors) return;
        for (const UndigestedFile& file : _outcome.undigested)
            writeError(_context, "  " + printable(file.path) + ": " + file.reason + "\n");
        for (const UnreadFolder& folder : _outcome.unread)
            writeError(_context, "  " + printable(folder.path) + ": " + printable(folder.reason) + "\n");
    }

    const DuplicatesOptions& _options;
    const CommandContext& _context;
    FolderMeasurements _measurements;
    DuplicateSearch _search;
    DigestCache _cache;
    DuplicatesOutcome _outcome;
    bool _isWhole = true;
};

}  // namespace

int runDuplicates(const DuplicatesOptions& options, const CommandContext& context) {
    return DuplicatesCommand(options, context).run();
}

}  // namespace kavaro
