#include <time.h>

#include <cmath>

#include "client/commandline/Color.h"
#include "client/commandline/Commands.h"
#include "client/commandline/FindRanges.h"
#include "client/commandline/FolderMeasurements.h"
#include "client/commandline/JsonFields.h"
#include "client/commandline/MatchWalk.h"
#include "client/commandline/Output.h"
#include "filters/TuvNodeFilter.h"
#include "platform/SymbolicLink.h"
#include "platform/Text.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

// A link's content is its target, which is shorter than this.
constexpr std::uint64_t kLongestLink = 4096;
constexpr std::size_t kSizeColumns = 10;

// "2024-02-29 12:34" in local time; blanks when unknown.
std::string dateText(const TuvNode& node) {
    const auto seconds = static_cast<time_t>(std::floor(node.modDate()));
    struct tm parts {};
    char text[64];
    if (node.contentModDate() <= 0 || !localtime_r(&seconds, &parts) ||
        strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts) == 0)
        return std::string(16, ' ');
    return text;
}

// Measures folders and writes the entries that pass the filter.
class FindCommand {
  public:
    FindCommand(const FindOptions& options, const CommandContext& context)
        : _options(options), _context(context), _measurements(options, context), _output(context.output) {}

    int run() {
        std::string wrong;
        if (!makeFilter(&wrong)) {
            writeError(_context, withProgramName(wrong + ". See \"kavaro find --help\"."));
            return kExitWrongUsage;
        }
        const bool isArray = _options.json && _options.folders.size() > 1;
        if (isArray) _output.put('[');
        _measurements.run([this](const std::string& argument, Measurement& measurement) {
            show(argument, measurement);
            ++_shown;
            _output.flush();
            return !_output.failed();
        });
        if (isArray) _output.write("]\n");
        _measurements.finishOutput(_output);
        return _measurements.exitCode();
    }

  private:
    bool makeFilter(std::string* wrong) {
        std::string reason;
        const auto fail = [&](const char* option) {
            *wrong = std::string(option) + ": " + reason;
            return false;
        };
        _filter = make<TuvNodeFilter>();
        _filter->setName(_options.name);
        if (_options.kind) {
            const std::optional<FoundKind> kind = readKind(*_options.kind, &reason);
            if (!kind) return fail("--kind");
            _kind = *kind;
        }
        // In the tree a link is a file: which of them are links, the disk says.
        if (_kind == FoundKind::folder) _filter->setType(TuvNodeFilter::kFolder);
        if (_kind == FoundKind::file || _kind == FoundKind::link) _filter->setType(TuvNodeFilter::kFile);
        if (_options.size) {
            const auto range = readSizes(*_options.size, &reason);
            if (!range) return fail("--size");
            _filter->setSizeRange(*range);
        }
        if (_options.modified) {
            const auto range = readDates(*_options.modified, {_context.clock->wallSeconds(), ""}, &reason);
            if (!range) return fail("--modified");
            _filter->setDateRange(*range);
        }
        return true;
    }

    void show(const std::string& argument, Measurement& measurement) {
        _found = 0;
        if (_options.json) {
            showJson(measurement);
            return;
        }
        const bool isTable = _context.outputIsTerminal && !_options.null;
        if (isTable && _shown > 0) _output.put('\n');
        // A path below the argument as it was given, as find(1) writes it.
        walk(measurement, argument, [&](const TuvNode& node, const std::string& path, bool) {
            if (isTable) {
                writeRow(node, path);
            } else {
                _output.write(path);
                _output.put(_options.null ? '\0' : '\n');
            }
        });
        if (isTable) writeCount(measurement);
        _output.flush();
        // On standard error: what stands on the other output are paths.
        _measurements.reportUnread(argument, measurement, _options.errors);
    }

    using Found = std::function<void(const TuvNode& node, const std::string& path, bool isLink)>;

    void walk(Measurement& measurement, const std::string& folder, const Found& found) {
        const bool asksForLinks = _options.json || _kind == FoundKind::file || _kind == FoundKind::link;
        const std::string& place = measurement.path;
        walkMatches(
            measurement, folder,
            [this](const TuvNode& node) { return node.filterUsing(_filter.get(), _options.exact); },
            [&](const TuvNode& node, const std::string& path) {
                bool isLink = false;
                if (asksForLinks && !node.isDirectory() && node.logicalSize() < kLongestLink)
                    isLink = isSymbolicLink(place + "/" + path.substr(std::min(path.size(), folder.size())));
                if (_kind == FoundKind::link && !isLink) return true;
                if (_kind == FoundKind::file && isLink) return true;
                ++_found;
                found(node, path, isLink);
                return !_output.failed();
            });
    }

    void writeRow(const TuvNode& node, const std::string& path) {
        const std::string size = compactStringFromSize(node.physicalSize());
        const std::size_t blanks = size.size() < kSizeColumns ? kSizeColumns - size.size() : 0;
        const ColorDepth color = colorDepth(ColorChoice::automatic, true);
        _output.write(std::string(blanks, ' ') + coloredBySize(size, node.physicalSize(), color) + "  " +
                      dateText(node) + "  " + printable(path) + (node.isDirectory() && path.back() != '/' ? "/" : "") +
                      "\n");
    }

    void writeCount(const Measurement& measurement) {
        _output.write((_found > 0 ? "\n" : "") + counted(_found, "entry", "entries") + " found" +
                      (measurement.partial ? " (partial)\n" : "\n"));
    }

    void showJson(Measurement& measurement) {
        if (_shown > 0) _output.write(",\n");
        JsonStream stream{_output};
        JsonWriter writer(stream);
        writer.StartObject();
        writeText(writer, "path", "pathRaw", measurement.path);
        writeKey(writer, "found");
        writer.StartArray();
        walk(measurement, measurement.path, [&](const TuvNode& node, const std::string& path, bool isLink) {
            writer.StartObject();
            writeText(writer, "path", "pathRaw", path);
            writeKey(writer, "kind");
            writeString(writer, node.isDirectory() ? "folder" : isLink ? "link" : "file");
            writeNumber(writer, "inode", node.inode());
            writeNumber(writer, "logicalSize", node.logicalSize());
            writeNumber(writer, "physicalSize", node.physicalSize());
            writeModified(writer, node);
            writer.EndObject();
        });
        writer.EndArray();
        writeSeconds(writer, "seconds", measurement.seconds);
        if (measurement.partial) writeTrue(writer, "partial");
        writeUnread(writer, measurement.unread);
        writer.EndObject();
        if (_options.folders.size() == 1) _output.put('\n');
    }

    const FindOptions& _options;
    const CommandContext& _context;
    FolderMeasurements _measurements;
    Output _output;
    TuvRef<TuvNodeFilter> _filter;
    FoundKind _kind = FoundKind::any;
    std::uint64_t _found = 0;
    int _shown = 0;
};

}  // namespace

int runFind(const FindOptions& options, const CommandContext& context) {
    if (options.listRanges) return writeResult(context, rangeList());
    return FindCommand(options, context).run();
}

}  // namespace kavaro
