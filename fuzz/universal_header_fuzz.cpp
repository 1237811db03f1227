#include "UniversalReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kavaro::fuzz::readUniversalFile({data, size});
    return 0;
}
