#include "client/commandline/Commands.h"
#include "client/commandline/Output.h"
#include "platform/Text.h"
#include "support/TuvLog.h"
#include "support/Version.h"

namespace kavaro {

namespace {

std::unique_ptr<ServerControl> controlOf(const std::string& bus, const CommandContext& context) {
    TuvLog::setDestinationEnabled(false);
    context.setLeaveAtOnce(true);  // nothing is lost when it is interrupted
    return context.serverControl({bus, false, false});
}

}  // namespace

int runStop(const std::string& bus, const CommandContext& context) {
    const ServerControl::Answer answer = controlOf(bus, context)->stop();
    if (!answer.failure.empty()) {
        writeError(context, withProgramName(answer.failure));
        return kExitFailed;
    }
    return writeResult(context, answer.isRunning ? "The server was stopped.\n" : "No server is running.\n");
}

int runVersion(const std::string& bus, const CommandContext& context) {
    std::string text = std::string("kavaro ") + KAVARO_VERSION + "\n";
    const ServerControl::Answer answer = controlOf(bus, context)->version();
    if (answer.isRunning) {
        text += "kavarod " + printable(answer.version) + "\n";
    } else if (answer.failure.empty()) {
        text += "kavarod is not running\n";
    }
    const int exitCode = writeResult(context, text);
    if (answer.failure.empty()) return exitCode;
    writeError(context, withProgramName(answer.failure));
    return kExitFailed;
}

}  // namespace kavaro
