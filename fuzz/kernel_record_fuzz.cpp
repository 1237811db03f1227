#include <fcntl.h>
#include <unistd.h>

#include "KernelRecordReader.h"
#include "support/TuvLog.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Bytes without a meaning are shown on standard output.
    const int nothing = open("/dev/null", O_WRONLY);
    return dup2(nothing, STDOUT_FILENO) < 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kavaro::TuvLog::setDestinationEnabled(false);
    kavaro::fuzz::readKernelRecords({data, size});
    return 0;
}
