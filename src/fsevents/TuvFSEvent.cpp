#include "fsevents/TuvFSEvent.h"

#include <atomic>
#include <cstdio>
#include <iterator>

#include "fsevents/EventHelpers.h"
#include "fsevents/FSEventsLog.h"
#include "fsevents/WaitingEvents.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

std::atomic<bool> collects{false};
std::atomic<std::uint32_t> watchedDevice{TuvFSEvent::kFirstDevice};

constexpr const char* kNames[] = {"CREATE_FILE",         "DELETE",     "STAT CHANGED", "RENAME", "MODIFIED", "EXCHANGE",
                                  "FINDER_INFO_CHANGED", "CREATE_DIR", "CHOWN",        nullptr};
constexpr int kNamesCount = static_cast<int>(std::size(kNames));
constexpr const char* kOwnNames[] = {"UPDATED"};  // of code 100
constexpr int kFirstOwnCode = 100;

constexpr std::string_view kIgnoredFolders[] = {"/private/var/db/Spotlight-V100", "/.Spotlight-V100", "/.fseventsd"};

}  // namespace

void TuvFSEvent::setRunAsDataCollector(bool flag) {
    collects.store(flag, std::memory_order_relaxed);
}

bool TuvFSEvent::runAsDataCollector() {
    return collects.load(std::memory_order_relaxed);
}

void TuvFSEvent::setAcceptedDevice(std::uint32_t accepted) {
    watchedDevice.store(accepted, std::memory_order_relaxed);
}

std::uint32_t TuvFSEvent::acceptedDevice() {
    return watchedDevice.load(std::memory_order_relaxed);
}

bool TuvFSEvent::validEventType(int type) {
    return type >= 0 && type < kNamesCount;
}

bool TuvFSEvent::shouldHandleEventType(int type) {
    static const int statChanged = intType("STAT CHANGED");
    static const int exchange = intType("EXCHANGE");
    static const int finderInfo = intType("FINDER_INFO_CHANGED");
    static const int chown = intType("CHOWN");
    return type != statChanged && type != exchange && type != finderInfo && type != chown;
}

const char* TuvFSEvent::stringType(int type) {
    if (validEventType(type)) return kNames[type];
    const int own = type % kFirstOwnCode;
    return own >= 0 && own < static_cast<int>(std::size(kOwnNames)) ? kOwnNames[own] : nullptr;
}

int TuvFSEvent::intType(std::string_view name) {
    for (int type = 0; type < kNamesCount; ++type)
        if (kNames[type] && name == kNames[type]) return type;
    return -1;
}

void TuvFSEvent::setFilePath(std::string_view path) {
    const bool destination = isRename(*this) && !_filePath.isNull();
    TuvLog::trace(tuvFSEventLog, destination ? "setFilePathDestination:" : "setFilePath:", "%@", path);
    (destination ? _filePathDestination : _filePath).set(path);
}

void TuvFSEvent::setInode(std::uint32_t inode) {
    const bool destination = isRename(*this) && _inode != 0;
    TuvLog::trace(tuvFSEventLog, destination ? "setInodeDestination:" : "setInode:", "%d", inode);
    (destination ? _inodeDestination : _inode) = inode;
}

void TuvFSEvent::setDevice(std::uint32_t number) {
    const bool destination = isRename(*this) && _device != 0;
    TuvLog::trace(tuvFSEventLog, destination ? "setDeviceDestination:" : "setDevice:", "%#010x", number);
    (destination ? _deviceDestination : _device) = number;
}

TuvFSEvent* TuvFSEvent::lastChildEvent() const {
    return _childEvents ? static_cast<TuvFSEvent*>(_childEvents->lastObject()) : nullptr;
}

TuvRef<TuvFSEvent> TuvFSEvent::clone() const {
    auto copy = make<TuvFSEvent>(_type);
    copy->_inode = _inode;
    copy->_device = _device;
    copy->_filePath.set(_filePath.view());
    return copy;
}

void TuvFSEvent::addChildEvent(TuvFSEvent* event) {
    if (!event || event->_type == _type) return;
    constexpr int kFirstCapacity = 4;
    if (!_childEvents) _childEvents = make<TuvObjectArray>(kFirstCapacity);
    _childEvents->addObject(event);
}

bool TuvFSEvent::isChildFilePath(const TuvFSEvent* other) const {
    if (!other || _filePath.isNull() || other->_filePath.isNull()) return false;
    return filePath().starts_with(other->filePath());
}

bool TuvFSEvent::shouldAddEvent() const {
    if (_device != acceptedDevice()) return false;
    for (std::string_view folder : kIgnoredFolders)
        if (filePath().starts_with(folder)) return false;
    return true;
}

bool TuvFSEvent::is_CREATE_DELETE() const {
    static const int createFile = intType("CREATE_FILE");
    static const int createDir = intType("CREATE_DIR");
    static const int modified = intType("MODIFIED");
    static const int rename = intType("RENAME");
    static const int deleted = intType("DELETE");
    if (_type != createFile && _type != createDir && _type != modified && _type != rename) return false;
    const TuvFSEvent* last = lastChildEvent();
    if (!last || last->_type != deleted) return false;
    if (tuvFSEventLog.traceOn()) TuvLog::trace(tuvFSEventLog, "is_CREATE_DELETE", "%@", descriptionInOneLine(true));
    return true;
}

void TuvFSEvent::coalesce_CREATE_MODIFY_RENAME() {
    static const int createFile = intType("CREATE_FILE");
    static const int createDir = intType("CREATE_DIR");
    static const int modified = intType("MODIFIED");
    static const int rename = intType("RENAME");
    if (_type != createFile && _type != createDir) return;
    const TuvFSEvent* last = lastChildEvent();
    if (!last || (last->_type != modified && last->_type != rename)) return;
    _childEvents->insertObjectAtIndex(clone().get(), 0);
    _type = kFirstOwnCode;
    _filePath.set(last->_type == modified ? last->filePath() : last->filePathDestination());
    if (tuvFSEventLog.traceOn())
        TuvLog::trace(tuvFSEventLog, "coalesce_CREATE_MODIFY_RENAME", "%@", descriptionInOneLine(true));
    _childEvents = nullptr;
}

void TuvFSEvent::debugHeader() const {
    const std::string text = printable(description());
    std::fprintf(stderr, "TuvFSEvent <0x%zx>[retCount=%u]%s\n", reinterpret_cast<std::size_t>(this), retainCount(),
                 text.c_str());
}

void TuvFSEvent::debug(int shift, int depth) const {
    debugShift(shift);
    debugHeader();
    if (_childEvents) _childEvents->debug(shift + 1, depth - 1);
    std::fflush(stderr);
}

void TuvFSEvent::debug() const {
    debug(0, 1);
}

bool TuvFSEvent::isEqual(const TuvObject* other) const {
    return other && (other == this || other->objectID() == _inode);
}

int TuvFSEvent_sortByPath(const void* a, const void* b) {
    const std::string_view one = eventOfSlot(a)->filePath();
    const std::string_view other = eventOfSlot(b)->filePath();
    return one.data() && other.data() ? compare(one, other) : 0;
}

int TuvFSEvent_sortByPathInsensitive(const void* a, const void* b) {
    const std::string_view one = eventOfSlot(a)->filePath();
    const std::string_view other = eventOfSlot(b)->filePath();
    return one.data() && other.data() ? caseInsensitiveCompare(one, other) : 0;
}

int TuvFSEvent_sortByInode(const void* a, const void* b) {
    const std::int32_t one = signedInode(*eventOfSlot(a));
    const std::int32_t other = signedInode(*eventOfSlot(b));
    return one < other ? -1 : one > other ? 1 : 0;
}

}  // namespace kavaro
