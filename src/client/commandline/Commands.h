#pragma once

#include "client/commandline/CommandLine.h"
#include "client/commandline/RunCommandLine.h"

namespace kavaro {

// The commands. Each returns the exit code; errors go to context.error.
int runSize(const SizeOptions& options, const CommandContext& context);
int runFind(const FindOptions& options, const CommandContext& context);
int runLanguages(const CleanupOptions& options, const CommandContext& context);
int runNibs(const CleanupOptions& options, const CommandContext& context);
int runSlim(const SlimOptions& options, const CommandContext& context);
int runTrash(const TrashOptions& options, const CommandContext& context);
int runDuplicates(const DuplicatesOptions& options, const CommandContext& context);
int runEventsRecord(const EventsOptions& options, const CommandContext& context);
int runEventsReplay(const EventsOptions& options, const CommandContext& context);
int runEventsWatch(const EventsOptions& options, const CommandContext& context);
int runStop(const std::string& bus, const CommandContext& context);
int runVersion(const std::string& bus, const CommandContext& context);
int runDefaults(const ParsedCommand& command, const CommandContext& context);

// A whole line or several, to a descriptor.
void writeError(const CommandContext& context, std::string_view text);
// Writes the text to standard output; the exit code of a command that does nothing else.
int writeResult(const CommandContext& context, std::string_view text);

}  // namespace kavaro
