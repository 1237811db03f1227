#include "cleanup/TuvNodeMD5Hash.h"

#include <cmath>
#include <limits>

#include "cleanup/DuplicatesLog.h"
#include "model/TuvDirNode.h"
#include "platform/PropertyList.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

const TuvNodeMD5Hash& recordOfSlot(const void* slot) {
    return *static_cast<const TuvNodeMD5Hash*>(*static_cast<const TuvObject* const*>(slot));
}

// Dates from outside may be no number; then they are the earliest.
double comparable(double date) {
    return std::isnan(date) ? -std::numeric_limits<double>::infinity() : date;
}

}  // namespace

TuvNodeMD5Hash::TuvNodeMD5Hash(const TuvNode* node) : _inode(node->inode()), _modified(node->contentModDate()) {
    if (const TuvDirNode* folder = node->parent())
        _filePath = stringByAppendingPathComponent(folder->filePath(), node->convertedFileName());
    else
        _filePath = std::string(node->filePath());
    if (tuvNodeMD5HashLog.traceOn()) TuvLog::trace(tuvNodeMD5HashLog, "init:", "%@", this);
}

TuvNodeMD5Hash::TuvNodeMD5Hash() {
    if (tuvNodeMD5HashLog.traceOn()) TuvLog::trace(tuvNodeMD5HashLog, "init:", "%@", this);
}

std::string TuvNodeMD5Hash::description() const {
    const PropertyList date(PropertyList::Date{TuvNode::dateForJan1904() + _modified});
    return formatted("inode=\"%06d\", md5Hash=\"%@\", modified=\"%@\", filePath=\"%@\"", _inode, _md5Hash,
                     date.description(), _filePath);
}

void TuvNodeMD5Hash::setMD5Hash(std::string_view text) {
    _md5Hash.clear();
    if (text.starts_with("md5") || text.starts_with("error")) {
        const bool isFolder = text.find("directory") != std::string_view::npos;
        const char* label = isFolder ? "error: is a directory (link)" : "error";
        TuvLog::error(tuvNodeMD5HashLog, "setMD5Hash", "%@, md5Hash=\"%@\", filePath=\"%@\"", text, label, _filePath);
        return;
    }
    _md5Hash = text;
}

void TuvNodeMD5Hash::debugDuplicates(const TuvObjectArray* records, const char* selector) {
    for (TuvObject* record : *records) TuvLog::info(tuvNodeMD5HashLog, selector, "%@", record);
    TuvLog::info(tuvNodeMD5HashLog, selector, "");
}

int TuvNodeMD5Hash_sortByInode(const void* a, const void* b) {
    const TuvNodeMD5Hash& first = recordOfSlot(a);
    const TuvNodeMD5Hash& second = recordOfSlot(b);
    if (first.inode() != second.inode()) return first.inode() < second.inode() ? -1 : 1;
    const double dateOfFirst = comparable(first.modified());
    const double dateOfSecond = comparable(second.modified());
    return dateOfFirst > dateOfSecond ? -1 : dateOfFirst < dateOfSecond ? 1 : 0;
}

int TuvNodeMD5Hash_sortByFilePath(const void* a, const void* b) {
    const std::optional<std::string>& first = recordOfSlot(a).filePath();
    const std::optional<std::string>& second = recordOfSlot(b).filePath();
    return first && second ? caseInsensitiveCompare(*first, *second) : 0;
}

}  // namespace kavaro
