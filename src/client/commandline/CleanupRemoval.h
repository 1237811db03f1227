#pragma once

#include "client/commandline/CommandLine.h"
#include "client/commandline/RunCommandLine.h"

namespace kavaro {

// Measure folders and have removed what could go: the languages that were named, or all nib files. Nothing goes when a
// folder could not be measured to its end, or a language that was named could not go. They return the exit code.
int removeLanguages(const CleanupOptions& options, const CommandContext& context);
int removeNibs(const CleanupOptions& options, const CommandContext& context);

}  // namespace kavaro
