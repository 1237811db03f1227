#include <deque>

#include "ModelTest.h"

namespace kavaro {
namespace {

struct Row {
    int from, to, step;
};
constexpr Row kSteps[] = {
    {0, 16, 4},
    {17, 32, 8},
    {33, 64, 16},
    {65, 128, 32},
    {129, 256, 64},
    {257, 512, 128},
    {513, 1024, 256},
    {1025, 2048, 512},
    {2049, 4096, 1024},
    {4097, 8192, 2048},
    {8193, 16384, 4096},
    {16385, 32768, 8192},
    {32769, 65536, 16384},
    {65537, 131072, 32768},
    {131073, 262144, 65536},
    {262145, 3000000, 131072},
};

// Elements that were moved, seen from outside: by how often the first slot changed its address.
class MoveCount {
  public:
    explicit MoveCount(const TuvObjectArray* array) : _array(array), _first(address()) {}
    // `shift`: how far the first element is expected to have gone without a move.
    void after(int shift) {
        if (address() != _first + shift * static_cast<std::intptr_t>(sizeof(TuvObject*))) _moves += _array->count();
        _first = address();
    }
    std::int64_t moves() const { return _moves; }

  private:
    std::intptr_t address() const { return reinterpret_cast<std::intptr_t>(_array->begin()); }
    const TuvObjectArray* _array;
    std::intptr_t _first;
    std::int64_t _moves = 0;
};

TEST(TuvObjectArrayStorageTest, GrowsByTheStepTable) {
    ModelLogs logs(LogLevel::error);
    for (const Row& row : kSteps)
        for (int size : {row.from, row.from + 1, row.to - 1, row.to}) {
            auto array = make<TuvObjectArray>(size);
            array->extendSize(0);
            EXPECT_EQ(array->size(), size + row.step) << size;
        }
}

TEST(TuvObjectArrayStorageTest, GrowsOnlyWhenItHasTo) {
    auto file = newFile(1);
    auto array = make<TuvObjectArray>();
    for (int count = 1; count <= 16; ++count) {
        array->addObject(file.get());
        EXPECT_EQ(array->size(), (count + 3) / 4 * 4);
    }
    array->addObject(file.get());
    EXPECT_EQ(array->size(), 20);
    auto exact = make<TuvObjectArray>(3);
    for (int i = 0; i < 3; ++i) exact->addObject(file.get());
    EXPECT_EQ(exact->size(), 3);
}

TEST(TuvObjectArrayStorageTest, InsertionsKeepOneSlotSpare) {
    auto file = newFile(1);
    auto array = make<TuvObjectArray>(4);
    for (int i = 0; i < 2; ++i) array->addObject(file.get());
    array->insertObjectAtIndex(file.get(), 0);  // 2 + 1 < 4
    EXPECT_EQ(array->size(), 4);
    array->insertObjectAtIndex(file.get(), 0);  // 3 + 1 >= 4
    EXPECT_EQ(array->size(), 8);
    auto sorted = make<TuvObjectArray>(4);
    for (int i = 0; i < 3; ++i) sorted->addObjectBinary(file.get());
    EXPECT_EQ(sorted->size(), 4);
    sorted->addObjectBinary(file.get());
    EXPECT_EQ(sorted->size(), 8);
}

TEST(TuvObjectArrayStorageTest, BulkAddsLeaveRoom) {
    auto file = newFile(1);
    auto four = make<TuvObjectArray>();
    for (int i = 0; i < 4; ++i) four->addObject(file.get());
    EXPECT_EQ(four->size(), 4);
    auto appended = make<TuvObjectArray>();
    appended->addObjectsFromArray(four.get());  // until the size is above 0 + 4
    EXPECT_EQ(appended->size(), 8);
    auto inserted = make<TuvObjectArray>();
    inserted->insertObjectsAtIndex(four.get(), 0);
    EXPECT_EQ(inserted->size(), 8);
    inserted->insertObjectsAtIndex(four.get(), 0);  // 8 is not above 4 + 4
    EXPECT_EQ(inserted->size(), 12);
}

TEST(TuvObjectArrayStorageTest, SizesAreSetExactly) {
    auto file = newFile(1);
    auto array = make<TuvObjectArray>();
    for (int i = 0; i < 10; ++i) array->addObject(file.get());
    array->shrinkSizeToCount();
    EXPECT_EQ(array->size(), 11);
    array->shrinkSizeToCount();
    EXPECT_EQ(array->size(), 11);
    TuvObject* const objects[] = {file.get(), file.get()};
    array->addObjectsFromArrayLength(objects, 2);
    EXPECT_EQ(array->size(), 12);
    EXPECT_EQ(array->count(), 12);
    array->setSize(100);
    EXPECT_EQ(array->size(), 100);
    array->addObjectsFromArrayLength(objects, 1);
    EXPECT_EQ(array->size(), 13);
    array->removeAllObjects();
    EXPECT_EQ(array->size(), 13);
    array->setSize(0);
    EXPECT_EQ(array->size(), 0);
    array->addObject(file.get());
    EXPECT_EQ(array->size(), 4);
}

TEST(TuvObjectArrayStorageTest, ASizeBelowTheCountLosesNothing) {
    auto array = make<TuvObjectArray>();
    for (std::uint32_t i = 0; i < 100; ++i) array->adoptObject(newFile(i).leak());
    array->setSize(10);
    EXPECT_EQ(array->size(), 10);
    EXPECT_EQ(array->count(), 100);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(array->objectAtIndex(i)->objectID(), static_cast<std::uint32_t>(i));
    array->adoptObject(newFile(100).leak());
    EXPECT_GT(array->size(), 100);
    EXPECT_EQ(array->lastObject()->objectID(), 100u);
    array->setSize(0);
    array->insertObjectAtIndex(newFile(7).get(), 0);
    EXPECT_EQ(array->count(), 102);
    EXPECT_EQ(array->objectAtIndex(0)->objectID(), 7u);
}

TEST(TuvObjectArrayStorageTest, TheFrontIsAsCheapAsTheEnd) {
    ModelLogs logs(LogLevel::error);
    constexpr int kCount = 200000;
    auto array = make<TuvObjectArray>();
    std::deque<TuvObject*> twin;
    std::vector<TuvRef<TuvNode>> files;
    for (std::uint32_t i = 0; i < 1000; ++i) files.push_back(newFile(i));
    MoveCount moves(array.get());
    for (int i = 0; i < kCount; ++i) {
        TuvNode* file = files[static_cast<std::size_t>(i) % files.size()].get();
        array->insertObjectAtIndex(file, 0);
        twin.push_front(file);
        moves.after(-1);
    }
    EXPECT_LT(moves.moves(), 6 * kCount);
    ASSERT_TRUE(std::equal(array->begin(), array->end(), twin.begin(), twin.end()));
    for (int i = 0; i < kCount; ++i) {
        array->removeObjectAtIndex(0);
        if (i + 1 < kCount) moves.after(1);
    }
    EXPECT_LT(moves.moves(), 6 * kCount);
    EXPECT_EQ(array->count(), 0);
    EXPECT_EQ(files[0]->retainCount(), 1u);
}

TEST(TuvObjectArrayStorageTest, SmallArraysGoToTheFrontOfBigOnesCheaply) {
    ModelLogs logs(LogLevel::error);
    auto file = newFile(1);
    auto ten = make<TuvObjectArray>();
    for (int i = 0; i < 10; ++i) ten->addObject(file.get());
    auto array = make<TuvObjectArray>();
    MoveCount moves(array.get());
    for (int i = 0; i < 20000; ++i) {
        array->insertObjectsAtIndex(ten.get(), 0);
        moves.after(-10);
    }
    EXPECT_EQ(array->count(), 200000);
    EXPECT_LT(moves.moves(), 6 * 200000);
}

TEST(TuvObjectArrayStorageTest, AppendingBehindAGapStaysCheap) {
    ModelLogs logs(LogLevel::error);
    constexpr int kCount = 200000;
    auto file = newFile(1);
    auto array = make<TuvObjectArray>();
    for (int i = 0; i < kCount; ++i) array->insertObjectAtIndex(file.get(), 0);
    MoveCount moves(array.get());
    // As a queue, then from both ends in turn.
    for (int i = 0; i < 2 * kCount; ++i) {
        array->removeObjectAtIndex(0);
        moves.after(1);
        array->addObject(file.get());
        moves.after(0);
    }
    EXPECT_EQ(array->count(), kCount);
    EXPECT_LT(moves.moves(), 20 * kCount);
    MoveCount bothEnds(array.get());
    for (int i = 0; i < kCount; ++i) {
        array->insertObjectAtIndex(file.get(), 0);
        bothEnds.after(-1);
        array->addObject(file.get());
        bothEnds.after(0);
    }
    EXPECT_LT(bothEnds.moves(), 20 * kCount);
}

TEST(TuvObjectArrayStorageTest, AQueueNeedsNoMoreThanItHolds) {
    auto file = newFile(1);
    auto array = make<TuvObjectArray>();
    for (int i = 0; i < 1000; ++i) array->addObject(file.get());
    const int size = array->size();
    for (int i = 0; i < 1000000; ++i) {
        array->removeObjectAtIndex(0);
        array->addObject(file.get());
    }
    EXPECT_EQ(array->size(), size);
    EXPECT_EQ(array->count(), 1000);
}

}  // namespace
}  // namespace kavaro
