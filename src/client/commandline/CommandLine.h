#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/commandline/Color.h"
#include "client/commandline/Confirmation.h"
#include "client/commandline/EntryWalk.h"
#include "client/commandline/FolderMeasurements.h"

namespace kavaro {

struct SizeOptions : MeasureOptions {
    int depth = 1;
    std::optional<int> top;  // 0 for all
    SortKey sort = SortKey::size;
    ColorChoice color = ColorChoice::automatic;
    bool apparent = false;
    bool json = false;
    bool errors = false;
    bool statistics = false;
    std::optional<std::string> exportFile;  // "-" for standard output
};

// Ranges and kinds as they were given: the command reads them.
struct FindOptions : MeasureOptions {
    std::optional<std::string> kind;
    std::optional<std::string> size;
    std::optional<std::string> modified;
    std::string name;  // empty: any
    bool exact = false;
    bool json = false;
    bool null = false;
    bool errors = false;
    bool listRanges = false;
};

// Of the commands that list what could go.
struct CleanupOptions : MeasureOptions {
    ColorChoice color = ColorChoice::automatic;
    bool summary = false;
    bool json = false;
    bool errors = false;
    bool remove = false;
    std::vector<std::string> languages;  // to remove
    ConfirmOptions confirm;
};

// The folders are the paths, which may name files and links too.
struct TrashOptions : MeasureOptions {
    ConfirmOptions confirm;
};

struct SlimOptions : MeasureOptions {
    ColorChoice color = ColorChoice::automatic;
    bool json = false;
    bool errors = false;
    bool apply = false;
    std::vector<std::string> architectures;  // that go; empty: those of the other family of processors
    ConfirmOptions confirm;
};

struct DuplicatesOptions : MeasureOptions {
    std::uint64_t minSize = 1;  // bytes; smaller files are left alone
    bool json = false;
    bool fdupes = false;  // paths, an empty line behind each group
    bool fresh = false;   // no digests of earlier searches
    bool errors = false;
};

// Of the commands about changes of the file system.
struct EventsOptions {
    std::string volume;  // empty: the setting, else "/"
    std::string output;  // record; empty: standard output
    std::string file;    // replay
    double seconds = 0;  // record: how long, 0 for until it is interrupted
    double every = 1;    // watch
    bool json = false;
};

// What the arguments ask for.
struct ParsedCommand {
    enum class Kind {
        text,   // print `text`: help or the version
        wrong,  // wrong usage; `text` says what
        size,
        find,
        languages,
        nibs,
        slim,
        trash,
        duplicates,
        eventsRecord,
        eventsReplay,
        eventsWatch,
        stop,
        version,
        defaultsRead,
        defaultsWrite,
        defaultsDelete,
        generate,
    };
    Kind kind = Kind::wrong;
    std::string text;
    SizeOptions size;
    FindOptions find;
    CleanupOptions cleanup;  // languages, nibs
    SlimOptions slim;
    TrashOptions trash;
    DuplicatesOptions duplicates;
    EventsOptions events;
    std::string bus = "session";     // stop, version
    std::string domain, key, value;  // defaults; an empty key means all of them
    std::string format;              // generate
};

// What an argument is completed with.
struct CompletionHint {
    enum class Kind { nothing, words, folder, file };
    Kind kind = Kind::nothing;
    std::vector<std::string> words;
};

// The one description of all commands and options: parsing, help, man page and completions come from it. Parse once.
class CommandLine {
  public:
    CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    // Without the program's name.
    ParsedCommand parse(const std::vector<std::string>& arguments);

    const CLI::App& app() const { return _app; }
    const CompletionHint& hintOf(const CLI::Option& option) const;
    // Commands and options that are shown to people.
    static std::vector<const CLI::App*> commandsOf(const CLI::App& app);
    static std::vector<const CLI::Option*> optionsOf(const CLI::App& app);      // with dashes
    static std::vector<const CLI::Option*> positionalsOf(const CLI::App& app);  // without
    static std::string fullName(const CLI::App& app);                           // "kavaro defaults read"
    static std::string synopsis(const CLI::App& app);                           // "kavaro size [OPTIONS] FOLDER..."

  private:
    void addSize();
    void addFind();
    void addCleanup();
    void addSlim();
    void addTrash();
    void addDuplicates();
    void addEvents();
    void addServerCommands();
    void addDefaults();
    CLI::App* addCommand(CLI::App& parent, const char* name, const char* description, const char* examples);
    void addBus(CLI::App& command);
    // For commands that measure folders: FOLDER... goes to `options`, as do the options about measuring.
    void addFolders(CLI::App& command, MeasureOptions& options);
    void addMeasuring(CLI::App& command, MeasureOptions& options);
    void addColor(CLI::App& command);
    // For commands that change something.
    void addConfirmation(CLI::App& command, ConfirmOptions& options);
    void hint(const CLI::Option* option, CompletionHint::Kind kind, std::vector<std::string> words = {});
    void finishFolders(const CLI::App& command);
    void finishSize(ParsedCommand& parsed) const;
    void finishFind(ParsedCommand& parsed, const CLI::App& command) const;
    void finishCleanup(ParsedCommand& parsed, const CLI::App& command) const;
    void finishSlim(ParsedCommand& parsed) const;
    ColorChoice colorChoice() const;
    void finishDuplicates(ParsedCommand& parsed) const;
    bool isKnownCommand(const std::string& word) const;

    CLI::App _app;
    std::map<const CLI::Option*, CompletionHint> _hints;
    ParsedCommand _parsed;
    int _top = 0;
    std::string _minSize;
    struct FolderList {
        const CLI::Option* option;
        MeasureOptions* options;  // within _parsed
    };
    std::map<std::string, FolderList> _folderLists;  // by the command's name
    const CLI::Option* _export = nullptr;
    const CLI::Option* _topOption = nullptr;
    std::string _sort = "size", _color = "auto";
};

}  // namespace kavaro
