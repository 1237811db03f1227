#include "LogCapture.h"
#include "model/serialization/ByteFields.h"
#include "model/serialization_twin.h"

namespace kavaro {
namespace {

using namespace twin;

std::string_view asText(const ByteBuffer& bytes) {
    return textOf(bytes.view());
}

TEST(SerializationStream, RandomTreesAreWrittenAsTheTwinWritesThem) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        const Plain tree = Random(seed).tree(4);
        const auto real = folderOf(tree);
        for (int depth : {0, 1, 2, 3, 9}) {
            std::string expected;
            write(expected, tree, depth);
            ByteBuffer bytes;
            real->serialize(bytes, depth);
            ASSERT_EQ(asText(bytes), expected) << "seed " << seed << " depth " << depth;
        }
    }
}

TEST(SerializationStream, RandomTreesComeBack) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        const Plain tree = Random(seed).tree(4);
        for (int depth : {0, 1, 2, 3, 9}) {
            std::string bytes;
            write(bytes, tree, depth);
            const auto read = TuvDirNode::fromBytes(ExactBytes(bytes).view());
            ASSERT_TRUE(read);
            ASSERT_EQ(describe(plainOf(*read, true)), describe(throughStream(tree, depth))) << "seed " << seed;
        }
    }
}

TEST(SerializationStream, TheTwinReadsWhatIsWritten) {
    for (unsigned seed = 1; seed <= 30; ++seed) {
        const Plain tree = Random(seed).tree(4);
        ByteBuffer bytes;
        folderOf(tree)->serialize(bytes, 3);
        std::size_t at = 0;
        const std::string text(asText(bytes));
        ASSERT_EQ(describe(twin::read(text, at, true)), describe(throughStream(tree, 3)));
        ASSERT_EQ(at, text.size());
    }
}

TEST(SerializationStream, RandomBatches) {
    for (unsigned seed = 1; seed <= 40; ++seed) {
        Random random(seed);
        std::vector<Plain> batch;
        for (int i = 0; i < 12; ++i) batch.push_back(random.tree(3, random.below(2)));
        ByteBuffer bytes = arrayOf(batch)->serialize();
        ASSERT_EQ(asText(bytes), writeBatch(batch, 2));
        const auto read = TuvObjectArray::fromBytes(ExactBytes(asText(bytes)).view());
        ASSERT_TRUE(read);
        ASSERT_EQ(read->count(), 12);
        for (int i = 0; i < 12; ++i) {
            const TuvNode* node = read->nodeAtIndex(i);
            EXPECT_EQ(node->retainCount(), 1u);
            EXPECT_EQ(node->parent(), nullptr);
            ASSERT_EQ(describe(plainOf(*node, batch[i].isFolder)), describe(throughStream(batch[i], 2)));
        }
        EXPECT_EQ(make<TuvObjectArray>(bytes.view())->count(), 12);
    }
}

TEST(SerializationStream, HomogeneousArrays) {
    const std::vector<Plain> files = {file(1, "a", 5, 6), file(2, "b")};
    const std::vector<Plain> folders = {folder(3, "c", {file(4, "d")}, {folder(5, "e")}), folder(6, "f")};
    for (int depth : {0, 2, 3}) {
        ByteBuffer bytes;
        arrayOf(files)->serialize(bytes, depth, 1);
        arrayOf(folders)->serialize(bytes, depth, 2);
        std::string expected;
        for (const auto* plains : {&files, &folders}) {
            put<std::int32_t>(expected, 2);
            for (const Plain& each : *plains) write(expected, each, depth);
        }
        ASSERT_EQ(asText(bytes), expected);

        auto readFiles = make<TuvObjectArray>();
        auto readFolders = make<TuvObjectArray>();
        int cursor = 0;
        ASSERT_TRUE(readFiles->deserialize(bytes.view(), &cursor, 1));
        ASSERT_TRUE(readFolders->deserialize(bytes.view(), &cursor, 2));
        EXPECT_EQ(cursor, static_cast<int>(bytes.size()));
        ASSERT_EQ(readFolders->count(), 2);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(describe(plainOf(*readFiles->nodeAtIndex(i), false)), describe(files[i]));
            EXPECT_EQ(describe(plainOf(*readFolders->nodeAtIndex(i), true)),
                      describe(throughStream(folders[i], depth)));
        }
    }
}

TEST(SerializationStream, AnotherTypeFillsTheObjectsInPlace) {
    const std::vector<Plain> plains = {file(1, "a"), folder(2, "b", {file(3, "c")})};
    ByteBuffer bytes;
    arrayOf(plains)->serialize(bytes, 2, 0);
    auto array = arrayOf({file(0, ""), folder(0, ""), file(99, "surplus")});
    const std::vector<TuvNode*> before = {array->nodeAtIndex(0), array->nodeAtIndex(1)};
    int cursor = 0;
    ASSERT_TRUE(array->deserialize(bytes.view(), &cursor, 0));
    EXPECT_EQ(cursor, static_cast<int>(bytes.size()));
    ASSERT_EQ(array->count(), 2);
    EXPECT_EQ(array->nodeAtIndex(0), before[0]);
    EXPECT_EQ(array->nodeAtIndex(1), before[1]);
    EXPECT_EQ(describe(plainOf(*before[0], false)), describe(plains[0]));
    EXPECT_EQ(describe(plainOf(*before[1], true)), describe(plains[1]));
}

TEST(SerializationStream, InPlaceThereMustBeEnoughObjects) {
    ByteBuffer bytes;
    arrayOf({file(1, "a"), file(2, "b")})->serialize(bytes, 0, 0);
    auto array = arrayOf({file(0, "")});
    LogCapture log;
    int cursor = 0;
    EXPECT_FALSE(array->deserialize(bytes.view(), &cursor, 0));
    EXPECT_EQ(log.texts().size(), 1u);
}

TEST(SerializationStream, TheCursorSaysHowFar) {
    std::string bytes = "xyz";
    write(bytes, file(1, "one"), 0);
    const int afterFile = static_cast<int>(bytes.size());
    write(bytes, folder(2, "two", {file(3, "three")}), 2);
    const int afterFolder = static_cast<int>(bytes.size());
    bytes += writeBatch({file(4, "four")}, 2);
    const int afterBatch = static_cast<int>(bytes.size());
    bytes += "trailing";
    const ExactBytes exact(bytes);
    int cursor = 3;
    auto node = make<TuvNode>();
    auto dir = make<TuvDirNode>();
    auto array = make<TuvObjectArray>();
    ASSERT_TRUE(node->deserialize(exact.view(), &cursor));
    EXPECT_EQ(cursor, afterFile);
    ASSERT_TRUE(dir->deserialize(exact.view(), &cursor));
    EXPECT_EQ(cursor, afterFolder);
    ASSERT_TRUE(array->deserialize(exact.view(), &cursor));
    EXPECT_EQ(cursor, afterBatch);
    EXPECT_EQ(array->nodeAtIndex(0)->fileName(), "four");
}

TEST(SerializationStream, ReadingAgainReplacesTheChildren) {
    auto dir = folderOf(folder(1, "old", {file(2, "x")}, {folder(3, "y")}));
    std::string bytes;
    const Plain fresh = folder(1, "new", {file(4, "p"), file(5, "q")});
    write(bytes, fresh, 2);
    ASSERT_EQ(dir->deserialize(ExactBytes(bytes).view()), dir.get());
    EXPECT_EQ(describe(plainOf(*dir, true)), describe(fresh));
}

TEST(SerializationStream, StorageIsGrownOnceToTheCount) {
    std::vector<Plain> files;
    for (std::uint32_t i = 0; i < 1000; ++i) files.push_back(file(i, "f"));
    const auto read = TuvDirNode::fromBytes(folderOf(folder(1, "r", files))->serialize().view());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->files()->count(), 1000);
    EXPECT_EQ(read->files()->size(), 1000);
    EXPECT_EQ(read->folders()->size(), 0);
}

TEST(SerializationStream, NullBytesGiveAnEmptyArray) {
    LogCapture log;
    EXPECT_EQ(make<TuvObjectArray>(ByteView())->count(), 0);
    const auto read = TuvObjectArray::fromBytes({});
    ASSERT_TRUE(read);
    EXPECT_EQ(read->count(), 0);
    EXPECT_TRUE(log.texts().empty());
}

TEST(SerializationStream, ConstructorsReadWhole) {
    const Plain tree = folder(1, "r", {file(2, "f", 3, 4)}, {folder(5, "s")});
    const ByteBuffer bytes = folderOf(tree)->serialize();
    const auto read = make<TuvDirNode>(bytes.view());
    EXPECT_EQ(describe(plainOf(*read, true)), describe(tree));
}

TEST(SerializationStream, SmallHelpers) {
    ByteBuffer data;
    const std::uint16_t number = 0x1234;
    serializeIVar(data, &number, sizeof number);
    serializeNSString(data, "abc", 2);
    EXPECT_EQ(hexOf(data), "34126162");
    int cursor = 0;
    std::uint16_t read = 0;
    std::string_view text;
    ASSERT_TRUE(deserializeIVar(data.view(), &read, &cursor, sizeof read));
    EXPECT_EQ(read, number);
    EXPECT_FALSE(deserializeNSString(data.view(), &cursor, 3, &text));
    EXPECT_EQ(cursor, 2);
    ASSERT_TRUE(deserializeNSString(data.view(), &cursor, 2, &text));
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(cursor, 4);
    EXPECT_FALSE(deserializeIVar(data.view(), &read, &cursor, 1));
    ASSERT_TRUE(deserializeNSString(data.view(), &cursor, 0, &text));
    EXPECT_NE(text.data(), nullptr);
    for (int bad : {-1, 5, -2147483647 - 1, 2147483647}) {
        cursor = bad;
        EXPECT_FALSE(deserializeIVar(data.view(), &read, &cursor, 0));
        EXPECT_FALSE(deserializeNSString(data.view(), &cursor, ~std::size_t{0}, &text));
    }
}

TEST(SerializationStream, DebugLines) {
    FreshLevels levels;
    LogCapture log(LogLevel::debug);
    const auto array = arrayOf({folder(1, "docs", {file(2, "a"), file(3, "bc")})});
    log.clear();
    const ByteBuffer bytes = array->serialize();
    std::vector<std::string> texts = log.texts();
    ASSERT_EQ(texts.size(), 5u);
    EXPECT_EQ(texts[0], "1 objects");
    EXPECT_EQ(texts[1], "1 objects 0 bytes, recurse depth 2");
    EXPECT_EQ(texts[2], "2 objects 48 bytes, recurse depth 0");
    EXPECT_EQ(texts[3], "0 objects 119 bytes, recurse depth 0");
    EXPECT_EQ(texts[4].substr(0, 29), "1 nodes into 123 bytes, in   ");
    log.clear();
    TuvObjectArray::fromBytes(bytes.view());
    EXPECT_EQ(log.count(LogLevel::debug, "1 nodes from 123 bytes, in   "), 1);
    EXPECT_EQ(log.lines().at(0).component, "TuvObjectArray");
}

TEST(SerializationStream, LargeArraysAreLogged) {
    std::vector<Plain> files;
    for (std::uint32_t i = 0; i < 8001; ++i) files.push_back(file(i, "f"));
    auto array = arrayOf(files);
    LogCapture log;
    ByteBuffer bytes;
    array->serialize(bytes, 0, 1);
    EXPECT_EQ(log.texts(), std::vector<std::string>{"large array with 8001 rows, 264037 bytes"});
    log.clear();
    array->removeLastObject();
    array->serialize(bytes, 0, 1);
    EXPECT_TRUE(log.texts().empty());
}

}  // namespace
}  // namespace kavaro
