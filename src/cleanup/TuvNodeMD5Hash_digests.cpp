#include <algorithm>

#include "cleanup/DuplicatesLog.h"
#include "cleanup/MD5Tool.h"
#include "cleanup/TuvNodeMD5Hash.h"
#include "platform/Thread.h"
#include "support/Stopwatch.h"
#include "support/StringHelpers.h"

namespace kavaro {

namespace {

// That digest batches side by side where no program is run for them: what is read at once is 10 MiB for each.
constexpr int kMostThreads = 4;

void logMissing(const TuvNodeMD5Hash& record) {
    TuvLog::error(tuvNodeMD5HashLog, "loadMD5Hash", "no hash for [%@]", record.filePath());
}

// The tool's output is known by lines and by what stands in front of the digest. A name that has such text in it would
// be taken for another's line, or for two.
bool canMislead(const std::string& path) {
    return path.find('\n') != std::string::npos || path.find(") = ") != std::string::npos;
}

// Walks through the lines of a text without copying them.
class Lines {
  public:
    explicit Lines(std::string_view text) : _text(text) {}
    // Empty behind the last one.
    std::string current() const { return trimWhiteSpace(_text.substr(0, _text.find('\n'))); }
    void next() {
        const std::size_t end = _text.find('\n');
        _text.remove_prefix(end == std::string_view::npos ? _text.size() : end + 1);
    }

  private:
    std::string_view _text;
};

}  // namespace

void TuvNodeMD5Hash::loadMD5Hash() {
    registerMD5Tool();
    const std::optional<std::string> output = stringFromTask(kMD5Tool, {"-q", _filePath.value_or("")});
    setMD5Hash(trimWhiteSpace(output.value_or("")));
}

void TuvNodeMD5Hash::loadMD5Hash(const TuvObjectArray* records) {
    const Stopwatch watch;
    const int count = records ? records->count() : 0;
    const TuvRef<TuvObjectArray> batches = records ? records->toArraysInChunks(kBatchSize) : make<TuvObjectArray>();
    if (tuvNodeMD5HashLog.debugOn())
        TuvLog::debug(tuvNodeMD5HashLog, "loadMD5Hash", "%d files, %d batches of %d", count, batches->count(),
                      kBatchSize);
    registerMD5Tool();
    const int threads = isBuiltInTask(kMD5Tool) ? std::min(usableProcessors(), kMostThreads) : 1;
    forEachIndex(static_cast<std::size_t>(batches->count()), threads,
                 [&](std::size_t i) { loadBatch(batches->arrayAtIndex(static_cast<int>(i))); });
    TuvLog::info(tuvNodeMD5HashLog, "loadMD5Hash", "Loaded %d md5 hash values in %9.3f ms", count,
                 watch.milliseconds());
}

// Names that can mislead are asked for alone, so that they cannot shift the digests of the others. Names with a NUL,
// which cannot exist, would reach the tool as other names.
void TuvNodeMD5Hash::loadBatch(TuvObjectArray* batch) {
    batch->sortByFunction(TuvNodeMD5Hash_sortByFilePath);
    std::vector<std::string> paths;
    auto listed = make<TuvObjectArray>(batch->count());
    for (int i = 0; i < batch->count(); ++i) {
        TuvNodeMD5Hash* record = atIndex(batch, i);
        const std::string path = record->filePath().value_or("");
        if (path.find('\0') != std::string::npos) {
            record->setMD5Hash("");
            logMissing(*record);
        } else if (canMislead(path)) {
            record->loadMD5Hash();
            if (record->md5Hash().empty()) logMissing(*record);
        } else {
            paths.push_back(path);
            listed->addObject(record);
        }
    }
    if (paths.empty()) return;
    const std::optional<std::string> output = stringFromTask(kMD5Tool, paths);
    if (!output) return;
    Lines lines(*output);
    for (int i = 0; i < listed->count(); ++i) {
        TuvNodeMD5Hash* record = atIndex(listed.get(), i);
        const std::string prefix = "MD5 (" + record->filePath().value_or("") + ") = ";
        const std::string line = lines.current();
        if (line.find(prefix) == std::string::npos) {
            logMissing(*record);
            record->setMD5Hash("");
        } else {
            record->setMD5Hash(std::string_view(line).substr(prefix.size()));
            lines.next();
        }
    }
}

TuvRef<TuvObjectArray> TuvNodeMD5Hash::md5HashesFromTuvNodes(const TuvObjectArray* nodes) {
    auto records = make<TuvObjectArray>(nodes->count());
    for (int i = 0; i < nodes->count(); ++i) records->adoptObject(new TuvNodeMD5Hash(nodes->nodeAtIndex(i)));
    if (tuvNodeMD5HashLog.debugOn())
        TuvLog::debug(tuvNodeMD5HashLog, "md5HashesFromTuvNodes", "%d files", records->count());
    return records;
}

}  // namespace kavaro
