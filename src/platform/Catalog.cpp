#include "platform/Catalog.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <utility>

namespace kavaro {

UTCDateTime catalogDate(std::int64_t unixSeconds) {
    constexpr std::int64_t kSeconds1904To1970 = 2082844800;
    constexpr std::int64_t kMax = (std::int64_t{1} << 48) - 1;
    const std::int64_t seconds =
        std::clamp(unixSeconds, 1 - kSeconds1904To1970, kMax - kSeconds1904To1970) + kSeconds1904To1970;
    UTCDateTime date;
    date.lowSeconds = static_cast<std::uint32_t>(seconds);
    const auto high = static_cast<std::uint16_t>(seconds >> 32);
    if constexpr (std::endian::native == std::endian::little) {
        date.fraction = high;
    } else {
        date.highSeconds = high;
    }
    return date;
}

FileReference::FileReference(FileReference&& other) noexcept
    : fd(std::exchange(other.fd, -1)),
      openError(other.openError),
      isDirectory(other.isDirectory),
      excludedReason(other.excludedReason) {}

FileReference& FileReference::operator=(FileReference&& other) noexcept {
    if (this == &other) return *this;
    if (fd >= 0) close(fd);
    fd = std::exchange(other.fd, -1);
    openError = other.openError;
    isDirectory = other.isDirectory;
    excludedReason = other.excludedReason;
    return *this;
}

FileReference::~FileReference() {
    if (fd >= 0) close(fd);
}

}  // namespace kavaro
