#include <memory>
#include <utility>

#include "client/RemoteMeasurement.h"
#include "client/TrashFailures.h"
#include "platform/RunLoop.h"
#include "platform/Text.h"
#include "support/ProtocolNames.h"

namespace kavaro {

namespace {

constexpr double kPollSeconds = 0.1;
constexpr double kNoLimit = -1;

}  // namespace

RemoteMeasurement::~RemoteMeasurement() {
    if (_prepared) _prepared->dropServer();
}

// The first command that needs its engine keeps a server busy for a second. Where it does not work out, commands start
// a server when they come.
void RemoteMeasurement::prepareCommandServer(const ServerConnection::Interrupted& interrupted) {
    if (!_preparesCommands) return;
    _preparesCommands = false;
    ServerConnection::Options options = _options;
    options.hasOwnBus = true;
    std::string failure;
    _prepared = ServerConnection::open(options, &failure);
    if (!_prepared) return;
    if (!_prepared->ensureServer(interrupted, &failure)) {
        _prepared = nullptr;
        return;
    }
    _prepared->callAsync("stopSizing", {}, kNoLimit, [](BusReply) {});
}

void RemoteMeasurement::usePreparedServer() {
    if (!_prepared || _prepared->isBusClosed() || _prepared->server().empty()) return;
    _measuring = std::exchange(_connection, std::move(_prepared));
    _serverEnds = false;
    _commandServer = _connection->server();
}

// The server of the command before is not asked first whether it is there.
bool RemoteMeasurement::hasCommandServer() const {
    return _connection && !_connection->isBusClosed() && !_serverEnds && !_commandServer.empty() &&
           _connection->server() == _commandServer;
}

// Of a call that got no good answer.
std::string RemoteMeasurement::failureOf(const std::optional<BusReply>& reply, bool serverIsGone) {
    if (!serverIsGone) return "the server refuses it: " + printable(reply->error.message) + ".";
    std::string text = "the server went away in the middle";
    if (_connection->isBusClosed()) {
        text = "the message bus went away in the middle";
    } else if (const std::string how = _connection->serverEnd(); !how.empty()) {
        text += " (" + how + ")";
    }
    text += ". Run the command again";
    if (const std::string log = _connection->serverLogPath(); !log.empty()) text += ", or see " + log;
    return text + ".";
}

CommandReply RemoteMeasurement::command(std::string_view member, const std::vector<BusValue>& arguments,
                                        const std::function<bool()>& interrupted) {
    CommandReply result;
    usePreparedServer();
    if (!hasCommandServer() && !connect(interrupted, &result.failure)) {
        result.interrupted = result.failure.empty();
        return result;
    }
    const std::string server = _connection->server();
    // What the server posts before its answer arrives before it.
    const std::uint64_t subscription = _connection->bus().subscribe(
        server, bus::kNotificationPath, bus::kNotificationInterface,
        [&](const BusSignal& signal) { addTrashFailures(signal.arguments, &result.failures); },
        TuvNodeFactoryTrashFileNotification);
    const auto reply = std::make_shared<std::optional<BusReply>>();  // it may come when nobody waits any more
    _connection->callAsync(member, arguments, kNoLimit, [reply](BusReply arrived) { *reply = std::move(arrived); });
    const auto isGone = [&] { return _connection->isBusClosed() || _connection->server() != server; };
    const auto isOver = [&] { return reply->has_value() || isGone(); };
    while (!RunLoop::main().runUntil([&] { return isOver() || interrupted(); }, kPollSeconds)) {
    }
    _connection->bus().unsubscribe(subscription);
    if (*reply && (*reply)->ok()) {
        _commandServer = server;
        result.values = std::move((*reply)->values);
    } else if (isOver()) {
        result.failure = failureOf(*reply, isGone());
    } else {
        result.interrupted = true;
    }
    return result;
}

}  // namespace kavaro
