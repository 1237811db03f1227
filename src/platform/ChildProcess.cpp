#include "platform/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <limits>

#include "platform/Clock.h"
#include "platform/Environment.h"

namespace kavaro {

namespace {

constexpr int kFirstFree = 3;  // behind standard input, output and error
constexpr int kNotStarted = 127;
constexpr double kPollSeconds = 0.005;
constexpr double kForever = 1e9;

// Owns an open descriptor. None is 0 to 2, so that putting them in place in the child overwrites none of the others.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : _fd(fd) {
        if (fd < 0 || fd >= kFirstFree) return;
        _fd = fcntl(fd, F_DUPFD_CLOEXEC, kFirstFree);
        close(fd);
    }
    Descriptor(Descriptor&& other) noexcept : _fd(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(_fd, other._fd);
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const { return _fd; }
    bool isOpen() const { return _fd >= 0; }
    int release() { return std::exchange(_fd, -1); }
    void reset() {
        if (_fd >= 0) close(_fd);
        _fd = -1;
    }

  private:
    int _fd = -1;
};

struct Pipe {
    Descriptor readEnd, writeEnd;
    bool open() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return false;
        readEnd = Descriptor(ends[0]);
        writeEnd = Descriptor(ends[1]);
        return readEnd.isOpen() && writeEnd.isOpen();
    }
};

// The strings of an argument or environment list, as exec takes them.
class StringList {
  public:
    void add(std::string text) { _texts.push_back(std::move(text)); }
    char** pointers() {
        _pointers.clear();
        for (std::string& text : _texts) _pointers.push_back(text.data());
        _pointers.push_back(nullptr);
        return _pointers.data();
    }

  private:
    std::vector<std::string> _texts;
    std::vector<char*> _pointers;
};

StringList environmentWith(const std::vector<std::pair<std::string, std::string>>& changes) {
    StringList list;
    for (char** entry = environ; entry && *entry; entry++) {
        std::string_view text = *entry;
        std::string_view name = text.substr(0, text.find('='));
        bool isChanged = std::any_of(changes.begin(), changes.end(), [=](const auto& c) { return c.first == name; });
        if (!isChanged) list.add(std::string(text));
    }
    for (const auto& [name, value] : changes) list.add(name + "=" + value);
    return list;
}

// All that the child needs, made before there is one: between fork and exec nothing may be allocated.
struct Launch {
    const char* program;
    char** arguments;
    char** environment;
    int input, output;
    int error;  // negative: standard error stays
    int failure;
    bool ownProcessGroup;
    pid_t parent;
};

[[noreturn]] void fail(const Launch& launch) {
    int code = errno;
    [[maybe_unused]] ssize_t written = write(launch.failure, &code, sizeof code);
    _exit(kNotStarted);
}

// The child's part; only calls that are safe in a signal handler. All signals are blocked when it begins.
[[noreturn]] void becomeProgram(const Launch& launch) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; signal++) sigaction(signal, &action, nullptr);
    if (launch.ownProcessGroup) setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != launch.parent) _exit(kNotStarted);  // it ended before the kernel knew of our wish

    if (dup2(launch.input, STDIN_FILENO) < 0 || dup2(launch.output, STDOUT_FILENO) < 0) fail(launch);
    if (launch.error >= 0 && dup2(launch.error, STDERR_FILENO) < 0) fail(launch);
    // Ours are marked anyway; this is for what libraries opened.
    close_range(kFirstFree, std::numeric_limits<unsigned>::max(), CLOSE_RANGE_CLOEXEC);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execve(launch.program, launch.arguments, launch.environment);
    fail(launch);
}

// Forks with all signals blocked, so that no handler of ours runs in the child.
pid_t forkInto(const Launch& launch) {
    sigset_t all, previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    pid_t pid = fork();
    if (pid == 0) becomeProgram(launch);
    int code = errno;
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    errno = code;
    return pid;
}

// The errno that the child wrote before it gave up; 0 when the program runs.
int failureIn(int fd) {
    int code = 0;
    ssize_t length = 0;
    do {
        length = read(fd, &code, sizeof code);
    } while (length < 0 && errno == EINTR);
    return length == sizeof code ? code : 0;
}

pid_t waitFor(pid_t pid, int* status, int flags) {
    pid_t result = 0;
    do {
        result = waitpid(pid, status, flags);
    } while (result < 0 && errno == EINTR);
    return result;
}

// Waits for something to read; false when the time is over.
bool waitUntilReadable(int fd, double seconds) {
    Clock& clock = Clock::system();
    double deadline = clock.monotonicSeconds() + seconds;
    while (true) {
        constexpr double kLongest = 1e6;  // milliseconds of one wait
        double left = std::clamp((deadline - clock.monotonicSeconds()) * 1000, 0.0, kLongest);
        pollfd entry{fd, POLLIN, 0};
        int ready = poll(&entry, 1, static_cast<int>(std::ceil(left)));
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
        if (clock.monotonicSeconds() >= deadline) return false;
    }
}

}  // namespace

std::unique_ptr<ChildProcess> ChildProcess::start(const Options& options, std::string* error) {
    auto refuse = [error](const std::string& what, int code) -> std::unique_ptr<ChildProcess> {
        if (error) *error = what + ": " + errorText(code);
        return nullptr;
    };
    if (options.arguments.empty()) return refuse("program", EINVAL);
    const std::string& program = options.arguments[0];

    Descriptor null(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!null.isOpen()) return refuse("/dev/null", errno);
    Descriptor log;
    const std::string& logPath = options.standardErrorPath;
    bool keepsError = logPath == "-";
    if (!keepsError && !logPath.empty()) {
        log = Descriptor(open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600));
        if (!log.isOpen()) return refuse(logPath, errno);
    }
    Pipe output, failure;
    if (!failure.open() || (options.readStandardOutput && !output.open())) return refuse(program, errno);

    StringList arguments;
    for (const std::string& argument : options.arguments) arguments.add(argument);
    StringList environment = environmentWith(options.environment);
    Launch launch{};
    launch.program = program.c_str();
    launch.arguments = arguments.pointers();
    launch.environment = environment.pointers();
    launch.input = null.get();
    launch.output = options.readStandardOutput ? output.writeEnd.get() : null.get();
    launch.error = keepsError ? -1 : (log.isOpen() ? log : null).get();
    launch.failure = failure.writeEnd.get();
    launch.ownProcessGroup = options.ownProcessGroup;
    launch.parent = getpid();
    pid_t pid = forkInto(launch);
    if (pid < 0) return refuse(program, errno);

    failure.writeEnd.reset();
    if (int code = failureIn(failure.readEnd.get())) {
        waitFor(pid, nullptr, 0);
        return refuse(program, code);
    }
    std::unique_ptr<ChildProcess> child(new ChildProcess);
    child->_pid = pid;
    child->_output = output.readEnd.release();
    return child;
}

ChildProcess::~ChildProcess() {
    hasEnded();  // leaves no zombie when it has
    if (_output >= 0) close(_output);
}

bool ChildProcess::readMore(double seconds) {
    if (_output < 0 || !waitUntilReadable(_output, seconds)) return false;
    char buffer[65536];
    ssize_t length = 0;
    do {
        length = read(_output, buffer, sizeof buffer);
    } while (length < 0 && errno == EINTR);
    if (length > 0) {
        _pending.append(buffer, static_cast<std::size_t>(length));
        return true;
    }
    close(_output);
    _output = -1;
    return false;
}

std::optional<std::string> ChildProcess::readLine(double seconds) {
    double deadline = Clock::system().monotonicSeconds() + seconds;
    std::size_t searched = 0;
    while (true) {
        std::size_t end = _pending.find('\n', searched);
        if (end != std::string::npos) {
            std::string line = _pending.substr(0, end);
            _pending.erase(0, end + 1);
            return line;
        }
        searched = _pending.size();
        if (readMore(deadline - Clock::system().monotonicSeconds())) continue;
        if (_output >= 0 || _pending.empty()) return std::nullopt;
        return std::exchange(_pending, {});
    }
}

bool ChildProcess::hasEnded(std::string* how) {
    if (!_ended) {
        pid_t result = waitFor(_pid, &_status, WNOHANG);
        if (result == 0) return false;
        _ended = true;
        if (result < 0) _status = -1;  // where SIGCHLD is ignored the kernel keeps no status
    }
    if (how) {
        if (_status == -1) {
            *how = "unknown status";
        } else if (WIFSIGNALED(_status)) {
            *how = "signal " + std::to_string(WTERMSIG(_status));
        } else {
            *how = "exit status " + std::to_string(WEXITSTATUS(_status));
        }
    }
    return true;
}

// A child that was not waited for keeps its number: no other process can be met.
void ChildProcess::terminate() {
    if (!hasEnded()) ::kill(_pid, SIGTERM);
}

void ChildProcess::kill() {
    if (!hasEnded()) ::kill(_pid, SIGKILL);
}

bool ChildProcess::waitForEnd(double seconds) {
    if (hasEnded()) return true;
    Clock& clock = Clock::system();
    double deadline = clock.monotonicSeconds() + seconds;
    Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, _pid, 0)));
    if (process.isOpen()) {
        waitUntilReadable(process.get(), seconds);
        return hasEnded();
    }
    while (!hasEnded()) {  // a kernel without process descriptors
        if (clock.monotonicSeconds() >= deadline) return false;
        clock.sleep(kPollSeconds);
    }
    return true;
}

std::optional<std::string> runAndRead(const std::string& path, const std::vector<std::string>& arguments) {
    ChildProcess::Options options;
    options.arguments = {path};
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    options.readStandardOutput = true;
    options.ownProcessGroup = false;
    std::unique_ptr<ChildProcess> child = ChildProcess::start(options, nullptr);
    if (!child) return std::nullopt;
    while (child->readMore(kForever)) {
    }
    child->waitForEnd(kForever);
    return std::move(child->_pending);
}

}  // namespace kavaro
