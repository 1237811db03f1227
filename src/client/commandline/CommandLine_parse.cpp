#include <algorithm>

#include "client/commandline/CommandLine.h"
#include "client/commandline/SizeArgument.h"
#include "platform/Text.h"
#include "platform/UserDefaults.h"

namespace kavaro {

namespace {

using Kind = ParsedCommand::Kind;

ParsedCommand text(Kind kind, std::string words) {
    ParsedCommand parsed;
    parsed.kind = kind;
    parsed.text = std::move(words);
    return parsed;
}

// `reason` is a sentence without the full stop.
ParsedCommand wrong(const CLI::App& command, const std::string& reason) {
    return text(Kind::wrong, reason + ". See \"" + CommandLine::fullName(command) + " --help\".");
}

// The command that the arguments got to.
const CLI::App& reached(const CLI::App& app) {
    const CLI::App* command = &app;
    while (true) {
        const std::vector<const CLI::App*> next =
            command->get_subcommands([](const CLI::App* candidate) { return candidate->parsed(); });
        if (next.empty()) return *command;
        command = next.front();
    }
}

Kind kindOf(const std::string& command) {
    static const std::map<std::string, Kind> kKinds = {
        {"kavaro size", Kind::size},
        {"kavaro find", Kind::find},
        {"kavaro languages", Kind::languages},
        {"kavaro nibs", Kind::nibs},
        {"kavaro slim", Kind::slim},
        {"kavaro trash", Kind::trash},
        {"kavaro duplicates", Kind::duplicates},
        {"kavaro events record", Kind::eventsRecord},
        {"kavaro events replay", Kind::eventsReplay},
        {"kavaro events watch", Kind::eventsWatch},
        {"kavaro stop", Kind::stop},
        {"kavaro version", Kind::version},
        {"kavaro defaults read", Kind::defaultsRead},
        {"kavaro defaults write", Kind::defaultsWrite},
        {"kavaro defaults delete", Kind::defaultsDelete},
    };
    const auto found = kKinds.find(command);
    return found == kKinds.end() ? Kind::wrong : found->second;
}

// The parser takes a folder "[a,b]" for a list of two, and "++" for the end of a command. A mark in front of them keeps
// them as they are.
constexpr char kMark = '\x01';

std::string marked(const std::string& argument) {
    const bool isSpecial = !argument.empty() && (argument.front() == '[' || argument.front() == kMark);
    return isSpecial || argument == "++" ? kMark + argument : argument;
}

std::vector<std::string> withoutMarks(std::vector<std::string> arguments) {
    for (std::string& argument : arguments) {
        if (!argument.empty() && argument.front() == kMark) argument.erase(0, 1);
    }
    return arguments;
}

// What is wrong, mostly in the parser's words, without a closing stop, safe to show.
std::string reasonOf(const CLI::ParseError& error) {
    std::string words = error.what();
    if (error.get_name() == "ArgumentMismatch") {
        const std::string option = words.substr(0, words.find(':'));
        if (words.ends_with("missing")) words = option + ": its value is missing";
        if (words.find(": At Most") != std::string::npos) words = option + ": given more than once";
    }
    words.erase(std::remove(words.begin(), words.end(), kMark), words.end());
    std::string reason = printable(words);
    while (!reason.empty() && (reason.back() == '.' || reason.back() == ' ')) reason.pop_back();
    return reason;
}

}  // namespace

bool CommandLine::isKnownCommand(const std::string& word) const {
    const std::vector<const CLI::App*> commands = commandsOf(_app);
    return std::any_of(commands.begin(), commands.end(),
                       [&](const CLI::App* command) { return command->get_name() == word; });
}

ParsedCommand CommandLine::parse(const std::vector<std::string>& arguments) {
    if (!arguments.empty() && arguments[0].rfind('-', 0) != 0 && !isKnownCommand(arguments[0])) {
        return wrong(_app, "\"" + printable(arguments[0]) + "\" is no command. To measure a folder: kavaro size " +
                               printable(arguments[0]));
    }
    const auto list = arguments.empty() ? _folderLists.end() : _folderLists.find(arguments[0]);
    const bool takesFolders = list != _folderLists.end();
    // The parser forgets about "--" when a list can be empty: what follows it are folders.
    auto end = takesFolders ? std::find(arguments.begin(), arguments.end(), "--") : arguments.end();
    std::vector<std::string> reversed;
    for (auto at = arguments.begin(); at != end; ++at) reversed.push_back(takesFolders ? marked(*at) : *at);
    std::reverse(reversed.begin(), reversed.end());
    if (end != arguments.end()) list->second.options->folders.assign(end + 1, arguments.end());
    try {
        _app.parse(std::move(reversed));
    } catch (const CLI::CallForHelp&) {
        return text(Kind::text, reached(_app).help());
    } catch (const CLI::CallForVersion& version) {
        return text(Kind::text, std::string(version.what()) + "\n");
    } catch (const CLI::ParseError& error) {
        return wrong(reached(_app), reasonOf(error));
    }
    const CLI::App& command = reached(_app);
    finishFolders(command);
    ParsedCommand parsed = _parsed;
    if (&command == &_app && !_parsed.format.empty()) {
        parsed.kind = Kind::generate;
        return parsed;
    }
    parsed.kind = kindOf(fullName(command));
    if (parsed.kind == Kind::wrong) return wrong(command, "a command is missing");
    if (parsed.kind == Kind::size) finishSize(parsed);
    if (parsed.kind == Kind::find) finishFind(parsed, command);
    if (parsed.kind == Kind::languages || parsed.kind == Kind::nibs) finishCleanup(parsed, command);
    if (parsed.kind == Kind::slim) finishSlim(parsed);
    if (parsed.kind == Kind::trash && parsed.trash.folders.empty())
        return wrong(command, "no path given. Name at least one, for example: kavaro trash old.iso");
    if (parsed.kind == Kind::duplicates) finishDuplicates(parsed);
    if (parsed.kind == Kind::defaultsRead && parsed.domain.empty()) parsed.domain = kPreferencesDomain;
    if (parsed.kind == Kind::wrong) return wrong(command, parsed.text);
    return parsed;
}

// The folders as they were given: the parser's conversion would take "{}" for an empty list. Those after "--" are
// there.
void CommandLine::finishFolders(const CLI::App& command) {
    const auto list = _folderLists.find(command.get_name());
    if (list == _folderLists.end()) return;
    MeasureOptions& options = *list->second.options;
    const std::vector<std::string> folders = withoutMarks(list->second.option->results());
    options.folders.insert(options.folders.begin(), folders.begin(), folders.end());
    options.bus = _parsed.bus;
}

ColorChoice CommandLine::colorChoice() const {
    if (_color == "always") return ColorChoice::always;
    return _color == "never" ? ColorChoice::never : ColorChoice::automatic;
}

// What the parser cannot know: which word belongs to --export.
void CommandLine::finishSize(ParsedCommand& parsed) const {
    SizeOptions& size = parsed.size;
    if (_topOption->count() > 0) size.top = _top;
    size.sort = _sort == "name"    ? SortKey::name
                : _sort == "date"  ? SortKey::date
                : _sort == "count" ? SortKey::count
                                   : SortKey::size;
    size.color = colorChoice();
    const auto fail = [&](std::string reason) {
        parsed.kind = Kind::wrong;
        parsed.text = std::move(reason);
    };
    if (_export->count() > 0) {
        std::vector<std::string> words = withoutMarks(_export->results());
        if (words[0] != "ncdu") return fail("--export: \"" + printable(words[0]) + "\" is not ncdu");
        // A last word that would leave no folder is the folder.
        if (words.size() == 2 && size.folders.empty()) {
            size.folders.push_back(words[1]);
            words.pop_back();
        }
        size.exportFile = words.size() == 2 ? words[1] : "-";
        if (size.folders.size() > 1)
            return fail("--export: takes one folder, not " + std::to_string(size.folders.size()));
        if (size.exportFile->empty()) return fail("--export: the name of the file is empty");
    }
    if (size.folders.empty()) return fail("no folder given. Name at least one, for example: kavaro size /usr");
}

void CommandLine::finishFind(ParsedCommand& parsed, const CLI::App& command) const {
    FindOptions& find = parsed.find;
    const auto given = [&](const char* name) -> std::optional<std::string> {
        const CLI::Option* option = command.get_option(name);
        return option->count() > 0 ? std::optional(withoutMarks(option->results()).back()) : std::nullopt;
    };
    find.kind = given("--kind");
    find.size = given("--size");
    find.modified = given("--modified");
    find.name = given("--name").value_or("");
    if (!find.folders.empty() || find.listRanges) return;
    parsed.kind = Kind::wrong;
    parsed.text = "no folder given. Name at least one, for example: kavaro find --size \"1 GB..\" /usr";
}

void CommandLine::finishCleanup(ParsedCommand& parsed, const CLI::App& command) const {
    CleanupOptions& cleanup = parsed.cleanup;
    cleanup.color = colorChoice();
    const CLI::Option* remove = command.get_option("--remove");
    if (parsed.kind == Kind::languages && remove->count() > 0) {
        cleanup.remove = true;
        // A word with a slash is a folder, and so is a last word that would leave none.
        for (const std::string& word : withoutMarks(remove->results())) {
            const bool isFolder = word.find('/') != std::string::npos;
            (isFolder ? cleanup.folders : cleanup.languages).push_back(word);
        }
        if (cleanup.folders.empty() && cleanup.languages.size() > 1) {
            cleanup.folders.push_back(cleanup.languages.back());
            cleanup.languages.pop_back();
        }
    }
    const auto fail = [&](std::string reason) {
        parsed.kind = Kind::wrong;
        parsed.text = std::move(reason);
    };
    if (cleanup.remove && parsed.kind == Kind::languages && cleanup.languages.empty())
        return fail("--remove: no language given");
    if (!cleanup.remove && (cleanup.confirm.yes || cleanup.confirm.dryRun))
        return fail("--yes and --dry-run go with --remove");
    if (!cleanup.folders.empty()) return;
    parsed.kind = Kind::wrong;
    parsed.text = "no folder given. Name at least one, for example: " + fullName(command) + " /srv/apps";
}

void CommandLine::finishSlim(ParsedCommand& parsed) const {
    SlimOptions& slim = parsed.slim;
    slim.color = colorChoice();
    slim.architectures = withoutMarks(slim.architectures);
    const auto fail = [&](const char* reason) {
        parsed.kind = Kind::wrong;
        parsed.text = reason;
    };
    if (!slim.apply && (slim.confirm.yes || slim.confirm.dryRun)) return fail("--yes and --dry-run go with --apply");
    if (slim.folders.empty()) fail("no folder given. Name at least one, for example: kavaro slim /srv/apps");
}

void CommandLine::finishDuplicates(ParsedCommand& parsed) const {
    if (!_minSize.empty()) parsed.duplicates.minSize = readSize(_minSize).value_or(1);
    if (!parsed.duplicates.folders.empty()) return;
    parsed.kind = Kind::wrong;
    parsed.text = "no folder given. Name at least one, for example: kavaro duplicates ~/Pictures";
}

}  // namespace kavaro
