#include "client/commandline/CommandLine.h"

#include <algorithm>
#include <limits>
#include <sstream>

#include "client/commandline/SizeArgument.h"
#include "platform/Text.h"
#include "platform/UserDefaults.h"
#include "support/Version.h"

namespace kavaro {

namespace {

// The library's own layout with our usage line, wrapped descriptions and less noise.
class HelpFormatter : public CLI::Formatter {
  public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override {
        std::string help = CLI::Formatter::make_help(app, std::move(name), mode);
        for (std::size_t at; (at = help.find("\n\n\n")) != std::string::npos;) help.erase(at, 1);
        return help;
    }
    std::string make_usage(const CLI::App* app, std::string) const override {
        return "\nUsage: " + CommandLine::synopsis(*app) + "\n";
    }
    std::string make_footer(const CLI::App* app) const override { return app->get_footer() + "\n"; }
    std::string make_option(const CLI::Option* option, bool isPositional) const override {
        std::string line = "  " + make_option_name(option, isPositional);
        if (option->get_expected_max() > 0 && !option->get_type_name().empty()) line += " " + option->get_type_name();
        return line + wrapped(option->get_description(), line.size());
    }
    std::string make_subcommand(const CLI::App* command) const override {
        const std::string line = "  " + command->get_name();
        return line + wrapped(command->get_description(), line.size());
    }

  private:
    // The text in its own column, after `used` columns of the first line.
    static std::string wrapped(const std::string& text, std::size_t used) {
        constexpr std::size_t kFirst = 24, kLast = 79;
        std::string lines = used + 2 > kFirst ? "\n" + std::string(kFirst, ' ') : std::string(kFirst - used, ' ');
        std::size_t column = kFirst;
        std::istringstream words(text);
        for (std::string word; words >> word; column += word.size()) {
            if (column > kFirst && column + 1 + word.size() > kLast) {
                lines += "\n" + std::string(kFirst, ' ');
                column = kFirst;
            } else if (column > kFirst) {
                lines += ' ';
                ++column;
            }
            lines += word;
        }
        return lines + "\n";
    }
};

// A whole number from 0 up.
std::string checkNumber(std::string& text) {
    constexpr int kMost = std::numeric_limits<int>::max();
    const bool isDigits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    if (!isDigits) return "\"" + printable(text) + "\" is not a whole number from 0 up";
    if (text.size() > 10 || std::stoll(text) > kMost) return text + " is more than " + std::to_string(kMost);
    return {};
}

// Bytes, or a number with a unit: "4096", "10 MB", "1.5g".
std::string checkSize(std::string& text) {
    const std::optional<std::uint64_t> bytes = readSize(text);
    if (!bytes) return "\"" + printable(text) + "\" is no size such as 4096, 10 MB or 1.5 GB";
    return {};
}

// A length of time that is worth waiting for, up to a year.
std::string checkSeconds(std::string& text) {
    const bool isDigits = !text.empty() && text.size() <= 12 && text != "." &&
                          text.find_first_not_of("0123456789.") == std::string::npos &&
                          std::count(text.begin(), text.end(), '.') <= 1;
    double seconds = 0;
    if (isDigits) std::istringstream(text) >> seconds;
    if (seconds >= 0.01 && seconds <= 366.0 * 86400) return {};
    return "\"" + printable(text) + "\" is not a number of seconds from 0.01 to 31622400, which is 366 days";
}

std::string oneOf(const std::vector<std::string>& words, const std::string& text) {
    if (std::find(words.begin(), words.end(), text) != words.end()) return {};
    std::string known;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i > 0) known += i + 1 == words.size() ? " or " : ", ";
        known += words[i];
    }
    return "\"" + printable(text) + "\" is not " + known;
}

std::string checkBus(std::string& text) {
    if (text == "session" || text == "system" || text.find(':') != std::string::npos) return {};
    return "\"" + printable(text) + "\" is not session, system or a bus address such as unix:path=/run/bus";
}

std::string checkDomain(std::string& text) {
    if (!text.empty() && text != "." && text != ".." && text.find('/') == std::string::npos) return {};
    return "\"" + printable(text) + "\" is no name of a domain";
}

std::string checkPath(std::string& text) {
    return text.empty() ? "a path is not empty" : "";
}

std::string checkKey(std::string& text) {
    return text.empty() ? "the name of a setting is not empty" : "";
}

CLI::Validator check(std::string (*function)(std::string&)) {
    return CLI::Validator(function, "", "");
}

CLI::Validator checkWords(const std::vector<std::string>& words) {
    return CLI::Validator([words](std::string& text) { return oneOf(words, text); }, "", "");
}

const std::vector<std::string> kSortWords = {"size", "name", "date", "count"};
const std::vector<std::string> kColorWords = {"auto", "always", "never"};
const std::vector<std::string> kFormats = {"man", "bash", "zsh", "fish"};

}  // namespace

CommandLine::CommandLine() : _app("Shows how folders use the disk.", "kavaro") {
    _app.formatter(std::make_shared<HelpFormatter>());
    _app.set_help_flag("-h,--help", "Show this help");
    _app.set_version_flag("--version", std::string("kavaro ") + KAVARO_VERSION, "Show the version of kavaro");
    _app.require_subcommand(0, 1);
    _app.footer(
        "Examples:\n"
        "  kavaro size /usr                 the largest entries of /usr\n"
        "  kavaro size --depth 2 --top 5 .  two levels of the current folder\n"
        "  kavaro find --size \"1 GB..\" ~    what takes more than a gigabyte\n"
        "  kavaro size --help               all options of a command");
    CLI::Option* generate = _app.add_option("--generate", _parsed.format, "Write the man page or a completion script");
    generate->type_name("FORMAT")->group("")->check(checkWords(kFormats));
    addSize();
    addFind();
    addCleanup();
    addSlim();
    addTrash();
    addDuplicates();
    addEvents();
    addServerCommands();
    addDefaults();
}

CLI::App* CommandLine::addCommand(CLI::App& parent, const char* name, const char* description, const char* examples) {
    CLI::App* command = parent.add_subcommand(name, description);
    command->set_help_flag("-h,--help", "Show this help");
    command->footer(std::string("Examples:\n") + examples);
    return command;
}

void CommandLine::hint(const CLI::Option* option, CompletionHint::Kind kind, std::vector<std::string> words) {
    _hints[option] = {kind, std::move(words)};
}

const CompletionHint& CommandLine::hintOf(const CLI::Option& option) const {
    static const CompletionHint kNothing;
    const auto found = _hints.find(&option);
    return found == _hints.end() ? kNothing : found->second;
}

void CommandLine::addBus(CLI::App& command) {
    CLI::Option* bus = command.add_option("--bus", _parsed.bus,
                                          "Bus on which the server is: session (the default), system, or an address");
    bus->type_name("BUS")->check(check(checkBus));
    hint(bus, CompletionHint::Kind::words, {"session", "system"});
}

void CommandLine::addFolders(CLI::App& command, MeasureOptions& options) {
    CLI::Option* folders = command.add_option("FOLDER", "Folders to measure, one after another");
    folders->expected(0, CLI::detail::expected_max_vector_size)->allow_extra_args()->type_name("");
    hint(folders, CompletionHint::Kind::folder);
    _folderLists[command.get_name()] = {folders, &options};
}

void CommandLine::addMeasuring(CLI::App& command, MeasureOptions& options) {
    command.add_flag("--same-file-system", options.sameFileSystem, "Leave out folders on which others are mounted");
    addBus(command);
    command.add_flag("--embedded", options.embedded, "Measure in this process, without a server and a bus");
    command.add_flag("--verbose", options.verbose, "Show the server's log on standard error");
}

void CommandLine::addColor(CLI::App& command) {
    CLI::Option* color = command.add_option("--color", _color, "Colours: auto (the default), always or never");
    color->type_name("WHEN")->check(checkWords(kColorWords));
    hint(color, CompletionHint::Kind::words, kColorWords);
}

void CommandLine::addSize() {
    SizeOptions& size = _parsed.size;
    CLI::App* command = addCommand(_app, "size", "Measure folders and show what is in them",
                                   "  kavaro size /usr\n"
                                   "  kavaro size --depth 2 --sort date /var /srv\n"
                                   "  kavaro size --json /usr\n"
                                   "  kavaro size --export ncdu usr.json /usr");
    addFolders(*command, size);
    command->add_option("--depth", size.depth, "Levels of folders to show (default 1)")
        ->type_name("N")
        ->check(check(checkNumber));
    _topOption =
        command
            ->add_option("--top", _top,
                         "Entries of each folder to show, the first ones in the order of --sort, 0 for all (default "
                         "20, with --json 0)")
            ->type_name("N")
            ->check(check(checkNumber));
    CLI::Option* sort = command->add_option("--sort", _sort,
                                            "Order: size (the default), name, date (newest first) or count (of files "
                                            "and folders)");
    sort->type_name("ORDER")->check(checkWords(kSortWords));
    hint(sort, CompletionHint::Kind::words, kSortWords);
    command->add_flag("--apparent", size.apparent, "Go by logical size instead of the room taken on disk");
    CLI::Option* json = command->add_flag("--json", size.json, "Write JSON: an object, for several folders an array");
    CLI::Option* exported = command->add_option(
        "--export",
        "Write the whole tree of one folder for ncdu to read: ncdu -f FILE. Without a FILE, or with \"-\", to standard "
        "output");
    exported->expected(1, 2)->allow_extra_args(false)->type_name("ncdu [FILE]")->excludes(json);
    hint(exported, CompletionHint::Kind::words, {"ncdu"});
    _export = exported;
    command->add_flag("--errors", size.errors, "List the folders that are missing in the total, with the reason");
    addColor(*command);
    addMeasuring(*command, size);
    command->add_flag("--statistics", size.statistics, "Show the engine's time and the memory used")->group("");
}

void CommandLine::addFind() {
    FindOptions& find = _parsed.find;
    CLI::App* command = addCommand(_app, "find", "Measure folders and list the entries that are wanted",
                                   "  kavaro find --size \"100 MB..\" --modified \"Before 1 Year\" ~\n"
                                   "  kavaro find --kind folder --name node_modules --exact /srv\n"
                                   "  kavaro find -0 --name .log /var | xargs -0 ls -l\n"
                                   "  kavaro find --list-ranges");
    addFolders(*command, find);
    CLI::Option* kind = command->add_option("--kind", "Only this kind: file, folder or link");
    kind->type_name("KIND");
    hint(kind, CompletionHint::Kind::words, {"file", "folder", "link"});
    command
        ->add_option("--size",
                     "Only what takes so much room on disk, all that is in a folder included: \"10 MB..\", \"..1 GB\", "
                     "\"10 MB..1 GB\" or a title from --list-ranges. Numbers without a unit are bytes")
        ->type_name("RANGE");
    command
        ->add_option("--modified",
                     "Only what was modified then: \"Today\", \"Last Week\" and others from --list-ranges")
        ->type_name("RANGE");
    CLI::Option* name =
        command->add_option("--name", find.name, "Only names with this text in them, in capitals or not");
    name->type_name("TEXT");
    command->add_flag("--exact", find.exact, "--name is the whole name, letter by letter")->needs(name);
    CLI::Option* json = command->add_flag("--json", find.json,
                                          "Write JSON: an object with what was found, for several folders an array");
    command->add_flag("-0,--null", find.null, "End each path with a NUL byte instead of a line end")->excludes(json);
    command->add_flag("--errors", find.errors, "List the folders that could not be looked into, with the reason");
    command->add_flag("--list-ranges", find.listRanges, "List the titles that --size and --modified take, and end");
    addMeasuring(*command, find);
}

void CommandLine::addCleanup() {
    CleanupOptions& cleanup = _parsed.cleanup;
    CLI::App* languages = addCommand(
        _app, "languages", "Measure folders and list the languages that applications in them could do without",
        "  kavaro languages /srv/apps\n"
        "  kavaro languages --summary /srv/apps /opt\n"
        "  kavaro languages --json /srv/apps\n"
        "  kavaro languages /srv/apps --remove French German");
    CLI::App* nibs =
        addCommand(_app, "nibs", "Measure folders and list the nib files that running applications do not read",
                   "  kavaro nibs /srv/apps\n"
                   "  kavaro nibs --json /srv/apps\n"
                   "  kavaro nibs /srv/apps --remove");
    for (CLI::App* command : {languages, nibs}) {
        addFolders(*command, cleanup);
        CLI::Option* summary = nullptr;
        if (command == languages)
            summary =
                command->add_flag("--summary", cleanup.summary, "List the languages alone, without their folders");
        CLI::Option* json = command->add_flag("--json", cleanup.json,
                                              "Write JSON: an object with what could go, for several folders an array");
        CLI::Option* remove = command == languages
                                  ? command->add_option("--remove",
                                                        "Remove the folders of these languages for good, each while an "
                                                        "English one stays beside it; Base.lproj, which all languages "
                                                        "share, by that whole name alone")
                                  : command->add_flag("--remove", cleanup.remove, "Remove them for good");
        if (command == languages)
            remove->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args()->type_name("LANGUAGE...");
        remove->excludes(json);
        if (summary) remove->excludes(summary);
        addConfirmation(*command, cleanup.confirm);
        command->add_flag("--errors", cleanup.errors,
                          "List the folders that could not be looked into, with the reason");
        addColor(*command);
        addMeasuring(*command, cleanup);
    }
}

void CommandLine::addConfirmation(CLI::App& command, ConfirmOptions& options) {
    command.add_flag("--yes", options.yes, "Do it without a question, which is needed where nobody can be asked");
    command.add_flag("--dry-run", options.dryRun, "Show what would be done, and do nothing");
}

void CommandLine::addSlim() {
    SlimOptions& slim = _parsed.slim;
    CLI::App* command =
        addCommand(_app, "slim", "Measure folders and list the programs with code for processors of another kind",
                   "  kavaro slim /srv/apps\n"
                   "  kavaro slim --json /srv/apps\n"
                   "  kavaro slim --apply --dry-run /srv/apps\n"
                   "  kavaro slim --arch arm64 --arch ppc --apply /srv/apps");
    addFolders(*command, slim);
    CLI::Option* json =
        command->add_flag("--json", slim.json, "Write JSON: an object with the programs, for several folders an array");
    command->add_flag("--apply", slim.apply, "Rewrite the programs without that code")->excludes(json);
    addConfirmation(*command, slim.confirm);
    command
        ->add_option("--arch", slim.architectures,
                     "What goes is this code, for example arm64, and not that for the other family of processors; can "
                     "be given several times")
        ->type_name("NAME")
        ->expected(1)
        ->allow_extra_args(false)
        ->take_all();
    command->add_flag("--errors", slim.errors, "List the folders that could not be looked into, with the reason");
    addColor(*command);
    addMeasuring(*command, slim);
}

void CommandLine::addTrash() {
    TrashOptions& trash = _parsed.trash;
    CLI::App* command = addCommand(_app, "trash", "Move files and folders to the Trash, each on its own volume",
                                   "  kavaro trash old.iso Downloads/unpacked\n"
                                   "  kavaro trash --dry-run *.log\n"
                                   "  kavaro trash --yes -- -name-with-dash");
    CLI::Option* paths = command->add_option(
        "PATH",
        "Files, folders and links; a link at the end goes itself if it leads somewhere, links before are followed");
    paths->expected(0, CLI::detail::expected_max_vector_size)->allow_extra_args()->type_name("");
    hint(paths, CompletionHint::Kind::file);
    _folderLists[command->get_name()] = {paths, &trash};
    addConfirmation(*command, trash.confirm);
    addBus(*command);
    command->add_flag("--embedded", trash.embedded, "Do it in this process, without a server and a bus");
    command->add_flag("--verbose", trash.verbose, "Show the server's log on standard error");
}

void CommandLine::addDuplicates() {
    DuplicatesOptions& duplicates = _parsed.duplicates;
    CLI::App* command = addCommand(_app, "duplicates", "Measure folders and find files of the same content in them",
                                   "  kavaro duplicates ~/Pictures /srv/photos\n"
                                   "  kavaro duplicates --min-size \"1 MB\" --json ~\n"
                                   "  kavaro duplicates --fdupes ~/Music > list");
    addFolders(*command, duplicates);
    command->add_option("--min-size", _minSize, "Leave alone what is smaller: bytes, or a number with KB, MB, GB or TB")
        ->type_name("SIZE")
        ->check(check(checkSize));
    CLI::Option* json = command->add_flag("--json", duplicates.json, "Write one JSON object");
    command
        ->add_flag("--fdupes", duplicates.fdupes,
                   "Write paths alone, an empty line between groups; hard links of a file are left out")
        ->excludes(json);
    command->add_flag("--fresh", duplicates.fresh,
                      "Read all files anew, also those that did not change since the last search");
    command->add_flag("--errors", duplicates.errors,
                      "List the folders and files that could not be read, with the reason");
    addMeasuring(*command, duplicates);
}

void CommandLine::addEvents() {
    EventsOptions& events = _parsed.events;
    CLI::App* group = addCommand(_app, "events", "Follow, record and replay changes of a file system",
                                 "  kavaro events watch\n"
                                 "  kavaro events record --output changes.txt --for 60");
    group->require_subcommand(0, 1);
    CLI::App* record = addCommand(*group, "record", "Record every change of a volume (needs administrator rights)",
                                  "  kavaro events record --output changes.txt\n"
                                  "  kavaro events record --volume /srv --for 60 > changes.txt");
    CLI::App* replay =
        addCommand(*group, "replay", "Show the batches of a recording, before and after changes are put together",
                   "  kavaro events replay changes.txt");
    CLI::App* watch =
        addCommand(*group, "watch", "Show changes of a volume as they settle (needs administrator rights)",
                   "  kavaro events watch --volume /home\n"
                   "  kavaro events watch --json --every 5");
    for (CLI::App* command : {record, watch}) {
        CLI::Option* volume = command->add_option(
            "--volume", events.volume,
            "A folder; the whole file system that it is on is followed (default: the setting fsEventsVolume, else /)");
        volume->type_name("PATH")->check(check(checkPath));
        hint(volume, CompletionHint::Kind::folder);
    }
    CLI::Option* output =
        record->add_option("--output", events.output, "Write to this file instead of standard output");
    output->type_name("FILE")->check(check(checkPath));
    hint(output, CompletionHint::Kind::file);
    record->add_option("--for", events.seconds, "End after so many seconds instead of when interrupted")
        ->type_name("SECONDS")
        ->check(check(checkSeconds));
    CLI::Option* file = replay->add_option("FILE", events.file, "The recording");
    file->type_name("")->required()->check(check(checkPath));
    hint(file, CompletionHint::Kind::file);
    watch->add_flag("--json", events.json, "Write JSON, one object a line");
    watch
        ->add_option("--every", events.every,
                     "Put together what happens to an entry within so many seconds (default 1)")
        ->type_name("SECONDS")
        ->check(check(checkSeconds));
}

void CommandLine::addServerCommands() {
    addBus(*addCommand(_app, "stop", "Stop the server", "  kavaro stop\n  kavaro stop --bus system"));
    addBus(*addCommand(_app, "version", "Show the versions of kavaro and of the server, when one runs",
                       "  kavaro version"));
}

void CommandLine::addDefaults() {
    const std::string domain(kPreferencesDomain);
    CLI::App* defaults = addCommand(_app, "defaults", "Read and change settings",
                                    "  kavaro defaults read\n"
                                    "  kavaro defaults write org.kavaro.Kavaro loadPseudoFileSystems 1");
    defaults->require_subcommand(0, 1);
    CLI::App* read = addCommand(*defaults, "read", "Show one setting, or all of them",
                                "  kavaro defaults read\n"
                                "  kavaro defaults read org.kavaro.Kavaro sameFileSystemOnly");
    CLI::App* write = addCommand(*defaults, "write", "Change a setting",
                                 "  kavaro defaults write org.kavaro.Kavaro sameFileSystemOnly 1");
    CLI::App* remove = addCommand(*defaults, "delete", "Remove a setting, so that its default counts again",
                                  "  kavaro defaults delete org.kavaro.Kavaro sameFileSystemOnly");
    for (CLI::App* command : {read, write, remove}) {
        const bool needsKey = command != read;
        CLI::Option* name = command->add_option("DOMAIN", _parsed.domain, "Whose settings; kavaro's are " + domain);
        name->type_name("")->required(needsKey)->check(check(checkDomain));
        hint(name, CompletionHint::Kind::words, {domain});
        CLI::Option* key = command->add_option("KEY", _parsed.key, "Name of the setting");
        key->type_name("")->required(needsKey)->check(check(checkKey));
    }
    write->add_option("VALUE", _parsed.value, "New value")->type_name("")->required();
}

std::vector<const CLI::App*> CommandLine::commandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

std::vector<const CLI::Option*> CommandLine::optionsOf(const CLI::App& app) {
    return app.get_options(
        [](const CLI::Option* option) { return !option->get_positional() && !option->get_group().empty(); });
}

std::vector<const CLI::Option*> CommandLine::positionalsOf(const CLI::App& app) {
    return app.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

std::string CommandLine::fullName(const CLI::App& app) {
    return app.get_parent() ? fullName(*app.get_parent()) + " " + app.get_name() : app.get_name();
}

std::string CommandLine::synopsis(const CLI::App& app) {
    std::string text = fullName(app) + " [OPTIONS]";
    if (!commandsOf(app).empty()) text += " COMMAND";
    for (const CLI::Option* option : positionalsOf(app)) {
        const bool isList = option->get_expected_max() > 1;
        const bool isOptional = !isList && !option->get_required();
        text += isOptional ? " [" + option->get_name() + "]" : " " + option->get_name();
        if (isList) text += "...";
    }
    return text;
}

}  // namespace kavaro
