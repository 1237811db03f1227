#include "client/TreeAssembler.h"

#include <gtest/gtest.h>

#include <set>

#include "client/TreeDelivery.h"

namespace kavaro {
namespace {

void deliver(TreeAssembler& assembler, const TreeDelivery& delivery, std::size_t begin, std::size_t end) {
    EXPECT_TRUE(assembler.resolved(delivery.batch(begin, end).view()));
}

TEST(TreeAssembler, GivesTheTreeInWhateverOrderSubtreesArrive) {
    std::mt19937 random(7);
    for (int round = 0; round < 60; ++round) {
        TreeDelivery delivery(TreeDelivery::randomTree(random, static_cast<int>(random() % 80)));
        delivery.shuffle(random);
        TreeAssembler assembler;
        EXPECT_FALSE(assembler.hasStarted());
        assembler.start(delivery.startedRoot());
        EXPECT_TRUE(assembler.hasStarted());
        for (std::size_t begin = 0; begin < delivery.order().size();) {
            const std::size_t end = std::min(delivery.order().size(), begin + random() % 7);
            deliver(assembler, delivery, begin, end);
            begin = end;
        }
        EXPECT_FALSE(assembler.isComplete());
        ASSERT_TRUE(assembler.completed(delivery.rootBytes().view()));
        EXPECT_TRUE(assembler.isComplete()) << "round " << round;
        EXPECT_EQ(assembler.counts().folders, delivery.order().size() + 1);
        const TuvRef<TuvDirNode> tree = assembler.takeTree();
        ASSERT_TRUE(tree);
        EXPECT_EQ(linesOf(*tree), linesOf(delivery.root())) << "round " << round;
        EXPECT_FALSE(assembler.takeTree());
    }
}

// Whenever the server goes: all files of all folders that arrived are in the tree, once, and no folder is.
TEST(TreeAssembler, LosesNothingThatArrived) {
    std::mt19937 random(11);
    for (int round = 0; round < 12; ++round) {
        TreeDelivery delivery(TreeDelivery::randomTree(random, 40));
        delivery.shuffle(random);
        for (std::size_t arrived = 0; arrived <= delivery.order().size(); ++arrived) {
            TreeAssembler assembler;
            assembler.start(delivery.startedRoot());
            if (arrived > 0) deliver(assembler, delivery, 0, arrived);
            const TuvRef<TuvDirNode> tree = assembler.takeTree();
            ASSERT_TRUE(tree);
            EXPECT_FALSE(assembler.isComplete());

            const EntryTotals expected = heldByFirst(delivery, arrived);
            const EntryTotals totals = TreeTotals(*tree, 0).ofRoot();
            EXPECT_EQ(totals.files, expected.files) << arrived;
            EXPECT_EQ(totals.logicalSize, expected.logicalSize) << arrived;
            EXPECT_EQ(totals.physicalSize, expected.physicalSize) << arrived;
            EXPECT_EQ(tree->logicalSize(), expected.logicalSize) << arrived;

            std::set<std::uint32_t> seen, resolved;
            FolderWalk walk(tree.get());
            while (TuvDirNode* folder = walk.next()) {
                EXPECT_TRUE(seen.insert(folder->inode()).second) << folder->inode() << " is there twice";
                if (folder->isResolved()) resolved.insert(folder->inode());
            }
            for (std::size_t i = 0; i < arrived; ++i) EXPECT_TRUE(resolved.contains(delivery.order()[i]->inode()));
        }
    }
}

TEST(TreeAssembler, ATreeOf100000LevelsWholeAndInPart) {
    TreeDelivery delivery(FakeTree::chain(100000));
    for (const std::size_t arrived : {std::size_t{100000}, std::size_t{50000}}) {
        TreeAssembler assembler;
        assembler.start(delivery.startedRoot());
        for (std::size_t begin = 0; begin < arrived; begin += 1000) deliver(assembler, delivery, begin, begin + 1000);
        if (arrived == 100000) {
            EXPECT_TRUE(assembler.completed(delivery.rootBytes().view()));
            EXPECT_TRUE(assembler.isComplete());
        }
        const TuvRef<TuvDirNode> tree = assembler.takeTree();
        const EntryTotals totals = TreeTotals(*tree, 0).ofRoot();
        EXPECT_EQ(totals.files, 1u);
        EXPECT_EQ(totals.physicalSize, 4096u);
        EXPECT_GE(totals.folders, arrived);
    }
}

TEST(TreeAssembler, AFolderOf200000Subfolders) {
    TuvRef<TuvDirNode> root = FakeTree::root("/wide", 1);
    for (std::uint32_t i = 0; i < 200000; ++i)
        FakeTree::addFile(*FakeTree::addFolder(*root, "d" + std::to_string(i), i + 2), "f", 0x40000000 + i, 1, 512);
    FakeTree::resolve(*root);
    TreeDelivery delivery(std::move(root));
    TreeAssembler assembler;
    assembler.start(delivery.startedRoot());
    for (std::size_t begin = 0; begin < 200000; begin += 2000) {
        deliver(assembler, delivery, begin, begin + 2000);
        EXPECT_NE(assembler.lastFolder(), "");
    }
    ASSERT_TRUE(assembler.completed(delivery.rootBytes().view()));
    EXPECT_TRUE(assembler.isComplete());
    const TuvRef<TuvDirNode> tree = assembler.takeTree();
    EXPECT_EQ(TreeTotals(*tree, 0).ofRoot(), (EntryTotals{200000, 200000 * 512, 200000, 200000}));
}

TEST(TreeAssembler, AFolderThatComesAgainChangesNothing) {
    std::mt19937 random(3);
    TreeDelivery delivery(TreeDelivery::randomTree(random, 50));
    TreeAssembler assembler;
    assembler.start(delivery.startedRoot());
    for (std::size_t i = 0; i < delivery.order().size(); ++i) {
        deliver(assembler, delivery, i, i + 1);
        deliver(assembler, delivery, i, i + 1);
    }
    EXPECT_EQ(assembler.counts().folders, delivery.order().size());
    ASSERT_TRUE(assembler.completed(delivery.rootBytes().view()));
    EXPECT_TRUE(assembler.isComplete());
    EXPECT_EQ(linesOf(*assembler.takeTree()), linesOf(delivery.root()));
}

TEST(TreeAssembler, AMissingFolderIsNoticedAndWhatArrivedIsKept) {
    std::mt19937 random(5);
    TreeDelivery delivery(TreeDelivery::randomTree(random, 30));
    for (std::size_t missing = 0; missing < delivery.order().size(); ++missing) {
        TreeAssembler assembler;
        assembler.start(delivery.startedRoot());
        deliver(assembler, delivery, 0, missing);
        deliver(assembler, delivery, missing + 1, delivery.order().size());
        ASSERT_TRUE(assembler.completed(delivery.rootBytes().view()));
        EXPECT_FALSE(assembler.isComplete());
        EntryTotals expected = heldByFirst(delivery, delivery.order().size());
        expected -= heldBy(*delivery.order()[missing]);
        EXPECT_EQ(TreeTotals(*assembler.takeTree(), 0).ofRoot().files, expected.files) << missing;
    }
}

TEST(TreeAssembler, BytesThatMakeNoSenseChangeNothing) {
    std::mt19937 random(9);
    TreeDelivery delivery(TreeDelivery::randomTree(random, 20));
    const ByteBuffer batch = delivery.batch(0, delivery.order().size());
    const ByteBuffer root = delivery.rootBytes();
    TreeAssembler assembler;
    assembler.start(delivery.startedRoot());
    for (std::size_t length = 0; length < batch.size(); ++length)
        EXPECT_FALSE(assembler.resolved(batch.view().subspan(0, length))) << length;
    for (std::size_t length = 0; length < root.size(); ++length)
        EXPECT_FALSE(assembler.completed(root.view().subspan(0, length))) << length;
    EXPECT_EQ(assembler.counts().folders, 0u);
    deliver(assembler, delivery, 0, delivery.order().size());
    EXPECT_TRUE(assembler.completed(root.view()));
    EXPECT_TRUE(assembler.isComplete());
}

// Whatever the altered bytes say, the tree is one that can be walked, summed and torn down.
TEST(TreeAssembler, AlteredBytesGiveSomeTree) {
    std::mt19937 random(13);
    TreeDelivery delivery(TreeDelivery::randomTree(random, 20));
    const ByteBuffer batch = delivery.batch(0, delivery.order().size());
    for (int round = 0; round < 3000; ++round) {
        std::vector<std::uint8_t> bytes(batch.view().begin(), batch.view().end());
        for (std::uint32_t flips = 1 + random() % 3; flips > 0; --flips)
            bytes[random() % bytes.size()] ^= static_cast<std::uint8_t>(1u << random() % 8);
        TreeAssembler assembler;
        assembler.start(delivery.startedRoot());
        assembler.resolved({bytes.data(), bytes.size()});
        if (round % 2) assembler.completed(delivery.rootBytes().view());
        const TuvRef<TuvDirNode> tree = assembler.takeTree();
        ASSERT_TRUE(tree);
        EXPECT_LT(TreeTotals(*tree, 3).ofRoot().folders, 1000u);
    }
}

TEST(TreeAssembler, TellsTheFolderThatIsBeingSized) {
    TreeDelivery delivery(smallTree());  // big (deep), small
    TreeAssembler assembler;
    assembler.start(delivery.startedRoot());
    for (std::size_t i = 0; i < delivery.order().size(); ++i) {
        if (delivery.order()[i]->fileName() != "deep") continue;
        deliver(assembler, delivery, i, i + 1);
        EXPECT_EQ(assembler.lastFolder(), "big/.../deep");
    }
}

TEST(TreeAssembler, ASubfolderOfTheRootIsInNoOther) {
    TuvRef<TuvDirNode> root = FakeTree::root("/flat", 1);
    for (std::uint32_t i = 0; i < 5; ++i) FakeTree::addFolder(*root, "d" + std::to_string(i), i + 2);
    FakeTree::resolve(*root);
    TreeDelivery delivery(std::move(root));
    TreeAssembler assembler;
    assembler.start(delivery.startedRoot());
    for (std::size_t i = 5; i-- > 0;) {  // in the root's order
        deliver(assembler, delivery, i, i + 1);
        EXPECT_EQ(assembler.lastFolder(), delivery.order()[i]->fileName());
    }
}

}  // namespace
}  // namespace kavaro
