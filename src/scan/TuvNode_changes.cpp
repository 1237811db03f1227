#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "platform/FileAttributes.h"
#include "platform/Text.h"
#include "scan/ScanSession.h"

namespace kavaro {

namespace {

constexpr const char* kSelector = "hasFileSytemChanged";

std::optional<double> dateIn(const PropertyList& attributes, const char* key) {
    const PropertyList* value = attributes.get(key);
    const auto* date = value ? value->as<PropertyList::Date>() : nullptr;
    if (!date) return std::nullopt;
    return date->secondsSince1970;
}

// Finds the entry. In a name with "/" in it, ":" stands on disk: then *path is where it was found.
bool findEntry(const TuvNode& node, std::string* path, FileReference* reference) {
    Catalog& catalog = ScanSession::current()->catalog();
    int error = 0;
    if (catalog.reference(*path, reference, &error)) return true;
    if (!node.parent()) return false;
    *path = stringByAppendingPathComponent(node.parent()->filePath(), node.convertedFileName());
    TuvLog::info(tuvNodeLog, kSelector, "Trying \"%@\"", *path);
    return catalog.reference(*path, reference, &error);
}

}  // namespace

bool TuvNode::hasFileSytemChanged(std::optional<double> current, std::optional<double> reference, std::string_view path,
                                  std::string_view label) {
    if (!current || !reference || !(*reference < *current)) return false;
    TuvLog::info(tuvNodeLog, kSelector, "YEP, the %@ has changed !!! \"%@\"", label, path);
    return true;
}

bool TuvNode::hasFileSytemChanged(const PropertyList& cachedAttributes, int) {
    std::string path(filePath());
    if (tuvNodeLog.debugOn()) TuvLog::debug(tuvNodeLog, kSelector, "%@", path);
    {
        FileReference reference;
        if (!findEntry(*this, &path, &reference)) return true;
        if (reference.isDirectory != isDirectory()) {
            TuvLog::info(tuvNodeLog, kSelector, "YEP !!! %@", path);
            return true;
        }
    }
    const PropertyList attributes = fileAttributesAtPath(path, false);
    if (tuvNodeLog.debugOn()) {
        TuvLog::debug(tuvNodeLog, kSelector, "nodeFileAttributes %@", attributes);
        TuvLog::debug(tuvNodeLog, kSelector, "cacheFileAttributes %@", cachedAttributes);
    }
    const auto isNewer = [&](const char* key, const char* label) {
        return hasFileSytemChanged(dateIn(attributes, key), dateIn(cachedAttributes, key), path, label);
    };
    return isNewer(kFileCreationDate, "creation date") || isNewer(kFileModificationDate, "modification date");
}

bool TuvDirNode::hasFileSytemChanged(const PropertyList& cachedAttributes, int ignored) {
    if (tuvDirNodeLog.debugOn()) TuvLog::debug(tuvDirNodeLog, kSelector, "%@", filePath());
    if (!TuvNode::hasFileSytemChanged(cachedAttributes, ignored)) return false;
    TuvLog::info(tuvDirNodeLog, kSelector, "YEP !!! %@", filePath());
    diffNodes();
    return true;
}

}  // namespace kavaro
