#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "model/TuvObject.h"
#include "model/TuvRef.h"
#include "platform/ByteBuffer.h"

namespace kavaro {

class NodeFilterRule;
class TuvDirNode;
class TuvNode;
struct TuvNodeSerializer;

// Growable array of objects; retains what enters and releases what leaves. Indexes and counts are signed 32-bit.
// Holds hundreds of thousands of nodes with one pointer each. Grows by a step table, not by doubling. A gap before
// the first element, invisible from outside, makes inserting at and removing from index 0 constant in time.
// Operations that speak of nodes require that every element is a TuvNode (folders: TuvDirNode). One thread at a time.
class TuvObjectArray : public TuvObject {
  public:
    static constexpr int kNotFound = 0x7fffffff;
    using Comparison = int (*)(const void*, const void*);  // of pointers to two slots

    TuvObjectArray() = default;
    explicit TuvObjectArray(int size) { setSize(size); }
    // Reads the mixed form; malformed or null bytes leave the array empty. fromBytes() tells the two apart.
    explicit TuvObjectArray(ByteView bytes);
    // Null, with one log line, for malformed bytes; an empty array for null bytes.
    static TuvRef<TuvObjectArray> fromBytes(ByteView bytes);

    int count() const { return _count; }
    int size() const { return _size; }
    TuvObject* const* begin() const { return _items; }
    TuvObject* const* end() const { return _items + _count; }

    TuvObject* objectAtIndex(int index) const { return index >= 0 && index < _count ? _items[index] : nullptr; }
    TuvObject* lastObject() const { return objectAtIndex(_count - 1); }
    TuvNode* nodeAtIndex(int index) const { return asNode(objectAtIndex(index)); }
    TuvDirNode* folderAtIndex(int index) const { return asFolder(objectAtIndex(index)); }
    TuvObjectArray* arrayAtIndex(int index) const { return static_cast<TuvObjectArray*>(objectAtIndex(index)); }
    // The first element whose isEqual() accepts the object; null or kNotFound when there is none. Linear.
    int indexOfObject(const TuvObject* object) const;
    TuvObject* objectForObject(const TuvObject* object) const;
    TuvNode* objectWithINode(std::uint32_t inode) const;
    // REQUIRES: ascending by objectID() as a signed number. Of several equal ones, any.
    int binaryIndexOfObjectWithID(std::uint32_t id) const;
    TuvObject* binaryObjectWithID(std::uint32_t id) const;

    // Null is ignored here and in what follows.
    void addObject(TuvObject* object);
    // Takes over the caller's reference instead of retaining: for fresh objects.
    void adoptObject(TuvObject* object);
    // Before the first element with a larger objectID(). Linear, despite its name.
    void addObjectBinary(TuvObject* object);
    // An index beyond the count means the end, a negative one the front.
    void insertObjectAtIndex(TuvObject* object, int index);
    // At the front: the index is not looked at.
    void insertObjectsAtIndex(const TuvObjectArray* array, int ignored);
    void addObjectsFromArray(const TuvObjectArray* array);
    void addObjectsFromArrayLength(TuvObject* const* objects, int length);
    void removeObjectAtIndex(int index);
    void removeObject(const TuvObject* object);  // the first that is equal
    // In one pass. REQUIRES: ascending, each in range.
    void removeObjectsAtIndexes(const std::vector<int>& ascending);
    void removeLastObject();
    void removeAllObjects();
    // The first element that is equal to the object gives way to it; false when there is none.
    bool replaceObject(TuvObject* object);
    void replaceObjectAtIndex(int index, TuvObject* object);

    void setSize(int size);        // in pointers, exactly; elements beyond it stay
    void extendSize(int ignored);  // by one step of the table
    void shrinkSizeToCount();      // and one slot spare
    void sortByFunction(Comparison comparison);
    using TuvObject::isEqual;
    bool isEqual(const TuvObjectArray& other) const;

    // From here on elements are nodes. An empty array is resolved.
    void setParent(TuvDirNode* parent);
    std::uint64_t logicalSize() const;
    std::uint64_t physicalSize() const;
    int fileCount() const;
    int folderCount() const;
    int recursiveFileCount() const;
    int recursiveFolderCount() const;
    bool isResolved() const;
    void unloadNodes();  // REQUIRES: folders
    std::vector<std::string> filePaths() const;
    std::vector<std::string> fileURLs() const;  // "file://" URLs, percent-encoded
    TuvRef<TuvObjectArray> filterUsing(const NodeFilterRule& filter, bool flag = false) const;
    TuvRef<TuvObjectArray> filterUsing(const NodeFilterRule* filter, signed char flag = 0) const;
    // Arrays of arrays, in order. The first has `length` elements in each but the last; the second closes one with the
    // element that reaches either limit, adding up the low 32 bits of the sizes as a signed number.
    TuvRef<TuvObjectArray> toArraysInChunks(int length) const;
    TuvRef<TuvObjectArray> toArraysInChunksWithLogicalSize(int maximumBytes, int maximumCount) const;

    // Of folders. Each element takes the place of its placeholder (the same inode) in the nearest element behind it, or
    // with BackWards before it, and leaves the array; the roots remain. n log n in the number of placeholders.
    void rebuildTree();
    void rebuildTreeBackWards();
    void attachToRootNode(TuvDirNode* root);  // those that have a placeholder in the root itself
    // The folder's subfolders that are not resolved go to the front.
    void insertUnResolvedNodes(const TuvDirNode* folder);
    // The folder and all below it, as far as children are loaded, leave the array.
    void removeFoldersFromNodeRecursively(const TuvDirNode* folder);

    // Of TuvDirNode::languages(): one group for each language is left (cleanup/), sorted by display name. Folders
    // without an English one beside them leave their groups, English and non-localised groups the array.
    void coalesceLanguages();

    // Byte forms (serialization/). A null buffer for an empty array.
    ByteBuffer serialize() const;
    void serialize(ByteBuffer& data, int depth) const;            // mixed form
    void serialize(ByteBuffer& data, int depth, int type) const;  // homogeneous form
    // Read at the cursor and advance it. False for bytes that are cut short or make no sense.
    bool deserialize(ByteView data, int* cursor);
    bool deserialize(ByteView data, int* cursor, int type);
    void tuvNodeDatabase_serialize(ByteBuffer* index, ByteBuffer* node, ByteBuffer* data) const;
    void tuvNodeDatabase_serialize2(TuvNodeSerializer& serializer) const;

    void debug(int shift, int depth) const override;
    void debug() const override;

  protected:
    ~TuvObjectArray() override;

  private:
    static TuvNode* asNode(TuvObject* object);
    static TuvDirNode* asFolder(TuvObject* object);
    void rebuildTree(bool backwards);
    static void attachAt(TuvDirNode* owner, int slot, TuvDirNode* child);

    // Storage (TuvObjectArray_storage.cpp). `slots` are those of the whole block, the gap included.
    int grownSlots(int needed) const;
    void resizeBlock(int slots);
    void slideToFront();
    void moveWithinBlock(int gap);
    void makeTailRoom(int needed);
    void openFrontGap(int needed);
    void append(TuvObject* object);  // like all here: the count follows, the size does not
    void openSlot(int index);        // REQUIRES: index < count; the new slot's content is unspecified
    void closeSlot(int index);
    void replaceSlot(int index, TuvObject* object);

    std::int32_t _size = 0;        // capacity as seen from outside, in pointers
    std::int32_t _count = 0;       // pointers in use
    std::int32_t _gap = 0;         // free slots before the first element
    std::int32_t _slots = 0;       // slots of the whole block, at least max(size, count)
    TuvObject** _items = nullptr;  // first element; the block begins _gap slots earlier
};

// For arrays whose elements are arrays: by the sum of physical sizes, largest first.
int TuvObjectArray_sortByPhysicalSize(const void* a, const void* b);
// Logs the number of items and each one's objectID.
void debug(const TuvObjectArray* array);

}  // namespace kavaro
