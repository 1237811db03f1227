// `languages --remove` and `nibs --remove`.
#include "client/commandline/CleanupRemoval.h"

#include <algorithm>
#include <set>

#include "client/commandline/CleanupOffer.h"
#include "client/commandline/CleanupRun.h"
#include "client/commandline/Commands.h"
#include "client/commandline/FolderMeasurements.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

constexpr std::string_view kSharedFolder = "Base.lproj";

// By its name for people, or by the name that one of its folders has before ".lproj".
bool isCalled(const OfferedLanguage& language, const std::string& word) {
    if (caseInsensitiveCompare(language.name, word) == 0) return true;
    return std::any_of(language.folders.begin(), language.folders.end(), [&](const OfferedEntry& folder) {
        return caseInsensitiveCompare(folder.node->fileNameWithoutExtension(), word) == 0;
    });
}

// No language: what all languages of an application share, which it does not run without.
bool isShared(const OfferedEntry& folder) {
    return caseInsensitiveCompare(folder.node->fileName(), kSharedFolder) == 0;
}

// Gathers what is to go from measured folders, and has it removed when all of them are done.
class CleanupRemoval {
  public:
    CleanupRemoval(const CleanupOptions& options, const CommandContext& context, CleanupCall call)
        : _options(options), _context(context), _plan{call, {}, false} {}

    int run() {
        if (const int exitCode = measure(); exitCode != kExitDone) return exitCode;
        if (!knowsAllLanguages()) return kExitFailed;
        keepOutermost();
        if (_plan.items.empty()) return writeResult(_context, "There is nothing to remove.\n");
        return runCleanup(_plan, _measurements, _options, _options.confirm, _context);
    }

  private:
    int measure() {
        // Nobody follows links for us when it comes to removing.
        _measurements.resolveLinks();
        if (!_options.confirm.dryRun) _measurements.prepareCommands();
        _measurements.run([&](const std::string& argument, Measurement& measurement) {
            if (_plan.call == CleanupCall::removeLocales)
                addLanguages(measurement);
            else
                for (const OfferedEntry& file : offeredNibs(*measurement.root).files) add(file);
            _measurements.reportUnread(argument, measurement, _options.errors);
            return true;
        });
        return _measurements.exitCode();
    }

    void addLanguages(const Measurement& measurement) {
        for (const OfferedLanguage& language : offeredLanguages(*measurement.root).languages) {
            for (const OfferedEntry& folder : language.folders)
                if (!isShared(folder)) _offered.insert(language.name);
            for (const std::string& word : _options.languages) {
                const bool isNamed = isCalled(language, word);
                for (const OfferedEntry& folder : language.folders) {
                    // A whole name of a folder means those folders alone.
                    const bool isMeant = folder.node->fileName() == word || (isNamed && !isShared(folder));
                    const bool isMeantShared = isNamed || caseInsensitiveCompare(word, kSharedFolder) == 0;
                    if (isShared(folder) && isMeantShared) _shared.insert(word);
                    if (!isMeant) continue;
                    _known.insert(word);
                    add(folder);
                }
            }
        }
    }

    void add(const OfferedEntry& entry) {
        std::string path(entry.node->filePath());
        if (!_paths.insert(path).second) return;
        _plan.items.push_back({std::move(path), entry.totals.physicalSize, entry.node->isDirectory()});
    }

    // A word that means nothing may be a slip: then nothing at all is removed.
    bool knowsAllLanguages() const {
        std::string offered;
        for (const std::string& name : _offered) offered += (offered.empty() ? "" : ", ") + printable(name);
        bool ok = true;
        for (const std::string& word : _options.languages) {
            if (_known.contains(word)) continue;
            ok = false;
            if (_shared.contains(word)) {
                writeError(_context, errorMessage("--remove " + word,
                                                  "that is " + std::string(kSharedFolder) +
                                                      ", which all languages share and applications do not run without",
                                                  "To remove it all the same give that name, letter by letter"));
                continue;
            }
            const std::string advice = offered.empty() ? "None could go" : "These could go: " + offered;
            writeError(_context, errorMessage("--remove " + word, "no such language could go there", advice));
        }
        return ok;
    }

    // What lies in a folder that goes, goes with it.
    void keepOutermost() {
        std::erase_if(_plan.items, [&](const CleanupItem& item) { return isBelowAny(item.path, _paths); });
    }

    const CleanupOptions& _options;
    const CommandContext& _context;
    FolderMeasurements _measurements{_options, _context, FolderMeasurements::Part::isNotShown};
    CleanupPlan _plan;
    std::set<std::string, std::less<>> _paths;
    std::set<std::string> _offered;  // names of languages that could go
    std::set<std::string> _known;    // words that mean something that goes
    std::set<std::string> _shared;   // words that mean what all languages share
};

}  // namespace

int removeLanguages(const CleanupOptions& options, const CommandContext& context) {
    return CleanupRemoval(options, context, CleanupCall::removeLocales).run();
}

int removeNibs(const CleanupOptions& options, const CommandContext& context) {
    return CleanupRemoval(options, context, CleanupCall::removeNibs).run();
}

}  // namespace kavaro
