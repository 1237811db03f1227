#pragma once

#include <string>

#include "client/Measurement.h"

namespace kavaro {

// Measures with the engine in this process, by local notifications, without a bus.
class EmbeddedMeasurement final : public MeasurementSource {
  public:
    Measurement measure(const std::string& path, const Callbacks& callbacks) override;
};

}  // namespace kavaro
