// What bench/duplicates runs: digests of all files of a folder, in the batches and by the tool that the server uses.
//   digest_files FOLDER   writes "N files, B bytes, S s, P bytes of memory at most"
#include <cstdio>
#include <filesystem>

#include "cleanup/TuvNodeMD5Hash.h"
#include "platform/Clock.h"
#include "platform/Environment.h"
#include "support/TuvLog.h"

int main(int argc, char** argv) {
    using namespace kavaro;
    if (argc != 2) return 2;
    TuvLog::setDefaultLevel(LogLevel::off);
    auto records = make<TuvObjectArray>();
    std::uintmax_t bytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[1])) {
        if (!entry.is_regular_file()) continue;
        bytes += entry.file_size();
        auto record = make<TuvNodeMD5Hash>();
        record->setFilePath(entry.path().string());
        records->adoptObject(record.leak());
    }
    const double begin = Clock::system().monotonicSeconds();
    TuvNodeMD5Hash::loadMD5Hash(records.get());
    const double seconds = Clock::system().monotonicSeconds() - begin;
    int missing = 0;
    for (TuvObject* record : *records) missing += static_cast<TuvNodeMD5Hash*>(record)->md5Hash().size() != 32;
    if (missing) return std::fprintf(stderr, "%d files without a digest\n", missing), 1;
    std::printf("%d files, %ju bytes, %.4f s, %ju bytes of memory at most\n", records->count(), bytes, seconds,
                static_cast<std::uintmax_t>(peakMemoryOfProcess(0)));
}
