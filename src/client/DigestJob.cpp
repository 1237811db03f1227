#include "client/DigestJob.h"

#include "cleanup/HashRecordMessage.h"
#include "platform/Clock.h"

namespace kavaro {

namespace {

// Chunks of a list, as arrays. What is as large as a chunk comes in chunks without small ones: the sums that close a
// chunk are those of small numbers then.
TuvRef<TuvObjectArray> chunksOf(const TuvObjectArray* nodes) {
    auto chunks = make<TuvObjectArray>();
    auto small = make<TuvObjectArray>();
    auto large = make<TuvObjectArray>();
    for (int i = 0; i < nodes->count(); ++i) {
        TuvNode* node = nodes->nodeAtIndex(i);
        const bool isSmall = node->logicalSize() < static_cast<std::uint64_t>(kDigestChunkBytes);
        (isSmall ? small : large)->addObject(node);
    }
    chunks->addObjectsFromArray(large->toArraysInChunks(kDigestLargeFiles).get());
    chunks->addObjectsFromArray(small->toArraysInChunksWithLogicalSize(kDigestChunkBytes, kDigestChunkFiles).get());
    return chunks;
}

// The records in a reply, when they are those that were asked for.
TuvRef<TuvObjectArray> recordsOf(const CommandReply& reply, const TuvObjectArray* asked) {
    if (reply.values.empty()) return nullptr;
    TuvRef<TuvObjectArray> records = readHashRecordAnswer(reply.values[0]);
    if (!records || records->count() != asked->count()) return nullptr;
    for (int i = 0; i < asked->count(); ++i) {
        const TuvNodeMD5Hash* record = TuvNodeMD5Hash::atIndex(records.get(), i);
        const TuvNodeMD5Hash* question = TuvNodeMD5Hash::atIndex(asked, i);
        if (record->inode() != question->inode() || record->filePath() != question->filePath()) return nullptr;
    }
    return records;
}

}  // namespace

DigestResult digestFiles(const TuvObjectArray* nodes, MeasurementSource& source,
                         const std::function<void(const DigestProgress&)>& progress,
                         const std::function<bool()>& interrupted) {
    DigestResult result;
    result.records = make<TuvObjectArray>(nodes->count());
    DigestProgress done;
    done.totalBytes = nodes->logicalSize();
    done.totalFiles = static_cast<std::uint64_t>(nodes->count());
    const double begin = Clock::system().monotonicSeconds();
    const auto tell = [&] {
        done.waited = Clock::system().monotonicSeconds() - begin - done.seconds;
        if (progress) progress(done);
    };
    const auto tellAndAsk = [&] {
        tell();
        return interrupted();
    };
    const TuvRef<TuvObjectArray> chunks = chunksOf(nodes);
    for (int i = 0; i < chunks->count(); ++i) {
        const auto* chunk = chunks->arrayAtIndex(i);
        tell();
        const TuvRef<TuvObjectArray> asked = TuvNodeMD5Hash::md5HashesFromTuvNodes(chunk);
        const CommandReply reply = source.command("fileDuplicatesHeader", hashRecordArguments(asked.get()), tellAndAsk);
        result.interrupted = reply.interrupted;
        result.failure = reply.failure;
        if (!reply.ok()) break;
        const TuvRef<TuvObjectArray> records = recordsOf(reply, asked.get());
        if (!records) {
            result.failure = "the server's answer makes no sense. Run the command again.";
            break;
        }
        result.records->addObjectsFromArray(records.get());
        done.bytes += chunk->logicalSize();
        done.files += static_cast<std::uint64_t>(chunk->count());
        done.seconds = Clock::system().monotonicSeconds() - begin;
    }
    tell();
    return result;
}

}  // namespace kavaro
