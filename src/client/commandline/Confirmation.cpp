#include "client/commandline/Confirmation.h"

#include "client/commandline/Commands.h"
#include "client/commandline/Output.h"
#include "platform/Text.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

bool meansYes(std::string_view answer) {
    const std::string word = trimWhiteSpace(answer);
    return caseInsensitiveCompare(word, "y") == 0 || caseInsensitiveCompare(word, "yes") == 0;
}

}  // namespace

std::optional<int> askToGoAhead(const ConfirmOptions& options, const CommandContext& context,
                                std::string_view question) {
    if (options.dryRun) {
        writeError(context, withProgramName("this was a dry run, nothing was changed."));
        return kExitDone;
    }
    if (options.yes) return std::nullopt;
    if (!context.canAsk) {
        writeError(context, withProgramName("there is nobody to be asked here, so nothing was changed. Give --yes to "
                                            "go ahead, or --dry-run to look only."));
        return kExitWrongUsage;
    }
    context.setLeaveAtOnce(true);  // nothing has been done yet
    context.beginQuestion();       // what was typed before is no answer
    writeError(context, std::string(question) + " [y/N] ");
    const std::optional<std::string> answer = context.readAnswer();
    context.setLeaveAtOnce(false);
    if (answer && meansYes(*answer)) return std::nullopt;
    writeError(context, (answer ? "" : "\n") + withProgramName("nothing was changed."));
    return kExitFailed;
}

}  // namespace kavaro
