#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/commandline/LiveLine.h"
#include "client/commandline/Output.h"
#include "client/commandline/RunCommandLine.h"

namespace kavaro {

// What every command that measures folders takes.
struct MeasureOptions {
    std::vector<std::string> folders;
    std::string bus = "session";  // "session", "system" or an address
    bool sameFileSystem = false;
    bool embedded = false;
    bool verbose = false;
};

// Measures the folders of one command line, one after another, with the line that tells how far it is, and hands each
// outcome on. An error with one folder is said and does not keep the others from being measured; the worst exit code
// counts. Main thread.
class FolderMeasurements {
  public:
    // A folder as it was named, and its outcome with a root. False ends the command: nobody reads on.
    using Show = std::function<bool(const std::string& argument, Measurement& measurement)>;

    // What the user is told to expect when he stops a job.
    enum class Part { isShown, isNotShown };

    // Both must live as long as this.
    FolderMeasurements(const MeasureOptions& options, const CommandContext& context, Part part = Part::isShown)
        : _options(options), _context(context), _part(part) {}
    FolderMeasurements(const FolderMeasurements&) = delete;
    FolderMeasurements& operator=(const FolderMeasurements&) = delete;

    // While `show` runs, a signal ends the process at once.
    void run(const Show& show);
    // Each folder is measured, and named, by its path without links. What is to be changed later is then what was
    // measured, whatever becomes of a link that was named. Call before run().
    void resolveLinks() { _resolvesLinks = true; }
    // Measures in this process, and shows one line for all folders: a server takes a second for each of them. Commands
    // go to the server all the same. Call before run(), where no server may read more than this process.
    void measureHere();
    // Commands for the server will follow: what they need is made ready while folders are measured. Call before run().
    void prepareCommands() { _preparesCommands = true; }
    // On standard error: that folders could not be looked into, with `lists` which and why. Nothing where all were.
    void reportUnread(const std::string& argument, const Measurement& measurement, bool lists) const;
    // What measured the folders: it has other commands for the server, too. Made when there is none yet.
    MeasurementSource& source();
    // Whether the user has had enough. From then on the next signal ends the process at once.
    bool isInterrupted() const;
    // Writes out what is left and says when it cannot be written. A reader that has seen enough is no error.
    void finishOutput(Output& output, const std::string& name = "standard output");

    void fail(int exitCode);
    int exitCode() const { return _exitCode; }

  private:
    void prepareLog();
    std::unique_ptr<MeasurementSource> makeSource();
    bool measureOne(const std::string& argument, const Show& show);
    Measurement measure(const std::string& path);

    const MeasureOptions& _options;
    const CommandContext& _context;
    const Part _part;
    bool _resolvesLinks = false;
    bool _preparesCommands = false;
    std::unique_ptr<MeasurementSource> _source;
    std::unique_ptr<MeasurementSource> _ownSource;  // that measures in its place; null: none does
    std::optional<LiveLine> _line;                  // for all folders, with _ownSource
    MeasurementProgress _measured;                  // of the folders before this one, likewise
    int _exitCode = kExitDone;
};

}  // namespace kavaro
