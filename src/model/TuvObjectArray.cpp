#include "model/TuvObjectArray.h"

#include <algorithm>
#include <cstdlib>

#include "model/ModelLog.h"
#include "model/TuvNode.h"

namespace kavaro {

namespace {

constexpr int kLoggedCount = 8192;

// Identifiers are compared as signed numbers.
std::int32_t signedID(const TuvObject* object) {
    return static_cast<std::int32_t>(object->objectID());
}

}  // namespace

TuvObjectArray::~TuvObjectArray() {
    if (_count > kLoggedCount) TuvLog::info(tuvObjectArrayLog, "~TuvObjectArray", "%d count", _count);
    if (tuvObjectArrayLog.traceOn()) TuvLog::trace(tuvObjectArrayLog, "~TuvObjectArray", "");
    removeAllObjects();
    std::free(_items);
}

int TuvObjectArray::indexOfObject(const TuvObject* object) const {
    if (!object) return kNotFound;
    for (int i = 0; i < _count; ++i)
        if (_items[i]->isEqual(object)) return i;
    return kNotFound;
}

TuvObject* TuvObjectArray::objectForObject(const TuvObject* object) const {
    return objectAtIndex(indexOfObject(object));
}

TuvNode* TuvObjectArray::objectWithINode(std::uint32_t inode) const {
    for (TuvObject* object : *this)
        if (asNode(object)->inode() == inode) return asNode(object);
    return nullptr;
}

int TuvObjectArray::binaryIndexOfObjectWithID(std::uint32_t id) const {
    const auto wanted = static_cast<std::int32_t>(id);
    int low = 0;
    int high = _count - 1;
    while (low <= high) {
        const int middle = low + (high - low) / 2;
        const std::int32_t probe = signedID(_items[middle]);
        if (wanted < probe)
            high = middle - 1;
        else if (wanted > probe)
            low = middle + 1;
        else
            return middle;
    }
    return kNotFound;
}

TuvObject* TuvObjectArray::binaryObjectWithID(std::uint32_t id) const {
    return objectAtIndex(binaryIndexOfObjectWithID(id));
}

void TuvObjectArray::addObject(TuvObject* object) {
    if (!object) return;
    adoptObject(object->retain());
}

void TuvObjectArray::adoptObject(TuvObject* object) {
    if (!object) return;
    while (_count >= _size) extendSize(0);
    append(object);
}

void TuvObjectArray::addObjectBinary(TuvObject* object) {
    if (!object) return;
    while (_count + 1 >= _size) extendSize(0);
    const std::int32_t id = signedID(object);
    int index = 0;
    while (index < _count && signedID(_items[index]) <= id) ++index;
    if (index == _count)
        addObject(object);
    else
        insertObjectAtIndex(object, index);
}

void TuvObjectArray::insertObjectAtIndex(TuvObject* object, int index) {
    if (!object) return;
    if (index >= _count) {
        addObject(object);
        return;
    }
    index = std::max(index, 0);
    while (_count + 1 >= _size) extendSize(0);
    if (tuvObjectArrayLog.debugOn())
        TuvLog::debug(tuvObjectArrayLog, "insertObjectAtIndex", "%@, index %d, count %d", object, index, _count);
    openSlot(index);
    _items[index] = object->retain();
}

void TuvObjectArray::insertObjectsAtIndex(const TuvObjectArray* array, int) {
    if (!array) return;
    const int added = array->_count;
    if (added == 0) {
        TuvLog::error(tuvObjectArrayLog, "insertObjectsAtIndex", "Empty array argument");
        return;
    }
    while (_size <= _count + added) extendSize(0);
    openFrontGap(added);
    TuvObject* const* from = array->_items;  // now: the array may be this one
    TuvObject** to = _items - added;
    for (int i = 0; i < added; ++i) {
        to[i] = from[i]->retain();
        if (tuvObjectArrayLog.debugOn())
            TuvLog::debug(tuvObjectArrayLog, "insertObjectsAtIndex", "%@, index %d, count %d", to[i], i, _count);
    }
    _items = to;
    _gap -= added;
    _count += added;
}

void TuvObjectArray::addObjectsFromArray(const TuvObjectArray* array) {
    if (!array || array->_count == 0) return;
    const int added = array->_count;
    while (_size <= _count + added) extendSize(0);
    makeTailRoom(added);
    for (int i = 0; i < added; ++i) {
        TuvObject* object = array->_items[i];
        if (tuvObjectArrayLog.debugOn())
            TuvLog::debug(tuvObjectArrayLog, "addObjectsFromArray", "%@, index %d, count %d", object, i, _count);
        append(object->retain());
    }
}

void TuvObjectArray::addObjectsFromArrayLength(TuvObject* const* objects, int length) {
    if (length < 0) return;
    setSize(_count + length);
    makeTailRoom(length);
    for (int i = 0; i < length; ++i)
        if (objects[i]) append(objects[i]->retain());
}

void TuvObjectArray::removeObjectAtIndex(int index) {
    TuvObject* object = objectAtIndex(index);
    if (!object) return;
    if (tuvObjectArrayLog.debugOn())
        TuvLog::debug(tuvObjectArrayLog, "removeObjectAtIndex", "%@, index %d", object, index);
    closeSlot(index);
    object->release();
}

void TuvObjectArray::removeObject(const TuvObject* object) {
    const int index = indexOfObject(object);
    if (index == kNotFound) return;
    if (tuvObjectArrayLog.debugOn())
        TuvLog::debug(tuvObjectArrayLog, "removeObject", "%@, index %d", _items[index], index);
    removeObjectAtIndex(index);
}

void TuvObjectArray::removeLastObject() {
    if (_count == 0) return;
    TuvObject* object = _items[_count - 1];
    closeSlot(_count - 1);
    object->release();
}

void TuvObjectArray::removeAllObjects() {
    while (_count > 0) _items[--_count]->release();
    slideToFront();
}

bool TuvObjectArray::replaceObject(TuvObject* object) {
    const int index = indexOfObject(object);
    if (index == kNotFound) return false;
    replaceSlot(index, object);
    return true;
}

void TuvObjectArray::replaceObjectAtIndex(int index, TuvObject* object) {
    if (index < 0 || index >= _count || !object) return;
    if (tuvObjectArrayLog.debugOn()) TuvLog::debug(tuvObjectArrayLog, "replaceObjectAtIndex", "%d", index);
    replaceSlot(index, object);
}

// The new one is retained first: it may live by the old one alone.
void TuvObjectArray::replaceSlot(int index, TuvObject* object) {
    TuvObject* old = _items[index];
    if (old == object) return;
    _items[index] = object->retain();
    old->release();
}

void TuvObjectArray::sortByFunction(Comparison comparison) {
    if (_count > 0) std::qsort(_items, static_cast<std::size_t>(_count), sizeof(void*), comparison);
}

bool TuvObjectArray::isEqual(const TuvObjectArray& other) const {
    if (_count != other._count) return false;
    for (int i = 0; i < _count; ++i)
        if (!_items[i]->isEqual(other._items[i])) return false;
    return true;
}

}  // namespace kavaro
