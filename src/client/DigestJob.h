#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "client/Measurement.h"
#include "model/TuvObjectArray.h"

namespace kavaro {

// How far a job is.
struct DigestProgress {
    std::uint64_t bytes = 0, totalBytes = 0;
    std::uint64_t files = 0, totalFiles = 0;
    double seconds = 0;  // that they took
    double waited = 0;   // seconds since then, for files that are still read
};

struct DigestResult {
    TuvRef<TuvObjectArray>
        records;  // never null; of the files that were done, with an empty digest where there is none
    bool interrupted = false;
    std::string failure;  // for people; empty when all went well
};

// Has the server make the digests of files. It is asked for a few at a time, so that it can answer others in between:
// files of kDigestChunkBytes together and kDigestChunkFiles at most, or kDigestLargeFiles that are as large each: side
// by side they take hardly longer than one.
constexpr int kDigestChunkBytes = 256 << 20;
constexpr int kDigestLargeFiles = 4;
constexpr int kDigestChunkFiles = 1000;
// Main thread. `nodes` are files, each of its own node ID. `progress` is called when files are done, and while they are
// waited for.
DigestResult digestFiles(const TuvObjectArray* nodes, MeasurementSource& source,
                         const std::function<void(const DigestProgress&)>& progress,
                         const std::function<bool()>& interrupted);

}  // namespace kavaro
