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
constexpr int kUnansweredLimit = 2;  // one may be the fault of a suspended client
constexpr int kAttempts = 2;

double now() {
    return Clock::system().monotonicSeconds();
}

// One job from its start to its end. The bus delivers to it while it runs.
class Job {
  public:
    Job(ServerConnection& connection, const std::string& path, const MeasurementSource::Callbacks& callbacks,
        const RemoteMeasurement::Patience& patience)
        : _connection(connection), _path(path), _callbacks(callbacks), _patience(patience), _reader(path) {}
    ~Job() { _connection.bus().unsubscribe(_subscription); }

    // `whileItStarts` is called when the server has been asked.
    void run(Measurement& measurement, const std::function<void()>& whileItStarts);
    // True when nothing came of it because the server was about to end when it was found.
    bool shouldBeTriedAgain() const;

  private:
    using Handler = void (Job::*)(const BusReply&);
    void call(std::string_view member, const std::vector<BusValue>& arguments, double seconds, Handler handler);
    void start();
    void noteStart(const BusReply& reply);
    void watch();
    void noteAnswer(const BusReply& reply);
    bool isOver() const;
    bool serverGone() const { return _connection.server() != _server; }
    void stop();
    void reportProgress();
    std::string failure();

    ServerConnection& _connection;
    const std::string _path;
    const MeasurementSource::Callbacks& _callbacks;
    const RemoteMeasurement::Patience _patience;
    const std::string _server = _connection.server();
    const bool _isOurServer = _connection.startedServer();
    const double _begin = now();
    // Replies that come when the job is gone find nothing here.
    const std::shared_ptr<Job*> _self = std::make_shared<Job*>(this);
    NotificationReader _reader;
    std::uint64_t _subscription = 0;
    bool _startAnswered = false;
    std::string _refusal;       // why it was not started; empty when it was
    double _lastSign = _begin;  // of the server
    bool _asked = false;
    int _unanswered = 0;
};

void Job::call(std::string_view member, const std::vector<BusValue>& arguments, double seconds, Handler handler) {
    _connection.callAsync(member, arguments, seconds, [self = std::weak_ptr<Job*>(_self), handler](BusReply reply) {
        if (auto job = self.lock(); job && handler) ((*job)->*handler)(reply);
    });
}

void Job::start() {
    _subscription = _connection.bus().subscribe(_server, bus::kNotificationPath, bus::kNotificationInterface,
                                                [this](const BusSignal& signal) {
                                                    _lastSign = now();
                                                    _reader.read(signal.member, signal.arguments);
                                                });
    call("startWorkingAtPath", {BusValue::path(_path)}, _patience.start, &Job::noteStart);
}

void Job::noteStart(const BusReply& reply) {
    _startAnswered = true;
    _lastSign = now();
    if (!reply.ok())
        _refusal = printable(reply.error.message.empty() ? reply.error.name : reply.error.message);
    else if (!_reader.hasStarted())
        _refusal = "it is no folder any more";
}

// A server that says nothing may have much to do, or hang. Its main thread answers in either case but the last.
void Job::watch() {
    if (!_startAnswered || _asked || now() - _lastSign < _patience.quiet) return;
    _asked = true;
    call("versionInfo", {}, _patience.answer, &Job::noteAnswer);
}

void Job::noteAnswer(const BusReply& reply) {
    _asked = false;
    _unanswered = reply.ok() ? 0 : _unanswered + 1;
    if (reply.ok()) _lastSign = now();
}

bool Job::isOver() const {
    return _reader.hasEnded() || !_refusal.empty() || serverGone() || _connection.isBusClosed() ||
           _unanswered >= kUnansweredLimit;
}

void Job::run(Measurement& measurement, const std::function<void()>& whileItStarts) {
    const int pid = _connection.serverPid();
    if (pid) measurement.serverIdleMemory = currentMemoryOfProcess(pid);
    start();
    whileItStarts();
    RunLoop& loop = RunLoop::main();
    while (!loop.runUntil([this] { return isOver() || _callbacks.interrupted(); }, kProgressInterval)) {
        watch();
        reportProgress();
    }
    if (pid) measurement.serverPeakMemory = peakMemoryOfProcess(pid);
    if (!isOver()) {
        measurement.interrupted = true;
        stop();
    } else if (!_reader.isCompleted()) {
        measurement.failure = failure();
        // A server that others use must not go on for nobody.
        if (!serverGone() && !_reader.isStopped() && !_reader.isReplaced()) stop();
    }
    measurement.seconds = now() - _begin;
    _reader.finish(measurement);
}

void Job::stop() {
    call("stopSizing", {}, _patience.stop, nullptr);
    if (isOver()) {
        _connection.bus().flush(_patience.stop);
    } else {
        RunLoop::main().runUntil([this] { return isOver(); }, _patience.stop);
    }
}

bool Job::shouldBeTriedAgain() const {
    return serverGone() && !_isOurServer && !_connection.isBusClosed() && !_reader.hasEnded() &&
           _reader.assembler().counts().folders == 0;
}

void Job::reportProgress() {
    if (!_callbacks.progress) return;
    const TreeAssembler::Counts& counts = _reader.assembler().counts();
    _callbacks.progress({counts.folders, counts.files, counts.physicalSize, counts.logicalSize, now() - _begin,
                         _reader.assembler().lastFolder()});
}

std::string Job::failure() {
    if (!_reader.failure().empty()) return _reader.failure();
    const std::string path = printable(_path);
    const std::string kept = _callbacks.showsPart ? ". What was measured until then is shown; run the command again"
                                                  : ". Run the command again";
    if (_connection.isBusClosed()) return path + ": the message bus went away" + kept + ".";
    if (serverGone()) {
        std::string text = path + ": the server went away in the middle of the job";
        if (const std::string how = _connection.serverEnd(); !how.empty()) text += " (" + how + ")";
        text += kept;
        if (const std::string log = _connection.serverLogPath(); !log.empty()) text += ", or see " + log;
        return text + ".";
    }
    if (_reader.isStopped()) return path + ": another client stopped the job" + kept + ".";
    if (_unanswered >= kUnansweredLimit) return path + ": the server does not answer any more" + kept + ".";
    return path + ": the server does not measure it: " + _refusal + ".";
}

}  // namespace

bool RemoteMeasurement::connect(const ServerConnection::Interrupted& interrupted, std::string* failure) {
    failure->clear();
    if (!_connection || _connection->isBusClosed()) {
        _connection = nullptr;  // a bus of our own ends before there is another one
        _connection = ServerConnection::open(_options, failure);
        if (!_connection) return false;
    } else if (_serverEnds && !_connection->waitForServerEnd(_patience.serverEnd, interrupted)) {
        if (!interrupted()) *failure = "the server of the folder before does not end. Run the command again.";
        return false;
    }
    _serverEnds = false;
    return _connection->ensureServer(interrupted, failure);
}

Measurement RemoteMeasurement::measure(const std::string& path, const Callbacks& callbacks) {
    Measurement measurement;
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        measurement = Measurement();
        measurement.path = path;
        std::string failure;
        if (!connect(callbacks.interrupted, &failure)) {
            measurement.interrupted = failure.empty();
            if (!failure.empty()) measurement.failure = printable(path) + ": " + failure;
            measurement.partial = true;
            break;
        }
        Job job(*_connection, path, callbacks, _patience);
        job.run(measurement, [&] { prepareCommandServer(callbacks.interrupted); });
        _serverEnds = measurement.ok();
        if (!job.shouldBeTriedAgain()) break;
    }
    return measurement;
}

}  // namespace kavaro
