#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/ByteView.h"

namespace kavaro {

// The bytes of an MD5 digest in their order in the text form.
using MD5Digest = std::array<std::uint8_t, 16>;

std::string md5Text(const MD5Digest& digest);  // 32 hexadecimal characters, small letters

// One stream after another, by the system's library; where that refuses the algorithm, by our own code.
class MD5Stream {
  public:
    enum class Code { library, own };
    explicit MD5Stream(Code code = Code::library);
    MD5Stream(const MD5Stream&) = delete;
    MD5Stream& operator=(const MD5Stream&) = delete;
    ~MD5Stream();

    void add(ByteView bytes);
    // Of all that was added. Once.
    MD5Digest finish();

  private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

MD5Digest md5Of(ByteView bytes);

}  // namespace kavaro
