#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/MD5.h"
#include "platform/MD5Lanes.h"

namespace kavaro {

// Of one file: its digest, or the errno value that says why there is none. ESTALE stands for a file that was changed,
// cut off, continued or removed while it was read; EINVAL for what is no regular file.
struct FileDigest {
    std::optional<MD5Digest> digest;
    int error = 0;
};

// Digests of many files, in their order. Each file is read once, in reads of kFileReadBytes, as many files side by side
// as the processor has lanes; a single file goes through the system's library. Links are followed, paths may be of any
// length. Any thread; one read for each lane is kept for the next time, as many as were in use at once: 16 MiB at most
// for each thread. Waits for the disk.
constexpr std::size_t kFileReadBytes = 512 * 1024;
std::vector<FileDigest> md5OfFiles(const std::vector<std::string>& paths);

// The same by other kernels, chosen as fastestMD5Kernels() gives them. For tests and benchmarks.
std::vector<FileDigest> md5OfFiles(const std::vector<std::string>& paths, const std::vector<MD5Kernel>& kernels);

}  // namespace kavaro
