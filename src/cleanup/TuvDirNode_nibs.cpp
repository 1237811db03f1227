#include <algorithm>

#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "platform/FileContent.h"
#include "platform/PropertyList.h"
#include "platform/Text.h"
#include "support/DictionaryHelpers.h"
#include "support/Stopwatch.h"

namespace kavaro {

namespace {

constexpr const char* kSelector = "nibFiles";
constexpr std::size_t kLargestSignatureFile = std::size_t{64} << 20;  // bytes; real ones end at a few million

bool isNibName(std::string_view name) {
    return name == "classes.nib" || name == "designable.nib" || name == "info.nib";
}

bool isSignatureFile(const TuvNode& node) {
    if (node.fileName() != "CodeResources") return false;
    return !node.parent() || node.parent()->fileName() != "_CodeSignature";
}

// The paths below the bundle that the signature vouches for; none when the file makes no sense.
PropertyList::Dictionary filesOfSignature(const TuvNode& signature) {
    std::string content;
    if (readFileAtPath(std::string(signature.filePath()), kLargestSignatureFile, &content) != 0) return {};
    const std::optional<PropertyList> root = PropertyList::fromBytes(bytesOf(content));
    const PropertyList* files = root ? root->get("files") : nullptr;
    return files && files->dictionary() ? *files->dictionary() : PropertyList::Dictionary();
}

void addSealedPaths(const TuvNode& signature, PropertyList::Array* sealed) {
    const PropertyList::Dictionary files = filesOfSignature(signature);
    if (tuvDirNodeLog.debugOn()) {
        PropertyList::Array keys;
        for (const auto& [key, value] : files) keys.emplace_back(key);
        TuvLog::debug(tuvDirNodeLog, kSelector, "%@", PropertyList(std::move(keys)));
    }
    const std::string bundle(signature.parent() ? signature.parent()->filePath() : std::string_view());
    for (const auto& [key, value] : files)
        if (isNibName(lastPathComponent(key))) sealed->emplace_back(stringByAppendingPathComponent(bundle, key));
}

PropertyList::Array sealedPaths(const TuvObjectArray& signatures) {
    PropertyList::Array sealed;
    for (int i = 0; i < signatures.count(); ++i) addSealedPaths(*signatures.nodeAtIndex(i), &sealed);
    if (tuvDirNodeLog.debugOn()) TuvLog::debug(tuvDirNodeLog, kSelector, "%@", PropertyList(sealed));
    std::sort(sealed.begin(), sealed.end(),
              [](const PropertyList& a, const PropertyList& b) { return compare(*a.string(), *b.string()) < 0; });
    return sealed;
}

void removeSealed(TuvObjectArray& candidates, const PropertyList::Array& sealed) {
    if (sealed.empty()) return;
    std::vector<int> found;
    for (int i = 0; i < candidates.count(); ++i) {
        const PropertyList path(candidates.nodeAtIndex(i)->filePath());
        if (binaryIndexOfObject(sealed, path) != kObjectNotFound) found.push_back(i);
    }
    candidates.removeObjectsAtIndexes(found);
}

}  // namespace

TuvRef<TuvObjectArray> TuvDirNode::nibFiles() const {
    const Stopwatch watch;
    TuvLog::info(tuvDirNodeLog, kSelector, "%@", filePath());
    auto candidates = make<TuvObjectArray>();
    auto signatures = make<TuvObjectArray>();
    const TuvRef<TuvObjectArray> nodes = recursiveChildren();
    for (int i = 0; i < nodes->count(); ++i) {
        TuvNode* node = nodes->nodeAtIndex(i);
        if (isSignatureFile(*node))
            signatures->addObject(node);
        else if (node->nodeType() == kTypeFile && isNibName(node->fileName()))
            candidates->addObject(node);
    }
    candidates->sortByFunction(TuvNode_sortByPathInsensitive);
    TuvLog::info(tuvDirNodeLog, kSelector, "%d files, all files", candidates->count());
    removeSealed(*candidates, sealedPaths(*signatures));
    TuvLog::info(tuvDirNodeLog, kSelector, "%d files, filtered files, in %9.3f ms", candidates->count(),
                 watch.milliseconds());
    return candidates;
}

}  // namespace kavaro
