#include "platform/NodeIdentity.h"

namespace kavaro {

namespace {

constexpr std::uint64_t kIDCount = NodeIdentity::kEnd - NodeIdentity::kFirstDerived;

// One round of a 64-bit finalizer: every input bit reaches every output bit.
std::uint64_t mixed(std::uint64_t value) {
    value ^= value >> 30;
    value *= 0xbf58476d1ce4e5b9u;
    value ^= value >> 27;
    value *= 0x94d049bb133111ebu;
    return value ^ (value >> 31);
}

}  // namespace

std::uint32_t NodeIdentity::placeOf(std::uint64_t mount, std::uint64_t device) {
    auto matches = [&](const Place& place) { return place.mount == mount && place.device == device; };
    if (_lastPlace < _places.size() && matches(_places[_lastPlace])) return _lastPlace;
    std::uint32_t index = 0;
    while (index < _places.size() && !matches(_places[index])) ++index;
    if (index == _places.size()) _places.push_back({mount, device});
    _lastPlace = index;
    return index;
}

// The slot that holds `id`, or the free one where it belongs.
NodeIdentity::Slot& NodeIdentity::slotOf(std::uint32_t id) {
    std::size_t index =
        static_cast<std::size_t>((id - kFirstDerived) * static_cast<std::uint64_t>(_slots.size()) / kIDCount);
    while (_slots[index].id != 0 && _slots[index].id != id) {
        if (++index == _slots.size()) index = 0;
    }
    return _slots[index];
}

void NodeIdentity::grow() {
    std::vector<Slot> old(_slots.empty() ? 64 : _slots.size() + _slots.size() / 2);
    old.swap(_slots);
    for (const Slot& slot : old) {
        if (slot.id != 0) slotOf(slot.id) = slot;
    }
}

std::uint32_t NodeIdentity::derivedID(std::uint64_t mount, std::uint64_t device, std::uint64_t inode) {
    const std::uint64_t hash = mixed(mixed(mixed(mount) ^ device) ^ inode);
    std::uint32_t id = kFirstDerived + static_cast<std::uint32_t>(hash % kIDCount);

    std::lock_guard lock(_mutex);
    if ((_used + 1) * 8 > _slots.size() * 7) grow();
    const std::uint32_t place = placeOf(mount, device);
    // The first ID from the derived one on that is free or its own already: IDs are never given back, so the way to
    // an entry's own ID stays the same.
    for (;;) {
        Slot& slot = slotOf(id);
        if (slot.id == 0) {
            slot = {inode, place, id};
            ++_used;
            return id;
        }
        if (slot.inode == inode && slot.place == place) return id;
        if (++id == kEnd) id = kFirstDerived;
    }
}

}  // namespace kavaro
