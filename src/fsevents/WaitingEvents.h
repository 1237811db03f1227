#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "fsevents/TuvFSEvent.h"

namespace kavaro {

// The events that wait to be taken, one an inode, ascending by inode as a signed number: what TuvFSEvents' threads
// share under the event lock. The order and the rules are those of a sorted array. It is kept in pieces because events
// of a burst come in any order of their inodes: in one piece, the millionth event would move megabytes.
class WaitingEvents {
  public:
    WaitingEvents();
    WaitingEvents(const WaitingEvents&) = delete;
    WaitingEvents& operator=(const WaitingEvents&) = delete;
    ~WaitingEvents();

    int count() const { return _count; }
    TuvFSEvent* eventWithInode(std::uint32_t inode) const;  // null when none waits
    // REQUIRES: none with its inode waits. Retains the event.
    void insert(TuvFSEvent* event);
    void remove(std::uint32_t inode);
    // All of them in order; none waits afterwards.
    TuvRef<TuvObjectArray> takeAll();

  private:
    struct Piece;  // up to kPieceSize events, never empty
    std::size_t pieceFor(std::int32_t inode) const;
    void splitPiece(std::size_t index);

    std::vector<std::unique_ptr<Piece>> _pieces;
    int _count = 0;
};

}  // namespace kavaro
