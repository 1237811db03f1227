#include <cerrno>

#include "factory/FactoryLog.h"
#include "factory/TuvNodeFactory.h"
#include "platform/Removal.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

constexpr const char* kEnglishFolders[] = {"English.lproj", "en.lproj"};

bool meansAbsent(int error) {
    return error == ENOENT || error == ENOTDIR;
}

void logReason(const char* selector, const Removal& removal) {
    TuvLog::error(factoryLog, selector, "%@: %@", removal.path, removal.reason);
}

}  // namespace

void TuvNodeFactory::removeLocales(const std::vector<std::string>& paths) {
    constexpr const char* kSelector = "removeLocales:";
    TuvLog::info(factoryLog, kSelector, "%d locales, %@", paths.size(), workerText());
    for (const std::string& path : paths) {
        // The folder above stays open: what is looked at there is what is removed from there.
        SafePlace place;
        const int error = openSafePlace(path, &place);
        if (meansAbsent(error) || (error == 0 && !entryExists(place))) {
            TuvLog::error(factoryLog, kSelector, "Could not find %@ !!!", path);
            continue;
        }
        if (error != 0) {
            TuvLog::error(factoryLog, kSelector, "Could not remove %@ ...", path);
            logReason(kSelector, {error, path, removalErrorText(error)});
            continue;
        }
        bool staysEnglish = false;
        for (const char* english : kEnglishFolders) staysEnglish = staysEnglish || hasSibling(place, english);
        if (!staysEnglish) {
            const std::string parent = stringByDeletingLastPathComponent(path);
            for (const char* english : kEnglishFolders)
                TuvLog::error(factoryLog, kSelector, "Could not find %@ !!!",
                              stringByAppendingPathComponent(parent, english));
            return;
        }
        const Removal removal = removeItem(place, path, RemovalKind::tree);
        if (removal.ok()) {
            TuvLog::info(factoryLog, kSelector, "Removed %@ ...", path);
        } else {
            TuvLog::error(factoryLog, kSelector, "Could not remove %@ ...", path);
            logReason(kSelector, removal);
        }
    }
}

void TuvNodeFactory::removeNibs(const std::vector<std::string>& paths) {
    constexpr const char* kSelector = "removeNibs:";
    TuvLog::info(factoryLog, kSelector, "%d files, %@", paths.size(), workerText());
    for (const std::string& path : paths) {
        const Removal removal = removeItem(path, RemovalKind::onlyNoFolder);
        if (removal.ok()) {
            TuvLog::info(factoryLog, kSelector, "Removed %@ ...", path);
            continue;
        }
        TuvLog::error(factoryLog, kSelector, "Could not remove %@ ...", path);
        if (meansAbsent(removal.error)) {
            TuvLog::error(factoryLog, kSelector, "File does not exist %@ ...", path);
        } else {
            logReason(kSelector, removal);
        }
    }
}

}  // namespace kavaro
