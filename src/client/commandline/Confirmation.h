#pragma once

#include <optional>
#include <string_view>

#include "client/commandline/RunCommandLine.h"

namespace kavaro {

// How a command that changes something is allowed to: options that every such command has.
struct ConfirmOptions {
    bool yes = false;     // --yes: without a question
    bool dryRun = false;  // --dry-run: only show what would be done
};

// Asks whether to go ahead, after the command has shown what it will do. Nothing: yes. Otherwise the exit code with
// which the command ends, having done nothing; why has been said on standard error. A dry run is asked nothing and ends
// well; where nobody can be asked and --yes is missing, that is wrong usage. `question` is a sentence with its mark.
std::optional<int> askToGoAhead(const ConfirmOptions& options, const CommandContext& context,
                                std::string_view question);

}  // namespace kavaro
