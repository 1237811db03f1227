#include "cleanup/TuvLipoNode.h"

#include <algorithm>
#include <set>

#include "cleanup/LipoLog.h"
#include "cleanup/LipoTool.h"
#include "platform/Text.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

constexpr const char* kArchitecture = "architecture";
constexpr const char* kSize = "size";

// The names in the table, in its order.
std::vector<std::string> namesOf(const PropertyList& info) {
    std::vector<std::string> names;
    if (const PropertyList::Dictionary* entries = info.dictionary())
        for (const auto& [name, entry] : *entries) names.push_back(name);
    return names;
}

// The lines of a text, from the first one on.
class Lines {
  public:
    explicit Lines(std::string_view text) : _left(text) {}
    // Nothing behind the last one.
    std::optional<std::string_view> next() {
        if (_ended) return std::nullopt;
        const std::size_t end = _left.find('\n');
        const std::string_view line = _left.substr(0, end);
        _ended = end == std::string_view::npos;
        if (!_ended) _left.remove_prefix(end + 1);
        return line;
    }

  private:
    std::string_view _left;
    bool _ended = false;
};

std::string from(std::string_view line, std::size_t position) {
    return std::string(line.substr(std::min(position, line.size())));
}

// A line beginning with "architecture" names one; the next line that begins, trimmed, with "size" has its bytes.
PropertyList tableOf(std::string_view output) {
    PropertyList table = PropertyList::Dictionary();
    Lines lines(output);
    while (auto line = lines.next()) {
        if (!line->starts_with("architecture")) continue;
        const std::string name = from(*line, 13);
        if (tuvLipoNodeLog.traceOn()) TuvLog::trace(tuvLipoNodeLog, "lipoInfo:", "architecture [%@]", name);
        std::string trimmed;
        while ((line = lines.next())) {
            trimmed = trimWhiteSpace(*line);
            if (trimmed.starts_with("size")) break;
        }
        if (!line) break;
        table.set(name, PropertyList::Dictionary{{kArchitecture, name}, {kSize, from(trimmed, 5)}});
    }
    return table;
}

}  // namespace

TuvLipoNode::TuvLipoNode(TuvNode* node) {
    setFlags(node->flags());
    setInode(node->inode());
    setContentModDate(node->contentModDate());
    setLogicalSize(node->logicalSize());
    setPhysicalSize(node->physicalSize());
    if (node->hasFileName()) setFileName(node->fileName());
    setFilePath(node->filePath());
    if (tuvLipoNodeLog.traceOn()) TuvLog::trace(tuvLipoNodeLog, "initWithNode:", "file=%@", filePath());
}

TuvLipoNode::~TuvLipoNode() {
    if (tuvLipoNodeLog.traceOn()) TuvLog::trace(tuvLipoNodeLog, "~TuvLipoNode", "file=%@", filePath());
}

std::uint64_t TuvLipoNode::lipoSize() const {
    std::uint64_t bytes = 0;
    if (const PropertyList::Dictionary* entries = _lipoInfo.dictionary()) {
        for (const auto& [name, entry] : *entries) {
            const PropertyList* size = entry.get(kSize);
            if (size && size->intValue() > 0) bytes += static_cast<std::uint64_t>(size->intValue());
        }
    }
    return bytes;
}

std::uint64_t TuvLipoNode::lipoSize(const TuvObjectArray* lipoNodes) {
    std::uint64_t bytes = 0;
    for (const TuvObject* node : *lipoNodes) bytes += static_cast<const TuvLipoNode*>(node)->lipoSize();
    return bytes;
}

PropertyList TuvLipoNode::serializeForRemoval(int type) const {
    const std::vector<std::string> names = namesOf(_lipoInfo);
    if (tuvLipoNodeLog.debugOn())
        TuvLog::debug(tuvLipoNodeLog, "serializeForRemoval:", "[%@] [%@]", filePath(), joined(names));
    PropertyList::Array kept;
    for (const std::string& name : names)
        if (isProcessorArchitectureOfType(name, type)) kept.push_back(name);
    return PropertyList::Dictionary{{"filePath", filePath()}, {"archTypes", kept}};
}

bool TuvLipoNode::shouldIgnoreLipoInfo(const std::string& path) {
    static const std::set<std::string> ignored = {"TSLicense"};
    if (!ignored.contains(lastPathComponent(path))) return false;
    TuvLog::info(tuvLipoNodeLog, "shouldIgnoreLipoInfo:", "[%@] will be ignored as it causes problems.", path);
    return true;
}

PropertyList TuvLipoNode::lipoInfo(const std::string& path) {
    if (shouldIgnoreLipoInfo(path)) return PropertyList::Dictionary();
    registerLipoTool();
    const std::string output = stringFromTask(kLipoPath, {"-detailed_info", path}).value_or("");
    const int family = processorArchitecture();
    if (tuvLipoNodeLog.traceOn()) TuvLog::trace(tuvLipoNodeLog, "lipoInfo:", "[%@] [%@]", path, output);
    PropertyList table = tableOf(output);
    if (tuvLipoNodeLog.traceOn()) TuvLog::trace(tuvLipoNodeLog, "lipoInfo:", "[%@] [%@]", path, table);
    if (tuvLipoNodeLog.debugOn()) TuvLog::debug(tuvLipoNodeLog, "lipoInfo:", "[%@] [%@]", path, joined(namesOf(table)));
    for (const std::string& name : namesOf(table))
        if (isProcessorArchitectureOfType(name, family)) table.remove(name);
    if (tuvLipoNodeLog.debugOn()) TuvLog::debug(tuvLipoNodeLog, "lipoInfo:", "[%@] [%@]", path, joined(namesOf(table)));
    return table;
}

void TuvLipoNode::filterSystemFolders(TuvObjectArray* lipoNodes) {
    if (!lipoNodes) return;
    TuvLog::info(tuvLipoNodeLog, "filterSystemFolders:", "%d", lipoNodes->count());
    if (processorArchitecture() != kIntel) return;
    std::vector<int> excluded;
    for (int i = 0; i < lipoNodes->count(); ++i) {
        const TuvNode* node = lipoNodes->nodeAtIndex(i);
        if (node->filePath().find("/System/Library") == std::string_view::npos) continue;
        TuvLog::info(tuvLipoNodeLog, "filterSystemFolders:", "Exclude: %@", node->filePath());
        excluded.push_back(i);
    }
    lipoNodes->removeObjectsAtIndexes(excluded);
    TuvLog::info(tuvLipoNodeLog, "filterSystemFolders:", "Excluded %d, %d left", excluded.size(), lipoNodes->count());
}

}  // namespace kavaro
