#include "client/DigestJob.h"

#include <gmock/gmock.h>

#include "cleanup/DuplicatesTest.h"
#include "cleanup/HashRecordMessage.h"

namespace kavaro {
namespace {

using testing::ElementsAre;

constexpr std::uint64_t kChunk = kDigestChunkBytes;

// Answers as a server would, with the node ID as the digest, unless a test does it another way.
class FakeSource final : public MeasurementSource {
  public:
    Measurement measure(const std::string&, const Callbacks&) override { return {}; }
    CommandReply command(std::string_view member, const std::vector<BusValue>& arguments,
                         const std::function<bool()>& interrupted) override {
        EXPECT_EQ(member, "fileDuplicatesHeader");
        EXPECT_EQ(arguments.at(0).type(), "v");
        EXPECT_EQ(arguments.at(1).type(), "a{ss}");
        const auto message = readHashRecordArguments(arguments);
        const auto records = TuvNodeMD5Hash::deserialize_TuvObjectArray(message->header, message->data.view());
        EXPECT_TRUE(records);
        asked.push_back(idsOf(records.get()));
        for (int i = 0; i < records->count(); ++i)
            recordAt(records.get(), i)->setMD5Hash(std::to_string(recordAt(records.get(), i)->inode()));
        if (change) change(records.get());
        MD5HashHeader header;
        ByteBuffer bytes;
        TuvNodeMD5Hash::serialize_TuvObjectArray(records.get(), &header, bytes);
        CommandReply reply;
        reply.values.push_back(hashRecordAnswer(bytes.view(), header));
        reply.interrupted = interrupted();
        if (refusal) refusal(reply);
        return reply;
    }
    std::vector<std::vector<std::uint32_t>> asked;
    std::function<void(TuvObjectArray*)> change;
    std::function<void(CommandReply&)> refusal;
};

TuvRef<TuvObjectArray> nodesOf(const std::vector<std::uint64_t>& sizes) {
    auto nodes = make<TuvObjectArray>();
    std::uint32_t inode = 1;
    for (std::uint64_t size : sizes) {
        nodes->adoptObject(newFile(inode, "/f" + std::to_string(inode), size).leak());
        ++inode;
    }
    return nodes;
}

DigestResult digest(const TuvObjectArray* nodes, FakeSource& source, std::vector<DigestProgress>* progress = nullptr) {
    return digestFiles(
        nodes, source,
        [&](const DigestProgress& now) {
            if (progress) progress->push_back(now);
        },
        [] { return false; });
}

TEST(DigestJob, AsksInChunksOfBytesAndOfFiles) {
    FakeSource source;
    const auto nodes = nodesOf({3 * kChunk, 5ull << 30, kChunk / 2, kChunk / 2, kChunk - 1, 1, kChunk, 7});
    std::vector<DigestProgress> progress;
    const DigestResult result = digest(nodes.get(), source, &progress);
    EXPECT_EQ(result.failure, "");
    EXPECT_THAT(source.asked, ElementsAre(ElementsAre(1, 2, 7), ElementsAre(3, 4), ElementsAre(5, 6), ElementsAre(8)))
        << "large ones side by side";
    ASSERT_EQ(result.records->count(), 8);
    for (int i = 0; i < 8; ++i) {
        const TuvNodeMD5Hash* record = recordAt(result.records.get(), i);
        EXPECT_EQ(record->md5Hash(), std::to_string(record->inode()));
    }
    // Before each of the four calls, once while it lasts, and at the end.
    ASSERT_EQ(progress.size(), 9u);
    EXPECT_EQ(progress[0].bytes, 0u);
    EXPECT_EQ(progress[1].bytes, 0u);
    EXPECT_GE(progress[1].waited, 0);
    EXPECT_EQ(progress[0].totalBytes, nodes->logicalSize());
    EXPECT_EQ(progress[2].bytes, 4 * kChunk + (5ull << 30));
    EXPECT_EQ(progress[2].files, 3u);
    EXPECT_EQ(progress[6].totalFiles, 8u);
    EXPECT_EQ(progress[8].bytes, nodes->logicalSize());
    EXPECT_EQ(progress[8].files, 8u);
}

TEST(DigestJob, SmallFilesAreAskedForInNumbers) {
    FakeSource source;
    const auto nodes = nodesOf(std::vector<std::uint64_t>(2500, 10));
    EXPECT_EQ(digest(nodes.get(), source).records->count(), 2500);
    ASSERT_EQ(source.asked.size(), 3u);
    EXPECT_EQ(source.asked[0].size(), static_cast<std::size_t>(kDigestChunkFiles));
    EXPECT_EQ(source.asked[2].size(), 500u);
}

TEST(DigestJob, LargeFilesAreAskedForAFewAtATime) {
    FakeSource source;
    const auto nodes = nodesOf(std::vector<std::uint64_t>(5, 1ull << 40));
    EXPECT_EQ(digest(nodes.get(), source).records->count(), 5);
    EXPECT_THAT(source.asked, ElementsAre(ElementsAre(1, 2, 3, 4), ElementsAre(5)));
}

TEST(DigestJob, NothingIsNotAskedFor) {
    FakeSource source;
    const DigestResult result = digest(make<TuvObjectArray>().get(), source);
    EXPECT_EQ(result.records->count(), 0);
    EXPECT_TRUE(source.asked.empty());
}

TEST(DigestJob, AFailureKeepsWhatCameBefore) {
    FakeSource source;
    source.refusal = [&](CommandReply& reply) {
        if (source.asked.size() == 2) reply.failure = "the server went away.";
    };
    const DigestResult result = digest(nodesOf(std::vector<std::uint64_t>(9, kChunk)).get(), source);
    EXPECT_EQ(result.failure, "the server went away.");
    EXPECT_EQ(idsOf(result.records.get()), (std::vector<std::uint32_t>{1, 2, 3, 4}));
    EXPECT_EQ(source.asked.size(), 2u);
}

TEST(DigestJob, AnInterruptionKeepsWhatCameBefore) {
    FakeSource source;
    const DigestResult result = digestFiles(nodesOf(std::vector<std::uint64_t>(9, kChunk)).get(), source, nullptr,
                                            [&] { return source.asked.size() == 2; });
    EXPECT_TRUE(result.interrupted);
    EXPECT_EQ(idsOf(result.records.get()), (std::vector<std::uint32_t>{1, 2, 3, 4}));
}

TEST(DigestJob, AnswersThatAreNotToTheQuestionAreRefused) {
    const std::vector<std::function<void(TuvObjectArray*)>> changes = {
        [](TuvObjectArray* records) { records->removeLastObject(); },
        [](TuvObjectArray* records) { records->addObject(recordAt(records, 0)); },
        [](TuvObjectArray* records) { recordAt(records, 0)->setFilePath("/other"); },
        [](TuvObjectArray* records) { records->replaceObjectAtIndex(0, newRecord(77, "x", 0, "/f1").get()); },
        [](TuvObjectArray* records) { records->removeAllObjects(); },
    };
    for (const auto& change : changes) {
        FakeSource source;
        source.change = change;
        const DigestResult result = digest(nodesOf({1, 2}).get(), source);
        EXPECT_EQ(result.failure, "the server's answer makes no sense. Run the command again.");
        EXPECT_EQ(result.records->count(), 0);
    }
    FakeSource source;
    source.refusal = [](CommandReply& reply) { reply.values.clear(); };
    EXPECT_NE(digest(nodesOf({1}).get(), source).failure, "");
    source.refusal = [](CommandReply& reply) { reply.values = {BusValue::string("x")}; };
    EXPECT_NE(digest(nodesOf({1}).get(), source).failure, "");
}

}  // namespace
}  // namespace kavaro
