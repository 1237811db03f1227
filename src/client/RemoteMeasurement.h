#pragma once

#include <memory>
#include <string>

#include "client/Measurement.h"
#include "client/ServerConnection.h"

namespace kavaro {

// Measures through a server on a bus; each folder has a server run of its own, because a server ends with its job.
class RemoteMeasurement final : public MeasurementSource {
  public:
    explicit RemoteMeasurement(ServerConnection::Options options) : _options(std::move(options)) {}
    Measurement measure(const std::string& path, const Callbacks& callbacks) override;

  private:
    bool connect(std::string* failure);

    const ServerConnection::Options _options;
    std::unique_ptr<ServerConnection> _connection;
};

}  // namespace kavaro
