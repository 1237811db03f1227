#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "cleanup/LipoRequests.h"
#include "client/Measurement.h"

namespace kavaro {

// Has a server read and remove architectures of files, a few files in one call: it answers nobody else meanwhile.
// `interrupted` is asked often. It ends the questions at once, and a removal after the call that is on its way.
struct SlimmingCallbacks {
    std::function<bool()> interrupted;
    std::function<void(std::size_t done)> progress;  // may be empty
};

inline constexpr std::size_t kMostLipoQuestions = 500;
inline constexpr std::size_t kMostLipoRemovals = 10;

struct SlimmingOutcome {
    LipoTables tables;         // of questions
    std::size_t sent = 0;      // files, from the first, in calls that were made
    std::size_t answered = 0;  // of those, in calls that were answered
    bool interrupted = false;  // before all were sent
    std::string failure;       // for people, with a closing stop; empty when every call was answered
    bool ok() const { return failure.empty() && !interrupted; }
};

SlimmingOutcome askArchitectures(MeasurementSource& source, const std::vector<LipoQuestion>& files,
                                 const SlimmingCallbacks& callbacks);
// Which files it did not work for is told nowhere: ask again.
SlimmingOutcome removeArchitectures(MeasurementSource& source, const std::vector<LipoRemoval>& files,
                                    const SlimmingCallbacks& callbacks);

}  // namespace kavaro
