#include "client/commandline/TableLayout.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "platform/TextDisplay.h"

namespace kavaro {

namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kShare = 6;  // "100.0%"
constexpr std::size_t kShortestBar = 5, kLongestBar = 24;
constexpr std::size_t kShortestName = 16;
constexpr std::size_t kLeastOfName = 6;  // beside a mark
constexpr std::string_view kPartial = " (partial)";
constexpr const char* kHeads[] = {"SHARE", "ON DISK", "LOGICAL", "FILES", "FOLDERS", "NAME"};

std::size_t indentOf(int level) {
    return 2 * static_cast<std::size_t>(level - 1);
}

std::string rightAligned(const std::string& text, std::size_t width) {
    const std::size_t used = displayWidth(text);
    return std::string(used < width ? width - used : 0, ' ') + text;
}

std::size_t withGap(std::size_t width) {
    return width == 0 ? 0 : kGap + width;
}

}  // namespace

std::string barOf(double share, std::size_t width) {
    constexpr const char* kParts[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const double eighths = std::round(std::clamp(share, 0.0, 1.0) * 8 * static_cast<double>(width));
    const auto count = static_cast<std::size_t>(eighths);
    std::string bar;
    for (std::size_t i = 0; i < count / 8; ++i) bar += "█";
    return bar + kParts[count % 8];
}

void TableWidths::take(const TableCells& cells) {
    ++_rows;
    _physical = std::max(_physical, displayWidth(cells.physical));
    _logical = std::max(_logical, displayWidth(cells.logical));
    _files = std::max(_files, cells.files.size());
    _folders = std::max(_folders, cells.folders.size());
    _name = std::max(_name, indentOf(cells.level) + displayWidth(cells.name) + (cells.isPartial ? kPartial.size() : 0));
}

TableLayout::TableLayout(const TableWidths& widths, std::size_t columns, ColorDepth color)
    : _color(color),
      _physical(std::max(widths._physical, displayWidth(kHeads[1]))),
      _logical(std::max(widths._logical, displayWidth(kHeads[2]))),
      _files(std::max(widths._files, displayWidth(kHeads[3]))),
      _folders(std::max(widths._folders, displayWidth(kHeads[4]))) {
    const std::size_t longestName = std::max(widths._name, displayWidth(kHeads[5]));
    const std::size_t least = std::min(longestName, kShortestName) + 1 + kShortestBar;
    const auto used = [this] {
        return kShare + withGap(_physical) + withGap(_logical) + withGap(_files) + withGap(_folders) + kGap;
    };
    for (std::size_t* column : {&_folders, &_files, &_logical}) {
        if (used() + least > columns) *column = 0;
    }
    const std::size_t room = columns > used() ? columns - used() : 1;
    if (room < least) {
        _name = room;
        return;
    }
    _bar = std::clamp(room > longestName ? room - longestName - 1 : 0, kShortestBar, kLongestBar);
    _name = std::min(longestName, room - _bar - 1);
}

std::string TableLayout::header() const {
    std::string line = rightAligned(kHeads[0], kShare);
    if (_bar > 0) line += std::string(1 + _bar, ' ');
    const std::size_t widths[] = {_physical, _logical, _files, _folders};
    for (std::size_t i = 0; i < 4; ++i) {
        if (widths[i] > 0) line += std::string(kGap, ' ') + rightAligned(kHeads[i + 1], widths[i]);
    }
    return line + std::string(kGap, ' ') + kHeads[5] + "\n";
}

std::string TableLayout::nameOf(const TableCells& cells) const {
    const std::size_t indent = std::min(indentOf(cells.level), _name / 2);
    const bool hasRoom = _name >= indent + kPartial.size() + std::min(displayWidth(cells.name), kLeastOfName);
    const std::string_view mark = cells.isPartial && hasRoom ? kPartial : "";
    return std::string(indent, ' ') + cutInMiddle(cells.name, _name - indent - mark.size()) + std::string(mark);
}

std::string TableLayout::line(const TableCells& cells) const {
    const auto inItsColor = [&](const std::string& text, std::uint64_t size) {
        return cells.isPartial ? colored(text, Color::systemRed(), _color) : coloredBySize(text, size, _color);
    };
    char share[16];
    std::snprintf(share, sizeof share, "%5.1f%%", std::min(cells.share, 9.999) * 100);
    std::string line = share;
    if (_bar > 0) {
        const std::string bar = barOf(cells.share, _bar);
        const std::size_t width = displayWidth(bar);
        line += ' ';
        if (width > 0) line += inItsColor(bar, cells.shownSize);
        line += std::string(_bar - std::min(width, _bar), ' ');
    }
    const std::string gap(kGap, ' ');
    line += gap + inItsColor(rightAligned(cells.physical, _physical), cells.physicalSize);
    if (_logical > 0) line += gap + inItsColor(rightAligned(cells.logical, _logical), cells.logicalSize);
    if (_files > 0) line += gap + rightAligned(cells.files, _files);
    if (_folders > 0) line += gap + rightAligned(cells.folders, _folders);
    return line + gap + nameOf(cells) + "\n";
}

}  // namespace kavaro
