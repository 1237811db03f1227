#include "platform/ConditionLock.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace kavaro {
namespace {

void waitUntilWaiting(ConditionLock& lock, std::size_t count) {
    while (lock.waitingThreads() != count) std::this_thread::yield();
}

TEST(ConditionLock, CarriesItsCondition) {
    ConditionLock lock(3);
    EXPECT_EQ(lock.condition(), 3);
    lock.lock();
    EXPECT_EQ(lock.condition(), 3);
    lock.unlock();
    EXPECT_EQ(lock.condition(), 3);
    lock.lock();
    lock.unlockWithCondition(-7);
    EXPECT_EQ(lock.condition(), -7);
    lock.lockWhenCondition(-7);
    lock.unlockWithCondition(0);
    EXPECT_EQ(lock.condition(), 0);
}

TEST(ConditionLock, ScopedHolderFreesIt) {
    ConditionLock lock(1);
    { ConditionLocker locker(lock); }
    lock.lockWhenCondition(1);
    lock.unlock();
}

TEST(ConditionLock, HandsOverInOrderOfArrival) {
    constexpr int kThreads = 8;
    ConditionLock lock(0);
    std::vector<int> order;  // guarded by lock
    std::vector<std::thread> threads;
    lock.lock();
    for (int number = 0; number < kThreads; number++) {
        threads.emplace_back([&, number] {
            ConditionLocker locker(lock);
            order.push_back(number);
        });
        waitUntilWaiting(lock, static_cast<std::size_t>(number) + 1);
    }
    lock.unlock();
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(lock.waitingThreads(), 0u);
}

TEST(ConditionLock, LockingAgainAtOnceLetsTheWaitingThreadGoFirst) {
    ConditionLock lock(0);
    int turns = 0;  // guarded by lock
    lock.lock();
    for (int round = 1; round <= 200; round++) {
        std::thread other([&] {
            ConditionLocker locker(lock);
            turns++;
        });
        waitUntilWaiting(lock, 1);
        lock.unlock();
        lock.lock();
        EXPECT_EQ(turns, round);
        other.join();
    }
    lock.unlock();
}

TEST(ConditionLock, WaitsForItsConditionAndDoesNotHoldUpOthers) {
    ConditionLock lock(0);
    std::vector<char> order;  // guarded by lock
    std::thread one([&] {
        lock.lockWhenCondition(1);
        order.push_back('1');
        lock.unlockWithCondition(2);
    });
    waitUntilWaiting(lock, 1);
    std::thread two([&] {
        lock.lockWhenCondition(2);
        order.push_back('2');
        lock.unlock();
    });
    waitUntilWaiting(lock, 2);
    // Two threads wait for other conditions; the lock is free for whoever takes any.
    lock.lock();
    std::thread any([&] {
        ConditionLocker locker(lock);
        order.push_back('a');
    });
    waitUntilWaiting(lock, 3);
    lock.unlock();
    any.join();
    EXPECT_EQ(lock.waitingThreads(), 2u);
    lock.lock();
    lock.unlockWithCondition(1);
    one.join();
    two.join();
    EXPECT_EQ(order, (std::vector<char>{'a', '1', '2'}));
    EXPECT_EQ(lock.condition(), 2);
}

TEST(ConditionLock, TheLastInTheRowMayBeServedFirst) {
    // The row's end must be right after its last element left, or the next arrival is lost.
    ConditionLock lock(0);
    std::thread never([&] {
        lock.lockWhenCondition(9);
        lock.unlock();
    });
    waitUntilWaiting(lock, 1);
    for (int round = 0; round < 3; round++) {
        lock.lock();
        std::thread last([&] { ConditionLocker locker(lock); });
        waitUntilWaiting(lock, 2);
        lock.unlock();
        last.join();
    }
    lock.lock();
    lock.unlockWithCondition(9);
    never.join();
    EXPECT_EQ(lock.waitingThreads(), 0u);
}

TEST(ConditionLock, PassesWorkBetweenManyThreads) {
    // A box with room for one: condition 0 is empty, 1 is full.
    constexpr int kPairs = 4;
    constexpr int kItems = 2000;
    ConditionLock lock(0);
    int box = 0;
    long long sum = 0;
    std::vector<std::thread> threads;
    for (int pair = 0; pair < kPairs; pair++) {
        threads.emplace_back([&] {
            for (int item = 1; item <= kItems; item++) {
                lock.lockWhenCondition(0);
                box = item;
                lock.unlockWithCondition(1);
            }
        });
        threads.emplace_back([&] {
            for (int item = 1; item <= kItems; item++) {
                lock.lockWhenCondition(1);
                sum += box;
                lock.unlockWithCondition(0);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(sum, static_cast<long long>(kPairs) * kItems * (kItems + 1) / 2);
}

}  // namespace
}  // namespace kavaro
