#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "model/NodeText.h"
#include "model/TuvObject.h"
#include "model/TuvObjectArray.h"
#include "model/TuvRef.h"
#include "platform/ConditionLock.h"
#include "platform/PropertyList.h"

namespace kavaro {

class WaitingEvents;

// One change of the file system: what happened to which path, inode and device, for a rename also where it went, and
// the later changes of the same inode that came while it waited. Made by the thread that reads the device or a
// recording, handed over under the event lock, then owned by the batch it was taken into: one thread at a time. 56
// bytes and the paths. Children have none of their own, so nothing here is nested deeper than that.
class TuvFSEvent : public TuvObject {
  public:
    static constexpr std::uint32_t kFirstDevice = 0x0E000014;  // accepted until a volume is watched

    explicit TuvFSEvent(int type) : _type(type) {}

    // Any thread. Set before anything listens: events that cancel each other out are kept, so that a record of all of
    // them is collected.
    static void setRunAsDataCollector(bool flag);
    static bool runAsDataCollector();
    // The one device whose events are accepted, for the whole process; set when a volume begins to be watched.
    static void setAcceptedDevice(std::uint32_t device);
    static std::uint32_t acceptedDevice();

    // Codes 0 to 9 come from the device; it makes events of all but 2, 5, 6 and 8.
    static bool validEventType(int type);
    static bool shouldHandleEventType(int type);
    // Null for a code without a name.
    static const char* stringType(int type);
    // Of what the device reports; -1 for every other name.
    static int intType(std::string_view name);

    // The source, or the destination of a rename whose source is there already. A view without data is no path.
    void setFilePath(std::string_view path);
    void setInode(std::uint32_t inode);
    void setDevice(std::uint32_t device);
    void setType(int type) { _type = type; }

    int type() const { return _type; }
    std::uint32_t inode() const { return _inode; }
    std::uint32_t inodeDestination() const { return _inodeDestination; }
    std::uint32_t device() const { return _device; }
    std::uint32_t deviceDestination() const { return _deviceDestination; }
    // Views without data for paths that are not there; valid until the path is set again.
    std::string_view filePath() const { return _filePath.view(); }
    std::string_view filePathDestination() const { return _filePathDestination.view(); }
    const TuvObjectArray* childEvents() const { return _childEvents.get(); }  // null when there are none
    TuvFSEvent* lastChildEvent() const;

    // Type, inode, device and path, without destination and children.
    TuvRef<TuvFSEvent> clone() const;
    // Not when it is of this event's own type.
    void addChildEvent(TuvFSEvent* event);
    // This path begins with the other one's; bytes are compared, separators mean nothing.
    bool isChildFilePath(const TuvFSEvent* other) const;
    bool shouldAddEvent() const;
    bool is_CREATE_DELETE() const;

    // Filters the event, then folds it into the one that waits for its inode or lets it wait itself. Takes over the
    // caller's reference; null does nothing. The array is sorted by inode; without a lock the caller is alone with it.
    static void addEvent(TuvFSEvent* event, TuvObjectArray* array, ConditionLock* lock);
    static void addEvent(TuvFSEvent* event, WaitingEvents* events, ConditionLock* lock);

    // What a deleted or a new folder stands for: every event whose path begins with its path ("/a" for "/ab" and
    // "/a/b"), or those within it alone, and of these none that left it or, for a deleted one, is not deleted itself.
    enum class Covers { samePrefix, within };
    // Passes over a batch, in the order in which they are to run. Each is linear but for sorting.
    static void coalesce_DELETE(TuvObjectArray* batch, Covers covers = Covers::samePrefix);
    static void coalesce_CREATE_DIR(TuvObjectArray* batch, Covers covers = Covers::samePrefix);
    static void coalesce_CREATE_MODIFY_RENAME(TuvObjectArray* batch);
    void coalesce_CREATE_MODIFY_RENAME();
    // The place for what is done with changes. Says how many there were.
    static void processItems(const TuvObjectArray* batch);

    // One row of a recording, with its children's rows if asked; the paths escaped.
    std::string descriptionInOneLine(bool withChildren) const;
    // The batch as a recording, at debug level.
    static void debugEvents(const TuvObjectArray* batch);
    // Of one row of a recording.
    static TuvRef<TuvFSEvent> eventFromString(const PropertyList& row, bool log);

    void debugHeader() const override;
    void debug(int shift, int depth) const override;
    void debug() const override;
    std::string description() const override;
    bool isEqual(const TuvObject* other) const override;
    std::uint32_t objectID() const override { return _inode; }

  protected:
    ~TuvFSEvent() override = default;

  private:
    void appendFields(std::string& text) const;

    std::uint32_t _inode = 0;
    std::uint32_t _inodeDestination = 0;
    std::int32_t _type;
    std::uint32_t _device = 0;
    std::uint32_t _deviceDestination = 0;
    NodeText _filePath;
    NodeText _filePathDestination;
    TuvRef<TuvObjectArray> _childEvents;
};

// For TuvObjectArray::sortByFunction(). Events without a path are equal to every other; inodes count as signed numbers,
// as they do in searches.
int TuvFSEvent_sortByPath(const void* a, const void* b);
int TuvFSEvent_sortByPathInsensitive(const void* a, const void* b);
int TuvFSEvent_sortByInode(const void* a, const void* b);

}  // namespace kavaro
