#include "fsevents/WaitingEvents.h"

#include <algorithm>

#include "fsevents/EventHelpers.h"

namespace kavaro {

namespace {

constexpr int kPieceSize = 512;  // the most that one insertion moves

}  // namespace

struct WaitingEvents::Piece {
    int count = 0;
    std::int32_t inodes[kPieceSize];  // ascending; beside the events, so that a search stays in a few lines of memory
    TuvFSEvent* events[kPieceSize];

    int indexFor(std::int32_t inode) const {
        return static_cast<int>(std::lower_bound(inodes, inodes + count, inode) - inodes);
    }
    void insert(int index, std::int32_t inode, TuvFSEvent* event) {
        std::copy_backward(inodes + index, inodes + count, inodes + count + 1);
        std::copy_backward(events + index, events + count, events + count + 1);
        inodes[index] = inode;
        events[index] = event;
        ++count;
    }
    void remove(int index) {
        std::copy(inodes + index + 1, inodes + count, inodes + index);
        std::copy(events + index + 1, events + count, events + index);
        --count;
    }
    // Takes everything from `index` of the other one on.
    void append(Piece& other, int index) {
        std::copy(other.inodes + index, other.inodes + other.count, inodes + count);
        std::copy(other.events + index, other.events + other.count, events + count);
        count += other.count - index;
        other.count = index;
    }
};

WaitingEvents::WaitingEvents() = default;

WaitingEvents::~WaitingEvents() {
    for (const auto& piece : _pieces)
        for (int index = 0; index < piece->count; ++index) piece->events[index]->release();
}

// The last piece that begins at or before the inode, or the first one. REQUIRES: there is one.
std::size_t WaitingEvents::pieceFor(std::int32_t inode) const {
    const auto behind = std::upper_bound(
        _pieces.begin() + 1, _pieces.end(), inode,
        [](std::int32_t wanted, const std::unique_ptr<Piece>& piece) { return wanted < piece->inodes[0]; });
    return static_cast<std::size_t>(behind - _pieces.begin()) - 1;
}

TuvFSEvent* WaitingEvents::eventWithInode(std::uint32_t inode) const {
    if (_pieces.empty()) return nullptr;
    const auto wanted = static_cast<std::int32_t>(inode);
    const Piece& piece = *_pieces[pieceFor(wanted)];
    const int index = piece.indexFor(wanted);
    return index < piece.count && piece.inodes[index] == wanted ? piece.events[index] : nullptr;
}

void WaitingEvents::splitPiece(std::size_t index) {
    auto behind = std::make_unique<Piece>();
    behind->append(*_pieces[index], kPieceSize / 2);
    _pieces.insert(_pieces.begin() + static_cast<std::ptrdiff_t>(index) + 1, std::move(behind));
}

void WaitingEvents::insert(TuvFSEvent* event) {
    const std::int32_t inode = signedInode(*event);
    if (_pieces.empty()) _pieces.push_back(std::make_unique<Piece>());
    std::size_t place = pieceFor(inode);
    if (_pieces[place]->count == kPieceSize) {
        // New inodes mostly ascend: what is behind everything begins a piece and leaves a full one.
        if (place + 1 == _pieces.size() && inode > _pieces[place]->inodes[kPieceSize - 1])
            _pieces.push_back(std::make_unique<Piece>());
        else
            splitPiece(place);
        if (_pieces[place + 1]->count == 0 || inode >= _pieces[place + 1]->inodes[0]) ++place;
    }
    Piece& piece = *_pieces[place];
    event->retain();
    piece.insert(piece.indexFor(inode), inode, event);
    ++_count;
}

void WaitingEvents::remove(std::uint32_t inode) {
    TuvFSEvent* event = eventWithInode(inode);
    if (!event) return;
    const std::size_t place = pieceFor(static_cast<std::int32_t>(inode));
    Piece& piece = *_pieces[place];
    piece.remove(piece.indexFor(static_cast<std::int32_t>(inode)));
    --_count;
    // Pieces that have become small join, so that memory follows the number of events.
    if (place + 1 < _pieces.size() && piece.count + _pieces[place + 1]->count <= kPieceSize / 2) {
        piece.append(*_pieces[place + 1], 0);
        _pieces.erase(_pieces.begin() + static_cast<std::ptrdiff_t>(place) + 1);
    }
    if (_pieces[place]->count == 0) _pieces.erase(_pieces.begin() + static_cast<std::ptrdiff_t>(place));
    event->release();
}

TuvRef<TuvObjectArray> WaitingEvents::takeAll() {
    auto batch = make<TuvObjectArray>(_count);
    for (const auto& piece : _pieces)
        for (int index = 0; index < piece->count; ++index) batch->adoptObject(piece->events[index]);
    _pieces.clear();
    _count = 0;
    return batch;
}

}  // namespace kavaro
