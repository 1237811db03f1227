#pragma once

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "fsevents/EventRecording.h"
#include "fsevents/EventReplay.h"

// What the fuzzer runs, and the test with the corpus: a replay of any text. Ends the process when what was read is not
// what is written and read again.
namespace kavaro::fuzz {

class StandingClock final : public Clock {
  public:
    double monotonicSeconds() override { return 0; }
    double wallSeconds() override { return 0; }
    void sleep(double) override {}
};

// The batches of a text, each written as a recording.
inline std::vector<std::string> batchesOf(std::string_view text) {
    std::vector<std::string> batches;
    StandingClock clock;
    EventReplay replay(clock, [&](TuvRef<TuvObjectArray> batch) {
        std::string& written = batches.emplace_back();
        writeBatch(*batch, [&](std::string_view piece) { written += piece; });
    });
    replay.replayText(text);
    return batches;
}

inline void readRecording(std::string_view text) {
    const std::vector<std::string> batches = batchesOf(text);
    std::string again;
    for (const std::string& batch : batches) again += batch;
    again += kRecordingEnd;
    if (batchesOf(again) != batches) std::abort();
}

}  // namespace kavaro::fuzz
