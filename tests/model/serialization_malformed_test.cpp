#include "LogCapture.h"
#include "model/serialization_twin.h"

// Bytes that nobody has checked. Every failure is one error line, and nothing is read beyond the bytes: run these in
// the address build too.
namespace kavaro {
namespace {

using namespace twin;

std::vector<Plain> smallBatch() {
    return {file(1, "a.txt", 100, 4096), folder(2, "docs", {file(3, "a"), file(4, "bc")}, {folder(5, "sub")}),
            file(6, "")};
}

void expectOneErrorLine(const LogCapture& log, const std::string& what) {
    ASSERT_EQ(log.lines().size(), 1u) << what;
    EXPECT_EQ(log.lines()[0].level, LogLevel::error) << what;
}

TEST(SerializationMalformed, EveryPrefixOfABatch) {
    const std::string batch = writeBatch(smallBatch(), 2);
    ASSERT_TRUE(TuvObjectArray::fromBytes(ExactBytes(batch).view()));
    LogCapture log;
    for (std::size_t length = 0; length < batch.size(); ++length) {
        const ExactBytes bytes(batch.substr(0, length));
        log.clear();
        EXPECT_FALSE(TuvObjectArray::fromBytes(bytes.view())) << length;
        expectOneErrorLine(log, "length " + std::to_string(length));
        EXPECT_EQ(make<TuvObjectArray>(bytes.view())->count(), 0);
    }
}

TEST(SerializationMalformed, EveryPrefixOfADeepFolder) {
    std::string bytes;
    write(bytes, folder(1, "r", {file(2, "f")}, {folder(3, "s", {file(4, "g")}, {folder(5, "t")}), folder(6, "u")}), 9);
    LogCapture log;
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        const ExactBytes cut(bytes.substr(0, length));
        log.clear();
        EXPECT_FALSE(TuvDirNode::fromBytes(cut.view()));
        expectOneErrorLine(log, "length " + std::to_string(length));
    }
}

TEST(SerializationMalformed, EveryBitOfABatch) {
    const std::string batch = writeBatch(smallBatch(), 3);
    LogCapture log;
    int accepted = 0;
    for (std::size_t bit = 0; bit < batch.size() * 8; ++bit) {
        std::string flipped = batch;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        log.clear();
        const auto read = TuvObjectArray::fromBytes(ExactBytes(flipped).view());
        ASSERT_EQ(log.count(LogLevel::error, ""), read ? 0 : 1) << "bit " << bit;
        if (!read) continue;
        ++accepted;
        for (int i = 0; i < read->count(); ++i) {
            EXPECT_GE(read->nodeAtIndex(i)->recursiveFileCount(), 0);
            EXPECT_LE(read->nodeAtIndex(i)->fileName().size(), flipped.size());
        }
    }
    EXPECT_GT(accepted, 0);
}

TEST(SerializationMalformed, AConstructorLeavesTheFolderAsNew) {
    std::string bytes;
    write(bytes, folder(1, "r", {file(2, "f")}, {folder(3, "s")}), 3);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        LogCapture log;
        const auto read = make<TuvDirNode>(ExactBytes(bytes.substr(0, length)).view());
        EXPECT_EQ(describe(plainOf(*read, true)), describe(plainOf(*make<TuvDirNode>(), true)));
        expectOneErrorLine(log, "length " + std::to_string(length));
    }
}

TEST(SerializationMalformed, OneShotReadersGiveNull) {
    LogCapture log;
    std::string record;
    write(record, file(1, "name"), 0);
    auto node = make<TuvNode>();
    auto dir = make<TuvDirNode>();
    EXPECT_EQ(node->deserialize(ExactBytes(record.substr(0, 35)).view()), nullptr);
    EXPECT_EQ(dir->deserialize(ExactBytes(record.substr(0, 35)).view()), nullptr);
    EXPECT_EQ(node->deserialize(ByteView()), nullptr);
    EXPECT_FALSE(TuvDirNode::fromBytes({}));
    EXPECT_EQ(log.count(LogLevel::error, "Malformed data: "), 4);
    EXPECT_EQ(log.texts()[0], "Malformed data: name is cut short at byte 32 of 35");
    EXPECT_EQ(log.lines()[0].component, "TuvNode");
    EXPECT_EQ(log.texts()[1], "Malformed data: folder record is cut short at byte 0 of 35");
    EXPECT_EQ(log.lines()[1].component, "TuvDirNode");
}

// A count is refused before anything is reserved for it.
TEST(SerializationMalformed, AbsurdCounts) {
    for (std::int32_t count : {2147483647, 1 << 24, 2, -1, -2147483647 - 1}) {
        for (int type : {0, 1, 2, 3}) {  // 3: the mixed form
            std::string bytes;
            put<std::int32_t>(bytes, count);
            bytes.append(67, '\0');  // a byte less than two of the smallest records hold
            if (type < 2) bytes.resize(4 + 63);
            if (type == 2) bytes.resize(4 + 71, '\0');
            if (type == 3) bytes.resize(4 + 71, '\0');
            LogCapture log;
            auto array = make<TuvObjectArray>();
            int cursor = 0;
            const ExactBytes exact(bytes);
            EXPECT_FALSE(type == 3 ? array->deserialize(exact.view(), &cursor)
                                   : array->deserialize(exact.view(), &cursor, type));
            EXPECT_EQ(array->size(), 0);
            expectOneErrorLine(log, std::to_string(count) + " of type " + std::to_string(type));
            EXPECT_EQ(log.texts()[0], std::string("Malformed data: ") +
                                          (count < 0 ? "negative count" : "count is larger than the data") +
                                          " at byte 4 of " + std::to_string(bytes.size()));
        }
    }
}

TEST(SerializationMalformed, AbsurdCountsWithinAFolder) {
    for (std::int32_t count : {2147483647, -1, 1}) {
        for (bool inFolders : {false, true}) {
            std::string bytes;
            write(bytes, folder(1, "r"), 2);
            bytes.resize(bytes.size() - (inFolders ? 4 : 8));
            put<std::int32_t>(bytes, count);
            bytes += "0123456789";
            LogCapture log;
            auto read = make<TuvDirNode>();
            int cursor = 0;
            EXPECT_FALSE(read->deserialize(ExactBytes(bytes).view(), &cursor));
            EXPECT_EQ(read->files()->size(), 0);
            EXPECT_EQ(read->folders()->size(), 0);
            expectOneErrorLine(log, std::to_string(count));
        }
    }
}

TEST(SerializationMalformed, AbsurdNameLengths) {
    for (std::uint32_t length : {5u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        std::string bytes;
        write(bytes, file(1, "name"), 0);
        std::memcpy(bytes.data() + 28, &length, sizeof length);
        LogCapture log;
        EXPECT_EQ(make<TuvNode>()->deserialize(ExactBytes(bytes).view()), nullptr);
        expectOneErrorLine(log, std::to_string(length));
    }
}

TEST(SerializationMalformed, AnUnknownTypeEndsTheReading) {
    for (std::uint32_t type : {0u, 3u, 2147483648u}) {
        std::string bytes = writeBatch({file(1, "a"), file(2, "b")}, 2);
        std::memcpy(bytes.data() + 4 + 4 + 33, &type, sizeof type);
        LogCapture log;
        auto array = make<TuvObjectArray>();
        int cursor = 0;
        EXPECT_FALSE(array->deserialize(ExactBytes(bytes).view(), &cursor));
        EXPECT_EQ(log.texts(), std::vector<std::string>{"Node types " + std::to_string(type) + " are not implemented"});
        EXPECT_EQ(log.lines()[0].level, LogLevel::error);
        EXPECT_EQ(log.lines()[0].component, "TuvObjectArray");
    }
}

TEST(SerializationMalformed, TrailingBytesAreLeftAlone) {
    std::string bytes;
    write(bytes, file(1, "a"), 0);
    LogCapture log;
    int cursor = 0;
    EXPECT_TRUE(make<TuvNode>()->deserialize(ExactBytes(bytes + "more").view(), &cursor));
    EXPECT_EQ(cursor, 33);
    EXPECT_TRUE(TuvObjectArray::fromBytes(ExactBytes(writeBatch(smallBatch(), 2) + "more").view()));
    EXPECT_TRUE(log.texts().empty());
}

TEST(SerializationMalformed, CursorsOutsideOfTheBytes) {
    std::string bytes;
    write(bytes, file(1, "a"), 0);
    for (int start : {-1, -2147483647 - 1, 34, 2147483647}) {
        LogCapture log;
        int cursor = start;
        EXPECT_FALSE(make<TuvNode>()->deserialize(ExactBytes(bytes).view(), &cursor));
        expectOneErrorLine(log, std::to_string(start));
    }
}

struct DatabaseBytes {
    std::vector<TuvNodeIndex> index;
    std::vector<TuvNodeBase> nodes;
    std::string data;
    int total() const { return static_cast<int>(index.size()); }
    // Reads the root and its children; blocks of exactly the length.
    bool read(TuvDirNode& root) const {
        const ExactBytes exact(data);
        const std::unique_ptr<TuvNodeIndex[]> i(new TuvNodeIndex[index.size()]);
        const std::unique_ptr<TuvNodeBase[]> n(new TuvNodeBase[nodes.size()]);
        std::copy(index.begin(), index.end(), i.get());
        std::copy(nodes.begin(), nodes.end(), n.get());
        if (!root.tuvNodeDatabase_deserialize(i[0], n[0], exact.view())) return false;
        int cursor = 1;
        return root.tuvNodeDatabase_deserialize(i.get(), n.get(), exact.view(), &cursor, total());
    }
};

DatabaseBytes smallDatabase() {
    Streams streams;
    writeDatabase(streams,
                  folder(1, "r", {file(2, "f"), file(3, "gg")}, {folder(4, "s", {file(5, "h")}), folder(6, "t")}), 0);
    DatabaseBytes bytes;
    bytes.index.resize(streams.index.size() / sizeof(TuvNodeIndex));
    bytes.nodes.resize(bytes.index.size());
    std::memcpy(bytes.index.data(), streams.index.data(), streams.index.size());
    std::memcpy(bytes.nodes.data(), streams.nodes.data(), streams.nodes.size());
    bytes.data = streams.data;
    return bytes;
}

TEST(SerializationMalformed, EveryPrefixOfTheThreeStreams) {
    const DatabaseBytes whole = smallDatabase();
    ASSERT_EQ(whole.total(), 6);
    LogCapture log;
    for (int records = 1; records <= whole.total(); ++records) {
        DatabaseBytes cut = whole;
        cut.index.resize(static_cast<std::size_t>(records));
        cut.nodes.resize(static_cast<std::size_t>(records));
        auto root = make<TuvDirNode>();
        EXPECT_TRUE(cut.read(*root));
        EXPECT_EQ(root->recursiveFileCount() + root->recursiveFolderCount(), records - 1);
    }
    EXPECT_TRUE(log.texts().empty());
    for (std::size_t length = 0; length < whole.data.size(); ++length) {
        DatabaseBytes cut = whole;
        cut.data.resize(length);
        auto root = make<TuvDirNode>();
        log.clear();
        EXPECT_FALSE(cut.read(*root));
        expectOneErrorLine(log, "data of " + std::to_string(length));
    }
}

TEST(SerializationMalformed, EveryBitOfTheThreeStreams) {
    const DatabaseBytes whole = smallDatabase();
    const std::size_t indexBits = whole.index.size() * sizeof(TuvNodeIndex) * 8;
    const std::size_t nodeBits = whole.nodes.size() * sizeof(TuvNodeBase) * 8;
    LogCapture log;
    for (std::size_t bit = 0; bit < indexBits + nodeBits; ++bit) {
        DatabaseBytes flipped = whole;
        auto* bytes = bit < indexBits ? reinterpret_cast<std::uint8_t*>(flipped.index.data())
                                      : reinterpret_cast<std::uint8_t*>(flipped.nodes.data());
        const std::size_t at = bit < indexBits ? bit : bit - indexBits;
        bytes[at / 8] = static_cast<std::uint8_t>(bytes[at / 8] ^ (1 << at % 8));
        auto root = make<TuvDirNode>();
        log.clear();
        const bool ok = flipped.read(*root);
        ASSERT_EQ(log.count(LogLevel::error, ""), ok ? 0 : 1) << "bit " << bit;
        EXPECT_LE(root->recursiveFileCount() + root->recursiveFolderCount(), 5);
    }
}

TEST(SerializationMalformed, NamesOutsideOfTheDataStream) {
    struct {
        std::uint32_t offset;
        std::uint16_t length;
        bool good;
    } const cases[] = {{0, 4, true},
                       {4, 0, true},
                       {3, 1, true},
                       {0, 5, false},
                       {4, 1, false},
                       {0xffffffff, 1, false},
                       {0xfffffffe, 65535, false},
                       {5, 0, false}};
    for (const auto& each : cases) {
        TuvNodeBase record;
        record.nameOffset = each.offset;
        record.nameLength = each.length;
        LogCapture log;
        EXPECT_EQ(make<TuvNode>()->tuvNodeDatabase_deserialize({1, 0}, record, ExactBytes("name").view()), each.good)
            << each.offset << " " << each.length;
        EXPECT_EQ(log.texts().size(), each.good ? 0u : 1u);
    }
    EXPECT_TRUE(make<TuvNode>()->tuvNodeDatabase_deserialize({1, 0}, TuvNodeBase(), ByteView()));
}

// Some megabytes of records that all point at one long name would ask for gigabytes.
TEST(SerializationMalformed, NamesThatShareBytes) {
    constexpr int kRecords = 1000;
    std::vector<TuvNodeIndex> index(kRecords);
    std::vector<TuvNodeBase> nodes(kRecords);
    for (std::size_t i = 0; i < kRecords; ++i) {
        index[i].inode = static_cast<std::uint32_t>(i) + 2;
        index[i].parentInode = 1;
        nodes[i].nameLength = 60000;
        nodes[i].flags = i % 2 ? 0x11 : 0x32;
    }
    const ExactBytes data(std::string(65535, 'x'));
    for (int total : {1, 2, kRecords}) {
        LogCapture log;
        auto root = make<TuvDirNode>();
        root->setInode(1);
        int cursor = 0;
        EXPECT_EQ(root->tuvNodeDatabase_deserialize(index.data(), nodes.data(), data.view(), &cursor, total),
                  total < 2);
        EXPECT_LE(root->childrenCount(), 2);
        std::vector<std::string> lines;
        if (total > 1) lines = {"Malformed data: names share bytes of the data stream at byte 0 of 65535"};
        EXPECT_EQ(log.texts(), lines);
    }
}

TEST(SerializationMalformed, ANegativeRecordNumber) {
    const TuvNodeIndex index;
    const TuvNodeBase nodes;
    for (int start : {-1, -2147483647 - 1}) {
        LogCapture log;
        int cursor = start;
        EXPECT_FALSE(make<TuvDirNode>()->tuvNodeDatabase_deserialize(&index, &nodes, {}, &cursor, 1));
        expectOneErrorLine(log, std::to_string(start));
    }
}

}  // namespace
}  // namespace kavaro
