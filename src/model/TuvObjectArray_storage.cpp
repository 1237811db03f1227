#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "model/ModelLog.h"
#include "model/TuvObjectArray.h"

// What is seen from outside is the size, which follows the step table. The block is our own business: it has at least
// as many slots, some of them in front of the first element. Moving elements is paid for by a share of the count in
// insertions or removals, at either end.

namespace kavaro {

namespace {

constexpr int kLoggedSize = 16384;
// Arrays up to this count are simply moved: no gap is kept for them.
constexpr int kShortCount = 64;

int growthStep(int size) {
    if (size > 262144) return 131072;
    int step = 4;
    for (int limit = 16; size > limit; limit *= 2) step *= 2;
    return step;
}

int clampToInt(std::int64_t value) {
    return static_cast<int>(std::min<std::int64_t>(value, INT32_MAX));
}

TuvObject** checked(void* block) {
    if (!block) std::abort();
    return static_cast<TuvObject**>(block);
}

std::size_t bytesOf(int slots) {
    return static_cast<std::size_t>(slots) * sizeof(void*);
}

}  // namespace

void TuvObjectArray::setSize(int size) {
    size = std::max(size, 0);
    if (size == _size) return;
    if (size > kLoggedSize) TuvLog::info(tuvObjectArrayLog, "setSize", "oldSize %d, newSize %d", _size, size);
    const bool shrinks = size < _size;
    _size = size;
    const int slots = std::max(_size, _count);  // whatever was asked for, the elements stay
    if (shrinks && slots < _slots) {
        slideToFront();
        resizeBlock(slots);
    } else if (slots > _slots) {
        resizeBlock(grownSlots(slots));
    }
}

void TuvObjectArray::extendSize(int) {
    const int step = growthStep(_size);
    if (tuvObjectArrayLog.traceOn()) {
        TuvLog::trace(tuvObjectArrayLog, "extendSize", "extending by %d current size %d", step, _size);
        if (_size > 1024)
            TuvLog::trace(tuvObjectArrayLog, "extendSize", "extending by %d current size %d", step, _size);
    }
    setSize(clampToInt(std::int64_t{_size} + step));
}

void TuvObjectArray::shrinkSizeToCount() {
    setSize(_count + 1);
}

// Never less than a quarter more: the table's steps are short for big arrays, and exact sizes have no steps at all.
int TuvObjectArray::grownSlots(int needed) const {
    return std::max(needed, clampToInt(std::int64_t{_slots} + _slots / 4));
}

void TuvObjectArray::resizeBlock(int slots) {
    TuvObject** block = _items ? _items - _gap : nullptr;
    if (slots == 0) {
        std::free(block);
        _items = nullptr;
    } else {
        _items = checked(std::realloc(block, bytesOf(slots))) + _gap;
    }
    _slots = slots;
}

void TuvObjectArray::slideToFront() {
    if (_gap == 0) return;
    TuvObject** block = _items - _gap;
    std::memmove(block, _items, bytesOf(_count));
    _items = block;
    _gap = 0;
}

void TuvObjectArray::makeTailRoom(int needed) {
    if (_slots - _gap - _count >= needed) return;
    const bool worthSliding = _count <= kShortCount || _gap >= _count / 4;
    if (_slots - _count >= needed && worthSliding)
        slideToFront();
    else
        resizeBlock(grownSlots(clampToInt(std::int64_t{_gap} + _count + needed)));
}

void TuvObjectArray::openFrontGap(int needed) {
    if (_gap >= needed) return;
    if (_count <= kShortCount) {
        slideToFront();
        makeTailRoom(needed);
        moveWithinBlock(needed);
        return;
    }
    const int unused = _slots - _count;
    if (unused >= std::int64_t{needed} + _count / 2) {
        moveWithinBlock(needed + (unused - needed) / 2);
        return;
    }
    const int tail = unused - _gap;
    const int gap = clampToInt(std::int64_t{needed} + _count / 2);
    const int slots = clampToInt(std::int64_t{gap} + _count + tail);
    TuvObject** block = checked(std::malloc(bytesOf(slots)));
    std::memcpy(block + gap, _items, bytesOf(_count));
    std::free(_items - _gap);
    _items = block + gap;
    _gap = gap;
    _slots = slots;
}

void TuvObjectArray::moveWithinBlock(int gap) {
    TuvObject** first = _items - _gap + gap;
    std::memmove(first, _items, bytesOf(_count));
    _items = first;
    _gap = gap;
}

void TuvObjectArray::append(TuvObject* object) {
    makeTailRoom(1);
    _items[_count++] = object;
}

// The nearer end is moved.
void TuvObjectArray::openSlot(int index) {
    if (index < _count - index) {
        openFrontGap(1);
        std::memmove(_items - 1, _items, bytesOf(index));
        --_items;
        --_gap;
    } else {
        makeTailRoom(1);
        std::memmove(_items + index + 1, _items + index, bytesOf(_count - index));
    }
    ++_count;
}

void TuvObjectArray::closeSlot(int index) {
    --_count;
    if (index < _count - index) {
        std::memmove(_items + 1, _items, bytesOf(index));
        ++_items;
        ++_gap;
    } else {
        std::memmove(_items + index, _items + index + 1, bytesOf(_count - index));
    }
    if (_count == 0) slideToFront();
}

void TuvObjectArray::removeObjectsAtIndexes(const std::vector<int>& ascending) {
    if (ascending.empty()) return;
    std::vector<TuvObject*> removed;
    removed.reserve(ascending.size());
    for (int index : ascending) {
        if (tuvObjectArrayLog.debugOn()) {
            // As single removals from the first on say it: each index is that of the array without those before.
            TuvLog::debug(tuvObjectArrayLog, "removeObjectAtIndex", "%@, index %d", _items[index],
                          index - static_cast<int>(removed.size()));
        }
        removed.push_back(_items[index]);
    }
    const int amount = static_cast<int>(ascending.size());
    if (ascending.back() < _count - ascending.front()) {
        auto next = ascending.rbegin();
        int to = ascending.back();
        for (int from = to; from >= 0; --from) {
            if (next != ascending.rend() && *next == from)
                ++next;
            else
                _items[to--] = _items[from];
        }
        _items += amount;
        _gap += amount;
    } else {
        auto next = ascending.begin();
        int to = ascending.front();
        for (int from = to; from < _count; ++from) {
            if (next != ascending.end() && *next == from)
                ++next;
            else
                _items[to++] = _items[from];
        }
    }
    _count -= amount;
    if (_count == 0) slideToFront();
    for (TuvObject* object : removed) object->release();
}

}  // namespace kavaro
