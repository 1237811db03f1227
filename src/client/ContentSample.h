#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kavaro {

// What stands at the beginning of a file and, of a large one, at its end, as a number. Files of one size whose numbers
// differ are different; those with the same one may be. Nothing when the file cannot be read, or does not have `size`
// bytes. Any thread; waits for the disk.
std::optional<std::uint64_t> contentSample(const std::string& path, std::uint64_t size);

constexpr std::uint64_t kSampleBytes = 4096;           // at either place
constexpr std::uint64_t kLargeFileBytes = 128 * 1024;  // above which the end is looked at, too

}  // namespace kavaro
