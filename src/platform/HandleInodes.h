#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace kavaro {

// Inode numbers of entries by the handles that the kernel gives them, for file systems whose handles do not show them:
// what is gone cannot be asked any more. Keeps the last kMostHandles at least, twice as many at most. One thread.
class HandleInodes {
  public:
    static constexpr std::size_t kMostHandles = 32768;

    void remember(std::string_view handle, std::uint64_t inode);
    // The one that was remembered; else a number made of the handle, the same each time and nobody else's but by
    // accident. Neither it nor its low 32 bits are 0.
    std::uint64_t inodeOf(std::string_view handle) const;

  private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };
    using Inodes = std::unordered_map<std::string, std::uint64_t, Hash, std::equal_to<>>;

    Inodes _newer, _older;
};

}  // namespace kavaro
