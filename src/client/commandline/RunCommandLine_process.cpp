#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <iterator>

#include "client/commandline/Color.h"
#include "client/commandline/RunCommandLine.h"
#include "fsevents/VolumeEventDevice.h"
#include "platform/Environment.h"
#include "platform/Localization.h"
#include "platform/RunLoop.h"

namespace kavaro {

namespace {

// With a standard descriptor closed, the next file or socket would get its number, and our output with it. The places
// are taken by descriptors that refuse what the closed one would have refused.
void occupyStandardDescriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) != -1) continue;
        const int opened = open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        if (opened >= 0 && opened != fd) close(opened);
    }
}

// False while a shell has put this process into the background of its terminal.
bool isInForeground(int terminal) {
    const pid_t group = tcgetpgrp(terminal);
    return group < 0 || group == getpgrp();
}

std::atomic<bool> isAsking{false};  // the cursor stands behind a question

extern "C" void leaveAtOnce(int) {
    if (isAsking.load() && write(STDERR_FILENO, "\n", 1) < 0) _exit(kExitInterrupted);
    _exit(kExitInterrupted);
}

void setLeaveAtOnce(bool on) {
    constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
    static struct sigaction before[std::size(kSignals)];
    static bool isOn = false;
    if (on == isOn) return;
    isOn = on;
    for (std::size_t i = 0; i < std::size(kSignals); ++i) {
        if (!on) {
            sigaction(kSignals[i], &before[i], nullptr);
            continue;
        }
        struct sigaction action {};
        action.sa_handler = leaveAtOnce;
        sigaction(kSignals[i], nullptr, &before[i]);
        if (before[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
    }
}

void beginQuestion() {
    tcflush(STDIN_FILENO, TCIFLUSH);
    isAsking.store(true);
}

// Byte by byte: what comes after the line is not ours.
std::optional<std::string> readLine() {
    std::string line;
    for (char byte = 0;;) {
        const ssize_t length = read(STDIN_FILENO, &byte, 1);
        if (length < 0 && errno == EINTR) continue;
        if (length <= 0) return line.empty() ? std::nullopt : std::optional(line);
        if (byte == '\n') return line;
        line += byte;
    }
}

std::optional<std::string> readAnswer() {
    std::optional<std::string> answer = readLine();
    isAsking.store(false);
    return answer;
}

}  // namespace

int runCommandLine(int argc, char** argv) {
    occupyStandardDescriptors();
    useUserLanguage();
    RunLoop::main().catchTerminationSignals();
    RunLoop::leaveAtSignal(2, kExitInterrupted);  // also where nobody asks for the first one, as while connecting
    CommandContext context;
    context.outputIsTerminal = isTerminal(STDOUT_FILENO);
    context.errorIsTerminal = isTerminal(STDERR_FILENO) && !isDumbTerminal();
    context.canAsk = isTerminal(STDIN_FILENO) && isTerminal(STDERR_FILENO);
    context.beginQuestion = beginQuestion;
    context.readAnswer = readAnswer;
    context.outputColumns = [] { return terminalColumns(STDOUT_FILENO); };
    context.errorColumns = [] { return isInForeground(STDERR_FILENO) ? terminalColumns(STDERR_FILENO) : -1; };
    context.clock = &Clock::system();
    context.signalCount = [] { return RunLoop::caughtSignalCount(); };
    context.setLeaveAtOnce = setLeaveAtOnce;
    context.leaveAtSignal = [](int count) { RunLoop::leaveAtSignal(count, kExitInterrupted); };
    context.remoteSource = makeRemoteSource;
    context.embeddedSource = makeEmbeddedSource;
    context.quickSource = makeQuickSource;
    context.serverControl = makeServerControl;
    context.openEventDevice = VolumeEventDevice::open;
    return runCommandLine(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc), context);
}

}  // namespace kavaro
