#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/commandline/Sources.h"
#include "fsevents/EventDevice.h"
#include "platform/Clock.h"

namespace kavaro {

enum ExitCode { kExitDone = 0, kExitFailed = 1, kExitWrongUsage = 2, kExitInterrupted = 130 };

// What the command line reaches outside itself; tests put their own in.
struct CommandContext {
    int output = 1;
    int error = 2;
    bool outputIsTerminal = false;
    bool errorIsTerminal = false;
    bool canAsk = false;                                     // somebody reads standard error and types standard input
    std::function<void()> beginQuestion;                     // drops what was typed so far
    std::function<std::optional<std::string>()> readAnswer;  // a line of standard input; nothing at its end
    std::function<int()> outputColumns;                      // of the terminals; 0 when unknown
    std::function<int()> errorColumns;  // less than 0 while this process is in the terminal's background
    Clock* clock = nullptr;
    std::function<int()> signalCount;          // termination signals caught so far
    std::function<void(bool)> setLeaveAtOnce;  // while true, a signal ends the process with 130 by itself
    std::function<void(int)> leaveAtSignal;    // the one, counted from 1, that does so otherwise; the second at first
    std::function<std::unique_ptr<MeasurementSource>(const RemoteOptions&)> remoteSource;
    std::function<std::unique_ptr<MeasurementSource>()> embeddedSource;
    std::function<std::unique_ptr<MeasurementSource>()> quickSource;  // the same for many folders
    std::function<std::unique_ptr<ServerControl>(const RemoteOptions&)> serverControl;
    EventDevice::Open openEventDevice;
};

// Does what the arguments (without the program's name) say. Returns the exit code.
int runCommandLine(const std::vector<std::string>& arguments, const CommandContext& context);

// The same for the process itself: main thread, once.
int runCommandLine(int argc, char** argv);

}  // namespace kavaro
