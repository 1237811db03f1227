#include "LogCapture.h"
#include "model/serialization_twin.h"

// Bytes that are on wires and disks: an expectation that fails here is a format that changed.
namespace kavaro {
namespace {

using namespace twin;

Plain docs() {
    return folder(7, "docs", {file(8, "a"), file(9, "bc")});
}

// Mon 2024-01-01 00:00:00 UTC as seconds since 1904: 3786912000.
constexpr double kDate = 3786912000.0;

TEST(SerializationGolden, AFileIsThirtySevenBytes) {
    Plain plain = file(12, "a.txt", 100, 4096);
    plain.date = kDate;
    EXPECT_EQ(hexOf(nodeOf(plain)->serialize()),
              "0c000000"
              "00000020f636ec41"
              "6400000000000000"
              "0010000000000000"
              "05000000"
              "612e747874");
    EXPECT_EQ(nodeOf(plain)->serialize().size(), 37u);
}

TEST(SerializationGolden, AFolderWithTwoFilesIs115Bytes) {
    const ByteBuffer bytes = folderOf(docs())->serialize();
    EXPECT_EQ(hexOf(bytes),
              "07000000"
              "0000000000000000"
              "0000000000000000"
              "0000000000000000"
              "04000000"
              "3200"
              "0200"
              "646f6373"
              "02000000"
              "08000000"
              "0000000000000000"
              "0000000000000000"
              "0000000000000000"
              "01000000"
              "61"
              "09000000"
              "0000000000000000"
              "0000000000000000"
              "0000000000000000"
              "02000000"
              "6263"
              "00000000");
    EXPECT_EQ(bytes.size(), 115u);
}

TEST(SerializationGolden, AsABatchItIs123Bytes) {
    const ByteBuffer batch = arrayOf({docs()})->serialize();
    EXPECT_EQ(hexOf(batch), "0100000002000000" + hexOf(folderOf(docs())->serialize()));
    EXPECT_EQ(batch.size(), 123u);
}

TEST(SerializationGolden, WithDepthOneItIsFortyBytes) {
    ByteBuffer bytes;
    folderOf(docs())->serialize(bytes, 1);
    EXPECT_EQ(bytes.size(), 40u);
    EXPECT_EQ(hexOf(bytes),
              "07000000"
              "0000000000000000"
              "0000000000000000"
              "0000000000000000"
              "04000000"
              "3200"
              "0100"
              "646f6373");
    const auto read = TuvDirNode::fromBytes(bytes.view());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->fileCount(), 0);
    EXPECT_EQ(read->folderCount(), 0);
    EXPECT_EQ(read->fileName(), "docs");
}

TEST(SerializationGolden, WithDepthTwoASubfolderIsWrittenWithoutItsChildren) {
    const Plain tree = folder(1, "r", {}, {folder(2, "s", {file(3, "f")}, {folder(4, "t")})});
    const ByteBuffer bytes = folderOf(tree)->serialize();
    EXPECT_EQ(hexOf(bytes),
              "01000000"
              "0000000000000000"
              "0000000000000000"
              "0000000000000000"
              "01000000"
              "3200"
              "0200"
              "72"
              "00000000"
              "01000000"
              "02000000"
              "0000000000000000"
              "0000000000000000"
              "0000000000000000"
              "01000000"
              "3200"
              "0000"
              "73");
}

TEST(SerializationGolden, WithALargerDepthTheWholeSubtreeFollowsWithThatDepth) {
    const Plain tree = folder(1, "", {}, {folder(2, "", {}, {folder(3, "", {file(4, "")})})});
    ByteBuffer bytes;
    folderOf(tree)->serialize(bytes, 5);
    EXPECT_EQ(hexOf(bytes),
              "01000000"
              "0000000000000000"
              "0000000000000000"
              "0000000000000000"
              "00000000"
              "3200"
              "0500"
              "00000000"
              "01000000"
              "02000000"
              "0000000000000000"
              "0000000000000000"
              "0000000000000000"
              "00000000"
              "3200"
              "0500"
              "00000000"
              "01000000"
              "03000000"
              "0000000000000000"
              "0000000000000000"
              "0000000000000000"
              "00000000"
              "3200"
              "0500"
              "01000000"
              "04000000"
              "0000000000000000"
              "0000000000000000"
              "0000000000000000"
              "00000000"
              "00000000");
}

TEST(SerializationGolden, ADepthBeyondItsFieldStillMeansTheWholeSubtree) {
    const Plain tree = folder(1, "", {}, {folder(2, "", {}, {folder(3, "")})});
    for (int depth : {32767, 32768, 65536, 1 << 30}) {
        ByteBuffer bytes;
        folderOf(tree)->serialize(bytes, depth);
        const auto read = TuvDirNode::fromBytes(bytes.view());
        ASSERT_TRUE(read);
        EXPECT_EQ(describe(plainOf(*read, true)), describe(tree));
    }
    ByteBuffer bytes;
    folderOf(tree)->serialize(bytes, -70000);
    EXPECT_EQ(bytes.size(), 36u);
}

TEST(SerializationGolden, AnEmptyArrayIsNull) {
    EXPECT_TRUE(make<TuvObjectArray>()->serialize().isNull());
    ByteBuffer bytes;
    make<TuvObjectArray>()->serialize(bytes, 2);
    EXPECT_EQ(hexOf(bytes), "00000000");
}

TEST(SerializationGolden, ANameStoresItsByteCount) {
    const ByteBuffer bytes = nodeOf(file(1, "\xc3\xa4\xe2\x82\xac"))->serialize();
    EXPECT_EQ(hexOf(bytes).substr(56), "05000000c3a4e282ac");
}

TEST(SerializationGolden, ANodeWithoutANameIsReadBackWithAnEmptyOne) {
    Plain plain = file(1, "");
    plain.hasName = false;
    const ByteBuffer bytes = nodeOf(plain)->serialize();
    EXPECT_EQ(bytes.size(), 32u);
    auto read = make<TuvNode>();
    ASSERT_EQ(read->deserialize(bytes.view()), read.get());
    EXPECT_TRUE(read->hasFileName());
    EXPECT_EQ(read->fileName(), "");
}

TEST(SerializationGolden, ThreeStreams) {
    Plain tree = folder(7, "docs", {file(8, "a", 1, 2)}, {folder(9, "bc")});
    tree.date = kDate;
    ByteBuffer index, nodes, data;
    folderOf(tree)->tuvNodeDatabase_serialize(&index, &nodes, &data);
    EXPECT_EQ(hexOf(index),
              "0700000000000000"
              "0800000007000000"
              "0900000007000000");
    EXPECT_EQ(hexOf(nodes),
              "00000020f636ec41"
              "0000000000000000"
              "0000000000000000"
              "00000000"
              "0400"
              "3200"
              "0000000000000000"
              "0100000000000000"
              "0200000000000000"
              "04000000"
              "0100"
              "1100"
              "0000000000000000"
              "0000000000000000"
              "0000000000000000"
              "05000000"
              "0200"
              "3200");
    EXPECT_EQ(textOf(data.view()), "docsabc");
}

TEST(SerializationGolden, ANodeThatIsNeitherIsCountedAndLeftOut) {
    Plain other = file(5, "socket");
    other.flags = 0;
    LogCapture log;
    const ByteBuffer batch = arrayOf({file(1, "a"), other, file(2, "b")})->serialize();
    EXPECT_EQ(hexOf(batch).substr(0, 8), "03000000");
    EXPECT_EQ(batch.size(), 4u + 2 * (4 + 32 + 1));
    EXPECT_EQ(log.texts(), std::vector<std::string>{"Node types 3 are not implemented"});
    EXPECT_EQ(log.lines().at(0).level, LogLevel::error);
    EXPECT_EQ(log.lines().at(0).component, "TuvObjectArray");
}

TEST(SerializationGolden, BuffersAreMadeLargeEnough) {
    EXPECT_EQ(nodeOf(file(1, "a"))->serialize().capacity(), 65536u);
    EXPECT_EQ(folderOf(folder(1, "a"))->serialize().capacity(), 65536u);
    EXPECT_EQ(arrayOf({file(1, "a"), file(2, "b"), file(3, "c")})->serialize().capacity(), 768u);
}

}  // namespace
}  // namespace kavaro
