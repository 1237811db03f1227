#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "client/commandline/Commands.h"
#include "client/commandline/FolderMeasurements.h"
#include "client/commandline/JsonOutput.h"
#include "client/commandline/NcduOutput.h"
#include "client/commandline/Output.h"
#include "client/commandline/TableOutput.h"
#include "platform/Environment.h"

namespace kavaro {

namespace {

// Shows the folders of one command line.
class SizeCommand {
  public:
    SizeCommand(const SizeOptions& options, const CommandContext& context)
        : _options(options), _context(context), _measurements(options, context) {}
    ~SizeCommand() {
        if (_exportFd >= 0) close(_exportFd);
        if (_isNewExportFile && _shown == 0) unlink(_options.exportFile->c_str());
    }
    SizeCommand(const SizeCommand&) = delete;
    SizeCommand& operator=(const SizeCommand&) = delete;

    int run() {
        if (_options.exportFile && *_options.exportFile != "-" && !openExportFile()) return kExitFailed;
        _output.emplace(_exportFd >= 0 ? _exportFd : _context.output);
        const bool isArray = _options.json && _options.folders.size() > 1;
        if (isArray) _output->put('[');
        _measurements.run([this](const std::string&, Measurement& measurement) {
            show(measurement);
            return !_output->failed();
        });
        if (isArray) _output->write("]\n");
        _measurements.finishOutput(*_output, _exportFd >= 0 ? *_options.exportFile : "standard output");
        return _measurements.exitCode();
    }

  private:
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

    EntryView view() const {
        EntryView view;
        view.depth = _options.depth;
        view.top = _options.top.value_or(_options.json ? 0 : TableOptions::kDefaultTop);
        view.sort = _options.sort;
        view.apparent = _options.apparent;
        return view;
    }

    void show(const Measurement& measurement) {
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
            _measurements.fail(kExitFailed);
        }
    }

    const SizeOptions& _options;
    const CommandContext& _context;
    FolderMeasurements _measurements;
    std::optional<Output> _output;
    int _exportFd = -1;
    bool _isNewExportFile = false;
    int _shown = 0;
};

}  // namespace

int runSize(const SizeOptions& options, const CommandContext& context) {
    return SizeCommand(options, context).run();
}

}  // namespace kavaro
