#include "cleanup/LipoLog.h"
#include "cleanup/LipoTool.h"
#include "cleanup/TuvLipoNode.h"
#include "platform/FileAttributes.h"
#include "platform/FileRewrite.h"
#include "support/DictionaryHelpers.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

constexpr const char* kSelector = "lipoNode:archTypes:";

// Owner, permissions and group of the entry itself, not of what a link leads to. Empty when there is none.
PropertyList attributesOf(const std::string& path) {
    const PropertyList all = allFileAttributesAtPath(path, false);
    PropertyList attributes = PropertyList::Dictionary();
    for (const char* key : {kFileOwnerAccountID, kFilePosixPermissions, kFileGroupOwnerAccountID})
        if (const PropertyList* value = all.get(key)) attributes.set(key, *value);
    return attributes;
}

std::uint32_t numberIn(const PropertyList& attributes, const char* key) {
    const PropertyList* number = attributes.get(key);
    return number ? static_cast<std::uint32_t>(number->intValue()) : 0;
}

bool apply(const PropertyList& changes, const std::string& path) {
    PropertyList wanted = attributesOf(path);
    if (wanted.dictionary()->empty()) return false;
    for (const auto& [key, value] : *changes.dictionary()) wanted.set(key, value);
    return changeOwnership(path, {numberIn(wanted, kFileOwnerAccountID), numberIn(wanted, kFileGroupOwnerAccountID),
                                  numberIn(wanted, kFilePosixPermissions)}) == 0;
}

void restoreAttributes(const PropertyList& before, const std::string& path) {
    const PropertyList changes = changesFromDictionary(attributesOf(path), before);
    const std::string shown = descriptionInOneLine(changes);
    if (changes.dictionary()->empty()) {
        TuvLog::info(tuvLipoNodeLog, kSelector, "No changes in permissions [%@] to \"%@\"", shown, path);
    } else if (apply(changes, path)) {
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
    const PropertyList before = attributesOf(path);
    std::vector<std::string> arguments = {path};
    for (const std::string& name : archTypes) arguments.insert(arguments.end(), {"-remove", name});
    arguments.insert(arguments.end(), {"-output", path});
    registerLipoTool();
    stringFromTask(kLipoPath, arguments);
    TuvLog::info(tuvLipoNodeLog, kSelector, "Removed [%@] from \"%@\"", names, path);
    restoreAttributes(before, path);
}

}  // namespace kavaro
