#include "client/ContentSample.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string_view>

#include "platform/RegularFile.h"

namespace kavaro {

namespace {

// Reads exactly `length` bytes.
bool readAt(int fd, std::uint64_t offset, char* buffer, std::size_t length) {
    while (length > 0) {
        const ssize_t count = pread(fd, buffer, length, static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        buffer += count;
        length -= static_cast<std::size_t>(count);
        offset += static_cast<std::uint64_t>(count);
    }
    return true;
}

}  // namespace

std::optional<std::uint64_t> contentSample(const std::string& path, std::uint64_t size) {
    RegularFile file;
    if (file.open(path) != 0 || static_cast<std::uint64_t>(file.status().st_size) != size) return std::nullopt;
    const bool isLarge = size > kLargeFileBytes;
    if (isLarge) posix_fadvise(file.fd(), 0, 0, POSIX_FADV_RANDOM);  // what lies between is not needed yet
    char bytes[2 * kSampleBytes];
    const auto first = static_cast<std::size_t>(std::min(size, kSampleBytes));
    const std::size_t last = isLarge ? kSampleBytes : 0;
    if (!readAt(file.fd(), 0, bytes, first) || !readAt(file.fd(), size - last, bytes + first, last))
        return std::nullopt;
    return std::hash<std::string_view>()({bytes, first + last});
}

}  // namespace kavaro
