#include "client/RemoteMeasurement.h"

#include <functional>

#include "client/NotificationReader.h"
#include "platform/Clock.h"
#include "platform/Environment.h"
#include "platform/RunLoop.h"
#include "platform/Text.h"
#include "support/ProtocolNames.h"

namespace kavaro {

namespace {

constexpr double kProgressInterval = 0.1;
constexpr double kStopSeconds = 3;
constexpr double kPreviousServerSeconds = 5;

// One job from its start to its end. The bus delivers to it while it runs.
class Job {
  public:
    Job(ServerConnection& connection, const std::string& path, const MeasurementSource::Callbacks& callbacks)
        : _connection(connection), _path(path), _callbacks(callbacks), _reader(path) {}
    ~Job() { _connection.bus().unsubscribe(_subscription); }

    void run(Measurement& measurement);

  private:
    void start();
    bool isOver() const { return _reader.hasEnded() || _refused || serverGone() || _connection.isBusClosed(); }
    bool serverGone() const { return _connection.server() != _server; }
    void stop();
    void reportProgress();
    std::string failure();

    ServerConnection& _connection;
    const std::string _path;
    const MeasurementSource::Callbacks& _callbacks;
    const std::string _server = _connection.server();
    const double _begin = Clock::system().monotonicSeconds();
    NotificationReader _reader;
    std::uint64_t _subscription = 0;
    bool _refused = false;
    std::string _refusal;
};

void Job::start() {
    Bus& bus = _connection.bus();
    _subscription = bus.subscribe(_server, bus::kNotificationPath, bus::kNotificationInterface,
                                  [this](const BusSignal& signal) { _reader.read(signal.member, signal.arguments); });
    _connection.callAsync("startWorkingAtPath", {BusValue::path(_path)}, [this](BusReply reply) {
        if (reply.ok() && _reader.hasStarted()) return;
        _refused = true;
        _refusal = reply.ok() ? "it is no folder any more" : reply.error.message;
    });
}

void Job::run(Measurement& measurement) {
    const int pid = _connection.serverPid();
    if (pid) measurement.serverIdleMemory = currentMemoryOfProcess(pid);
    start();
    RunLoop& loop = RunLoop::main();
    while (!loop.runUntil([this] { return isOver() || _callbacks.interrupted(); }, kProgressInterval)) reportProgress();
    if (pid) measurement.serverPeakMemory = peakMemoryOfProcess(pid);
    if (!isOver()) {
        measurement.interrupted = true;
        stop();
    } else if (!_reader.isCompleted()) {
        measurement.failure = failure();
    }
    measurement.seconds = Clock::system().monotonicSeconds() - _begin;
    _reader.finish(measurement);
}

void Job::stop() {
    _connection.callAsync("stopSizing", {}, [](const BusReply&) {});
    RunLoop::main().runUntil([this] { return isOver(); }, kStopSeconds);
}

void Job::reportProgress() {
    if (!_callbacks.progress) return;
    const TreeAssembler::Counts& counts = _reader.assembler().counts();
    _callbacks.progress({counts.folders, counts.files, counts.physicalSize, counts.logicalSize,
                         Clock::system().monotonicSeconds() - _begin, _reader.assembler().lastFolder()});
}

std::string Job::failure() {
    if (!_reader.failure().empty()) return _reader.failure();
    const std::string path = printable(_path);
    if (_connection.isBusClosed())
        return path + ": the message bus went away. What was measured until then is shown; run the command again.";
    if (serverGone()) {
        std::string text = path + ": the server went away in the middle of the job";
        const std::string how = _connection.serverEnd();
        if (!how.empty()) text += " (" + how + ")";
        text += ". What was measured until then is shown; run the command again";
        if (!_connection.serverLogPath().empty()) text += ", or see " + printable(_connection.serverLogPath());
        return text + ".";
    }
    if (_reader.isStopped()) return path + ": another client stopped the job. Run the command again.";
    return path + ": the server does not measure it: " + _refusal + ".";
}

}  // namespace

bool RemoteMeasurement::connect(std::string* failure) {
    if (_connection && !_connection->isBusClosed()) {
        _connection->waitForServerEnd(kPreviousServerSeconds);
    } else {
        _connection = ServerConnection::open(_options, failure);
    }
    return _connection && _connection->ensureServer(failure);
}

Measurement RemoteMeasurement::measure(const std::string& path, const Callbacks& callbacks) {
    Measurement measurement;
    measurement.path = path;
    std::string failure;
    if (!connect(&failure)) {
        measurement.failure = printable(path) + ": " + failure;
        measurement.partial = true;
        return measurement;
    }
    Job(*_connection, path, callbacks).run(measurement);
    return measurement;
}

}  // namespace kavaro
