#pragma once

#include <cstddef>

namespace kavaro {

// Memory for the millions of small objects of a tree: blocks of up to kLargest bytes without a header, rounded up to 8
// (a general allocator spends 16 more on a node and its name). Each thread keeps some free blocks of its own and trades
// the rest in batches, so blocks may be freed by another thread than the one that took them: the server's worker takes
// and its notification thread frees. Memory is reused and never given back before the process ends. Any thread.
// Under a sanitizer it is plain malloc, so that misuse shows.
class SmallBlocks {
  public:
    static constexpr std::size_t kLargest = 96;

    // Never null: running out of memory ends the process. Larger sizes go to malloc.
    static void* allocate(std::size_t bytes);
    // `bytes` as given to allocate(). Null does nothing.
    static void free(void* block, std::size_t bytes);
};

}  // namespace kavaro
