#include "server/TuvNodeFactoryServer.h"

#include "fsevents/TuvFSEvents.h"
#include "platform/UserDefaults.h"
#include "server/ServerLog.h"
#include "support/Backtrace.h"
#include "support/ProtocolNames.h"
#include "support/Signals.h"

namespace kavaro {

extern const char* const kNodeFactoryServerIntrospection;

namespace {

// With file-system events a server outlives its client until its timer has been scheduled this often.
constexpr int kTimersWithoutClient = 20;

constexpr double kFlushSeconds = 1;

TuvNodeFactoryServer::Surroundings& surroundings() {
    static TuvNodeFactoryServer::Surroundings& surroundings = *new TuvNodeFactoryServer::Surroundings;
    return surroundings;
}

TuvNodeFactoryServer* sharedServer = nullptr;

bool startFSEvents() {
    return UserDefaults::standard().boolForKey("startFSEvents");
}

}  // namespace

void TuvNodeFactoryServer::setSurroundings(const Surroundings& wanted) {
    surroundings() = wanted;
}

TuvNodeFactoryServer* TuvNodeFactoryServer::sharedInstance() {
    if (sharedServer) return sharedServer;
    if (isServerRunning()) {
        TuvLog::error(serverLog, "sharedInstance",
                      "We just found an existing server instance in this machine. There can be one server instance per "
                      "machine. This instance will be terminated.");
        return nullptr;
    }
    sharedServer = new TuvNodeFactoryServer(surroundings());
    if (!sharedServer->configureServer()) {
        TuvLog::error(serverLog, "sharedInstance", "This instance will be terminated.");
        delete std::exchange(sharedServer, nullptr);
    }
    return sharedServer;
}

bool TuvNodeFactoryServer::isServerRunning() {
    TuvLog::info(serverLog, "isServerRunning", "");
    const std::shared_ptr<Bus>& bus = defaultConnection();
    if (!bus) return false;
    const std::string owner = bus->nameOwner(bus::kServerName);
    if (owner.empty()) return false;
    const BusReply reply = bus->call(owner, bus::kServerPath, bus::kServerInterface, "versionInfo", {}, kAnswerSeconds);
    if (reply.ok()) return !reply.values.empty();
    TuvLog::error(serverLog, "isServerRunning", "Exception: %@", reply.error.message);
    TuvLog::error(serverLog, "isServerRunning", "[%@]", backtrace());
    return false;
}

TuvNodeFactoryServer::TuvNodeFactoryServer(const Surroundings& wanted) : _surroundings(wanted) {
    const std::shared_ptr<Bus>& bus = defaultConnection();
    if (!bus) return;
    _distributedCenter = std::make_unique<BusDistributedCenter>(bus);
    _authority = CallAuthority::forBus(wanted.busKind, bus);
    if (_authority->isRestricted()) _distributedCenter->addressOnly();
    TuvNodeFactory::Surroundings engine;
    engine.clock = wanted.clock;
    engine.durations = wanted.factoryDurations;
    engine.distributedCenter = _distributedCenter.get();
    TuvNodeFactory::setSurroundings(engine);
    // From any sender; where users share the bus, from this process alone.
    const std::string sender = _authority->isRestricted() ? bus->uniqueName() : std::string();
    _subscription = bus->subscribe(
        sender, bus::kNotificationPath, bus::kNotificationInterface,
        [this](const BusSignal& signal) { _completedNode(signal); }, TuvNodeFactoryCompletedNotification);
    bus->onClosed([this] {
        if (_stopServer) return;
        TuvLog::error(serverLog, "onClosed", "The bus has closed the connection. The server ends.");
        _stopServer = true;
        RunLoop::main().stop();
    });
}

TuvNodeFactoryServer::~TuvNodeFactoryServer() {
    if (const std::shared_ptr<Bus>& bus = defaultConnection()) {
        bus->unsubscribe(_subscription);
        bus->onClosed({});
    }
    unregisterLocalEnd();
}

bool TuvNodeFactoryServer::configureServer() {
    if (!_configureServer) {
        TuvLog::info(serverLog, "configureServer", "");
        if (!registerLocalEnd()) return false;
        _configureServer = true;
    }
    _scheduleTimer();
    return _configureServer;
}

void TuvNodeFactoryServer::_scheduleTimer() {
    RunLoop& loop = RunLoop::main();
    loop.cancel(_timer);
    ++_timerCount;
    auto self = std::make_shared<RunLoop::TimerID>(0);
    _timer = loop.schedule(_surroundings.durations.liveness, [this, self] { _checkForUpdatesByTimer(*self); });
    *self = _timer;
    TuvLog::debug(serverLog,
                  "_scheduleTimer:", "Did reschedule a new timer (%@) to fire after (%d) seconds [%d invocations].",
                  std::to_string(_timer), 360, _timerCount);
}

void TuvNodeFactoryServer::_checkForUpdatesByTimer(RunLoop::TimerID timer) {
    TuvLog::info(serverLog, "_checkForUpdatesByTimer:", "");
    if (timer != _timer || isRemoteEndAlive()) return _scheduleTimer();
    TuvLog::info(serverLog, "_checkForUpdatesByTimer:", "try (%d) to get proxy to server", _timerCount);
    if (createRemoteEnd()) return _scheduleTimer();
    // Where users share the bus, root alone may own the client's name: any caller that was allowed is a client.
    if (_authority->isRestricted() && _distributedCenter->hasReceivers()) return _scheduleTimer();
    if (_timerCount <= kTimersWithoutClient && startFSEvents()) return _scheduleTimer();
    TuvLog::info(serverLog, "_checkForUpdatesByTimer:", "can't get to the other side");
    shutdownServer("self");
}

void TuvNodeFactoryServer::_completedNode(const BusSignal&) {
    TuvLog::info(serverLog, "_completedNode:", "");
    shutdownServer("self");
}

void TuvNodeFactoryServer::shutdownServer(const std::string& sender) {
    TuvLog::info(serverLog, "shutdownServer:", "[%@]", sender);
    TuvLog::info(serverLog, "shutdownServer:", "[%@]", sender);
    RunLoop::main().schedule(_surroundings.durations.shutdownDelay, [this, sender] { _shutdownServer(sender); });
}

void TuvNodeFactoryServer::_shutdownServer(const std::string&) {
    if (_stopServer) return;
    // Whole seconds: 0.1 prints as 0.
    const int seconds = static_cast<int>(_surroundings.durations.shutdownDelay);
    TuvLog::info(serverLog,
                 "_shutdownServer:", "The server will shutdown in %d seconds, all connections will be invalidated ...",
                 seconds);
    TuvLog::info(serverLog, "_shutdownServer:", "Waiting %d second for all events to complete", seconds);
    _surroundings.clock->sleep(_surroundings.durations.shutdownDelay);
    leaveBus();
    _stopServer = true;
    RunLoop::main().stop();
}

// What was posted is delivered before the name goes, however long a client takes; but a signal is obeyed. A bus that
// reads nothing learns from the end of the process.
void TuvNodeFactoryServer::leaveBus() {
    const std::shared_ptr<Bus>& bus = defaultConnection();
    while (bus && !bus->isClosed() && !bus->flush(kFlushSeconds))
        if (Tuv_caughtSignal()) return;
    unregisterLocalEnd();
    if (bus && !bus->isClosed()) bus->flush(kFlushSeconds);
}

void TuvNodeFactoryServer::runServer() {
    configureServer();
    if (startFSEvents()) TuvFSEvents::startFSEvents();
    TuvLog::info(serverLog, "runServer", "Running server ...");
    while (RunLoop::main().run(_surroundings.durations.runSlice)) {
        if (_stopServer || Tuv_caughtSignal()) break;
    }
    if (!_stopServer) leaveBus();
    TuvLog::info(serverLog, "runServer", "Server has been terminated properly");
}

std::string_view TuvNodeFactoryServer::localName() const {
    return bus::kServerName;
}
std::string_view TuvNodeFactoryServer::remoteName() const {
    return bus::kClientName;
}
std::string_view TuvNodeFactoryServer::localPath() const {
    return bus::kServerPath;
}
std::string_view TuvNodeFactoryServer::localIntrospection() const {
    return kNodeFactoryServerIntrospection;
}
std::string_view TuvNodeFactoryServer::remotePath() const {
    return bus::kClientPath;
}
std::string_view TuvNodeFactoryServer::remoteInterface() const {
    return bus::kClientInterface;
}

}  // namespace kavaro
