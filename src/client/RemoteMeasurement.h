#pragma once

#include <memory>
#include <optional>
#include <string>

#include "client/Measurement.h"
#include "client/ServerConnection.h"

namespace kavaro {

// Measures through a server on a bus; each folder has a server run of its own, because a server ends with its job.
class RemoteMeasurement final : public MeasurementSource {
  public:
    // Seconds. Handed in, so that tests do not wait for them.
    struct Patience {
        double start = 600;     // until the root is listed
        double quiet = 15;      // without a notification until the server is asked whether it is there
        double answer = 30;     // that it has for each of two answers
        double stop = 3;        // until a stopped job has ended
        double serverEnd = 30;  // until the server of the last folder has ended
    };
    explicit RemoteMeasurement(ServerConnection::Options options) : RemoteMeasurement(std::move(options), Patience()) {}
    RemoteMeasurement(ServerConnection::Options options, const Patience& patience)
        : _options(std::move(options)), _patience(patience) {}
    ~RemoteMeasurement() override;
    Measurement measure(const std::string& path, const Callbacks& callbacks) override;
    // On the session's bus alone: a server of a bus that was named is there for all commands.
    void prepareCommands() override { _preparesCommands = _options.bus == "session"; }
    CommandReply command(std::string_view member, const std::vector<BusValue>& arguments,
                         const std::function<bool()>& interrupted) override;
    bool endServer() override { return !_connection || _connection->killServer(); }

  private:
    bool connect(const ServerConnection::Interrupted& interrupted, std::string* failure);
    void prepareCommandServer(const ServerConnection::Interrupted& interrupted);
    void usePreparedServer();
    bool hasCommandServer() const;
    std::string failureOf(const std::optional<BusReply>& reply, bool serverIsGone);

    const ServerConnection::Options _options;
    const Patience _patience;
    std::unique_ptr<ServerConnection> _connection;
    // With a server that has been asked to make itself ready for commands, on a bus of its own: there is one server on
    // a bus, and the one that measures ends with its job.
    std::unique_ptr<ServerConnection> _prepared;
    std::unique_ptr<ServerConnection> _measuring;  // the connection before that one was used
    bool _preparesCommands = false;
    bool _serverEnds = false;    // it has completed its job
    std::string _commandServer;  // that has answered a command
};

}  // namespace kavaro
