#include "platform/NodeIdentity.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

namespace kavaro {
namespace {

using Identity = std::tuple<std::uint64_t, std::uint64_t, std::uint64_t>;  // mount, device, inode

TEST(NodeIdentity, smallInodeOfTheRootMountIsItsOwnID) {
    NodeIdentity identity(7);
    EXPECT_EQ(identity.rootMount(), 7u);
    EXPECT_EQ(identity.nodeID(7, 1, 0), 0u);
    EXPECT_EQ(identity.nodeID(7, 1, 2), 2u);
    EXPECT_EQ(identity.nodeID(7, 1, 0x3fffffff), 0x3fffffffu);
    // A mount shows several devices when it holds subvolumes: their numbers are not told apart below the limit.
    EXPECT_EQ(identity.nodeID(7, 2, 2), 2u);
}

TEST(NodeIdentity, everythingElseIsDerived) {
    NodeIdentity identity(7);
    std::set<std::uint32_t> ids;
    const std::vector<Identity> others = {{7, 1, 0x40000000}, {7, 1, 0xffffffff}, {7, 1, 0x100000002},
                                          {8, 1, 2},          {8, 2, 2},          {9, 1, 2},
                                          {8, 1, UINT64_MAX}, {UINT64_MAX, 1, 2}};
    for (auto [mount, device, inode] : others) {
        const std::uint32_t id = identity.nodeID(mount, device, inode);
        EXPECT_GE(id, NodeIdentity::kFirstDerived);
        EXPECT_LT(id, NodeIdentity::kEnd);
        EXPECT_TRUE(ids.insert(id).second);
        EXPECT_EQ(identity.nodeID(mount, device, inode), id);
    }
}

TEST(NodeIdentity, agreesWithATwinOnRandomIdentities) {
    constexpr int kIdentities = 200000;
    std::mt19937_64 random(1);
    NodeIdentity identity(1);
    std::map<Identity, std::uint32_t> twin;
    std::map<std::uint32_t, Identity> owners;
    std::vector<Identity> order;
    for (int i = 0; i < kIdentities; ++i) {
        // Dense and sparse inodes, a few mounts and devices, some identities met again at once.
        const std::uint64_t inode = i % 3 == 0 ? random() : 0x40000000 + random() % 100000;
        const Identity one{2 + random() % 5, random() % 3, inode};
        const auto [mount, device, number] = one;
        const std::uint32_t id = identity.nodeID(mount, device, number);
        ASSERT_GE(id, NodeIdentity::kFirstDerived);
        ASSERT_LT(id, NodeIdentity::kEnd);
        auto [known, isNew] = twin.emplace(one, id);
        ASSERT_EQ(known->second, id);
        if (!isNew) continue;
        ASSERT_TRUE(owners.emplace(id, one).second) << "two identities with ID " << id;
        order.push_back(one);
    }
    ASSERT_GT(order.size(), 150000u);
    for (const auto& [mount, device, inode] : order) {
        ASSERT_EQ(identity.nodeID(mount, device, inode), (twin[{mount, device, inode}]));
    }
}

// With this many identities some must be derived to the same first ID (about n^2 / 2^31 = 500 of them), and all IDs
// still differ.
TEST(NodeIdentity, collidingIdentitiesKeepDifferentIDs) {
    constexpr std::uint64_t kIdentities = 1000000;
    NodeIdentity identity(1);
    std::vector<bool> taken(NodeIdentity::kEnd - NodeIdentity::kFirstDerived);
    std::vector<std::uint32_t> ids;
    for (std::uint64_t inode = 0; inode < kIdentities; ++inode) {
        const std::uint32_t id = identity.nodeID(2, 1, inode);
        ASSERT_FALSE(taken[id - NodeIdentity::kFirstDerived]);
        taken[id - NodeIdentity::kFirstDerived] = true;
        ids.push_back(id);
    }
    for (std::uint64_t inode = 0; inode < kIdentities; ++inode) ASSERT_EQ(identity.nodeID(2, 1, inode), ids[inode]);
}

TEST(NodeIdentity, threadsAgree) {
    constexpr std::uint64_t kInodes = 20000;
    NodeIdentity identity(1);
    std::vector<std::uint32_t> seen[4];
    std::vector<std::thread> threads;
    for (auto& mine : seen) {
        threads.emplace_back([&] {
            for (std::uint64_t inode = 0; inode < kInodes; ++inode) mine.push_back(identity.nodeID(3, 1, inode));
        });
    }
    for (auto& thread : threads) thread.join();
    for (const auto& other : seen) EXPECT_EQ(other, seen[0]);
}

}  // namespace
}  // namespace kavaro
