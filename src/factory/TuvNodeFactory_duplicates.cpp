#include "factory/FactoryLog.h"
#include "factory/TuvNodeFactory.h"
#include "support/Stopwatch.h"

namespace kavaro {

TuvNodeFactory::FileDuplicates TuvNodeFactory::fileDuplicatesHeader(ByteView data, const MD5HashHeader& header) {
    const char* const selector = "fileDuplicates:header:";
    const Stopwatch watch;
    const TuvRef<TuvObjectArray> records = TuvNodeMD5Hash::deserialize_TuvObjectArray(header, data);
    const int count = records ? records->count() : 0;
    if (_debugOn) TuvLog::debug(factoryLog, selector, "%d files", count);
    TuvNodeMD5Hash::loadMD5Hash(records.get());
    FileDuplicates answer;
    TuvNodeMD5Hash::serialize_TuvObjectArray(records.get(), &answer.headerData, answer.data);
    TuvLog::info(factoryLog, selector, "processed %d nodes in %9.3f ms", count, watch.milliseconds());
    return answer;
}

}  // namespace kavaro
