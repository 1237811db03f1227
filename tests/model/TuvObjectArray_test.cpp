#include "model/TuvObjectArray.h"

#include "ModelTest.h"

namespace kavaro {
namespace {

using Ids = std::vector<std::uint32_t>;

TuvRef<TuvObjectArray> filesWithIDs(const Ids& ids) {
    auto array = make<TuvObjectArray>();
    for (std::uint32_t id : ids) array->adoptObject(newFile(id, "n" + std::to_string(id)).leak());
    return array;
}

TEST(TuvObjectArrayTest, IsBornEmpty) {
    auto array = make<TuvObjectArray>();
    EXPECT_EQ(array->count(), 0);
    EXPECT_EQ(array->size(), 0);
    EXPECT_EQ(array->begin(), array->end());
    EXPECT_EQ(make<TuvObjectArray>(12)->size(), 12);
    EXPECT_EQ(make<TuvObjectArray>(12)->count(), 0);
    EXPECT_EQ(make<TuvObjectArray>(-3)->size(), 0);
}

TEST(TuvObjectArrayTest, KeepsTheBasesIdentity) {
    auto array = make<TuvObjectArray>();
    EXPECT_EQ(array->description(), "TuvObject");
    EXPECT_EQ(array->objectID(), 1u);
    EXPECT_TRUE(array->isEqual(static_cast<const TuvObject*>(array.get())));
}

TEST(TuvObjectArrayTest, RetainsWhatEntersAndReleasesWhatLeaves) {
    auto file = newFile(1);
    auto array = make<TuvObjectArray>();
    array->addObject(file.get());
    array->addObject(file.get());
    EXPECT_EQ(file->retainCount(), 3u);
    array->removeObjectAtIndex(0);
    EXPECT_EQ(file->retainCount(), 2u);
    array->insertObjectAtIndex(file.get(), 0);
    EXPECT_EQ(file->retainCount(), 3u);
    array->removeLastObject();
    EXPECT_EQ(file->retainCount(), 2u);
    array->removeAllObjects();
    EXPECT_EQ(file->retainCount(), 1u);
    array->addObject(file.get());
    array = nullptr;
    EXPECT_EQ(file->retainCount(), 1u);
}

TEST(TuvObjectArrayTest, AdoptsAFreshObject) {
    auto array = make<TuvObjectArray>();
    array->adoptObject(newFile(1).leak());
    EXPECT_EQ(array->objectAtIndex(0)->retainCount(), 1u);
    array->adoptObject(nullptr);
    EXPECT_EQ(array->count(), 1);
    EXPECT_EQ(array->size(), 4);
}

TEST(TuvObjectArrayTest, FindsObjects) {
    auto array = filesWithIDs({4, 7, 7, 9});
    EXPECT_EQ(array->objectAtIndex(-1), nullptr);
    EXPECT_EQ(array->objectAtIndex(4), nullptr);
    EXPECT_EQ(array->lastObject(), array->objectAtIndex(3));
    EXPECT_EQ(make<TuvObjectArray>()->lastObject(), nullptr);
    auto same = newFile(7);
    auto absent = newFile(8);
    EXPECT_EQ(array->indexOfObject(same.get()), 1);
    EXPECT_EQ(array->indexOfObject(absent.get()), 2147483647);
    EXPECT_EQ(array->indexOfObject(nullptr), 2147483647);
    EXPECT_EQ(array->objectForObject(same.get()), array->objectAtIndex(1));
    EXPECT_EQ(array->objectForObject(absent.get()), nullptr);
    EXPECT_EQ(array->objectForObject(nullptr), nullptr);
    EXPECT_EQ(array->objectWithINode(9), array->objectAtIndex(3));
    EXPECT_EQ(array->objectWithINode(5), nullptr);
}

TEST(TuvObjectArrayTest, AsksTheElementForEquality) {
    struct Agreeable : TuvObject {
        bool isEqual(const TuvObject*) const override { return true; }
    };
    auto array = make<TuvObjectArray>();
    array->adoptObject(new Agreeable);
    auto plain = make<TuvObjectArray>();
    EXPECT_EQ(array->indexOfObject(plain.get()), 0);
}

TEST(TuvObjectArrayTest, SearchesBySignedIdentifier) {
    EXPECT_EQ(make<TuvObjectArray>()->binaryIndexOfObjectWithID(1), 2147483647);
    EXPECT_EQ(make<TuvObjectArray>()->binaryObjectWithID(1), nullptr);
    auto array = filesWithIDs({0x80000000u, 0xffffffffu, 0, 3, 9, 27, 0x7fffffffu});
    const Ids ids = idsOf(array.get());
    for (int i = 0; i < array->count(); ++i) {
        EXPECT_EQ(array->binaryIndexOfObjectWithID(ids[static_cast<std::size_t>(i)]), i);
        EXPECT_EQ(array->binaryObjectWithID(ids[static_cast<std::size_t>(i)]), array->objectAtIndex(i));
    }
    for (std::uint32_t absent : {0x80000001u, 1u, 4u, 28u, 0x7ffffffeu}) {
        EXPECT_EQ(array->binaryIndexOfObjectWithID(absent), 2147483647);
        EXPECT_EQ(array->binaryObjectWithID(absent), nullptr);
    }
    // The first probe that matches, not the first element.
    EXPECT_EQ(filesWithIDs({5, 5, 5, 5})->binaryIndexOfObjectWithID(5), 1);
}

TEST(TuvObjectArrayTest, OrderedInsertPutsEqualOnesBehind) {
    auto array = make<TuvObjectArray>();
    auto first = newFile(5, "first");
    auto second = newFile(5, "second");
    auto three = newFile(3);
    auto nine = newFile(9);
    array->addObjectBinary(nullptr);
    for (TuvNode* node : {first.get(), three.get(), second.get(), nine.get()}) array->addObjectBinary(node);
    EXPECT_EQ(idsOf(array.get()), (Ids{3, 5, 5, 9}));
    EXPECT_EQ(array->objectAtIndex(1), first.get());
    EXPECT_EQ(array->objectAtIndex(2), second.get());
    array->addObjectBinary(newFile(0xfffffff0u).get());  // a negative number
    EXPECT_EQ(idsOf(array.get()), (Ids{0xfffffff0u, 3, 5, 5, 9}));
}

TEST(TuvObjectArrayTest, InsertsAnywhere) {
    auto array = filesWithIDs({1, 2, 3});
    array->insertObjectAtIndex(nullptr, 0);
    array->insertObjectAtIndex(newFile(10).get(), 0);
    array->insertObjectAtIndex(newFile(11).get(), 2);
    array->insertObjectAtIndex(newFile(12).get(), 5);
    array->insertObjectAtIndex(newFile(13).get(), 100);  // beyond the count: at the end
    array->insertObjectAtIndex(newFile(14).get(), -7);
    EXPECT_EQ(idsOf(array.get()), (Ids{14, 10, 1, 11, 2, 3, 12, 13}));
}

TEST(TuvObjectArrayTest, InsertsAnArrayAtTheFrontWhateverTheIndex) {
    auto array = filesWithIDs({1, 2});
    auto other = filesWithIDs({7, 8, 9});
    array->insertObjectsAtIndex(other.get(), 2);
    EXPECT_EQ(idsOf(array.get()), (Ids{7, 8, 9, 1, 2}));
    EXPECT_EQ(array->objectAtIndex(0)->retainCount(), 2u);
    array->insertObjectsAtIndex(array.get(), 0);
    EXPECT_EQ(idsOf(array.get()), (Ids{7, 8, 9, 1, 2, 7, 8, 9, 1, 2}));
    array->insertObjectsAtIndex(nullptr, 0);
    EXPECT_EQ(array->count(), 10);
    auto empty = make<TuvObjectArray>();
    empty->insertObjectsAtIndex(other.get(), 0);
    EXPECT_EQ(idsOf(empty.get()), (Ids{7, 8, 9}));
}

TEST(TuvObjectArrayTest, AddsArraysAndRawPointers) {
    auto array = filesWithIDs({1});
    auto other = filesWithIDs({7, 8});
    array->addObjectsFromArray(nullptr);
    array->addObjectsFromArray(make<TuvObjectArray>().get());
    EXPECT_EQ(array->size(), 4);
    array->addObjectsFromArray(other.get());
    array->addObjectsFromArray(array.get());
    EXPECT_EQ(idsOf(array.get()), (Ids{1, 7, 8, 1, 7, 8}));
    array->addObjectsFromArrayLength(other->begin(), 2);
    EXPECT_EQ(array->size(), 8);
    EXPECT_EQ(idsOf(array.get()), (Ids{1, 7, 8, 1, 7, 8, 7, 8}));
    EXPECT_EQ(other->objectAtIndex(0)->retainCount(), 4u);
    array->addObjectsFromArrayLength(other->begin(), 0);
    EXPECT_EQ(array->count(), 8);
}

TEST(TuvObjectArrayTest, Removes) {
    auto array = filesWithIDs({1, 2, 3, 2, 5});
    array->removeObjectAtIndex(-1);
    array->removeObjectAtIndex(5);
    EXPECT_EQ(array->count(), 5);
    array->removeObject(newFile(2).get());
    EXPECT_EQ(idsOf(array.get()), (Ids{1, 3, 2, 5}));
    array->removeObject(newFile(77).get());
    array->removeObject(nullptr);
    array->removeObjectAtIndex(0);
    array->removeLastObject();
    EXPECT_EQ(idsOf(array.get()), (Ids{3, 2}));
    array->removeObject(array->objectAtIndex(1));
    EXPECT_EQ(idsOf(array.get()), (Ids{3}));
    array->removeLastObject();
    array->removeLastObject();  // nothing left to remove
    EXPECT_EQ(array->count(), 0);
}

TEST(TuvObjectArrayTest, RemovesManyInOnePass) {
    const Ids all{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    for (unsigned mask = 0; mask < 1024; ++mask) {
        auto array = filesWithIDs(all);
        std::vector<int> indexes;
        Ids left;
        for (int i = 0; i < 10; ++i) {
            if (mask & (1u << i))
                indexes.push_back(i);
            else
                left.push_back(static_cast<std::uint32_t>(i));
        }
        array->removeObjectsAtIndexes(indexes);
        ASSERT_EQ(idsOf(array.get()), left);
    }
    EXPECT_EQ(TuvNode::instanceCount(), 0);
}

TEST(TuvObjectArrayTest, RemovesAllFromTheLastToTheFirst) {
    struct Noting final : TuvObject {
        Noting(std::vector<int>* deaths, int number) : _deaths(deaths), _number(number) {}
        ~Noting() override { _deaths->push_back(_number); }
        std::vector<int>* _deaths;
        int _number;
    };
    std::vector<int> deaths;
    auto array = make<TuvObjectArray>(10);
    for (int i = 0; i < 3; ++i) array->adoptObject(new Noting(&deaths, i));
    array->removeAllObjects();
    EXPECT_EQ(deaths, (std::vector<int>{2, 1, 0}));
    EXPECT_EQ(array->count(), 0);
    EXPECT_EQ(array->size(), 10);
    for (int i = 0; i < 3; ++i) array->adoptObject(new Noting(&deaths, i));
    array = nullptr;
    EXPECT_EQ(deaths, (std::vector<int>{2, 1, 0, 2, 1, 0}));
}

TEST(TuvObjectArrayTest, ReplacesAnEqualObject) {
    auto array = filesWithIDs({1, 2, 3});
    auto fresh = newFile(2, "fresh");
    EXPECT_TRUE(array->replaceObject(fresh.get()));
    EXPECT_EQ(array->objectAtIndex(1), fresh.get());
    EXPECT_EQ(fresh->retainCount(), 2u);
    EXPECT_TRUE(array->replaceObject(fresh.get()));
    EXPECT_EQ(fresh->retainCount(), 2u);
    EXPECT_FALSE(array->replaceObject(newFile(9).get()));
    EXPECT_FALSE(array->replaceObject(nullptr));
    EXPECT_EQ(idsOf(array.get()), (Ids{1, 2, 3}));
    EXPECT_EQ(TuvNode::instanceCount(), 3);
}

TEST(TuvObjectArrayTest, ReplacesAtAnIndex) {
    auto array = filesWithIDs({1, 2});
    auto fresh = newFile(9);
    array->replaceObjectAtIndex(-1, fresh.get());
    array->replaceObjectAtIndex(2, fresh.get());
    array->replaceObjectAtIndex(0, nullptr);
    EXPECT_EQ(fresh->retainCount(), 1u);
    array->replaceObjectAtIndex(0, fresh.get());
    array->replaceObjectAtIndex(0, fresh.get());
    EXPECT_EQ(fresh->retainCount(), 2u);
    EXPECT_EQ(idsOf(array.get()), (Ids{9, 2}));
}

TEST(TuvObjectArrayTest, ReplacesAnOwnerByWhatItOwns) {
    auto array = make<TuvObjectArray>();
    auto outer = newFolder(1);
    TuvDirNode* inner = addFolder(outer.get(), newFolder(1));
    array->adoptObject(outer.leak());
    EXPECT_TRUE(array->replaceObject(inner));
    EXPECT_EQ(array->objectAtIndex(0), inner);
    EXPECT_EQ(inner->retainCount(), 1u);
}

TEST(TuvObjectArrayTest, ComparesElementByElement) {
    auto array = filesWithIDs({1, 2});
    EXPECT_TRUE(array->isEqual(*filesWithIDs({1, 2})));
    EXPECT_FALSE(array->isEqual(*filesWithIDs({2, 1})));
    EXPECT_FALSE(array->isEqual(*filesWithIDs({1, 2, 3})));
    EXPECT_TRUE(make<TuvObjectArray>()->isEqual(*make<TuvObjectArray>()));
}

}  // namespace
}  // namespace kavaro
