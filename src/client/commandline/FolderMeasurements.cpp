#include "client/commandline/FolderMeasurements.h"

#include <errno.h>

#include <optional>

#include "client/TreeTotals.h"
#include "client/commandline/Commands.h"
#include "client/commandline/LiveLine.h"
#include "client/commandline/PathArgument.h"
#include "client/commandline/TableOutput.h"
#include "platform/Environment.h"
#include "platform/Text.h"
#include "platform/UserDefaults.h"
#include "support/TuvLog.h"

namespace kavaro {

namespace {

MeasurementProgress sumOf(const MeasurementProgress& before, MeasurementProgress progress) {
    progress.folders += before.folders;
    progress.files += before.files;
    progress.physicalSize += before.physicalSize;
    progress.logicalSize += before.logicalSize;
    progress.seconds += before.seconds;
    return progress;
}

// At its end.
MeasurementProgress progressOf(const Measurement& measurement) {
    const EntryTotals totals = TreeTotals(*measurement.root, 0).ofRoot();
    return {totals.folders,     totals.files,        totals.physicalSize,
            totals.logicalSize, measurement.seconds, measurement.path};
}

}  // namespace

void FolderMeasurements::fail(int exitCode) {
    if (_exitCode != kExitInterrupted) _exitCode = exitCode;
}

void FolderMeasurements::run(const Show& show) {
    prepareLog();
    if (_preparesCommands && !_ownSource) source().prepareCommands();
    for (const std::string& folder : _options.folders) {
        if (!measureOne(folder, show) || _exitCode == kExitInterrupted) break;
    }
    _line.reset();
}

void FolderMeasurements::measureHere() {
    _ownSource = _context.quickSource();
    if (_context.errorIsTerminal) _line.emplace(_context.error, _context.errorColumns, *_context.clock);
}

void FolderMeasurements::prepareLog() {
    // Lines of the server arrive by themselves; our own are for --verbose alone.
    TuvLog::setDestinationEnabled(_options.verbose);
    if (_options.sameFileSystem && _options.embedded) {
        UserDefaults::standard().setArguments({"-sameFileSystemOnly", "1"});
    }
}

std::unique_ptr<MeasurementSource> FolderMeasurements::makeSource() {
    if (_options.embedded) return _context.embeddedSource();
    return _context.remoteSource({_options.bus, _options.verbose, _options.sameFileSystem});
}

bool FolderMeasurements::measureOne(const std::string& argument, const Show& show) {
    const bool serverMayReadMore = !_options.embedded && _options.bus != "session";
    const PathArgument folder = checkFolder(argument, !serverMayReadMore);
    if (!folder.failure.empty()) {
        writeError(_context, withProgramName(folder.failure));
        fail(kExitFailed);
        return true;
    }
    const std::string path = _resolvesLinks ? pathWithoutLinks(folder.path) : folder.path;
    Measurement measurement = measure(path);
    // Whatever the last notification said: something was cut off.
    measurement.partial |= !measurement.ok();
    if (_line && !measurement.ok()) _line->erase();
    if (measurement.interrupted) fail(kExitInterrupted);
    if (!measurement.failure.empty()) {
        writeError(_context, withProgramName(measurement.failure));
        fail(kExitFailed);
    } else if (measurement.interrupted) {
        const bool follows = measurement.root && _part == Part::isShown;
        const char* shown = follows ? "What was measured until then follows" : "";
        writeError(_context, errorMessage(path, "interrupted", shown));
    }
    if (!measurement.root) return true;
    // Nothing is left to stop on the server, and writing may take long when the reader is slow.
    _context.setLeaveAtOnce(true);
    const bool goesOn = show(argument, measurement);
    _context.setLeaveAtOnce(false);
    return goesOn;
}

Measurement FolderMeasurements::measure(const std::string& path) {
    std::optional<LiveLine> own;
    if (_context.errorIsTerminal && !_line) own.emplace(_context.error, _context.errorColumns, *_context.clock);
    MeasurementProgress last;
    const auto show = [&](const MeasurementProgress& progress) {
        last = progress;
        if (own) own->show(progress);
        if (_line) _line->show(sumOf(_measured, progress));
    };
    MeasurementSource::Callbacks callbacks;
    callbacks.progress = show;
    callbacks.interrupted = [this] { return isInterrupted(); };
    callbacks.showsPart = _part == Part::isShown;
    if (!_ownSource) return source().measure(path, callbacks);
    Measurement measurement = _ownSource->measure(path, callbacks);
    if (measurement.root && _line) {
        last = progressOf(measurement);
        show(last);
    }
    _measured = sumOf(_measured, last);
    return measurement;
}

MeasurementSource& FolderMeasurements::source() {
    if (!_source) _source = makeSource();
    return *_source;
}

bool FolderMeasurements::isInterrupted() const {
    if (_context.signalCount() == 0) return false;
    _context.setLeaveAtOnce(true);  // the second one
    return true;
}

void FolderMeasurements::reportUnread(const std::string& argument, const Measurement& measurement, bool lists) const {
    if (measurement.unread.empty()) return;
    const auto [unreadable, leftOut] = countMissing(measurement.unread);
    std::string reason;
    if (unreadable > 0) reason = counted(unreadable, "folder", "folders") + " could not be read";
    if (leftOut > 0)
        reason += (reason.empty() ? "" : ", ") + counted(leftOut, "folder was", "folders were") + " left out";
    writeError(_context, errorMessage(argument, reason + "; what they hold is not looked at",
                                      lists ? "" : "--errors lists them"));
    if (!lists) return;
    for (const UnreadFolder& folder : measurement.unread)
        writeError(_context, "  " + printable(folder.path) + ": " + printable(folder.reason) + "\n");
}

void FolderMeasurements::finishOutput(Output& output, const std::string& name) {
    output.flush();
    if (output.error() == 0 || output.error() == EPIPE) return;
    const char* advice = output.error() == ENOSPC ? "Make room there or write to another place" : "";
    writeError(_context, errorMessage(name, "cannot be written: " + errorText(output.error()), advice));
    fail(kExitFailed);
}

}  // namespace kavaro
