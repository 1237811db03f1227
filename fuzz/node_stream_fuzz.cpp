#include "NodeReaders.h"
#include "support/TuvLog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kavaro::TuvLog::setDestinationEnabled(false);
    kavaro::fuzz::readNodeStream({data, size});
    return 0;
}
