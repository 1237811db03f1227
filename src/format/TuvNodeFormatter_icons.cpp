#include "format/FormatLog.h"
#include "format/IconResult.h"
#include "format/TuvNodeFormatter.h"
#include "model/TuvDirNode.h"
#include "platform/Text.h"
#include "support/Backtrace.h"

namespace kavaro {

std::optional<FileIcon> iconOrLog(const FileIconResult& result) {
    if (result.error.empty()) return result.icon;
    TuvLog::error(tuvNodeFormatterLog, "fileIcon", "Exception: %@", result.error);
    TuvLog::error(tuvNodeFormatterLog, "fileIcon", "(%@)", backtrace());
    return {};
}

std::optional<FileIcon> TuvNodeFormatter::fileIcon(const TuvNode* node) {
    if (!node || !node->parent()) return {};
    const std::string_view folder = node->parent()->filePath();
    return iconOrLog(iconForFile(stringByAppendingPathComponent(folder, node->convertedFileName())));
}

}  // namespace kavaro
