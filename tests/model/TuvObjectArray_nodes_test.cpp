#include "ModelTest.h"
#include "model/NodeFilterRule.h"

namespace kavaro {
namespace {

using Ids = std::vector<std::uint32_t>;

TuvRef<TuvObjectArray> filesOfSizes(const std::vector<std::uint64_t>& sizes) {
    auto array = make<TuvObjectArray>();
    std::uint32_t inode = 0;
    for (std::uint64_t size : sizes) array->adoptObject(newFile(++inode, "f", size).leak());
    return array;
}

std::vector<Ids> chunksOf(const TuvRef<TuvObjectArray>& chunks) {
    std::vector<Ids> ids;
    for (const TuvObject* chunk : *chunks) {
        EXPECT_EQ(chunk->retainCount(), 1u);
        ids.push_back(idsOf(static_cast<const TuvObjectArray*>(chunk)));
    }
    return ids;
}

TEST(TuvObjectArrayNodesTest, SumsOfNothing) {
    auto array = make<TuvObjectArray>();
    EXPECT_EQ(array->logicalSize(), 0u);
    EXPECT_EQ(array->physicalSize(), 0u);
    EXPECT_EQ(array->fileCount(), 0);
    EXPECT_EQ(array->folderCount(), 0);
    EXPECT_EQ(array->recursiveFileCount(), 0);
    EXPECT_EQ(array->recursiveFolderCount(), 0);
    EXPECT_TRUE(array->isResolved());
    array->unloadNodes();
    array->setParent(nullptr);
}

TEST(TuvObjectArrayNodesTest, SumsOfFilesAndFolders) {
    auto array = make<TuvObjectArray>();
    array->adoptObject(newFile(1, "a", std::uint64_t{1} << 40, 3).leak());
    array->adoptObject(newFile(2, "b", 5, std::uint64_t{1} << 41).leak());
    auto folder = newFolder(3);
    addFile(folder.get(), newFile(4));
    addFile(addFolder(folder.get(), newFolder(5)), newFile(6));
    folder->setLogicalSize(10);
    folder->setPhysicalSize(20);
    array->addObject(folder.get());
    EXPECT_EQ(array->logicalSize(), (std::uint64_t{1} << 40) + 15);
    EXPECT_EQ(array->physicalSize(), (std::uint64_t{1} << 41) + 23);
    EXPECT_EQ(array->fileCount(), 2);
    EXPECT_EQ(array->folderCount(), 1);
    EXPECT_EQ(array->recursiveFileCount(), 4);  // each file counts itself
    EXPECT_EQ(array->recursiveFolderCount(), 1);
    EXPECT_FALSE(array->isResolved());
    folder->setIsResolved(true);
    EXPECT_TRUE(array->isResolved());
}

TEST(TuvObjectArrayNodesTest, SetsTheParentOfAll) {
    auto parent = newFolder(1);
    auto array = filesOfSizes({1, 2});
    array->setParent(parent.get());
    EXPECT_EQ(array->nodeAtIndex(0)->parent(), parent.get());
    EXPECT_EQ(array->nodeAtIndex(1)->parent(), parent.get());
    EXPECT_EQ(parent->retainCount(), 1u);
    EXPECT_EQ(array->nodeAtIndex(2), nullptr);
    EXPECT_EQ(array->folderAtIndex(-1), nullptr);
}

TEST(TuvObjectArrayNodesTest, UnloadsEveryFolder) {
    auto array = make<TuvObjectArray>();
    auto folder = newFolder(1);
    addFile(folder.get(), newFile(2));
    addFolder(addFolder(folder.get(), newFolder(3)), newFolder(4));
    array->addObject(folder.get());
    array->adoptObject(newFolder(5).leak());
    array->unloadNodes();
    EXPECT_EQ(folder->childrenCount(), 0);
    EXPECT_EQ(TuvNode::instanceCount(), 2);
}

TEST(TuvObjectArrayNodesTest, PathsAndURLs) {
    ModelLogs logs;
    auto root = newFolder(1, "/");
    auto array = make<TuvObjectArray>();
    for (const char* name : {"plain", "a b%#?;\xff\n", "-._~!$&'()*+,=:@"})
        array->addObject(addFile(root.get(), newFile(2, name)));
    array->adoptObject(make<TuvNode>().leak());
    EXPECT_EQ(array->filePaths(),
              (std::vector<std::string>{"/plain", "/a b%#?;\xff\n", "/-._~!$&'()*+,=:@", "NO FILE NAME"}));
    EXPECT_EQ(array->fileURLs(), (std::vector<std::string>{"file:///plain", "file:///a%20b%25%23%3F%3B%FF%0A",
                                                           "file:///-._~!$&'()*+,=:@", "file://NO%20FILE%20NAME"}));
    EXPECT_EQ(make<TuvObjectArray>()->filePaths(), std::vector<std::string>{});
}

TEST(TuvObjectArrayNodesTest, FiltersWithTheFlag) {
    struct OddOrAll : NodeFilterRule {
        bool accepts(const TuvNode& node, bool flag) const override { return flag || node.inode() % 2; }
    };
    auto array = filesOfSizes({1, 2, 3});
    auto odd = array->filterUsing(OddOrAll());
    EXPECT_EQ(idsOf(odd.get()), (Ids{1, 3}));
    EXPECT_EQ(odd->size(), 4);
    EXPECT_EQ(odd->retainCount(), 1u);
    EXPECT_EQ(odd->objectAtIndex(0)->retainCount(), 2u);
    EXPECT_EQ(idsOf(array->filterUsing(OddOrAll(), true).get()), (Ids{1, 2, 3}));
}

TEST(TuvObjectArrayNodesTest, ChunksByCount) {
    EXPECT_EQ(chunksOf(filesOfSizes({1, 1, 1, 1, 1, 1, 1})->toArraysInChunks(3)),
              (std::vector<Ids>{{1, 2, 3}, {4, 5, 6}, {7}}));
    EXPECT_EQ(chunksOf(filesOfSizes({1, 1, 1, 1, 1, 1})->toArraysInChunks(3)),
              (std::vector<Ids>{{1, 2, 3}, {4, 5, 6}}));
    EXPECT_EQ(chunksOf(filesOfSizes({1, 1})->toArraysInChunks(2147483647)), (std::vector<Ids>{{1, 2}}));
    EXPECT_EQ(chunksOf(filesOfSizes({1, 1})->toArraysInChunks(0)), (std::vector<Ids>{{1}, {2}}));
    EXPECT_EQ(make<TuvObjectArray>()->toArraysInChunks(3)->count(), 0);
}

TEST(TuvObjectArrayNodesTest, ChunksBySize) {
    EXPECT_EQ(chunksOf(filesOfSizes({60, 60, 10})->toArraysInChunksWithLogicalSize(100, 10)),
              (std::vector<Ids>{{1, 2}, {3}}));
    EXPECT_EQ(chunksOf(filesOfSizes({50, 50, 10})->toArraysInChunksWithLogicalSize(100, 10)),
              (std::vector<Ids>{{1, 2}, {3}}));
    EXPECT_EQ(chunksOf(filesOfSizes({1, 1, 1, 1, 1})->toArraysInChunksWithLogicalSize(100, 2)),
              (std::vector<Ids>{{1, 2}, {3, 4}, {5}}));
    EXPECT_EQ(chunksOf(filesOfSizes({500, 500})->toArraysInChunksWithLogicalSize(100, 10)),
              (std::vector<Ids>{{1}, {2}}));
    EXPECT_EQ(make<TuvObjectArray>()->toArraysInChunksWithLogicalSize(100, 10)->count(), 0);
}

TEST(TuvObjectArrayNodesTest, ChunkSizesCountTheLowHalfAsASignedNumber) {
    const std::uint64_t fourGiB = std::uint64_t{1} << 32;
    // The high halves do not count.
    EXPECT_EQ(chunksOf(filesOfSizes({fourGiB + 40, 5 * fourGiB, 60, 1})->toArraysInChunksWithLogicalSize(100, 10)),
              (std::vector<Ids>{{1, 2, 3}, {4}}));
    // 2^31 turns the sum negative.
    EXPECT_EQ(chunksOf(filesOfSizes({fourGiB / 2, 99, fourGiB / 2, 1})->toArraysInChunksWithLogicalSize(100, 10)),
              (std::vector<Ids>{{1, 2, 3, 4}}));
}

TEST(TuvObjectArrayNodesTest, SortsArraysByTheirPhysicalSize) {
    auto outer = make<TuvObjectArray>();
    for (std::uint64_t size : {5, 9, 9, 1}) {
        auto inner = make<TuvObjectArray>();
        inner->adoptObject(newFile(1, "f", 0, size - 1).leak());
        inner->adoptObject(newFile(2, "f", 0, 1).leak());
        outer->adoptObject(inner.leak());
    }
    outer->sortByFunction(TuvObjectArray_sortByPhysicalSize);
    std::vector<std::uint64_t> sizes;
    for (const TuvObject* inner : *outer) sizes.push_back(static_cast<const TuvObjectArray*>(inner)->physicalSize());
    EXPECT_EQ(sizes, (std::vector<std::uint64_t>{9, 9, 5, 1}));
    const TuvObject* slots[] = {outer->objectAtIndex(0), outer->objectAtIndex(1), outer->objectAtIndex(3)};
    EXPECT_EQ(TuvObjectArray_sortByPhysicalSize(&slots[0], &slots[1]), 0);
    EXPECT_EQ(TuvObjectArray_sortByPhysicalSize(&slots[0], &slots[2]), -1);
    EXPECT_EQ(TuvObjectArray_sortByPhysicalSize(&slots[2], &slots[0]), 1);
}

}  // namespace
}  // namespace kavaro
