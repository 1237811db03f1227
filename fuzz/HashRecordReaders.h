#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

#include "cleanup/TuvNodeMD5Hash.h"

// What the fuzzer runs, and the tests with the corpus: the readers of hash records, over bytes that may be anything.
// Ends the process when a reader breaks its promise.
namespace kavaro::fuzz {

// Records that were read must be usable: written again they must be read again and be the same bytes. A digest that is
// too long is cut, and may be no text any more when it is read the next time.
inline void writeHashRecordsAgain(const TuvObjectArray& records, signed char compact) {
    const auto check = [](bool kept) {
        if (!kept) std::abort();
    };
    MD5HashHeader header, again;
    ByteBuffer first, second;
    TuvNodeMD5Hash::serializeCompact_TuvObjectArray(&records, &header, first, compact);
    const auto read = TuvNodeMD5Hash::deserializeCompact_TuvObjectArray(header, first.view(), compact);
    check(read && read->count() == records.count());
    for (const TuvObject* record : records)
        if (static_cast<const TuvNodeMD5Hash*>(record)->md5Hash().size() > TuvNodeMD5Hash::kLongestDigest) return;
    TuvNodeMD5Hash::serializeCompact_TuvObjectArray(read.get(), &again, second, compact);
    check(header == again && textOf(first.view()) == textOf(second.view()));
}

// The bytes: one that is odd for the compact form, one with the number of records, and the rest are the records.
inline void readHashRecords(ByteView bytes) {
    if (bytes.size() < 2) return;
    const auto compact = static_cast<signed char>(bytes[0] & 1);
    const int count = bytes[1];
    const ByteView data = bytes.subspan(2);
    const MD5HashHeader header = {{"instanceCount", std::to_string(count)}, {"dataSize", std::to_string(data.size())}};
    const auto records = TuvNodeMD5Hash::deserializeCompact_TuvObjectArray(header, data, compact);
    if (!records) return;
    if (records->count() != count) std::abort();
    std::size_t paths = 0;
    for (TuvObject* object : *records) {
        auto* record = static_cast<TuvNodeMD5Hash*>(object);
        if (record->description().empty() || record->md5Hash().size() > 34) std::abort();
        paths += record->filePath().value_or("").size();
    }
    const std::size_t fixed = compact ? TuvNodeMD5HashCompactDataSize : TuvNodeMD5HashDataSize;
    if (static_cast<std::size_t>(count) * fixed + paths > data.size()) std::abort();
    records->sortByFunction(TuvNodeMD5Hash_sortByInode);
    writeHashRecordsAgain(*records, compact);
    TuvNodeMD5Hash::cleanedArray(records.get());
}

}  // namespace kavaro::fuzz
