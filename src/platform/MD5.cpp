#include "platform/MD5.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>

#include "platform/MD5Lanes.h"

namespace kavaro {

namespace {

// Looked up once: a look-up takes longer than a small file. Null where the library's rules forbid the algorithm.
const EVP_MD* libraryMD5() {
    static EVP_MD* const algorithm = EVP_MD_fetch(nullptr, "MD5", nullptr);
    return algorithm;
}

}  // namespace

std::string md5Text(const MD5Digest& digest) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * digest.size());
    for (const std::uint8_t byte : digest) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

struct MD5Stream::Impl {
    EVP_MD_CTX* context = nullptr;  // null: by our own code
    MD5State state;
    std::uint64_t length = 0;
    std::uint8_t left[kMD5BlockBytes];
    std::size_t leftSize = 0;

    void run(const std::uint8_t* data, std::size_t blocks) {
        MD5State* const states[] = {&state};
        if (blocks > 0) fastestMD5Kernels()[1].run(states, &data, blocks);
    }
    void add(ByteView bytes) {
        length += bytes.size();
        if (leftSize > 0) {
            const std::size_t taken = std::min(kMD5BlockBytes - leftSize, bytes.size());
            std::memcpy(left + leftSize, bytes.data(), taken);
            leftSize += taken;
            bytes = bytes.subspan(taken);
            if (leftSize < kMD5BlockBytes) return;
            run(left, 1);
        }
        const std::size_t blocks = bytes.size() / kMD5BlockBytes;
        run(bytes.data(), blocks);
        bytes = bytes.subspan(blocks * kMD5BlockBytes);
        leftSize = bytes.size();
        if (leftSize > 0) std::memcpy(left, bytes.data(), leftSize);
    }
    MD5Digest finish() {
        const MD5Tail tail({left, leftSize}, length);
        run(tail.bytes, tail.blocks);
        return state.digest();
    }
};

MD5Stream::MD5Stream(Code code) : _impl(std::make_unique<Impl>()) {
    if (code == Code::own || !libraryMD5()) return;
    _impl->context = EVP_MD_CTX_new();
    if (_impl->context && EVP_DigestInit_ex(_impl->context, libraryMD5(), nullptr) == 1) return;
    EVP_MD_CTX_free(_impl->context);
    _impl->context = nullptr;
}

MD5Stream::~MD5Stream() {
    EVP_MD_CTX_free(_impl->context);
}

void MD5Stream::add(ByteView bytes) {
    if (bytes.empty()) return;
    if (_impl->context)
        EVP_DigestUpdate(_impl->context, bytes.data(), bytes.size());
    else
        _impl->add(bytes);
}

MD5Digest MD5Stream::finish() {
    MD5Digest digest{};
    if (!_impl->context) return _impl->finish();
    unsigned length = 0;
    EVP_DigestFinal_ex(_impl->context, digest.data(), &length);
    return digest;
}

MD5Digest md5Of(ByteView bytes) {
    MD5Stream stream;
    stream.add(bytes);
    return stream.finish();
}

}  // namespace kavaro
