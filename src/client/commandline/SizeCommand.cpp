#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <optional>

#include "client/commandline/Commands.h"
#include "client/commandline/JsonOutput.h"
#include "client/commandline/LiveLine.h"
#include "client/commandline/NcduOutput.h"
#include "client/commandline/Output.h"
#include "client/commandline/PathArgument.h"
#include "client/commandline/TableOutput.h"
#include "platform/Environment.h"
#include "platform/UserDefaults.h"
#include "support/TuvLog.h"

namespace kavaro {

namespace {

// Measures the folders of one command line and shows them. An error with one folder does not keep the others from
// being measured; the worst exit code counts.
class SizeCommand {
  public:
    SizeCommand(const SizeOptions& options, const CommandContext& context) : _options(options), _context(context) {}
    ~SizeCommand() {
        if (_exportFd >= 0) close(_exportFd);
        if (_isNewExportFile && _shown == 0) unlink(_options.exportFile->c_str());
    }
    SizeCommand(const SizeCommand&) = delete;
    SizeCommand& operator=(const SizeCommand&) = delete;

    int run() {
        if (_options.exportFile && *_options.exportFile != "-" && !openExportFile()) return kExitFailed;
        _output.emplace(_exportFd >= 0 ? _exportFd : _context.output);
        prepareLog();
        const bool isArray = _options.json && _options.folders.size() > 1;
        if (isArray) _output->put('[');
        for (const std::string& folder : _options.folders) {
            measureOne(folder);
            if (_exitCode == kExitInterrupted || _output->failed()) break;
        }
        if (isArray) _output->write("]\n");
        finishOutput();
        return _exitCode;
    }

  private:
    void fail(int exitCode) {
        if (_exitCode != kExitInterrupted) _exitCode = exitCode;
    }

    // Before measuring, so that a wrong name costs nobody an hour; what the file held stays until there is something
    // to write.
    bool openExportFile() {
        const std::string& name = *_options.exportFile;
        _exportFd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        _isNewExportFile = _exportFd >= 0;
        if (!_isNewExportFile) _exportFd = open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
        if (_exportFd >= 0) return true;
        const std::string reason = errno == EISDIR ? "is a folder" : "cannot be written: " + errorText(errno);
        writeError(_context, errorMessage(name, reason, "--export ncdu takes the name of a file, then one folder"));
        return false;
    }

    void prepareLog() {
        // Lines of the server arrive by themselves; our own are for --verbose alone.
        TuvLog::setDestinationEnabled(_options.verbose);
        if (_options.sameFileSystem && _options.embedded) {
            UserDefaults::standard().setArguments({"-sameFileSystemOnly", "1"});
        }
    }

    std::unique_ptr<MeasurementSource> makeSource() {
        if (_options.embedded) return _context.embeddedSource();
        return _context.remoteSource({_options.bus, _options.verbose, _options.sameFileSystem});
    }

    void measureOne(const std::string& argument) {
        const bool serverMayReadMore = !_options.embedded && _options.bus != "session";
        const PathArgument folder = checkFolder(argument, !serverMayReadMore);
        if (!folder.failure.empty()) {
            writeError(_context, withProgramName(folder.failure));
            return fail(kExitFailed);
        }
        if (!_source) _source = makeSource();
        Measurement measurement = measure(folder.path);
        // Whatever the last notification said: something was cut off.
        measurement.partial |= !measurement.ok();
        if (measurement.interrupted) fail(kExitInterrupted);
        if (!measurement.failure.empty()) {
            writeError(_context, withProgramName(measurement.failure));
            fail(kExitFailed);
        } else if (measurement.interrupted) {
            const char* shown = measurement.root ? "What was measured until then follows" : "";
            writeError(_context, errorMessage(folder.path, "interrupted", shown));
        }
        if (measurement.root) show(measurement);
    }

    Measurement measure(const std::string& path) {
        std::optional<LiveLine> line;
        if (_context.errorIsTerminal) line.emplace(_context.error, _context.errorColumns, *_context.clock);
        MeasurementSource::Callbacks callbacks;
        callbacks.progress = [&](const MeasurementProgress& progress) {
            if (line) line->show(progress);
        };
        callbacks.interrupted = [&] {
            if (_context.signalCount() == 0) return false;
            _context.setLeaveAtOnce(true);  // the second one
            return true;
        };
        return _source->measure(path, callbacks);
    }

    EntryView view() const {
        EntryView view;
        view.depth = _options.depth;
        view.top = _options.top.value_or(_options.json ? 0 : TableOptions::kDefaultTop);
        view.sort = _options.sort;
        view.apparent = _options.apparent;
        return view;
    }

    void show(const Measurement& measurement) {
        // Nothing is left to stop on the server, and writing may take long when the reader is slow.
        _context.setLeaveAtOnce(true);
        if (_options.exportFile) {
            truncateExportFile();
            writeNcdu(*_output, measurement, _context.clock->wallSeconds());
        } else if (_options.json) {
            if (_shown > 0) _output->write(",\n");
            writeJson(*_output, measurement, view(), _options.statistics);
            if (_options.folders.size() == 1) _output->put('\n');
        } else {
            if (_shown > 0) _output->put('\n');
            writeTable(*_output, measurement, tableOptions());
        }
        ++_shown;
        _output->flush();
        _context.setLeaveAtOnce(false);
    }

    TableOptions tableOptions() const {
        TableOptions table;
        table.view = view();
        table.color = colorDepth(_options.color, _context.outputIsTerminal);
        if (_context.outputIsTerminal) {
            const int columns = _context.outputColumns();
            table.columns = columns > 0 ? columns : 80;
        }
        table.listErrors = _options.errors;
        table.showStatistics = _options.statistics;
        return table;
    }

    // Devices and pipes have no length to cut.
    void truncateExportFile() {
        struct stat info {};
        if (_exportFd < 0 || fstat(_exportFd, &info) != 0 || !S_ISREG(info.st_mode)) return;
        if (ftruncate(_exportFd, 0) != 0) {
            writeError(_context, errorMessage(*_options.exportFile, "cannot be emptied: " + errorText(errno), ""));
            fail(kExitFailed);
        }
    }

    // A reader that has seen enough (a closed pipe) is no error.
    void finishOutput() {
        _output->flush();
        if (_output->error() == 0 || _output->error() == EPIPE) return;
        const std::string name = _exportFd >= 0 ? *_options.exportFile : "standard output";
        const char* advice = _output->error() == ENOSPC ? "Make room there or write to another place" : "";
        writeError(_context, errorMessage(name, "cannot be written: " + errorText(_output->error()), advice));
        fail(kExitFailed);
    }

    const SizeOptions& _options;
    const CommandContext& _context;
    std::unique_ptr<MeasurementSource> _source;
    std::optional<Output> _output;
    int _exportFd = -1;
    bool _isNewExportFile = false;
    int _exitCode = kExitDone;
    int _shown = 0;
};

}  // namespace

int runSize(const SizeOptions& options, const CommandContext& context) {
    return SizeCommand(options, context).run();
}

}  // namespace kavaro
