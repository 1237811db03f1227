#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/MD5.h"

namespace kavaro {

constexpr std::size_t kMD5BlockBytes = 64;

// What is carried from one block of a stream to the next.
struct MD5State {
    std::uint32_t words[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    MD5Digest digest() const;
};

// What stands behind the last whole block of a stream: the bytes left over, a one bit, zeros, the length. One block or
// two.
struct MD5Tail {
    std::uint8_t bytes[2 * kMD5BlockBytes];
    std::size_t blocks;
    // REQUIRES: left.size() < kMD5BlockBytes; `length` is that of the whole stream.
    MD5Tail(ByteView left, std::uint64_t length);
};

// Takes the next blocks of several streams at once, one stream a lane of the processor's vectors.
struct MD5Kernel {
    const char* name;
    int lanes;
    // `blocks` of each of `lanes` streams. States must differ; data may be the same.
    void (*run)(MD5State* const* states, const std::uint8_t* const* data, std::size_t blocks);
};

// Most lanes of any kernel.
constexpr int kMD5MostLanes = 32;

// All that this processor can run, for tests and benchmarks.
std::vector<MD5Kernel> md5KernelsOfProcessor();

// The fastest of them for each number of streams, chosen once: [n] is for n streams, from 1 to its last index, and has
// at least n lanes.
const std::vector<MD5Kernel>& fastestMD5Kernels();
// The same choice out of others, in any order.
std::vector<MD5Kernel> chooseMD5Kernels(const std::vector<MD5Kernel>& kernels);

}  // namespace kavaro
