#include "client/ServerConnection.h"

#include <sys/stat.h>
#include <unistd.h>

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

// A file in the user's state folder, or nothing where that cannot be made.
std::string makeServerLogPath() {
    const std::string folder = stateFolder();
    if (folder.empty()) return {};
    for (std::size_t slash = folder.find('/', 1);; slash = folder.find('/', slash + 1)) {
        ::mkdir(folder.substr(0, slash).c_str(), 0700);
        if (slash == std::string::npos) break;
    }
    const std::string path = folder + "/kavarod." + std::to_string(getpid()) + ".log";
    return ::access(folder.c_str(), W_OK) == 0 ? path : std::string();
}

}  // namespace

std::unique_ptr<ServerConnection> ServerConnection::open(const Options& options, std::string* failure) {
    std::unique_ptr<ServerConnection> connection(new ServerConnection(options));
    bool nameTaken = false;
    if (connection->join(options.bus, &nameTaken, failure)) return connection;
    if (options.bus != "session") return nullptr;
    // No session bus, or another client on it: a bus of our own.
    std::string address;
    if (!connection->startPrivateBus(&address, failure)) return nullptr;
    if (!connection->join(address, &nameTaken, failure)) return nullptr;
    return connection;
}

ServerConnection::~ServerConnection() {
    if (_serverProcess) _serverProcess->terminate();
    if (_bus) _bus->close();
    if (_serverProcess) _serverProcess->waitForEnd(kEndSeconds);
    if (_busDaemon) {
        _busDaemon->terminate();
        _busDaemon->waitForEnd(kEndSeconds);
    }
    // The log is for the case that something went wrong; then the caller has been told its path.
    if (!_serverLogPath.empty() && serverEnd().empty()) ::unlink(_serverLogPath.c_str());
}

bool ServerConnection::join(const std::string& kind, bool* nameTaken, std::string* failure) {
    BusError error;
    std::unique_ptr<Bus> bus = Bus::open(kind, &error);
    if (!bus) {
        *failure =
            "bus \"" + kind + "\": " + error.message + ". Give another one with --bus, or none for a private one.";
        return false;
    }
    if (!bus->publish(bus::kClientPath, kClientIntrospection, answerClientCall, &error)) {
        *failure = "bus \"" + kind + "\": " + error.message;
        return false;
    }
    if (!bus->requestName(bus::kClientName, &error)) {
        *nameTaken = !error.isSet();
        *failure = "bus \"" + kind + "\": " +
                   (*nameTaken ? std::string("another client is at work there. Wait for it, or leave out --bus.")
                               : error.message);
        return false;
    }
    bus->watchName(bus::kServerName, [this](const std::string& owner) { _server = owner; });
    _bus = std::move(bus);
    _busAddress = kind;
    return true;
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
        *failure = std::string(kBusDaemon) + ": no address within the time. Use --embedded.";
        return false;
    }
    *address = *line;
    return true;
}

bool ServerConnection::findServer() {
    _server = _bus->nameOwner(bus::kServerName);
    return !_server.empty();
}

bool ServerConnection::ensureServer(std::string* failure) {
    return findServer() || startServer(failure);
}

bool ServerConnection::startServer(std::string* failure) {
    ChildProcess::Options options;
    std::string program = _options.serverProgram;
    if (program.empty())
        program = stringByAppendingPathComponent(stringByDeletingLastPathComponent(executablePath()), "kavarod");
    options.arguments = {program, "-bus", _busAddress};
    options.arguments.insert(options.arguments.end(), _options.serverArguments.begin(), _options.serverArguments.end());
    if (_options.serverLogToStandardError) {
        options.standardErrorPath = "-";
    } else {
        if (_serverLogPath.empty()) _serverLogPath = makeServerLogPath();
        options.standardErrorPath = _serverLogPath;
    }
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
    }
    if (!_server.empty()) return true;
    *failure = program + ": the server " + (_serverProcess->hasEnded() ? "ended at once" : "did not answer in time");
    if (!_serverLogPath.empty()) *failure += ". Its log is " + printable(_serverLogPath);
    *failure += ". Use --embedded to measure without it.";
    return false;
}

bool ServerConnection::waitForServerEnd(double seconds) {
    const bool gone = RunLoop::main().runUntil([this] { return _bus->isClosed() || _server.empty(); }, seconds);
    if (_serverProcess && gone) _serverProcess->waitForEnd(seconds);
    _serverProcess = nullptr;
    _server.clear();
    return gone;
}

int ServerConnection::serverPid() const {
    return _serverProcess ? static_cast<int>(_serverProcess->pid()) : 0;
}

std::string ServerConnection::serverEnd() {
    std::string how;
    if (!_serverProcess || !_serverProcess->hasEnded(&how) || how == "exit status 0") return {};
    return "ended with " + how;
}

BusReply ServerConnection::call(std::string_view member, const std::vector<BusValue>& arguments, double seconds) {
    return _bus->call(_server, bus::kServerPath, bus::kServerInterface, member, arguments, seconds);
}

void ServerConnection::callAsync(std::string_view member, const std::vector<BusValue>& arguments,
                                 Bus::ReplyHandler handler) {
    _bus->callAsync(_server, bus::kServerPath, bus::kServerInterface, member, arguments, -1, std::move(handler));
}

}  // namespace kavaro
