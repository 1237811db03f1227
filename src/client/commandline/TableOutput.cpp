#include "client/commandline/TableOutput.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "client/commandline/TableLayout.h"
#include "format/TuvNodeFormatter.h"
#include "platform/Catalog.h"
#include "platform/Environment.h"
#include "platform/Text.h"
#include "platform/TextDisplay.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

std::string secondsText(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f s", seconds);
    return text;
}

// Reasons that the rules give, as against those that the disk gives.
bool isLeftOut(const UnreadFolder& folder) {
    return folder.reason == kReasonPseudoFileSystem || folder.reason == kReasonOtherFileSystem ||
           folder.reason == kReasonBackupFolder;
}

// Writes pieces one after another, going to a new, indented line before one that does not fit.
class WrappedLine {
  public:
    WrappedLine(Output& output, std::size_t columns) : _output(output), _columns(columns) {}

    // `plain` measures, `shown` is written; they differ in colour.
    void add(const std::string& plain, const std::string& shown) {
        const std::size_t width = displayWidth(plain);
        if (_used > 0 && _used + 1 + width > _columns) {
            _output.write("\n  ");
            _used = 2;
        } else if (_used > 0) {
            _output.put(' ');
            ++_used;
        }
        _output.write(shown);
        _used += width;
    }
    void add(const std::string& plain) { add(plain, plain); }
    void end() { _output.put('\n'); }

  private:
    Output& _output;
    const std::size_t _columns;
    std::size_t _used = 0;
};

class Table {
  public:
    Table(Output& output, const Measurement& measurement, const TableOptions& options)
        : _output(output),
          _measurement(measurement),
          _options(options),
          _columns(static_cast<std::size_t>(std::max(options.columns, TableOptions::kNarrowest))),
          _totals(*measurement.root, options.view.depth) {}

    void writeTotal() {
        const EntryTotals& total = _totals.ofRoot();
        const std::string bound = _measurement.unread.empty() ? "" : "≥ ";
        WrappedLine line(_output, _columns);
        const std::string size = bound + compactStringFromSize(shownSize(total, _options.view));
        const std::string second =
            compactStringFromSize(_options.view.apparent ? total.physicalSize : total.logicalSize);
        const std::string lead = _options.view.apparent ? " logical," : " on disk,";
        const bool isMeasured = _measurement.root->isResolved();
        const std::string shown =
            isMeasured ? coloredBySize(size, shownSize(total, _options.view), _options.color)
                       : colored(size, TuvNodeFormatter::sizeStringColor(_measurement.root.get()), _options.color);
        const std::size_t nameRoom = std::max<std::size_t>(_columns / 2, 16);
        line.add(cutInMiddle(printable(_measurement.path), nameRoom) + ":");
        line.add(size + lead, shown + lead);
        line.add(bound + second + (_options.view.apparent ? " on disk," : " logical,"));
        line.add(trimWhiteSpace(TuvNodeFormatter::filesAndFoldersCount(total.files, total.folders)) + ",");
        line.add(secondsText(_measurement.seconds));
        if (_measurement.partial) line.add("(partial)");
        line.end();
    }

    void writeEntries() {
        TableWidths widths;
        walk([&](const EntryRow& row) { widths.take(cellsOf(row)); });
        if (widths.empty()) return;
        const TableLayout layout(widths, _columns, _options.color);
        _output.put('\n');
        _output.write(layout.header());
        walk([&](const EntryRow& row) { _output.write(layout.line(cellsOf(row))); });
    }

    void writeMissing() {
        const std::vector<UnreadFolder>& unread = _measurement.unread;
        if (unread.empty()) return;
        const auto [unreadable, leftOut] = countMissing(unread);
        _output.put('\n');
        WrappedLine line(_output, _columns);
        if (unreadable > 0) {
            line.add(counted(unreadable, "folder", "folders") + " could not be read" + (leftOut > 0 ? "," : ";"));
        }
        if (leftOut > 0) {
            line.add((unreadable > 0 ? TuvNodeFormatter::byteSizeFormatter(leftOut)
                                     : counted(leftOut, "folder", "folders")) +
                     (leftOut == 1 ? " was left out;" : " were left out;"));
        }
        line.add("the total is a lower bound");
        if (!_options.listErrors) line.add("(--errors lists them)");
        line.end();
        if (!_options.listErrors) return;
        for (const UnreadFolder& folder : unread) {
            _output.write("  " + printable(folder.path) + ": " + printable(folder.reason) + "\n");
        }
    }

    void writeStatistics() {
        WrappedLine line(_output, _columns);
        _output.put('\n');
        line.add("engine " + secondsText(_measurement.serverSeconds) + ",");
        line.add("server memory " + compactStringFromSize(_measurement.serverPeakMemory) + " at most,");
        line.add(compactStringFromSize(_measurement.serverIdleMemory) + " before,");
        line.add("client memory " + compactStringFromSize(peakMemoryOfProcess(0)) + " at most");
        line.end();
    }

  private:
    void walk(const std::function<void(const EntryRow&)>& visit) {
        walkEntries(*_measurement.root, _totals, _options.view, [&](const EntryRow& row) {
            visit(row);
            return !_output.failed();
        });
    }

    TableCells cellsOf(const EntryRow& row) const {
        const std::uint64_t whole = shownSize(_totals.ofRoot(), _options.view);
        TableCells cells;
        cells.shownSize = shownSize(row.totals, _options.view);
        cells.share = whole == 0 ? 0 : static_cast<double>(cells.shownSize) / static_cast<double>(whole);
        cells.physical = compactStringFromSize(row.totals.physicalSize);
        cells.logical = compactStringFromSize(row.totals.logicalSize);
        cells.physicalSize = row.totals.physicalSize;
        cells.logicalSize = row.totals.logicalSize;
        cells.files = row.node && !row.folder ? "-" : TuvNodeFormatter::byteSizeFormatter(row.totals.files);
        cells.folders = row.node && !row.folder ? "-" : TuvNodeFormatter::byteSizeFormatter(row.totals.folders);
        cells.level = row.level;
        if (!row.node) {
            cells.name = TuvNodeFormatter::byteSizeFormatter(row.restCount) + " more";
        } else {
            cells.name = printable(row.node->fileName()) + (row.folder ? "/" : "");
            cells.isPartial = row.folder && !row.folder->isResolved();
        }
        return cells;
    }

    Output& _output;
    const Measurement& _measurement;
    const TableOptions& _options;
    const std::size_t _columns;
    const TreeTotals _totals;
};

}  // namespace

MissingCounts countMissing(const std::vector<UnreadFolder>& unread) {
    const auto leftOut = static_cast<std::uint64_t>(std::count_if(unread.begin(), unread.end(), isLeftOut));
    return {unread.size() - leftOut, leftOut};
}

void writeTable(Output& output, const Measurement& measurement, const TableOptions& options) {
    Table table(output, measurement, options);
    table.writeTotal();
    table.writeEntries();
    table.writeMissing();
    if (options.showStatistics) table.writeStatistics();
}

}  // namespace kavaro
