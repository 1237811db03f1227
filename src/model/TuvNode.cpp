#include "model/TuvNode.h"

#include <atomic>
#include <cstring>

#include "model/ModelLog.h"
#include "model/NodeFilterRule.h"
#include "model/TuvDirNode.h"

namespace kavaro {

static_assert(sizeof(TuvNode) <= 72, "nodes are made by the million");

namespace {

constexpr double kSecondsFrom1904To1970 = 2082844800;

std::atomic<int> instances{0};
// The next number of instances that is worth a line.
std::atomic<std::int64_t> instanceMark{10};

void logInstances(int count) {
    TuvLog::info(tuvNodeLog, "instanceCount", "%d instances in the pool", count);
}

void noteBirth(int count) {
    std::int64_t mark = count;
    const bool marked = instanceMark.compare_exchange_strong(mark, mark * 10, std::memory_order_relaxed);
    if (marked || count == 100000 || count == 200000) logInstances(count);
}

void noteDeath(int count) {
    std::int64_t mark = std::int64_t{count} * 10;
    if (count > 9 && instanceMark.compare_exchange_strong(mark, count, std::memory_order_relaxed)) logInstances(count);
}

}  // namespace

TuvNode::TuvNode() : TuvNode(kFile | kResolved) {}

TuvNode::TuvNode(std::uint16_t flags) : _flags(flags) {
    const int count = instances.fetch_add(1, std::memory_order_relaxed) + 1;
    if (tuvNodeLog.traceOn()) noteBirth(count);
}

TuvNode::~TuvNode() {
    const int count = instances.fetch_sub(1, std::memory_order_relaxed) - 1;
    if (tuvNodeLog.traceOn()) {
        TuvLog::trace(tuvNodeLog, "~TuvNode", "[%d] [%6d] %@", retainCount(), count, fileName());
        noteDeath(count);
    }
}

int TuvNode::instanceCount() {
    return instances.load(std::memory_order_relaxed);
}

bool TuvNode::isEqual(const TuvObject* other) const {
    return other && (other == this || static_cast<const TuvNode*>(other)->_inode == _inode);
}

const char* TuvNode::nodeTypeString() const {
    switch (nodeType()) {
        case kTypeFile:
            return "File";
        case kTypeFolder:
            return "Folder";
        default:
            return "Other";
    }
}

void TuvNode::setIsResolved(bool flag) {
    _flags = static_cast<std::uint16_t>(flag ? _flags | kResolved : _flags & ~kResolved);
}

void TuvNode::setIsResolved(bool flag, bool) {
    setIsResolved(flag);
}

void TuvNode::parentINodes(std::uint32_t, std::vector<std::uint32_t>&) const {}

std::vector<std::uint32_t> TuvNode::parentINodes(const TuvNode&) const {
    return {};
}

double TuvNode::dateForJan1904() {
    return -kSecondsFrom1904To1970;
}

double TuvNode::modDate() const {
    return dateForJan1904() + _contentModDate;
}

// The eight bytes of the catalog's packed record as one number of the host. On a little-endian host the fraction
// ends up above the low seconds; that is how dates are carried.
double TuvNode::timeIntervalFromUTCDateTime(UTCDateTime value) {
    std::uint8_t bytes[8];
    std::memcpy(bytes, &value.highSeconds, 2);
    std::memcpy(bytes + 2, &value.lowSeconds, 4);
    std::memcpy(bytes + 6, &value.fraction, 2);
    std::uint64_t number;
    std::memcpy(&number, bytes, sizeof number);
    return static_cast<double>(number >> 16);
}

std::optional<double> TuvNode::convertUTCtoNSDate(UTCDateTime value) {
    if (value.highSeconds == 0 && value.lowSeconds == 0 && value.fraction == 0) return std::nullopt;
    return dateForJan1904() + timeIntervalFromUTCDateTime(value);
}

bool TuvNode::mergeNode(const TuvNode& other) {
    bool changed = false;
    if (_logicalSize != other._logicalSize) {
        _logicalSize = other._logicalSize;
        changed = true;
    }
    if (_physicalSize != other._physicalSize) {
        _physicalSize = other._physicalSize;
        changed = true;
    }
    if (_fileName.isNull() != other._fileName.isNull() || _fileName.view() != other._fileName.view()) {
        setFileName(other._fileName.view());
        changed = true;
    }
    if (changed && tuvNodeLog.infoOn()) TuvLog::info(tuvNodeLog, "mergeNode", "Merged [%@]", description());
    return true;
}

bool TuvNode::filterUsing(const NodeFilterRule& filter, bool flag) const {
    if (!filter.accepts(*this, flag)) return false;
    if (tuvNodeLog.traceOn()) TuvLog::trace(tuvNodeLog, "filterUsing", "Match found [%@]", filePath());
    return true;
}

}  // namespace kavaro
