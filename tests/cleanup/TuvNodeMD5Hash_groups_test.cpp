#include <gmock/gmock.h>

#include <map>
#include <random>

#include "cleanup/DuplicatesTest.h"

namespace kavaro {
namespace {

using testing::ElementsAre;

using Inodes = std::vector<std::uint32_t>;

// Potential groups with members of their own, known by their inodes.
struct Groups {
    TuvRef<TuvObjectArray> potential = make<TuvObjectArray>();

    TuvObjectArray* add(const Inodes& inodes, std::uint64_t size = 7) {
        auto group = make<TuvObjectArray>();
        for (std::uint32_t inode : inodes)
            group->adoptObject(newFile(inode, "/f" + std::to_string(inode), size).leak());
        TuvObjectArray* borrowed = group.get();
        potential->adoptObject(group.leak());
        return borrowed;
    }
};

std::vector<Inodes> inodesOf(const TuvObjectArray* groups) {
    std::vector<Inodes> all;
    for (int i = 0; i < groups->count(); ++i) all.push_back(idsOf(arrayAt(groups, i)));
    return all;
}

TEST(RealGroups, KeepMembersThatAreAsTheFirst) {
    Groups groups;
    TuvObjectArray* first = groups.add({1, 2, 3, 4});
    groups.add({5, 6});
    auto records = recordsOf(newRecord(6, "y"), newRecord(4, "x"), newRecord(3, "other"), newRecord(2, "x"),
                             newRecord(1, "x"), newRecord(5, "z"));
    DuplicatesLogs log;
    const auto real = TuvNodeMD5Hash::duplicateFiles(groups.potential.get(), records.get());
    EXPECT_THAT(inodesOf(real.get()), ElementsAre(Inodes{1, 2, 4}));
    EXPECT_EQ(real->objectAtIndex(0), first) << "the same array";
    EXPECT_THAT(inodesOf(groups.potential.get()), ElementsAre(Inodes{1, 2, 4}));
    EXPECT_EQ(idsOf(records.get()), (Inodes{1, 2, 3, 4, 5, 6})) << "sorted in place";
    EXPECT_THAT(log.lines(),
                ElementsAre("TuvNodeMD5Hash duplicateFiles: 2 potential duplicate files",
                            "TuvNodeMD5Hash duplicateFiles: 6 hashes",
                            "TuvNodeMD5Hash duplicateFiles: Found 1 real groups from 2 potential groups in "
                            "? ms"));
}

TEST(RealGroups, MembersThatDifferFromTheFirstAreNotGroupedAnew) {
    Groups groups;
    groups.add({1, 2, 3});
    auto records = recordsOf(newRecord(1, "x"), newRecord(2, "y"), newRecord(3, "y"));
    EXPECT_EQ(TuvNodeMD5Hash::duplicateFiles(groups.potential.get(), records.get())->count(), 0);
    EXPECT_EQ(groups.potential->count(), 0);
}

TEST(RealGroups, AGroupWhoseFirstMemberHasNoRecordStaysPotential) {
    Groups groups;
    groups.add({1, 2, 3});
    groups.add({4, 5});
    auto records = recordsOf(newRecord(2, "x"), newRecord(3, "x"), newRecord(4, "x"), newRecord(5, "x"));
    const auto real = TuvNodeMD5Hash::duplicateFiles(groups.potential.get(), records.get());
    EXPECT_THAT(inodesOf(real.get()), ElementsAre(Inodes{4, 5}));
    EXPECT_THAT(inodesOf(groups.potential.get()), ElementsAre(Inodes{1, 2, 3}, Inodes{4, 5}));
}

TEST(RealGroups, AMemberWithoutARecordStays) {
    Groups groups;
    groups.add({1, 2, 3});
    auto records = recordsOf(newRecord(1, "x"), newRecord(3, "y"));
    const auto real = TuvNodeMD5Hash::duplicateFiles(groups.potential.get(), records.get());
    EXPECT_THAT(inodesOf(real.get()), ElementsAre(Inodes{1, 2}));
}

TEST(RealGroups, HardLinksShareARecord) {
    Groups groups;
    groups.add({8, 8});
    auto records = recordsOf(newRecord(8, "x"));
    EXPECT_THAT(inodesOf(TuvNodeMD5Hash::duplicateFiles(groups.potential.get(), records.get()).get()),
                ElementsAre(Inodes{8, 8}));
}

TEST(RealGroups, NothingIsNothing) {
    Groups groups;
    groups.add({});
    auto records = make<TuvObjectArray>();
    EXPECT_EQ(TuvNodeMD5Hash::duplicateFiles(groups.potential.get(), records.get())->count(), 0);
    EXPECT_EQ(groups.potential->count(), 1);
}

TEST(RealGroups, TellTheirStepsAtDebugLevel) {
    Groups groups;
    groups.add({1, 2, 3, 4});
    groups.add({9, 5});
    groups.add({6, 7});
    auto records =
        recordsOf(newRecord(1, "x"), newRecord(2, "x"), newRecord(3, "y"), newRecord(6, "v"), newRecord(7, "w"));
    DuplicatesLogs log(LogLevel::debug);
    TuvNodeMD5Hash::duplicateFiles(groups.potential.get(), records.get());
    std::vector<std::string> own;
    for (const LogCapture::Line& line : log->lines())
        if (line.component == "TuvNodeMD5Hash" && line.level == LogLevel::debug) own.push_back(line.text);
    EXPECT_THAT(own, ElementsAre(std::string(41, '-'), "4 potential duplicates for size 7", "x, 000000002, /f2",
                                 "no hash for 4:[/f4]", "3 of 4 real duplicates for size 7", "", "no hash for 9:[/f9]",
                                 "2 potential duplicates for size 7",
                                 "This entry does not qualify, since there are 1 items in the array", ""));
}

// Random groups and records beside the rules on plain values.
TEST(RealGroups, AreThoseOfASimpleTwin) {
    for (unsigned seed = 1; seed <= 300; ++seed) {
        std::mt19937 random(seed);
        std::map<std::uint32_t, std::string> digests;
        std::vector<TuvRef<TuvNodeMD5Hash>> list;
        for (std::uint32_t inode = 1; inode < 30; ++inode) {
            if (random() % 4 == 0) continue;
            digests[inode] = std::string(1, static_cast<char>('a' + random() % 3));
            list.insert(list.begin() + static_cast<std::ptrdiff_t>(random() % (list.size() + 1)),
                        newRecord(inode, digests[inode]));
        }
        Groups groups;
        std::vector<Inodes> wantedReal, wantedPotential;
        for (unsigned left = random() % 6; left > 0; --left) {
            Inodes members;
            for (unsigned count = 2 + random() % 6; count > 0; --count) members.push_back(1 + random() % 30);
            groups.add(members);
            const auto first = digests.find(members[0]);
            if (first == digests.end()) {
                wantedPotential.push_back(members);
                continue;
            }
            Inodes kept;
            for (std::size_t i = 0; i < members.size(); ++i) {
                const auto found = digests.find(members[i]);
                if (found == digests.end() || found->second == first->second) kept.push_back(members[i]);
            }
            if (kept.size() < 2) continue;
            wantedReal.push_back(kept);
            wantedPotential.push_back(kept);
        }
        auto records = arrayOfRecords(std::move(list));
        const auto real = TuvNodeMD5Hash::duplicateFiles(groups.potential.get(), records.get());
        EXPECT_EQ(inodesOf(real.get()), wantedReal) << seed;
        EXPECT_EQ(inodesOf(groups.potential.get()), wantedPotential) << seed;
    }
}

// A group of very many is worked through once.
TEST(RealGroups, CostIsThatOfTheMembers) {
    Groups groups;
    Inodes members;
    std::vector<TuvRef<TuvNodeMD5Hash>> list;
    for (std::uint32_t inode = 1; inode <= 200000; ++inode) {
        members.push_back(inode);
        list.push_back(newRecord(inode, inode % 2 ? "x" : "y"));
    }
    groups.add(members);
    auto records = arrayOfRecords(std::move(list));
    const auto real = TuvNodeMD5Hash::duplicateFiles(groups.potential.get(), records.get());
    ASSERT_EQ(real->count(), 1);
    EXPECT_EQ(arrayAt(real.get(), 0)->count(), 100000);
}

}  // namespace
}  // namespace kavaro
