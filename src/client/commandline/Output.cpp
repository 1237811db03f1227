#include "client/commandline/Output.h"

#include <errno.h>
#include <unistd.h>

#include "format/TuvNodeFormatter.h"
#include "platform/Text.h"

namespace kavaro {

void Output::write(std::string_view text) {
    if (_buffer.size() + text.size() > kBufferSize) flush();
    if (text.size() < kBufferSize) {
        _buffer += text;
        return;
    }
    _buffer.assign(text);
    flush();
}

void Output::flush() {
    std::string_view left = _buffer;
    while (!left.empty() && _error == 0) {
        const ssize_t written = ::write(_fd, left.data(), left.size());
        if (written >= 0) {
            left.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            _error = errno;
        }
    }
    _buffer.clear();
}

std::string failureText(std::string_view path, std::string_view reason, std::string_view advice) {
    std::string text = printable(path);
    text.append(": ").append(reason).append(".");
    if (!advice.empty()) text.append(" ").append(advice).append(".");
    return text;
}

std::string withProgramName(std::string_view failure) {
    return std::string("kavaro: ").append(failure).append("\n");
}

std::string errorMessage(std::string_view path, std::string_view reason, std::string_view advice) {
    return withProgramName(failureText(path, reason, advice));
}

std::string counted(std::uint64_t number, const char* one, const char* many) {
    return TuvNodeFormatter::byteSizeFormatter(number) + " " + (number == 1 ? one : many);
}

}  // namespace kavaro
