#include "client/commandline/LiveLine.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "client/commandline/Output.h"
#include "client/commandline/TableOutput.h"
#include "format/TuvNodeFormatter.h"
#include "platform/Text.h"
#include "platform/TextDisplay.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

constexpr std::string_view kEraseLine = "\r\x1b[K";
constexpr double kWindow = 1;             // seconds
constexpr std::size_t kShortestPath = 8;  // columns; less says nothing

void writeAll(int fd, std::string_view text) {
    Output output(fd);
    output.write(text);
}

// "1:05" or "2:03:04".
std::string clockText(double seconds) {
    const auto whole = static_cast<std::uint64_t>(std::llround(seconds));
    const auto twoDigits = [](std::uint64_t number) { return (number < 10 ? "0" : "") + std::to_string(number); };
    const std::uint64_t hours = whole / 3600, minutes = whole / 60 % 60;
    const std::string start = hours > 0 ? std::to_string(hours) + ":" + twoDigits(minutes) : std::to_string(minutes);
    return start + ":" + twoDigits(whole % 60);
}

// "1.2 GB of 3.4 GB compared, 1.1 GB/s, 0:02 left"; the rate and what follows from it once something has been done, and
// until then for how long it has been at work.
std::string digestText(const DigestProgress& progress) {
    constexpr double kLongest = 100 * 3600;  // seconds; more is no estimate
    std::string line =
        compactStringFromSize(progress.bytes) + " of " + compactStringFromSize(progress.totalBytes) + " compared";
    constexpr double kUnnoticed = 1;  // seconds
    if (progress.bytes == 0 || progress.seconds <= 0)
        return progress.waited < kUnnoticed ? line : line + ", " + clockText(progress.waited) + " so far";
    const double rate = static_cast<double>(progress.bytes) / progress.seconds;
    line += ", " + compactStringFromSize(static_cast<std::uint64_t>(rate)) + "/s";
    const double all = static_cast<double>(progress.totalBytes - progress.bytes) / rate;
    const double left = std::max(0.0, all - progress.waited);
    return left < kLongest ? line + ", " + clockText(left) + " left" : line;
}

}  // namespace

void LiveLine::show(const MeasurementProgress& progress) {
    draw([&](std::size_t columns) { return text(progress, columns); });
}

void LiveLine::show(const SampleProgress& progress) {
    draw([&](std::size_t columns) {
        return cutInMiddle(
            std::to_string(progress.files) + " of " + counted(progress.totalFiles, "file", "files") + " looked into",
            columns);
    });
}

void LiveLine::show(const DigestProgress& progress) {
    draw([&](std::size_t columns) { return cutInMiddle(digestText(progress), columns); });
}

void LiveLine::draw(const std::function<std::string(std::size_t)>& text) {
    const double now = _clock.monotonicSeconds();
    if (_isShown && now - _lastDrawn < kInterval) return;
    const int columns = _columns();
    if (columns < 0) return;
    _lastDrawn = now;
    _isShown = true;
    // The last column stays free: some terminals go to the next line when it is filled.
    const std::size_t room = static_cast<std::size_t>(columns > 1 ? columns : TableOptions::kNarrowest) - 1;
    writeAll(_fd, std::string(kEraseLine) + text(room));
}

void LiveLine::erase() {
    if (_isShown && _columns() >= 0) writeAll(_fd, kEraseLine);
    _isShown = false;
}

double LiveLine::rate(const MeasurementProgress& progress) {
    const double age = progress.seconds - _windowBegin;
    if (age >= kWindow) {
        _rate = static_cast<double>(progress.folders - _windowFolders) / age;
        _windowBegin = progress.seconds;
        _windowFolders = progress.folders;
    } else if (_windowBegin == 0 && progress.seconds > 0) {
        _rate = static_cast<double>(progress.folders) / progress.seconds;
    }
    return _rate;
}

std::string LiveLine::text(const MeasurementProgress& progress, std::size_t columns) {
    std::string line = TuvNodeFormatter::byteSizeFormatter(progress.folders) +
                       (progress.folders == 1 ? " folder, " : " folders, ") +
                       compactStringFromSize(progress.physicalSize);
    const std::string speed =
        ", " + TuvNodeFormatter::byteSizeFormatter(static_cast<std::uint64_t>(std::llround(rate(progress)))) +
        " folders/s";
    if (displayWidth(line) + displayWidth(speed) <= columns) line += speed;
    const std::size_t used = displayWidth(line) + 2;
    if (!progress.currentFolder.empty() && used + kShortestPath <= columns) {
        line += "  " + cutInMiddle(printable(progress.currentFolder), columns - used);
    }
    return cutInMiddle(line, columns);
}

}  // namespace kavaro
