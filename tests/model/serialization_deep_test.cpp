#include <pthread.h>

#include "LogCapture.h"
#include "model/serialization_twin.h"

// Trees that would need a hundred thousand stack frames if anything recursed.
namespace kavaro {
namespace {

using namespace twin;

constexpr int kLevels = 100000;

// Runs the function on a thread whose stack holds a few thousand small frames at most.
template <class Function>
void onSmallStack(Function function) {
    pthread_attr_t attributes;
    pthread_t thread;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void* argument) -> void* {
                      (*static_cast<Function*>(argument))();
                      return nullptr;
                  },
                  &function),
              0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

TuvRef<TuvDirNode> chain() {
    auto root = make<TuvDirNode>();
    TuvDirNode* end = root.get();
    for (std::uint32_t level = 1; level <= kLevels; ++level) {
        end->setInode(level);
        end->setFileName("d");
        auto child = nodeOf(file(level + 1000000, "f"));
        child->setParent(end);
        end->files()->addObject(child.get());
        if (level == kLevels) break;
        auto next = make<TuvDirNode>();
        next->setParent(end);
        end->folders()->addObject(next.get());
        end = next.get();
    }
    return root;
}

int levelsOf(const TuvDirNode* folder) {
    int levels = 0;
    for (; folder; folder = folder->folders()->folderAtIndex(0)) {
        ++levels;
        if (folder->fileCount() != 1 || folder->folderCount() > 1 || folder->fileName() != "d") return -1;
    }
    return levels;
}

TEST(SerializationDeep, StreamForm) {
    onSmallStack([] {
        const auto root = chain();
        ByteBuffer bytes;
        root->serialize(bytes, 3);
        EXPECT_EQ(bytes.size(), std::size_t{kLevels} * (36 + 1 + 4 + 33 + 4));
        const auto read = TuvDirNode::fromBytes(bytes.view());
        ASSERT_TRUE(read);
        EXPECT_EQ(levelsOf(read.get()), kLevels);
    });
}

TEST(SerializationDeep, MixedFormOfADeepFolder) {
    onSmallStack([] {
        auto array = make<TuvObjectArray>();
        array->addObject(chain().get());
        ByteBuffer bytes;
        array->serialize(bytes, 3);
        const auto read = TuvObjectArray::fromBytes(bytes.view());
        ASSERT_TRUE(read);
        EXPECT_EQ(levelsOf(read->folderAtIndex(0)), kLevels);
    });
}

TEST(SerializationDeep, ThreeStreams) {
    onSmallStack([] {
        const auto root = chain();
        ByteBuffer index, nodes, data;
        root->tuvNodeDatabase_serialize(&index, &nodes, &data);
        ASSERT_EQ(index.size(), std::size_t{kLevels} * 2 * 8);
        const int total = 2 * kLevels;
        const auto* indexRecords = reinterpret_cast<const TuvNodeIndex*>(index.data());
        const auto* nodeRecords = reinterpret_cast<const TuvNodeBase*>(nodes.data());
        auto read = make<TuvDirNode>();
        ASSERT_TRUE(read->tuvNodeDatabase_deserialize(indexRecords[0], nodeRecords[0], data.view()));
        int cursor = 1;
        ASSERT_TRUE(read->tuvNodeDatabase_deserialize(indexRecords, nodeRecords, data.view(), &cursor, total));
        EXPECT_EQ(cursor, total - 1);
        EXPECT_EQ(levelsOf(read.get()), kLevels);
    });
}

// Folders nested as tightly as the form allows (44 bytes each), cut off at the innermost.
TEST(SerializationDeep, HostileNesting) {
    std::string level;
    write(level, folder(1, ""), 3);
    level.resize(level.size() - 4);
    put<std::int32_t>(level, 1);
    ASSERT_EQ(level.size(), 44u);
    std::string bytes;
    for (int i = 0; i < kLevels; ++i) bytes += level;
    onSmallStack([&] {
        LogCapture log;
        EXPECT_FALSE(TuvDirNode::fromBytes(ExactBytes(bytes).view()));
        EXPECT_EQ(log.count(LogLevel::error, ""), 1);
        EXPECT_EQ(log.count(LogLevel::error, "count is larger than the data"), 1);
    });
}

}  // namespace
}  // namespace kavaro
