#include <algorithm>
#include <random>

#include "ModelTest.h"

namespace kavaro {
namespace {

int compareNodes(TuvObjectArray::Comparison comparison, const TuvRef<TuvNode>& a, const TuvRef<TuvNode>& b) {
    TuvObject* const slots[] = {a.get(), b.get()};
    return comparison(&slots[0], &slots[1]);
}

// Sorted by the function, and each node's own text of it.
template <class Text>
std::vector<std::string> sorted(std::vector<TuvRef<TuvNode>> nodes, TuvObjectArray::Comparison comparison, Text text) {
    auto array = make<TuvObjectArray>();
    for (const auto& node : nodes) array->addObject(node.get());
    array->sortByFunction(comparison);
    std::vector<std::string> texts;
    for (int i = 0; i < array->count(); ++i) texts.push_back(std::string(text(*array->nodeAtIndex(i))));
    return texts;
}

std::vector<TuvRef<TuvNode>> named(std::initializer_list<const char*> names) {
    std::vector<TuvRef<TuvNode>> nodes;
    for (const char* name : names) {
        nodes.push_back(make<TuvNode>());
        if (name) nodes.back()->setFileName(name);
    }
    return nodes;
}

TEST(TuvNodeSortTest, LargestFirst) {
    const auto nodes = [] {
        std::vector<TuvRef<TuvNode>> all;
        for (std::uint64_t size : {5, 9, 9, 1}) all.push_back(newFile(1, "f", size * 3, size));
        return all;
    };
    EXPECT_EQ(sorted(nodes(), TuvNode_sortByPhysicalSize,
                     [](const TuvNode& node) { return std::to_string(node.physicalSize()); }),
              (std::vector<std::string>{"9", "9", "5", "1"}));
    EXPECT_EQ(sorted(nodes(), TuvNode_sortByLogicalSize,
                     [](const TuvNode& node) { return std::to_string(node.logicalSize()); }),
              (std::vector<std::string>{"27", "27", "15", "3"}));
    const std::uint64_t big = std::uint64_t{1} << 63;
    auto small = newFile(1, "f", 1, 1);
    auto large = newFile(2, "f", big, big);
    EXPECT_GT(compareNodes(TuvNode_sortByPhysicalSize, small, large), 0);
    EXPECT_LT(compareNodes(TuvNode_sortByPhysicalSize, large, small), 0);
    EXPECT_EQ(compareNodes(TuvNode_sortByPhysicalSize, large, large), 0);
    EXPECT_GT(compareNodes(TuvNode_sortByLogicalSize, small, large), 0);
    EXPECT_EQ(compareNodes(TuvNode_sortByLogicalSize, small, small), 0);
}

TEST(TuvNodeSortTest, NewestFirst) {
    auto older = newFile(1);
    auto newer = newFile(2);
    older->setContentModDate(100.25);
    newer->setContentModDate(100.5);
    EXPECT_GT(compareNodes(TuvNode_sortByModDate, older, newer), 0);
    EXPECT_LT(compareNodes(TuvNode_sortByModDate, newer, older), 0);
    EXPECT_EQ(compareNodes(TuvNode_sortByModDate, newer, newer), 0);
}

TEST(TuvNodeSortTest, InodesAreUnsigned) {
    auto low = newFile(1);
    auto high = newFile(0xffffffffu);
    EXPECT_LT(compareNodes(TuvNode_sortByInode, low, high), 0);
    EXPECT_GT(compareNodes(TuvNode_sortByInode, high, low), 0);
    EXPECT_EQ(compareNodes(TuvNode_sortByInode, low, low), 0);
}

TEST(TuvNodeSortTest, NamesByCodePointOrWithoutCase) {
    const auto name = [](const TuvNode& node) { return node.fileName(); };
    EXPECT_EQ(sorted(named({"b", "a", "B", "é", nullptr, "A"}), TuvNode_sortByName, name),
              (std::vector<std::string>{"A", "B", "No File Name !!!", "a", "b", "é"}));
    EXPECT_EQ(sorted(named({"STRASSE2", "straße1", "B", nullptr, "a"}), TuvNode_sortByNameInsensitive, name),
              (std::vector<std::string>{"a", "B", "No File Name !!!", "straße1", "STRASSE2"}));
}

TEST(TuvNodeSortTest, PathsAreComputedAndKept) {
    auto root = newFolder(1, "/r");
    auto other = newFolder(2, "/Q");
    const auto nodes = [&] {
        std::vector<TuvRef<TuvNode>> all;
        all.push_back(newFile(3, "a"));
        all.back()->setParent(root.get());
        all.push_back(newFile(4, "z"));
        all.back()->setParent(other.get());
        all.push_back(make<TuvNode>());
        all.push_back(newFile(5, "B"));
        all.back()->setParent(root.get());
        return all;
    };
    const auto path = [](const TuvNode& node) {
        EXPECT_EQ(node.hasCachedFilePath(), node.hasFileName());
        return node.filePath();
    };
    EXPECT_EQ(sorted(nodes(), TuvNode_sortByPath, path),
              (std::vector<std::string>{"/Q/z", "/r/B", "/r/a", "NO FILE NAME"}));
    EXPECT_EQ(sorted(nodes(), TuvNode_sortByPathInsensitive, path),
              (std::vector<std::string>{"/Q/z", "/r/a", "/r/B", "NO FILE NAME"}));
}

TEST(TuvNodeSortTest, CountsNameComparisons) {
    TuvNode_resetSortByNameCount();
    EXPECT_EQ(TuvNode_sortByNameCount(), 0);
    auto a = newFile(1, "a");
    auto b = newFile(2, "b");
    compareNodes(TuvNode_sortByName, a, b);
    compareNodes(TuvNode_sortByName, b, a);
    compareNodes(TuvNode_sortByNameInsensitive, b, a);
    compareNodes(TuvNode_sortByPath, b, a);
    EXPECT_EQ(TuvNode_sortByNameCount(), 2);
    TuvNode_resetSortByNameCount();
    EXPECT_EQ(TuvNode_sortByNameCount(), 0);
}

TEST(TuvNodeSortTest, ManyNodesByEveryKey) {
    std::mt19937 random(7);
    auto root = newFolder(1, "/r");
    auto array = make<TuvObjectArray>();
    for (int i = 0; i < 5000; ++i) {
        auto node = newFile(random() % 3000, "n" + std::to_string(random() % 2000), random() % 1000, random());
        node->setContentModDate(random() % 100);
        node->setParent(root.get());
        array->adoptObject(node.leak());
    }
    for (TuvObjectArray::Comparison comparison :
         {TuvNode_sortByPhysicalSize, TuvNode_sortByLogicalSize, TuvNode_sortByModDate, TuvNode_sortByInode,
          TuvNode_sortByName, TuvNode_sortByNameInsensitive, TuvNode_sortByPath, TuvNode_sortByPathInsensitive}) {
        array->sortByFunction(comparison);
        EXPECT_TRUE(std::is_sorted(array->begin(), array->end(),
                                   [&](const TuvObject* a, const TuvObject* b) { return comparison(&a, &b) < 0; }));
    }
    EXPECT_EQ(array->count(), 5000);
    make<TuvObjectArray>()->sortByFunction(TuvNode_sortByInode);
}

TEST(TuvNodeSortTest, SortsBehindAGap) {
    auto array = make<TuvObjectArray>();
    for (std::uint32_t i = 0; i < 300; ++i) array->insertObjectAtIndex(newFile(i * 7 % 300).get(), 0);
    for (int i = 0; i < 100; ++i) array->removeObjectAtIndex(0);
    array->sortByFunction(TuvNode_sortByInode);
    const auto ids = idsOf(array.get());
    EXPECT_EQ(ids.size(), 200u);
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
}

}  // namespace
}  // namespace kavaro
