#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/Measurement.h"
#include "client/commandline/EmbeddedCommands.h"

namespace kavaro {

// Measures with the engine in this process, by local notifications, without a bus.
class EmbeddedMeasurement final : public MeasurementSource {
  public:
    Measurement measure(const std::string& path, const Callbacks& callbacks) override;
    CommandReply command(std::string_view member, const std::vector<BusValue>& arguments,
                         const std::function<bool()>& interrupted) override {
        return runEmbeddedCommand(member, arguments, interrupted);
    }
};

}  // namespace kavaro
