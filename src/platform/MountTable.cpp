#include "platform/MountTable.h"

#include <fcntl.h>
#include <poll.h>

#include <cerrno>
#include <charconv>

namespace kavaro {

namespace {

constexpr int kFieldOfPoint = 4;

// The kernel writes blanks, line ends, backslashes and "#" as a backslash and three octal digits.
std::string unescaped(std::string_view text) {
    const auto isOctal = [](char c) { return c >= '0' && c <= '7'; };
    std::string result;
    while (!text.empty()) {
        if (text.size() >= 4 && text[0] == '\\' && isOctal(text[1]) && isOctal(text[2]) && isOctal(text[3])) {
            result += static_cast<char>((text[1] - '0') * 64 + (text[2] - '0') * 8 + (text[3] - '0'));
            text.remove_prefix(4);
        } else {
            result += text[0];
            text.remove_prefix(1);
        }
    }
    return result;
}

std::string_view fieldOf(std::string_view line, int number) {
    for (; number > 0; --number) {
        const std::size_t blank = line.find(' ');
        if (blank == std::string_view::npos) return {};
        line.remove_prefix(blank + 1);
    }
    return line.substr(0, line.find(' '));
}

bool readWhole(int fd, std::string* text) {
    text->clear();
    if (lseek(fd, 0, SEEK_SET) != 0) return false;
    char buffer[16384];
    for (;;) {
        const ssize_t length = read(fd, buffer, sizeof buffer);
        if (length == 0) return true;
        if (length > 0) text->append(buffer, static_cast<std::size_t>(length));
        if (length < 0 && errno != EINTR) return false;
    }
}

}  // namespace

MountTable::MountTable() : _file(open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC)) {}

std::vector<Mount> MountTable::parse(std::string_view text) {
    std::vector<Mount> mounts;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        const std::string_view id = fieldOf(line, 0);
        Mount mount{0, unescaped(fieldOf(line, kFieldOfPoint))};
        const auto [last, problem] = std::from_chars(id.data(), id.data() + id.size(), mount.id);
        const bool isNumber = problem == std::errc() && last == id.data() + id.size();
        if (isNumber && mount.point.starts_with('/')) mounts.push_back(std::move(mount));
    }
    return mounts;
}

const std::vector<Mount>& MountTable::mounts() {
    if (!_file.isOpen()) return _mounts;
    // The kernel flags a change since the last question as an error condition.
    pollfd question{_file.get(), POLLPRI, 0};
    const bool hasChanged = poll(&question, 1, 0) > 0;
    if (_isRead && !hasChanged) return _mounts;
    std::string text;
    _isRead = readWhole(_file.get(), &text);
    _mounts = parse(text);
    return _mounts;
}

const Mount* MountTable::withID(std::uint64_t id) {
    for (const Mount& mount : mounts())
        if (mount.id == id) return &mount;
    return nullptr;
}

std::optional<std::string> MountTable::firstBelow(std::string_view folder) {
    if (folder == "/") folder = {};
    for (const Mount& mount : mounts()) {
        const std::string_view point = mount.point;
        if (point.size() > folder.size() + 1 && point.starts_with(folder) && point[folder.size()] == '/')
            return mount.point;
    }
    return std::nullopt;
}

}  // namespace kavaro
