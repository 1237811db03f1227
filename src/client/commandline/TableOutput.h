#pragma once

#include "client/Measurement.h"
#include "client/commandline/Color.h"
#include "client/commandline/EntryWalk.h"
#include "client/commandline/Output.h"

namespace kavaro {

struct TableOptions {
    static constexpr int kNarrowest = 40;
    static constexpr int kWithoutTerminal = 100;
    static constexpr int kDefaultTop = 20;

    EntryView view;
    int columns = kWithoutTerminal;  // smaller ones than kNarrowest count as that
    ColorDepth color = ColorDepth::none;
    bool listErrors = false;
    bool showStatistics = false;
};

// Folders that could not be read, and those that the rules leave out.
struct MissingCounts {
    std::uint64_t unreadable = 0;
    std::uint64_t leftOut = 0;
};
MissingCounts countMissing(const std::vector<UnreadFolder>& unread);

// Writes a measurement as people read it: the total, a table of the entries, then what is missing. No line of the
// total and the table is wider than the columns: names lose their middle, and where it is narrow the counts, the second
// size and in the end the bars are left out. REQUIRES: measurement.root.
void writeTable(Output& output, const Measurement& measurement, const TableOptions& options);

}  // namespace kavaro
