#pragma once

#include <cstdint>
#include <string>

#include "client/commandline/Color.h"

namespace kavaro {

// One line of the table, as texts.
struct TableCells {
    double share = 0;             // of the total, 0 to 1
    std::uint64_t shownSize = 0;  // colours the bar
    std::uint64_t physicalSize = 0, logicalSize = 0;
    std::string physical, logical, files, folders, name;
    int level = 1;  // names of deeper levels are indented
    bool isPartial = false;
};

// The widest cell of each column.
class TableWidths {
  public:
    void take(const TableCells& cells);
    bool empty() const { return _rows == 0; }

  private:
    friend class TableLayout;
    std::uint64_t _rows = 0;
    std::size_t _physical = 0, _logical = 0, _files = 0, _folders = 0, _name = 0;
};

// Shares out the columns of a line: percentage, bar, size on disk, logical size, files, folders, name. Where they do
// not fit, folders, files and the logical size go first, then the bar.
class TableLayout {
  public:
    TableLayout(const TableWidths& widths, std::size_t columns, ColorDepth color);

    std::string header() const;
    std::string line(const TableCells& cells) const;

  private:
    std::string nameOf(const TableCells& cells) const;

    ColorDepth _color;
    std::size_t _bar = 0, _name = 0;
    std::size_t _physical, _logical, _files, _folders;  // 0: the column is left out
};

// A bar of blocks, `share` of `width` columns long to an eighth of a column, without blanks behind it.
std::string barOf(double share, std::size_t width);

}  // namespace kavaro
