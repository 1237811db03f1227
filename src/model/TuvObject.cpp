#include "model/TuvObject.h"

#include <cstdio>

namespace kavaro {

void TuvObject::debugShift(int shift) {
    std::string text(shift > 0 ? static_cast<std::size_t>(shift) * 3 : 0, '-');
    text += "-> ";
    std::fwrite(text.data(), 1, text.size(), stderr);
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
