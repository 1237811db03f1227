#include <map>
#include <set>

#include "client/commandline/CleanupRun.h"
#include "client/commandline/Commands.h"
#include "client/commandline/PathArgument.h"

namespace kavaro {

namespace {

// An argument that names no entry is said, and does not keep the others from going.
class TrashCommand {
  public:
    TrashCommand(const TrashOptions& options, const CommandContext& context)
        : _options(options), _folders(options), _context(context) {
        _folders.folders.clear();
    }

    int run() {
        CleanupPlan plan{CleanupCall::moveToTrash, {}, false};
        const bool foundAll = findEntries(&plan);
        if (plan.items.empty()) return kExitFailed;
        if (const int exitCode = measureFolders(&plan); exitCode != kExitDone) return exitCode;
        const int exitCode = runCleanup(plan, _measurements, _options, _options.confirm, _context);
        return exitCode == kExitDone && !foundAll ? static_cast<int>(kExitFailed) : exitCode;
    }

  private:
    bool findEntries(CleanupPlan* plan) {
        bool ok = true;
        std::set<std::string, std::less<>> paths;
        std::vector<CleanupItem> others;
        for (const std::string& argument : _options.folders) {
            EntryArgument entry = checkEntry(argument);
            if (!entry.failure.empty()) {
                writeError(_context, withProgramName(entry.failure));
                ok = false;
            } else if (paths.insert(entry.path).second) {
                // Links go first: the server knows none that leads nowhere, and what it leads to may go too.
                std::vector<CleanupItem>& items = entry.isLink ? plan->items : others;
                items.push_back({std::move(entry.path), entry.bytes, entry.isFolder});
            }
        }
        plan->items.insert(plan->items.end(), others.begin(), others.end());
        // What lies in a folder that goes, goes with it.
        std::erase_if(plan->items, [&](const CleanupItem& item) { return isBelowAny(item.path, paths); });
        return ok;
    }

    // The server says how large they are.
    int measureFolders(CleanupPlan* plan) {
        std::map<std::string, CleanupItem*> items;
        for (CleanupItem& item : plan->items) {
            if (!item.isFolder) continue;
            _folders.folders.push_back(item.path);
            items[item.path] = &item;
        }
        const bool isServerOurs = _options.embedded || _options.bus == "session";
        if (_folders.folders.size() > 1 && isServerOurs) _measurements.measureHere();
        if (!_options.confirm.dryRun) _measurements.prepareCommands();
        _measurements.run([&](const std::string& argument, Measurement& measurement) {
            items[argument]->bytes = measurement.root->physicalSize();
            plan->isLowerBound |= measurement.partial || !measurement.unread.empty();
            return true;
        });
        return _measurements.exitCode();
    }

    const TrashOptions& _options;
    MeasureOptions _folders;  // with the folders alone
    const CommandContext& _context;
    FolderMeasurements _measurements{_folders, _context, FolderMeasurements::Part::isNotShown};
};

}  // namespace

int runTrash(const TrashOptions& options, const CommandContext& context) {
    return TrashCommand(options, context).run();
}

}  // namespace kavaro
