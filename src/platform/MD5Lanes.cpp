#include "platform/MD5Lanes.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace kavaro {

namespace {

#define KERNEL_NAME plainOne
#define KERNEL_TARGET
#define KERNEL_VECTOR 4
#define KERNEL_CHAINS 1
#include "platform/MD5Kernel.inc"

// Vectors of 16 bytes are everywhere; where not, the compiler takes them apart.
#define KERNEL_NAME plainFour
#define KERNEL_TARGET
#define KERNEL_VECTOR 16
#define KERNEL_CHAINS 1
#include "platform/MD5Kernel.inc"

#define KERNEL_NAME plainEight
#define KERNEL_TARGET
#define KERNEL_VECTOR 16
#define KERNEL_CHAINS 2
#include "platform/MD5Kernel.inc"

#if defined(__x86_64__)

// x86-64-v3. (v2 adds nothing that this code could use.)
#define KERNEL_NAME avx2Eight
#define KERNEL_TARGET __attribute__((target("avx2")))
#define KERNEL_VECTOR 32
#define KERNEL_CHAINS 1
#include "platform/MD5Kernel.inc"

#define KERNEL_NAME avx2Sixteen
#define KERNEL_TARGET __attribute__((target("avx2")))
#define KERNEL_VECTOR 32
#define KERNEL_CHAINS 2
#include "platform/MD5Kernel.inc"

// x86-64-v4: rotates in one instruction, also the narrow vectors.
#define TARGET_V4 __attribute__((target("avx2,avx512f,avx512vl,avx512bw,avx512dq")))

#define KERNEL_NAME avx512Four
#define KERNEL_TARGET TARGET_V4
#define KERNEL_VECTOR 16
#define KERNEL_CHAINS 1
#include "platform/MD5Kernel.inc"

#define KERNEL_NAME avx512Eight
#define KERNEL_TARGET TARGET_V4
#define KERNEL_VECTOR 32
#define KERNEL_CHAINS 1
#include "platform/MD5Kernel.inc"

#define KERNEL_NAME avx512Sixteen
#define KERNEL_TARGET TARGET_V4
#define KERNEL_VECTOR 64
#define KERNEL_CHAINS 1
#include "platform/MD5Kernel.inc"

#define KERNEL_NAME avx512ThirtyTwo
#define KERNEL_TARGET TARGET_V4
#define KERNEL_VECTOR 64
#define KERNEL_CHAINS 2
#include "platform/MD5Kernel.inc"

bool hasAVX2() {
    return __builtin_cpu_supports("avx2");
}

bool hasAVX512() {
    return hasAVX2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq");
}

#endif

}  // namespace

std::vector<MD5Kernel> md5KernelsOfProcessor() {
    std::vector<MD5Kernel> kernels = {
        {"plain, 1 lane", 1, plainOne}, {"plain, 4 lanes", 4, plainFour}, {"plain, 8 lanes", 8, plainEight}};
#if defined(__x86_64__)
    if (hasAVX2()) {
        kernels.push_back({"AVX2, 8 lanes", 8, avx2Eight});
        kernels.push_back({"AVX2, 16 lanes", 16, avx2Sixteen});
    }
    if (hasAVX512()) {
        kernels.push_back({"AVX-512, 4 lanes", 4, avx512Four});
        kernels.push_back({"AVX-512, 8 lanes", 8, avx512Eight});
        kernels.push_back({"AVX-512, 16 lanes", 16, avx512Sixteen});
        kernels.push_back({"AVX-512, 32 lanes", 32, avx512ThirtyTwo});
    }
#endif
    return kernels;
}

// A block takes about as long whatever the width, so the narrowest that holds all streams is the fastest; of two that
// are as wide, the later one uses the newer instructions.
std::vector<MD5Kernel> chooseMD5Kernels(const std::vector<MD5Kernel>& kernels) {
    int most = 0;
    for (const MD5Kernel& kernel : kernels) most = std::max(most, kernel.lanes);
    std::vector<MD5Kernel> chosen(static_cast<std::size_t>(most) + 1, {"none", 0, nullptr});
    for (int streams = 1; streams <= most; ++streams) {
        MD5Kernel& best = chosen[static_cast<std::size_t>(streams)];
        for (const MD5Kernel& kernel : kernels)
            if (kernel.lanes >= streams && (best.lanes == 0 || kernel.lanes <= best.lanes)) best = kernel;
    }
    return chosen;
}

const std::vector<MD5Kernel>& fastestMD5Kernels() {
    static const std::vector<MD5Kernel> kernels = chooseMD5Kernels(md5KernelsOfProcessor());
    return kernels;
}

MD5Digest MD5State::digest() const {
    MD5Digest digest;
    for (std::size_t i = 0; i < digest.size(); ++i)
        digest[i] = static_cast<std::uint8_t>(words[i / 4] >> (8 * (i % 4)));
    return digest;
}

MD5Tail::MD5Tail(ByteView left, std::uint64_t length)
    : blocks(left.size() + 1 + sizeof length <= kMD5BlockBytes ? 1 : 2) {
    const std::size_t size = blocks * kMD5BlockBytes;
    std::memset(bytes, 0, sizeof bytes);
    if (!left.empty()) std::memcpy(bytes, left.data(), left.size());
    bytes[left.size()] = 0x80;
    const std::uint64_t bits = length * 8;
    for (std::size_t i = 0; i < sizeof bits; ++i)
        bytes[size - sizeof bits + i] = static_cast<std::uint8_t>(bits >> (8 * i));
}

}  // namespace kavaro
