#include "client/ServerConnection.h"

#include <optional>

#include "platform/Clock.h"
#include "platform/Environment.h"
#include "platform/RunLoop.h"
#include "platform/Text.h"
#include "support/ProtocolNames.h"
#include "support/Version.h"

namespace kavaro {

extern const char* const kClientIntrospection;

namespace {

constexpr double kStartSeconds = 15;
constexpr double kEndSeconds = 5;
constexpr double kKilledSeconds = 1;
constexpr double kNamelessSeconds = 5;    // from the end of the name to the end of the process
constexpr double kSessionBusSeconds = 3;  // a session bus that is slower than this is left alone
constexpr double kBusSeconds = 10;
constexpr int kAttempts = 2;
constexpr double kPollSeconds = 0.05;
constexpr const char* kBusDaemon = "/usr/bin/dbus-daemon";

BusReply answerClientCall(const BusCall& call) {
    if (call.member != "versionInfo") return {{}, {"org.freedesktop.DBus.Error.UnknownMethod", "no such operation"}};
    return {{BusValue::dictionary({{"version", BusValue::string(KAVARO_VERSION)},
                                   {"versionNumber", BusValue::string(KAVARO_VERSION_NUMBER)},
                                   {"buildNumber", BusValue::string(KAVARO_BUILD_NUMBER)},
                                   {"build", BusValue::string(KAVARO_BUILD_DATE)}})},
            {}};
}

}  // namespace

std::unique_ptr<ServerConnection> ServerConnection::open(const Options& options, std::string* failure) {
    std::unique_ptr<ServerConnection> connection(new ServerConnection(options));
    bool nameTaken = false;
    if (!options.hasOwnBus && connection->join(options.bus, &nameTaken, failure)) {
        if (options.bus != "session" || !connection->hasServerWithoutOurArguments()) return connection;
        connection->leave();
    }
    if (options.bus != "session" && !options.hasOwnBus) return nullptr;
    // No session bus, or another client or a server of others on it: a bus of our own.
    std::string address;
    if (!connection->startPrivateBus(&address, failure)) return nullptr;
    if (!connection->join(address, &nameTaken, failure)) return nullptr;
    return connection;
}

ServerConnection::~ServerConnection() {
    if (_serverProcess) _serverProcess->terminate();
    if (_bus) _bus->close();
    endServerProcess();
    if (_busDaemon) {
        _busDaemon->terminate();
        if (!_busDaemon->waitForEnd(kEndSeconds)) _busDaemon->kill();
    }
}

void ServerConnection::endServerProcess() {
    if (!_serverProcess) return;
    _serverProcess->terminate();
    if (!_serverProcess->waitForEnd(kEndSeconds)) {
        _serverProcess->kill();
        _serverProcess->waitForEnd(kKilledSeconds);
    }
    _serverProcess = nullptr;
}

bool ServerConnection::join(const std::string& kind, bool* nameTaken, std::string* failure) {
    BusError error;
    const std::string name = "bus \"" + printable(kind) + "\": ";
    std::unique_ptr<Bus> bus = Bus::open(kind, &error, kind == "session" ? kSessionBusSeconds : kBusSeconds);
    if (!bus) {
        *failure = name + printable(error.message) + ". Give another one with --bus, or none for a private one.";
        return false;
    }
    if (!bus->publish(bus::kClientPath, kClientIntrospection, answerClientCall, &error)) {
        *failure = name + printable(error.message) + ". Use --embedded to measure without a bus.";
        return false;
    }
    if (!bus->requestName(bus::kClientName, &error)) {
        *nameTaken = !error.isSet();
        *failure = name + (*nameTaken ? "another client is at work there. Wait for it, or leave out --bus."
                                      : printable(error.message) + ". Use --embedded to measure without a bus.");
        return false;
    }
    bus->watchName(bus::kServerName, [this](const std::string& owner) { _server = owner; });
    _bus = std::move(bus);
    _busAddress = kind;
    return true;
}

void ServerConnection::leave() {
    _bus->close();
    _bus = nullptr;
    _server.clear();
}

bool ServerConnection::hasServerWithoutOurArguments() {
    if (_options.serverArguments.empty() || (_serverProcess && !_serverProcess->hasEnded())) return false;
    return !_bus->nameOwner(bus::kServerName).empty();
}

bool ServerConnection::startPrivateBus(std::string* address, std::string* failure) {
    ChildProcess::Options options;
    options.arguments = {kBusDaemon, "--session", "--nofork", "--nopidfile", "--nosyslog", "--print-address"};
    options.readStandardOutput = true;
    std::string reason;
    _busDaemon = ChildProcess::start(options, &reason);
    if (!_busDaemon) {
        *failure = reason + ". Install dbus-daemon, or use --embedded.";
        return false;
    }
    const auto line = _busDaemon->readLine(kStartSeconds);
    if (!line || line->empty()) {
        const bool ended = _busDaemon->waitForEnd(kKilledSeconds) && _busDaemon->hasEnded(&reason);
        *failure = std::string(kBusDaemon) + ": " + (ended ? "it ended with " + reason : "no address within the time") +
                   ". See whether /tmp can be written, where its socket goes, or use --embedded.";
        return false;
    }
    *address = *line;
    return true;
}

bool ServerConnection::callAndWait(std::string_view destination, std::string_view path, std::string_view interface,
                                   std::string_view member, const std::vector<BusValue>& arguments,
                                   const Interrupted& interrupted, BusReply* reply) {
    const auto answer = std::make_shared<std::optional<BusReply>>();
    _bus->callAsync(destination, path, interface, member, arguments, _options.answerSeconds,
                    [answer](BusReply arrived) { *answer = std::move(arrived); });
    while (!RunLoop::main().runUntil([&] { return answer->has_value(); }, kPollSeconds))
        if (interrupted()) return false;
    *reply = std::move(**answer);
    return true;
}

// The answer comes in its order among the changes of the name, so none of them is taken for a later one.
bool ServerConnection::findServer(const Interrupted& interrupted) {
    BusReply reply;
    if (!callAndWait("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetNameOwner",
                     {BusValue::string(bus::kServerName)}, interrupted, &reply))
        return false;
    _server = reply.values.empty() ? std::string() : reply.values[0].asString().value_or("");
    return !_server.empty();
}

bool ServerConnection::ensureServer(const Interrupted& interrupted, std::string* failure) {
    failure->clear();
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (!findServer(interrupted)) {
            if (interrupted() || !startServer(interrupted, failure)) return false;
        } else if (hasServerWithoutOurArguments()) {
            *failure = "bus \"" + printable(_busAddress) +
                       "\": the server that runs there was started without the options asked for here. Leave out "
                       "--bus, stop the server with \"kavaro stop\" and the same --bus, or use --embedded.";
            return false;
        }
        if (checkServer(interrupted, failure)) return true;
        if (!_server.empty()) return false;  // else it was about to end
    }
    return false;
}

bool ServerConnection::startServer(const Interrupted& interrupted, std::string* failure) {
    endServerProcess();
    ChildProcess::Options options;
    std::string program = _options.serverProgram;
    if (program.empty())
        program = stringByAppendingPathComponent(stringByDeletingLastPathComponent(executablePath()), "kavarod");
    options.arguments = {program, "-bus", _busAddress};
    options.arguments.insert(options.arguments.end(), _options.serverArguments.begin(), _options.serverArguments.end());
    options.standardErrorPath = _options.serverLogToStandardError ? "-" : _serverLog.open();
    std::string reason;
    _serverProcess = ChildProcess::start(options, &reason);
    if (!_serverProcess) {
        *failure = reason + ". The server belongs beside the client; install Kavaro again.";
        return false;
    }
    // The bus tells when the name is taken; nobody tells when the program ends before that.
    const double deadline = Clock::system().monotonicSeconds() + kStartSeconds;
    const auto isDecided = [this] { return !_server.empty() || _bus->isClosed(); };
    while (!RunLoop::main().runUntil(isDecided, kPollSeconds) && !_serverProcess->hasEnded() &&
           Clock::system().monotonicSeconds() < deadline) {
        if (interrupted()) return false;
    }
    if (!_server.empty()) return true;
    *failure = program + ": the server " + (_serverProcess->hasEnded() ? "ended at once" : "did not answer in time");
    if (const std::string log = serverLogPath(); !log.empty()) *failure += ". Its log is " + log;
    *failure += ". Use --embedded to measure without it.";
    return false;
}

bool ServerConnection::checkServer(const Interrupted& interrupted, std::string* failure) {
    const std::string server = _server;
    BusReply reply;
    if (!callAndWait(server, bus::kServerPath, bus::kServerInterface, "versionInfo", {}, interrupted, &reply))
        return false;
    if (reply.ok()) return true;
    *failure = "the server does not answer: " + printable(reply.error.message);
    BusReply process;
    if (!callAndWait("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                     "GetConnectionUnixProcessID", {BusValue::string(server)}, interrupted, &process))
        return false;
    const auto pid = process.values.empty() ? std::nullopt : process.values[0].asInteger();
    if (pid) *failure += ". It is process " + std::to_string(*pid) + "; end it if it hangs";
    *failure += ". Use --embedded to measure without it.";
    return false;
}

bool ServerConnection::waitForServerEnd(double seconds, const Interrupted& interrupted) {
    const double deadline = Clock::system().monotonicSeconds() + seconds;
    const auto isGone = [this] { return _bus->isClosed() || _server.empty(); };
    while (!RunLoop::main().runUntil(isGone, kPollSeconds) && Clock::system().monotonicSeconds() < deadline &&
           !interrupted()) {
    }
    endServerProcess();
    return isGone();
}

void ServerConnection::dropServer() {
    if (_serverProcess) _serverProcess->kill();
}

bool ServerConnection::killServer() {
    if (!_serverProcess) return false;
    _serverProcess->kill();
    return _serverProcess->waitForEnd(kEndSeconds);
}

int ServerConnection::serverPid() const {
    return _serverProcess ? static_cast<int>(_serverProcess->pid()) : 0;
}

std::string ServerConnection::serverEnd() {
    std::string how;
    if (!_serverProcess || !_serverProcess->waitForEnd(kNamelessSeconds) || !_serverProcess->hasEnded(&how)) return {};
    if (how == "exit status 0") return "somebody stopped it";
    return "it ended with " + how;
}

void ServerConnection::callAsync(std::string_view member, const std::vector<BusValue>& arguments, double seconds,
                                 Bus::ReplyHandler handler) {
    _bus->callAsync(_server, bus::kServerPath, bus::kServerInterface, member, arguments, seconds, std::move(handler));
}

}  // namespace kavaro
