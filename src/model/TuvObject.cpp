#include "model/TuvObject.h"

#include <cstdio>

namespace kavaro {

void TuvObject::debugShift(int shift) {
    static constexpr char kDashes[] = "------------------------------------------------------------";
    constexpr std::int64_t kBlock = sizeof kDashes - 1;
    for (std::int64_t left = std::int64_t{3} * shift; left > 0; left -= kBlock)
        std::fwrite(kDashes, 1, static_cast<std::size_t>(left < kBlock ? left : kBlock), stderr);
    std::fputs("-> ", stderr);
}

void TuvObject::debugHeader() const {
    std::fprintf(stderr, "<0x%zx>\n", reinterpret_cast<std::size_t>(this));
}

void TuvObject::debug(int shift, int) const {
    debugShift(shift);
    debugHeader();
    std::fflush(stderr);
}

void TuvObject::debug() const {
    debug(0, 1);
}

std::string TuvObject::description() const {
    return "TuvObject";
}

bool TuvObject::isEqual(const TuvObject* other) const {
    return other == this;
}

std::uint32_t TuvObject::objectID() const {
    return 1;
}

}  // namespace kavaro
