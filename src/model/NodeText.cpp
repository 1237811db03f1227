#include "model/NodeText.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/SmallBlocks.h"

namespace kavaro {

// The bytes follow the length in the same allocation.
struct NodeText::Block {
    std::uint32_t length;
    char* bytes() { return reinterpret_cast<char*>(this + 1); }
    static Block empty;  // every empty text, never freed
};

constinit NodeText::Block NodeText::Block::empty{0};

NodeText& NodeText::operator=(NodeText&& other) noexcept {
    if (this != &other) {
        reset();
        _block = std::exchange(other._block, nullptr);
    }
    return *this;
}

std::string_view NodeText::view() const {
    if (!_block) return {};
    return {_block->bytes(), _block->length};
}

void NodeText::set(std::string_view text) {
    Block* fresh = nullptr;
    if (text.data()) {
        if (text.empty()) {
            fresh = &Block::empty;
        } else {
            if (text.size() > UINT32_MAX) std::abort();
            fresh = static_cast<Block*>(SmallBlocks::allocate(sizeof(Block) + text.size()));
            fresh->length = static_cast<std::uint32_t>(text.size());
            std::memcpy(fresh->bytes(), text.data(), text.size());
        }
    }
    reset();  // last: the text may be a view of this one
    _block = fresh;
}

void NodeText::reset() {
    if (_block && _block != &Block::empty) SmallBlocks::free(_block, sizeof(Block) + _block->length);
    _block = nullptr;
}

}  // namespace kavaro
