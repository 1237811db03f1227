#include <functional>
#include <string>
#include <vector>

#include "client/commandline/Generate.h"

namespace kavaro {

namespace {

using Kind = CompletionHint::Kind;

constexpr const char* kOrigin = "# Written by \"kavaro --generate\".\n";

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

std::vector<std::string> namesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
    return names;
}

bool takesValue(const CLI::Option& option) {
    return option.get_expected_max() > 0;
}

void eachCommand(const CLI::App& app, const std::function<void(const CLI::App&)>& visit) {
    visit(app);
    for (const CLI::App* command : CommandLine::commandsOf(app)) eachCommand(*command, visit);
}

// Between single quotes of a shell.
std::string shellQuoted(std::string_view text) {
    std::string result = "'";
    for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

// For the text in the brackets of a zsh option, then between single quotes.
std::string zshText(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '[' || c == ']' || c == ':' || c == '\\') escaped += '\\';
        escaped += c;
    }
    return escaped;
}

std::string zshAction(const CompletionHint& hint) {
    switch (hint.kind) {
        case Kind::words:
            return "(" + joined(hint.words) + ")";
        case Kind::folder:
            return "_directories";
        case Kind::file:
            return "_files";
        case Kind::nothing:
            break;
    }
    return " ";
}

std::string functionName(const CLI::App& app) {
    std::string name = "_" + CommandLine::fullName(app);
    for (char& c : name) c = c == ' ' ? '_' : c;
    return name;
}

std::string zshFunction(const CommandLine& commandLine, const CLI::App& app) {
    std::string text = functionName(app) + "() {\n    local context state state_descr line\n    typeset -A opt_args\n";
    text += "    _arguments -C";
    for (const CLI::Option* option : CommandLine::optionsOf(app)) {
        for (const std::string& name : namesOf(*option)) {
            const std::string description = "[" + zshText(option->get_description()) + "]";
            std::string spec = name + description;
            if (takesValue(*option)) {
                // The value is the next word or, with "=", in the same one.
                spec = name + (name.starts_with("--") ? "=" : "") + description + ":" +
                       zshText(option->get_type_name()) + ":" + zshAction(commandLine.hintOf(*option));
            }
            text += " \\\n        " + shellQuoted(spec);
        }
    }
    for (const CLI::Option* option : CommandLine::positionalsOf(app)) {
        const std::string position = option->get_expected_max() > 1 ? "*" : "";
        text += " \\\n        " + shellQuoted(position + ":" + zshText(option->get_name()) + ":" +
                                              zshAction(commandLine.hintOf(*option)));
    }
    const std::vector<const CLI::App*> commands = CommandLine::commandsOf(app);
    if (commands.empty()) return text + "\n}\n\n";
    text += " \\\n        '1:command:->command' '*::argument:->argument'\n    case $state in\n    command)\n";
    text += "        local -a commands=(\n";
    for (const CLI::App* command : commands) {
        text += "            " + shellQuoted(zshText(command->get_name()) + ":" + command->get_description()) + "\n";
    }
    text += "        )\n        _describe command commands\n        ;;\n    argument)\n        case $line[1] in\n";
    for (const CLI::App* command : commands) {
        text += "        " + command->get_name() + ") " + functionName(*command) + " ;;\n";
    }
    return text + "        esac\n        ;;\n    esac\n}\n\n";
}

std::string wordsOf(const CLI::App& app) {
    std::vector<std::string> words;
    for (const CLI::App* command : CommandLine::commandsOf(app)) words.push_back(command->get_name());
    for (const CLI::Option* option : CommandLine::optionsOf(app)) {
        for (const std::string& name : namesOf(*option)) words.push_back(name);
    }
    return joined(words);
}

// The lines of a bash `case` that set `reply` by what `hint` says.
std::string bashReply(const CompletionHint& hint) {
    switch (hint.kind) {
        case Kind::words:
            return "words=" + shellQuoted(joined(hint.words));
        case Kind::folder:
            return "paths=dirnames";
        case Kind::file:
            return "paths=default";
        case Kind::nothing:
            break;
    }
    return "words=''";
}

// The lines of the bash `case`s of all commands.
struct BashCases {
    std::string commands;  // patterns of "COMMAND WORD"
    std::string files;     // after an option and its first value, where a file may follow
    std::string values;    // after an option
    std::string words;     // after anything else
};

BashCases bashCases(const CommandLine& commandLine) {
    BashCases cases;
    eachCommand(commandLine.app(), [&](const CLI::App& app) {
        const std::string name = CommandLine::fullName(app);
        for (const CLI::App* command : CommandLine::commandsOf(app)) {
            cases.commands += (cases.commands.empty() ? "" : " | ") + ("\"" + CommandLine::fullName(*command) + "\"");
        }
        for (const CLI::Option* option : CommandLine::optionsOf(app)) {
            if (!takesValue(*option)) continue;
            const CompletionHint& hint = commandLine.hintOf(*option);
            for (const std::string& given : namesOf(*option)) {
                const std::string start = "\"" + name + " " + given;
                cases.values += "        " + start + "\") " + bashReply(hint) + " ;;\n";
                if (option->get_expected_max() < 2) continue;
                for (const std::string& word : hint.words) {
                    cases.files += "    " + start + " " + word + "\") " + bashReply({Kind::file, {}}) + " ;;\n";
                }
            }
        }
        std::string reply = "words=" + shellQuoted(wordsOf(app));
        for (const CLI::Option* option : CommandLine::positionalsOf(app)) {
            const CompletionHint& hint = commandLine.hintOf(*option);
            if (hint.kind == Kind::folder || hint.kind == Kind::file) reply += " " + bashReply(hint);
            if (hint.kind == Kind::words) reply = "words=" + shellQuoted(joined(hint.words) + " " + wordsOf(app));
        }
        cases.words += "            \"" + name + "\") " + reply + " ;;\n";
    });
    return cases;
}

// True in fish after this command's words and before those of a deeper one.
std::string fishCondition(const CLI::App& app) {
    std::string text;
    for (const CLI::App* command = &app; command->get_parent(); command = command->get_parent()) {
        text = "__fish_seen_subcommand_from " + command->get_name() + (text.empty() ? "" : "; and " + text);
    }
    std::vector<std::string> deeper;
    for (const CLI::App* command : CommandLine::commandsOf(app)) deeper.push_back(command->get_name());
    if (deeper.empty()) return text;
    return (text.empty() ? "" : text + "; and ") + "not __fish_seen_subcommand_from " + joined(deeper);
}

std::string fishValues(const CompletionHint& hint) {
    switch (hint.kind) {
        case Kind::words:
            return " -x -a " + shellQuoted(joined(hint.words));
        case Kind::folder:
            return " -x -a '(__fish_complete_directories)'";
        case Kind::file:
            return " -r -F";
        case Kind::nothing:
            break;
    }
    return " -x";
}

std::string fishCommand(const CommandLine& commandLine, const CLI::App& app) {
    const std::string start = "complete -c kavaro -n " + shellQuoted(fishCondition(app));
    std::string text;
    for (const CLI::App* command : CommandLine::commandsOf(app)) {
        text += start + " -a " + command->get_name() + " -d " + shellQuoted(command->get_description()) + "\n";
    }
    for (const CLI::Option* option : CommandLine::optionsOf(app)) {
        text += start;
        for (const std::string& name : option->get_snames()) text += " -s " + name;
        for (const std::string& name : option->get_lnames()) text += " -l " + name;
        if (takesValue(*option)) text += fishValues(commandLine.hintOf(*option));
        text += " -d " + shellQuoted(option->get_description()) + "\n";
    }
    for (const CLI::Option* option : CommandLine::positionalsOf(app)) {
        const CompletionHint& hint = commandLine.hintOf(*option);
        if (hint.kind != Kind::nothing) text += start + fishValues(hint) + "\n";
    }
    return text;
}

}  // namespace

std::string generateBashCompletion(const CommandLine& commandLine) {
    const BashCases cases = bashCases(commandLine);
    return std::string(kOrigin) +
           "_kavaro() {\n"
           "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} before=''\n"
           "    local command=kavaro word words='' paths=''\n"
           "    # \"--option=value\" comes as three words.\n"
           "    if [[ $current == = ]]; then\n"
           "        current=''\n"
           "    elif [[ $previous == = ]]; then\n"
           "        previous=${COMP_WORDS[COMP_CWORD - 2]}\n"
           "    elif ((COMP_CWORD > 1)); then\n"
           "        before=${COMP_WORDS[COMP_CWORD - 2]}\n"
           "    fi\n"
           "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD - 1}\"; do\n"
           "        case \"$command $word\" in\n"
           "        " +
           cases.commands +
           ") command=\"$command $word\" ;;\n"
           "        esac\n"
           "    done\n"
           "    case \"$command $before $previous\" in\n" +
           cases.files +
           "    *)\n"
           "        case \"$command $previous\" in\n" +
           cases.values +
           "        *)\n"
           "            case \"$command\" in\n" +
           cases.words +
           "            esac\n"
           "            ;;\n"
           "        esac\n"
           "        ;;\n"
           "    esac\n"
           "    COMPREPLY=()\n"
           "    # Bash itself completes paths: it knows about quotes, blanks and \"~\".\n"
           "    if [[ -n $paths && $current != -* ]]; then\n"
           "        compopt -o \"$paths\"\n"
           "    else\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
           "    fi\n"
           "}\n"
           "complete -F _kavaro kavaro\n";
}

std::string generateZshCompletion(const CommandLine& commandLine) {
    std::string text = std::string("#compdef kavaro\n") + kOrigin + "\n";
    eachCommand(commandLine.app(), [&](const CLI::App& app) { text += zshFunction(commandLine, app); });
    return text + "_kavaro \"$@\"\n";
}

std::string generateFishCompletion(const CommandLine& commandLine) {
    std::string text = std::string(kOrigin) + "complete -c kavaro -f\n";
    eachCommand(commandLine.app(), [&](const CLI::App& app) { text += fishCommand(commandLine, app); });
    return text;
}

std::string generate(const CommandLine& commandLine, const std::string& format) {
    if (format == "man") return generateManPage(commandLine);
    if (format == "bash") return generateBashCompletion(commandLine);
    return format == "zsh" ? generateZshCompletion(commandLine) : generateFishCompletion(commandLine);
}

}  // namespace kavaro
