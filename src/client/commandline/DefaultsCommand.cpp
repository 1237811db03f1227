#include "client/commandline/Commands.h"
#include "client/commandline/Output.h"
#include "platform/Text.h"
#include "platform/UserDefaults.h"

namespace kavaro {

namespace {

// Texts as they are, everything else as property lists show it.
std::string valueText(const PropertyList& value) {
    const std::string* text = value.string();
    return text ? *text : value.description();
}

int fail(const CommandContext& context, const std::string& message) {
    writeError(context, message);
    return kExitFailed;
}

int readDefaults(const ParsedCommand& command, UserDefaults& defaults, const CommandContext& context) {
    if (const std::string problem = defaults.problem(); !problem.empty()) {
        return fail(context, withProgramName(problem + ". Its settings do not count until it is mended or removed."));
    }
    if (command.key.empty()) {
        std::string text;
        const PropertyList all = defaults.all();
        if (const PropertyList::Dictionary* entries = all.dictionary()) {
            for (const auto& [key, value] : *entries)
                text += printable(key) + " = " + printable(valueText(value)) + "\n";
        }
        return writeResult(context, text);
    }
    const std::optional<PropertyList> value = defaults.objectForKey(command.key);
    if (value) return writeResult(context, valueText(*value) + "\n");
    return fail(context, errorMessage(command.domain, "has no setting \"" + printable(command.key) + "\"",
                                      "\"kavaro defaults read " + printable(command.domain) + "\" shows all"));
}

}  // namespace

int runDefaults(const ParsedCommand& command, const CommandContext& context) {
    const std::string path = UserDefaults::pathOfDomain(command.domain);
    if (path.empty()) {
        return fail(context, errorMessage(command.domain, "there is no home folder to keep settings in",
                                          "Set HOME or XDG_CONFIG_HOME"));
    }
    UserDefaults defaults(path);
    if (command.kind == ParsedCommand::Kind::defaultsRead) return readDefaults(command, defaults, context);
    const std::string failure = command.kind == ParsedCommand::Kind::defaultsWrite
                                    ? defaults.setObject(command.key, command.value)
                                    : defaults.removeObject(command.key);
    if (failure.empty()) return kExitDone;
    return fail(context, withProgramName(failure + "."));
}

}  // namespace kavaro
