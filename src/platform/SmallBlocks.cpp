#include "platform/SmallBlocks.h"

#include <cstdint>
#include <cstdlib>
#include <mutex>

namespace kavaro {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kPlain = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kPlain = true;
#else
constexpr bool kPlain = false;
#endif
#else
constexpr bool kPlain = false;
#endif

constexpr std::size_t kStep = 8;
constexpr std::size_t kSmallest = 16;  // a free block holds two links
constexpr std::size_t kClasses = SmallBlocks::kLargest / kStep + 1;
constexpr std::uint32_t kBatch = 128;  // blocks that change hands at once
constexpr std::size_t kRegion = 256 * 1024;

struct FreeBlock {
    FreeBlock* next;
    FreeBlock* nextBatch;  // of the first block of a traded batch
};

void* mallocOrEnd(std::size_t bytes) {
    void* memory = std::malloc(bytes);
    if (!memory) std::abort();
    return memory;
}

// What all threads share of one size. Blocks are handed out and taken back in batches.
class Store {
  public:
    FreeBlock* take(std::size_t bytes, std::uint32_t* count) {
        std::lock_guard lock(_mutex);
        *count = kBatch;
        if (FreeBlock* batch = _batches) {
            _batches = batch->nextBatch;
            return batch;
        }
        if (static_cast<std::size_t>(_end - _next) < kBatch * bytes) {
            _next = static_cast<char*>(mallocOrEnd(kRegion));
            _end = _next + kRegion;
        }
        FreeBlock* batch = nullptr;
        for (char* block = _next + (kBatch - 1) * bytes; block >= _next; block -= bytes) {
            auto* free = reinterpret_cast<FreeBlock*>(block);
            free->next = batch;
            batch = free;
        }
        _next += kBatch * bytes;
        return batch;
    }
    void giveBack(FreeBlock* batch) {
        std::lock_guard lock(_mutex);
        batch->nextBatch = _batches;
        _batches = batch;
    }

  private:
    std::mutex _mutex;
    FreeBlock* _batches = nullptr;  // each of kBatch blocks; guarded by _mutex
    char* _next = nullptr;          // never used memory; guarded by _mutex
    char* _end = nullptr;           // guarded by _mutex
};

Store& store(std::size_t number) {
    static Store* stores = new Store[kClasses];  // threads use it until the very end
    return stores[number];
}

// The calling thread's free blocks of one size: what it works with, and a full batch in reserve so that taking and
// freeing in turn does not trade at each step.
struct Cache {
    FreeBlock* first;
    std::uint32_t count;
    FreeBlock* reserve;
};

// Plain data, so that it is usable while a thread ends; blocks that a thread still holds then are lost to the others,
// at most two batches of each size.
thread_local constinit Cache caches[kClasses] = {};

}  // namespace

void* SmallBlocks::allocate(std::size_t bytes) {
    if (kPlain || bytes > kLargest) return mallocOrEnd(bytes);
    if (bytes < kSmallest) bytes = kSmallest;
    const std::size_t number = (bytes + kStep - 1) / kStep;
    Cache& cache = caches[number];
    if (!cache.first) {
        if (cache.reserve) {
            cache.first = cache.reserve;
            cache.reserve = nullptr;
            cache.count = kBatch;
        } else {
            cache.first = store(number).take(number * kStep, &cache.count);
        }
    }
    FreeBlock* block = cache.first;
    cache.first = block->next;
    --cache.count;
    return block;
}

void SmallBlocks::free(void* memory, std::size_t bytes) {
    if (!memory) return;
    if (kPlain || bytes > kLargest) return std::free(memory);
    if (bytes < kSmallest) bytes = kSmallest;
    const std::size_t number = (bytes + kStep - 1) / kStep;
    Cache& cache = caches[number];
    if (cache.count == kBatch) {
        if (cache.reserve) store(number).giveBack(cache.reserve);
        cache.reserve = cache.first;
        cache.first = nullptr;
        cache.count = 0;
    }
    auto* block = static_cast<FreeBlock*>(memory);
    block->next = cache.first;
    cache.first = block;
    ++cache.count;
}

}  // namespace kavaro
