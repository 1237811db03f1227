#include "platform/SmallBlocks.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

namespace kavaro {
namespace {

struct Held {
    unsigned char* bytes;
    std::size_t size;
    unsigned char fill;
};

Held take(std::size_t size, unsigned char fill) {
    Held held{static_cast<unsigned char*>(SmallBlocks::allocate(size)), size, fill};
    std::memset(held.bytes, fill, size);
    return held;
}

bool isWhole(const Held& held) {
    for (std::size_t i = 0; i < held.size; ++i)
        if (held.bytes[i] != held.fill) return false;
    return true;
}

TEST(SmallBlocks, BlocksAreApartAndAligned) {
    std::vector<Held> all;
    for (std::size_t size = 1; size <= SmallBlocks::kLargest + 40; ++size)
        for (int i = 0; i < 300; ++i) all.push_back(take(size, static_cast<unsigned char>(size + i)));
    for (const Held& held : all) {
        EXPECT_TRUE(isWhole(held)) << held.size;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(held.bytes) % 8, 0u);
    }
    for (const Held& held : all) SmallBlocks::free(held.bytes, held.size);
}

TEST(SmallBlocks, NullIsFreedToo) {
    SmallBlocks::free(nullptr, 24);
}

TEST(SmallBlocks, RandomSizesComeAndGo) {
    std::mt19937 random(7);
    std::vector<Held> all;
    for (int step = 0; step < 200000; ++step) {
        if (all.size() < 3000 && random() % 5 < 3) {
            all.push_back(take(1 + random() % 120, static_cast<unsigned char>(random())));
        } else if (!all.empty()) {
            std::swap(all[random() % all.size()], all.back());
            ASSERT_TRUE(isWhole(all.back()));
            SmallBlocks::free(all.back().bytes, all.back().size);
            all.pop_back();
        }
    }
    for (const Held& held : all) SmallBlocks::free(held.bytes, held.size);
}

// One thread takes, the other frees, as the server's do.
TEST(SmallBlocks, AnotherThreadMayFree) {
    std::mutex mutex;
    std::vector<Held> waiting;  // guarded by mutex
    bool done = false;          // guarded by mutex
    std::thread taker([&] {
        for (int i = 0; i < 100000; ++i) {
            const Held held = take(i % 2 == 0 ? 72 : 20, static_cast<unsigned char>(i));
            std::lock_guard lock(mutex);
            waiting.push_back(held);
        }
        std::lock_guard lock(mutex);
        done = true;
    });
    int freed = 0;
    for (bool over = false; !over;) {
        std::vector<Held> batch;
        {
            std::lock_guard lock(mutex);
            batch.swap(waiting);
            over = done;
        }
        for (const Held& held : batch) {
            ASSERT_TRUE(isWhole(held));
            SmallBlocks::free(held.bytes, held.size);
            ++freed;
        }
    }
    taker.join();
    EXPECT_EQ(freed, 100000);
}

}  // namespace
}  // namespace kavaro
