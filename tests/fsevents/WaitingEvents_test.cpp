#include "fsevents/WaitingEvents.h"

#include <map>
#include <random>

#include "EventTest.h"

namespace kavaro {
namespace {

std::vector<std::uint32_t> inodesOf(const TuvObjectArray& batch) {
    std::vector<std::uint32_t> inodes;
    for (TuvObject* event : batch) inodes.push_back(event->objectID());
    return inodes;
}

// Beside a map, which is as simple as it gets.
void runBesideMap(unsigned seed, std::uint32_t range, int steps, int growing) {
    std::mt19937 random(seed);
    WaitingEvents events;
    std::map<std::int32_t, TuvRef<TuvFSEvent>> map;
    for (int step = 0; step < steps; ++step) {
        // Spread over both signs.
        const std::uint32_t inode = static_cast<std::uint32_t>(random() % range) * (0xffffffffu / range);
        const auto key = static_cast<std::int32_t>(inode);
        const auto found = map.find(key);
        ASSERT_EQ(events.eventWithInode(inode), found == map.end() ? nullptr : found->second.get());
        if (static_cast<int>(random() % 100) < growing) {
            if (found != map.end()) continue;
            auto event = newEvent("MODIFIED", inode, "/a");
            events.insert(event.get());
            map.emplace(key, std::move(event));
        } else {
            events.remove(inode);
            if (found == map.end()) continue;
            ASSERT_EQ(found->second->retainCount(), 1u);
            map.erase(found);
        }
        ASSERT_EQ(events.count(), static_cast<int>(map.size()));
    }
    auto batch = events.takeAll();
    std::vector<std::uint32_t> expected;
    for (const auto& [inode, event] : map) {
        expected.push_back(static_cast<std::uint32_t>(inode));
        ASSERT_EQ(event->retainCount(), 2u);
    }
    EXPECT_EQ(inodesOf(*batch), expected);
    EXPECT_EQ(events.count(), 0);
}

TEST(WaitingEventsTest, FewBesideAMap) {
    for (unsigned seed = 0; seed < 30 && !HasFailure(); ++seed) runBesideMap(seed, 40, 2000, 50);
}

TEST(WaitingEventsTest, ManyBesideAMap) {
    for (unsigned seed = 0; seed < 4 && !HasFailure(); ++seed) {
        runBesideMap(seed, 100000, 30000, 75);
        runBesideMap(seed, 3000, 60000, 40);
    }
}

TEST(WaitingEventsTest, AscendingDescendingAndInTurns) {
    const std::function<std::uint32_t(std::uint32_t)> orders[] = {
        [](std::uint32_t i) { return i; },
        [](std::uint32_t i) { return 4999 - i; },
        [](std::uint32_t i) { return i % 10 * 500 + i / 10; },
    };
    for (const auto& order : orders) {
        WaitingEvents events;
        for (std::uint32_t i = 0; i < 5000; ++i) events.insert(newEvent("MODIFIED", order(i), "/a").get());
        auto batch = events.takeAll();
        ASSERT_EQ(batch->count(), 5000);
        for (int i = 0; i < 5000; ++i) ASSERT_EQ(batch->objectAtIndex(i)->objectID(), static_cast<std::uint32_t>(i));
    }
}

TEST(WaitingEventsTest, EmptyAndEmptied) {
    WaitingEvents events;
    EXPECT_EQ(events.eventWithInode(1), nullptr);
    events.remove(1);
    EXPECT_EQ(events.takeAll()->count(), 0);
    for (std::uint32_t inode = 0; inode < 2000; ++inode) events.insert(newEvent("MODIFIED", inode, "/a").get());
    for (std::uint32_t inode = 0; inode < 2000; ++inode) events.remove((inode * 7) % 2000);
    EXPECT_EQ(events.count(), 0);
    EXPECT_EQ(events.eventWithInode(7), nullptr);
    auto event = newEvent("MODIFIED", 7, "/a");
    events.insert(event.get());
    EXPECT_EQ(events.eventWithInode(7), event.get());
}

TEST(WaitingEventsTest, WhatStillWaitsGoesWithIt) {
    auto event = newEvent("MODIFIED", 7, "/a");
    {
        WaitingEvents events;
        events.insert(event.get());
        EXPECT_EQ(event->retainCount(), 2u);
    }
    EXPECT_EQ(event->retainCount(), 1u);
}

}  // namespace
}  // namespace kavaro
