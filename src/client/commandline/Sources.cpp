#include "client/commandline/Sources.h"

#include "client/RemoteMeasurement.h"
#include "client/commandline/EmbeddedMeasurement.h"
#include "factory/TuvNodeFactory.h"
#include "platform/Bus.h"
#include "platform/RunLoop.h"
#include "platform/Text.h"
#include "support/ProtocolNames.h"

namespace kavaro {

namespace {

constexpr double kAnswerSeconds = 10;
constexpr double kQuickInterval = 0.002;

// Asks without taking the client's name: another client may be at work.
class BusServerControl final : public ServerControl {
  public:
    explicit BusServerControl(std::string kind) : _kind(std::move(kind)) {}

    Answer version() override {
        Answer answer;
        if (!find(&answer)) return answer;
        const BusReply reply = call("versionInfo", {});
        if (!reply.ok() || reply.values.empty()) return failed(reply);
        answer.version = reply.values[0].get("version").asString().value_or("unknown");
        return answer;
    }

    Answer stop() override {
        Answer answer;
        if (!find(&answer)) return answer;
        _bus->watchName(bus::kServerName, [this](const std::string& owner) { _server = owner; });
        const BusReply reply = call("shutdownServer", {BusValue::string("kavaro stop")});
        if (!reply.ok()) return failed(reply);
        if (!RunLoop::main().runUntil([this] { return _server.empty() || _bus->isClosed(); }, kAnswerSeconds))
            answer.failure = "the server does not end. Look for it with: pgrep -a kavarod.";
        return answer;
    }

  private:
    // No bus at all means no server that could be asked.
    bool find(Answer* answer) {
        BusError error;
        _bus = Bus::open(_kind, &error);
        if (!_bus) {
            if (_kind != "session")
                answer->failure = "bus \"" + printable(_kind) + "\": " + printable(error.message) +
                                  ". Give another one with --bus, or none for the session bus.";
            return false;
        }
        _server = _bus->nameOwner(bus::kServerName);
        answer->isRunning = !_server.empty();
        return answer->isRunning;
    }
    BusReply call(std::string_view member, const std::vector<BusValue>& arguments) {
        return _bus->call(_server, bus::kServerPath, bus::kServerInterface, member, arguments, kAnswerSeconds);
    }
    Answer failed(const BusReply& reply) {
        return {true,
                {},
                "the server does not answer: " + printable(reply.error.message) + ". Try again when its job is done."};
    }

    const std::string _kind;
    std::unique_ptr<Bus> _bus;
    std::string _server;
};

}  // namespace

std::unique_ptr<MeasurementSource> makeRemoteSource(const RemoteOptions& options) {
    ServerConnection::Options connection;
    connection.bus = options.bus;
    connection.serverLogToStandardError = options.verbose;
    if (options.sameFileSystem) connection.serverArguments = {"-sameFileSystemOnly", "1"};
    return std::make_unique<RemoteMeasurement>(std::move(connection));
}

std::unique_ptr<MeasurementSource> makeEmbeddedSource() {
    return std::make_unique<EmbeddedMeasurement>();
}

std::unique_ptr<MeasurementSource> makeQuickSource() {
    TuvNodeFactory::Surroundings surroundings;
    surroundings.durations.setUpPause = 0;
    surroundings.durations.notificationInterval = kQuickInterval;
    TuvNodeFactory::setSurroundings(surroundings);
    return makeEmbeddedSource();
}

std::unique_ptr<ServerControl> makeServerControl(const RemoteOptions& options) {
    return std::make_unique<BusServerControl>(options.bus);
}

}  // namespace kavaro
