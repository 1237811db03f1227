#include "RecordingReader.h"
#include "support/TuvLog.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kavaro::TuvLog::setDestinationEnabled(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kavaro::fuzz::readRecording({reinterpret_cast<const char*>(data), size});
    return 0;
}
