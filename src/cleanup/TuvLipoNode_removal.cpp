#include "cleanup/LipoLog.h"
#include "cleanup/LipoTool.h"
#include "cleanup/TuvLipoNode.h"
#include "platform/FileAttributes.h"
#include "platform/OwnershipKeeper.h"
#include "support/BuiltInTools.h"
#include "support/DictionaryHelpers.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

constexpr const char* kSelector = "lipoNode:archTypes:";

// Empty when there is no file.
PropertyList attributesOf(const std::optional<OwnershipKeeper::Ownership>& ownership) {
    PropertyList attributes = PropertyList::Dictionary();
    if (!ownership) return attributes;
    attributes.set(kFileOwnerAccountID, ownership->owner);
    attributes.set(kFilePosixPermissions, ownership->permissions);
    attributes.set(kFileGroupOwnerAccountID, ownership->group);
    return attributes;
}

// All of them, to be shown.
PropertyList allAttributesOf(const std::string& path) {
    PropertyList attributes = allFileAttributesAtPath(path, false);
    return attributes.isNull() ? PropertyList::Dictionary() : attributes;
}

// `before`: all attributes of then.
void restoreAttributes(const OwnershipKeeper& kept, const PropertyList& before, const std::string& path) {
    const PropertyList changes = changesFromDictionary(attributesOf(kept.now()), attributesOf(kept.before()));
    const std::string shown = descriptionInOneLine(changes);
    if (changes.dictionary()->empty()) {
        const PropertyList others = changesFromDictionary(allAttributesOf(path), before);
        TuvLog::info(tuvLipoNodeLog, kSelector, "No changes in permissions [%@] to \"%@\"",
                     descriptionInOneLine(others), path);
    } else if (kept.giveBack() == 0) {
        TuvLog::info(tuvLipoNodeLog, kSelector, "Did reset permissions to original [%@] to \"%@\"", shown, path);
    } else {
        TuvLog::error(tuvLipoNodeLog, kSelector, "Could not reset permissions to original [%@] to \"%@\"", shown, path);
    }
}

}  // namespace

void TuvLipoNode::lipoNode(const std::string& path, const std::vector<std::string>& archTypes) {
    const std::string names = joined(archTypes);
    if (tuvLipoNodeLog.debugOn()) TuvLog::debug(tuvLipoNodeLog, kSelector, "[%@] \"%@\"", path, names);
    if (archTypes.empty()) {
        TuvLog::error(tuvLipoNodeLog, kSelector, "No architecture to remove for \"%@\"", path);
        return;
    }
    const OwnershipKeeper kept(path);
    const PropertyList attributes = allAttributesOf(path);
    std::vector<std::string> arguments = {path};
    for (const std::string& name : archTypes) arguments.insert(arguments.end(), {"-remove", name});
    arguments.insert(arguments.end(), {"-output", path});
    // Never by a program of that name: it would go by the path, follow links in it, and tear files with several names
    // apart.
    registerLipoTool();
    builtInTool(kLipoPath)(arguments);
    TuvLog::info(tuvLipoNodeLog, kSelector, "Removed [%@] from \"%@\"", names, path);
    restoreAttributes(kept, attributes, path);
}

}  // namespace kavaro
