#include "format/FormatLog.h"
#include "format/TuvNodeFormatter.h"
#include "model/TuvNode.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

bool isMeasured(const TuvNode* node) {
    return node && node->isResolved();
}

}  // namespace

std::string ByteSizeFormatter::stringFromNumber(unsigned long long number) const {
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3;) digits.insert(at -= 3, 1, ',');
    return digits;
}

const ByteSizeFormatter& TuvNodeFormatter::byteSizeFormatter() {
    static const ByteSizeFormatter formatter;
    return formatter;
}

std::string TuvNodeFormatter::byteSizeFormatter(unsigned long long number) {
    return byteSizeFormatter().stringFromNumber(number);
}

std::string TuvNodeFormatter::logicalSizeInBytes(const TuvNode* node) {
    return isMeasured(node) ? byteSizeFormatter(node->logicalSize()) : "0";
}

std::string TuvNodeFormatter::physicalSizeInBytes(const TuvNode* node) {
    return isMeasured(node) ? byteSizeFormatter(node->physicalSize()) : "0";
}

std::string TuvNodeFormatter::logicalSizeInKB(const TuvNode* node) {
    return isMeasured(node) ? compactStringFromSize(node->logicalSize()) : "0";
}

std::string TuvNodeFormatter::physicalSizeInKB(const TuvNode* node) {
    return isMeasured(node) ? compactStringFromSize(node->physicalSize()) : "0";
}

std::string TuvNodeFormatter::filesAndFoldersCount(const TuvNode* node) {
    if (!node || !node->isDirectory()) return {};
    return filesAndFoldersCount(static_cast<unsigned long long>(node->recursiveFileCount()),
                                static_cast<unsigned long long>(node->recursiveFolderCount()));
}

std::string TuvNodeFormatter::filesAndFoldersCount(unsigned long long files, unsigned long long folders) {
    if (files == 0 && folders == 0) return "zero files and zero folders";
    std::string text;
    if (files != 0) text = std::to_string(files) + " file" + (files > 1 ? "s" : "");
    if (folders != 0) text += " and " + std::to_string(folders) + " folder" + (folders >= 2 ? "s" : "");
    return text;
}

std::string TuvNodeFormatter::byteSizeAndFilesAndFoldersCount(const TuvNode* node) {
    if (!isMeasured(node)) {
        if (node) {
            TuvLog::debug(tuvNodeFormatterLog, "byteSizeAndFilesAndFoldersCount", "%ul", node->inode());
        }
        return "measuring ... ";
    }
    std::string text = byteSizeFormatter(node->physicalSize()) + " bytes";
    if (node->isDirectory()) text += " in " + filesAndFoldersCount(node);
    return text;
}

}  // namespace kavaro
