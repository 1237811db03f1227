#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace kavaro {

// Gives every entry of a job its 32-bit node ID. IDs stay below 0x7fffffff, because they are compared as signed
// numbers. An inode below 0x40000000 on the root's mount is its own ID and costs nothing. Every other entry (another
// mount, a bind mount, a large inode) gets an ID from 0x40000000 up, derived from its identity, made unique by
// probing, and the same again whenever it is met again; each costs 18 to 28 bytes. Safe from any thread.
// Limits: 0x3fffffff derived IDs; only (mount, device) pairs are searched one by one, and only when the pair changes.
class NodeIdentity {
  public:
    static constexpr std::uint32_t kFirstDerived = 0x40000000;
    static constexpr std::uint32_t kEnd = 0x7fffffff;  // not an ID

    explicit NodeIdentity(std::uint64_t rootMount) : _rootMount(rootMount) {}

    std::uint32_t nodeID(std::uint64_t mount, std::uint64_t device, std::uint64_t inode) {
        if (mount == _rootMount && inode < kFirstDerived) return static_cast<std::uint32_t>(inode);
        return derivedID(mount, device, inode);
    }
    std::uint64_t rootMount() const { return _rootMount; }

  private:
    struct Place {
        std::uint64_t mount, device;
    };
    struct Slot {
        std::uint64_t inode;
        std::uint32_t place;  // index in _places
        std::uint32_t id;     // 0: free
    };
    std::uint32_t derivedID(std::uint64_t mount, std::uint64_t device, std::uint64_t inode);
    std::uint32_t placeOf(std::uint64_t mount, std::uint64_t device);
    Slot& slotOf(std::uint32_t id);
    void grow();

    const std::uint64_t _rootMount;
    // Guarded by _mutex, all of it.
    std::mutex _mutex;
    std::vector<Place> _places;
    std::uint32_t _lastPlace = 0;
    std::vector<Slot> _slots;  // open addressing by ID, in the order of IDs
    std::size_t _used = 0;
};

}  // namespace kavaro
