#pragma once

#include <cstdint>
#include <string_view>

namespace kavaro {

// An owned, immutable text in one pointer: node names and cached paths, of which there are millions. Null (absent) is
// not the same as empty. The length is in front of the bytes; no terminator. Up to 4 GiB - 1 bytes.
class NodeText {
  public:
    NodeText() = default;
    explicit NodeText(std::string_view text) { set(text); }
    NodeText(NodeText&& other) noexcept : _block(other._block) { other._block = nullptr; }
    NodeText& operator=(NodeText&& other) noexcept;
    ~NodeText() { reset(); }

    bool isNull() const { return _block == nullptr; }
    // A view whose data() is null for an absent text; valid until the text changes.
    std::string_view view() const;
    void set(std::string_view text);
    void reset();

  private:
    struct Block;
    Block* _block = nullptr;
};

}  // namespace kavaro
