
#include "LogCapture.h"
#include "model/serialization_twin.h"

namespace kavaro {
namespace {

using namespace twin;

struct Buffers {
    ByteBuffer index, nodes, data;
    const TuvNodeIndex* indexRecords() const { return reinterpret_cast<const TuvNodeIndex*>(index.data()); }
    const TuvNodeBase* nodeRecords() const { return reinterpret_cast<const TuvNodeBase*>(nodes.data()); }
    int total() const { return static_cast<int>(index.size() / sizeof(TuvNodeIndex)); }
};

Buffers written(const TuvNode& node) {
    Buffers buffers;
    node.tuvNodeDatabase_serialize(&buffers.index, &buffers.nodes, &buffers.data);
    return buffers;
}

TuvRef<TuvDirNode> readBack(const Buffers& buffers, int* cursor) {
    auto root = make<TuvDirNode>();
    EXPECT_TRUE(
        root->tuvNodeDatabase_deserialize(buffers.indexRecords()[0], buffers.nodeRecords()[0], buffers.data.view()));
    EXPECT_TRUE(root->tuvNodeDatabase_deserialize(buffers.indexRecords(), buffers.nodeRecords(), buffers.data.view(),
                                                  cursor, buffers.total()));
    return root;
}

TEST(SerializationDatabase, RandomTreesAreWrittenAsTheTwinWritesThem) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        const Plain tree = Random(seed).tree(4);
        Streams expected;
        writeDatabase(expected, tree, 0);
        const Buffers buffers = written(*nodeOf(tree));
        ASSERT_EQ(textOf(buffers.index.view()), expected.index) << seed;
        ASSERT_EQ(textOf(buffers.nodes.view()), expected.nodes) << seed;
        ASSERT_EQ(textOf(buffers.data.view()), expected.data) << seed;
    }
}

TEST(SerializationDatabase, RandomTreesComeBack) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        const Plain tree = Random(seed).tree(4);
        const Buffers buffers = written(*nodeOf(tree));
        int cursor = 1;
        const auto read = readBack(buffers, &cursor);
        ASSERT_EQ(describe(plainOf(*read, true)), describe(throughDatabase(tree))) << seed;
        EXPECT_EQ(cursor, buffers.total() - 1);
    }
}

// The cursor ends on the last record of the folder, whatever follows it.
TEST(SerializationDatabase, EverySubfolderByItself) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        const auto tree = folderOf(Random(seed).tree(4));
        const Buffers buffers = written(*tree);
        std::vector<const TuvDirNode*> preorder;  // of folders, with null for files
        std::vector<const TuvDirNode*> left{tree.get()};
        while (!left.empty()) {
            const TuvDirNode* folder = left.back();
            left.pop_back();
            preorder.push_back(folder);
            preorder.insert(preorder.end(), static_cast<std::size_t>(folder->fileCount()), nullptr);
            for (int i = folder->folderCount(); i > 0; --i) left.push_back(folder->folders()->folderAtIndex(i - 1));
        }
        ASSERT_EQ(static_cast<int>(preorder.size()), buffers.total());
        for (int i = 0; i < buffers.total(); ++i) {
            const TuvDirNode* original = preorder[static_cast<std::size_t>(i)];
            if (!original) continue;
            auto read = make<TuvDirNode>();
            ASSERT_TRUE(read->tuvNodeDatabase_deserialize(buffers.indexRecords()[i], buffers.nodeRecords()[i],
                                                          buffers.data.view()));
            int cursor = i + 1;
            ASSERT_TRUE(read->tuvNodeDatabase_deserialize(buffers.indexRecords(), buffers.nodeRecords(),
                                                          buffers.data.view(), &cursor, buffers.total()));
            ASSERT_EQ(describe(plainOf(*read, true)), describe(throughDatabase(plainOf(*original, true))));
            ASSERT_EQ(cursor, i + original->recursiveFileCount() + original->recursiveFolderCount());
        }
    }
}

TEST(SerializationDatabase, AtTheEndTheCursorGoesBackByOne) {
    for (int start : {0, 3, 7}) {
        int cursor = start;
        auto root = make<TuvDirNode>();
        EXPECT_TRUE(root->tuvNodeDatabase_deserialize(nullptr, nullptr, {}, &cursor, 0));
        EXPECT_EQ(cursor, start - 1);
    }
}

TEST(SerializationDatabase, ARecordThatIsNeitherIsSkipped) {
    const TuvNodeIndex index[] = {{1, 0}, {2, 1}, {3, 1}, {4, 3}, {5, 1}};
    TuvNodeBase nodes[5];
    nodes[0].flags = 2;
    nodes[1].flags = 1;
    nodes[2].flags = 0x10;  // its child, record 3, belongs to no folder that is open
    nodes[3].flags = 1;
    nodes[4].flags = 1;
    auto root = make<TuvDirNode>();
    root->setInode(1);
    int cursor = 1;
    EXPECT_TRUE(root->tuvNodeDatabase_deserialize(index, nodes, {}, &cursor, 5));
    EXPECT_EQ(root->fileCount(), 1);
    EXPECT_EQ(cursor, 2);
}

TEST(SerializationDatabase, ARecordWithBothBitsIsAFile) {
    const TuvNodeIndex index[] = {{1, 0}, {2, 1}};
    TuvNodeBase nodes[2];
    nodes[1].flags = 3;
    auto root = make<TuvDirNode>();
    root->setInode(1);
    int cursor = 1;
    EXPECT_TRUE(root->tuvNodeDatabase_deserialize(index, nodes, {}, &cursor, 2));
    EXPECT_EQ(root->fileCount(), 1);
    EXPECT_EQ(root->folderCount(), 0);
}

TEST(SerializationDatabase, StreamsThatAreNotWantedAreSkipped) {
    const auto tree = nodeOf(folder(1, "r", {file(2, "f")}));
    const Buffers all = written(*tree);
    ByteBuffer index, nodes, data;
    tree->tuvNodeDatabase_serialize(&index, nullptr, nullptr);
    EXPECT_EQ(hexOf(index), hexOf(all.index));
    tree->tuvNodeDatabase_serialize(nullptr, &nodes, &data);
    EXPECT_EQ(hexOf(nodes), hexOf(all.nodes));
    EXPECT_EQ(hexOf(data), hexOf(all.data));
    ByteBuffer alone;
    tree->tuvNodeDatabase_serialize(nullptr, &alone, nullptr);
    tree->tuvNodeDatabase_serialize(nullptr, nullptr, &alone);
    EXPECT_EQ(alone.size(), 0u);
}

TEST(SerializationDatabase, AnArrayWritesItsElementsOneAfterAnother) {
    const std::vector<Plain> plains = {folder(1, "a", {file(2, "b")}), file(3, "c")};
    Streams expected;
    for (const Plain& each : plains) writeDatabase(expected, each, 0);
    ByteBuffer index, nodes, data;
    arrayOf(plains)->tuvNodeDatabase_serialize(&index, &nodes, &data);
    EXPECT_EQ(textOf(index.view()), expected.index);
    EXPECT_EQ(textOf(nodes.view()), expected.nodes);
    EXPECT_EQ(textOf(data.view()), expected.data);
}

// A record has 16 bits for a name's length. The node is kept, its neighbours are unharmed.
TEST(SerializationDatabase, ANameThatIsTooLongIsLeftOut) {
    const Plain tree =
        folder(1, "r", {file(2, std::string(65535, 'x')), file(3, std::string(65536, 'y')), file(4, "after")});
    LogCapture log;
    const Buffers buffers = written(*nodeOf(tree));
    EXPECT_EQ(log.texts(), std::vector<std::string>{"Name of 65536 bytes at offset 65536 left out: inode 3"});
    EXPECT_EQ(log.lines()[0].level, LogLevel::error);
    int cursor = 1;
    const auto read = readBack(buffers, &cursor);
    ASSERT_EQ(read->fileCount(), 3);
    EXPECT_EQ(read->files()->nodeAtIndex(0)->fileName().size(), 65535u);
    EXPECT_EQ(read->files()->nodeAtIndex(1)->fileName(), "");
    EXPECT_EQ(read->files()->nodeAtIndex(1)->inode(), 3u);
    EXPECT_EQ(read->files()->nodeAtIndex(2)->fileName(), "after");
}

// A record has 32 bits for a name's offset. The bytes in front are reserved and never touched.
TEST(SerializationDatabase, ADataStreamBeyondFourGibibytes) {
    ByteBuffer index, nodes, data;
    data.reserve((std::size_t{4} << 30) + 4096);
    data.extend((std::size_t{4} << 30) - 4);
    LogCapture log;
    nodeOf(file(1, "abc"))->tuvNodeDatabase_serialize(&index, &nodes, &data);
    EXPECT_TRUE(log.texts().empty());
    nodeOf(file(2, "de"))->tuvNodeDatabase_serialize(&index, &nodes, &data);
    EXPECT_EQ(log.texts(), std::vector<std::string>{"Name of 2 bytes at offset 4294967295 left out: inode 2"});
    const auto* records = reinterpret_cast<const TuvNodeBase*>(nodes.data());
    EXPECT_EQ(records[0].nameOffset, 4294967292u);
    EXPECT_EQ(records[0].nameLength, 3u);
    EXPECT_EQ(records[1].nameLength, 0u);
    EXPECT_EQ(data.size(), std::size_t{4294967295u});
    auto read = make<TuvNode>();
    EXPECT_TRUE(read->tuvNodeDatabase_deserialize({1, 0}, records[0], data.view()));
    EXPECT_EQ(read->fileName(), "abc");
}

TEST(SerializationDatabase, TraceLines) {
    FreshLevels levels;
    const Buffers buffers = written(*nodeOf(folder(1, "r", {file(20, "f")}, {folder(3, "s")})));
    LogCapture log(LogLevel::trace);
    FreshLevels::forget();
    int cursor = 1;
    const auto read = readBack(buffers, &cursor);
    std::vector<std::string> texts;
    for (const auto& line : log.lines())
        if (line.selector == "tuvNodeDatabase_deserialize") texts.push_back(line.component + ": " + line.text);
    EXPECT_EQ(texts, (std::vector<std::string>{
                         "TuvNode:        1        0   folder [       0->  1] [r]",
                         "TuvDirNode:       20        1     file [       1->  1]",
                         "TuvNode:       20        1     file [       1->  1] [f]",
                         "TuvDirNode:        3        1   folder [       2->  1]",
                         "TuvNode:        3        1   folder [       2->  1] [s]",
                     }));
}

}  // namespace
}  // namespace kavaro
