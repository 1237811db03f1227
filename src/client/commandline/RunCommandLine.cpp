#include "client/commandline/RunCommandLine.h"

#include <errno.h>

#include "client/commandline/Commands.h"
#include "client/commandline/Generate.h"
#include "client/commandline/Output.h"
#include "platform/Environment.h"

namespace kavaro {

void writeError(const CommandContext& context, std::string_view text) {
    Output output(context.error);
    output.write(text);
}

int writeResult(const CommandContext& context, std::string_view text) {
    Output output(context.output);
    output.write(text);
    output.flush();
    if (output.error() == 0 || output.error() == EPIPE) return kExitDone;
    writeError(context, errorMessage("standard output", "cannot be written: " + errorText(output.error()), ""));
    return kExitFailed;
}

int runCommandLine(const std::vector<std::string>& arguments, const CommandContext& context) {
    CommandLine commandLine;
    const ParsedCommand command = commandLine.parse(arguments);
    switch (command.kind) {
        case ParsedCommand::Kind::text:
            return writeResult(context, command.text);
        case ParsedCommand::Kind::wrong:
            writeError(context, withProgramName(command.text));
            return kExitWrongUsage;
        case ParsedCommand::Kind::size:
            return runSize(command.size, context);
        case ParsedCommand::Kind::find:
            return runFind(command.find, context);
        case ParsedCommand::Kind::languages:
            return runLanguages(command.cleanup, context);
        case ParsedCommand::Kind::nibs:
            return runNibs(command.cleanup, context);
        case ParsedCommand::Kind::slim:
            return runSlim(command.slim, context);
        case ParsedCommand::Kind::trash:
            return runTrash(command.trash, context);
        case ParsedCommand::Kind::duplicates:
            return runDuplicates(command.duplicates, context);
        case ParsedCommand::Kind::eventsRecord:
            return runEventsRecord(command.events, context);
        case ParsedCommand::Kind::eventsReplay:
            return runEventsReplay(command.events, context);
        case ParsedCommand::Kind::eventsWatch:
            return runEventsWatch(command.events, context);
        case ParsedCommand::Kind::stop:
            return runStop(command.bus, context);
        case ParsedCommand::Kind::version:
            return runVersion(command.bus, context);
        case ParsedCommand::Kind::defaultsRead:
        case ParsedCommand::Kind::defaultsWrite:
        case ParsedCommand::Kind::defaultsDelete:
            return runDefaults(command, context);
        case ParsedCommand::Kind::generate:
            return writeResult(context, generate(commandLine, command.format));
    }
    return kExitFailed;
}

}  // namespace kavaro
