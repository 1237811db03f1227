#include <sys/stat.h>

#include "LogCapture.h"
#include "TempFolder.h"
#include "model/serialization_twin.h"

namespace kavaro {
namespace {

using namespace twin;

void flushAll(TuvNodeSerializer& serializer) {
    serializeIndexBytes(serializer, true);
    serializeNodeBytes(serializer, true);
    serializeDataBytes(serializer, true);
}

struct Files {
    TempFolder folder;
    TuvNodeSerializer serializer;
    bool open() {
        return TuvNodeSerializer_alloc(serializer, folder.path("index"), folder.path("node"), folder.path("data"));
    }
    // Flushes and closes.
    void finish() {
        flushAll(serializer);
        TuvNodeSerializer_dealloc(serializer);
    }
    Streams streams() const { return {folder.read("index"), folder.read("node"), folder.read("data")}; }
};

void expectSame(const Streams& real, const Streams& expected) {
    EXPECT_TRUE(real.index == expected.index) << real.index.size() << " of " << expected.index.size();
    EXPECT_TRUE(real.nodes == expected.nodes) << real.nodes.size() << " of " << expected.nodes.size();
    EXPECT_TRUE(real.data == expected.data) << real.data.size() << " of " << expected.data.size();
}

TEST(SerializationFiles, ASmallTreeIsInTheFilesAfterTheFlush) {
    const Plain tree = folder(1, "r", {file(2, "f", 3, 4)}, {folder(5, "s")});
    Streams expected;
    writeDatabase(expected, tree, 0);
    Files files;
    ASSERT_TRUE(files.open());
    EXPECT_EQ(files.serializer.poolInterval, 1000u);
    EXPECT_EQ(files.serializer.indexBuffer.capacity(), (1u << 20) + 512);
    nodeOf(tree)->tuvNodeDatabase_serialize2(files.serializer);
    EXPECT_EQ(files.streams().index, "");
    EXPECT_EQ(files.serializer.nodesTotal, 3u);
    EXPECT_EQ(files.serializer.nodesSinceRenewal, 3u);
    EXPECT_EQ(files.serializer.dataOffset, 3u);
    EXPECT_EQ(files.serializer.indexBytes, 0u);
    flushAll(files.serializer);
    EXPECT_EQ(files.serializer.indexBytes, 24u);
    EXPECT_EQ(files.serializer.nodeBytes, 96u);
    TuvNodeSerializer_dealloc(files.serializer);
    EXPECT_EQ(files.serializer.indexFile, -1);
    EXPECT_TRUE(files.serializer.dataBuffer.isNull());
    expectSame(files.streams(), expected);
}

TEST(SerializationFiles, DeallocDoesNotWriteWhatIsStillBuffered) {
    Files files;
    ASSERT_TRUE(files.open());
    nodeOf(file(1, "f"))->tuvNodeDatabase_serialize2(files.serializer);
    TuvNodeSerializer_dealloc(files.serializer);
    expectSame(files.streams(), {});
}

TEST(SerializationFiles, OldContentGoes) {
    Files files;
    files.folder.write("index", "old");
    files.folder.write("node", "old");
    files.folder.write("data", "old");
    ASSERT_TRUE(files.open());
    expectSame(files.streams(), {});
    files.finish();
}

// Every stream goes over one mebibyte several times, with names on both sides of 512 bytes.
TEST(SerializationFiles, ABigTreeIsFlushedOnTheWay) {
    Plain tree = folder(1, "root");
    std::uint32_t inode = 1;
    for (int i = 0; i < 40; ++i) {
        Plain sub = folder(++inode, "folder");
        for (int j = 0; j < 7500; ++j) {
            const std::size_t length = j % 500 == 0 ? 500 + static_cast<std::size_t>(j / 500) : 12;
            sub.files.push_back(file(++inode, std::string(length, static_cast<char>('a' + j % 26)), 5, 7));
        }
        tree.folders.push_back(std::move(sub));
    }
    Files files;
    ASSERT_TRUE(files.open());
    const auto real = nodeOf(tree);
    real->tuvNodeDatabase_serialize2(files.serializer);
    EXPECT_GT(files.serializer.indexBytes, 2u << 20);
    EXPECT_GT(files.serializer.nodeBytes, 8u << 20);
    EXPECT_LE(files.serializer.indexBuffer.size(), 1u << 20);
    EXPECT_LE(files.serializer.nodeBuffer.size(), 1u << 20);
    EXPECT_LE(files.serializer.dataBuffer.size(), 1u << 20);
    EXPECT_EQ(files.folder.read("index").size(), files.serializer.indexBytes);
    EXPECT_EQ(files.serializer.nodesTotal, inode);
    EXPECT_EQ(files.serializer.nodesSinceRenewal, inode % 1001);
    files.finish();

    Streams expected;
    writeDatabase(expected, tree, 0);
    EXPECT_GT(expected.data.size(), 3u << 20);
    expectSame(files.streams(), expected);
    ByteBuffer index, nodes, data;
    real->tuvNodeDatabase_serialize(&index, &nodes, &data);
    expectSame(files.streams(), {std::string(textOf(index.view())), std::string(textOf(nodes.view())),
                                 std::string(textOf(data.view()))});
}

TEST(SerializationFiles, FlushAtMoreThanOneMebibyte) {
    Files files;
    ASSERT_TRUE(files.open());
    TuvNodeSerializer& serializer = files.serializer;
    const std::string block(1u << 20, 'x');
    serializer.dataBuffer.append(block.data(), block.size());
    serializeDataBytes(serializer, false);
    EXPECT_EQ(serializer.dataBuffer.size(), 1u << 20);
    serializer.dataBuffer.append("y", 1);
    serializeDataBytes(serializer, false);
    EXPECT_EQ(serializer.dataBuffer.size(), 0u);
    EXPECT_EQ(serializer.dataBuffer.capacity(), (1u << 20) + 512);
    EXPECT_TRUE(files.folder.read("data") == block + "y");
    files.finish();
}

TEST(SerializationFiles, ANameThatGrewTheBufferDoesNotKeepItSo) {
    Files files;
    ASSERT_TRUE(files.open());
    files.serializer.dataBuffer.extend(1u << 20);
    nodeOf(file(1, std::string(60000, 'n')))->tuvNodeDatabase_serialize2(files.serializer);
    EXPECT_EQ(files.serializer.dataBuffer.capacity(), (1u << 20) + 512);
    files.finish();
    EXPECT_EQ(files.streams().data.size(), (1u << 20) + 60000);
}

TEST(SerializationFiles, NamesThatDoNotFitAreLeftOut) {
    Files files;
    ASSERT_TRUE(files.open());
    LogCapture log;
    nodeOf(file(1, std::string(65536, 'x')))->tuvNodeDatabase_serialize2(files.serializer);
    EXPECT_EQ(log.count(LogLevel::error, "Name of 65536 bytes at offset 0 left out: inode 1"), 1);
    EXPECT_EQ(files.serializer.dataOffset, 0u);
    files.serializer.dataOffset = 0xfffffffe;
    nodeOf(file(2, "a"))->tuvNodeDatabase_serialize2(files.serializer);
    nodeOf(file(3, "b"))->tuvNodeDatabase_serialize2(files.serializer);
    EXPECT_EQ(log.count(LogLevel::error, "Name of 1 bytes at offset 4294967295 left out: inode 3"), 1);
    EXPECT_EQ(log.texts().size(), 2u);
    EXPECT_EQ(files.serializer.dataOffset, 0xffffffffu);
    const auto* records = reinterpret_cast<const TuvNodeBase*>(files.serializer.nodeBuffer.data());
    EXPECT_EQ(records[0].nameLength, 0u);
    EXPECT_EQ(records[1].nameOffset, 0xfffffffeu);
    EXPECT_EQ(records[1].nameLength, 1u);
    EXPECT_EQ(records[2].nameLength, 0u);
    files.finish();
    EXPECT_EQ(files.streams().data, "a");
}

TEST(SerializationFiles, AWriteThatFailsIsLoggedAndTheRestGoesOn) {
    struct stat device {};
    ASSERT_TRUE(stat("/dev/full", &device) == 0 && S_ISCHR(device.st_mode));
    const Plain tree = folder(1, "r", {file(2, "f")});
    Streams expected;
    writeDatabase(expected, tree, 0);
    TempFolder folder;
    TuvNodeSerializer serializer;
    ASSERT_TRUE(TuvNodeSerializer_alloc(serializer, folder.path("index"), "/dev/full", folder.path("data")));
    const int nodeFile = serializer.nodeFile;
    LogCapture log;
    nodeOf(tree)->tuvNodeDatabase_serialize2(serializer);
    flushAll(serializer);
    ASSERT_EQ(log.texts().size(), 3u);
    EXPECT_EQ(log.texts()[0], "64 bytes on fileDescriptor " + std::to_string(nodeFile));
    EXPECT_EQ(log.texts()[1], "Exception: No space left on device");
    EXPECT_EQ(log.texts()[2].front(), '(');
    EXPECT_EQ(log.texts()[2].back(), ')');
    EXPECT_GT(log.texts()[2].size(), 2u);
    for (const auto& line : log.lines()) EXPECT_EQ(line.level, LogLevel::error);
    EXPECT_EQ(serializer.nodeBuffer.size(), 0u);
    log.clear();
    TuvNodeSerializer_dealloc(serializer);
    EXPECT_TRUE(log.texts().empty());
    EXPECT_EQ(folder.read("index"), expected.index);
    EXPECT_EQ(folder.read("data"), expected.data);
}

TEST(SerializationFiles, AFileThatCannotBeOpened) {
    TempFolder folder;
    TuvNodeSerializer serializer;
    LogCapture log;
    EXPECT_FALSE(
        TuvNodeSerializer_alloc(serializer, folder.path("index"), folder.path("absent/node"), folder.path("data")));
    EXPECT_EQ(log.texts(),
              std::vector<std::string>{"Can't open \"" + folder.path("absent/node") + "\": No such file or directory"});
    EXPECT_EQ(serializer.indexFile, -1);
    EXPECT_EQ(serializer.nodeFile, -1);
    TuvNodeSerializer_dealloc(serializer);
}

TEST(SerializationFiles, TwiceDeallocatedIsFine) {
    Files files;
    ASSERT_TRUE(files.open());
    files.finish();
    TuvNodeSerializer_dealloc(files.serializer);
}

}  // namespace
}  // namespace kavaro
