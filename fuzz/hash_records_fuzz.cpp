#include "HashRecordReaders.h"
#include "support/TuvLog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kavaro::TuvLog::setDestinationEnabled(false);
    kavaro::fuzz::readHashRecords({data, size});
    return 0;
}
