#include "client/TreeTotals.h"

#include <gtest/gtest.h>

#include "client/commandline/FakeTree.h"

namespace kavaro {
namespace {

TEST(TreeTotals, countsWhatLiesBelow) {
    const TuvRef<TuvDirNode> root = smallTree();
    const TreeTotals totals(*root, 1);
    EXPECT_EQ(totals.ofRoot(), (EntryTotals{5551500, 5553152, 4, 3}));
    EXPECT_EQ(totals.of(*root->folderWithFileName("big")), (EntryTotals{5243000, 5243904, 2, 1}));
    EXPECT_EQ(totals.of(*root->folderWithFileName("small")), EntryTotals());
}

TEST(TreeTotals, keepsOnlyTheLevelsAskedFor) {
    const TuvRef<TuvDirNode> root = smallTree();
    EXPECT_EQ(TreeTotals(*root, 0).keptFolders(), 1U);
    EXPECT_EQ(TreeTotals(*root, 1).keptFolders(), 3U);
    EXPECT_EQ(TreeTotals(*root, 2).keptFolders(), 4U);
    EXPECT_EQ(TreeTotals(*root, 99).keptFolders(), 4U);
}

TEST(TreeTotals, unfinishedFoldersAreSummedFromWhatIsThere) {
    const TuvRef<TuvDirNode> root = smallTree();
    root->folderWithFileName("big")->setIsResolved(false, true);
    ASSERT_EQ(root->physicalSize(), 0U);
    const TreeTotals totals(*root, 1);
    EXPECT_EQ(totals.ofRoot(), (EntryTotals{5551500, 5553152, 4, 3}));
    EXPECT_EQ(totals.of(*root->folderWithFileName("big")), (EntryTotals{5243000, 5243904, 2, 1}));
}

TEST(TreeTotals, aTreeOf100000Levels) {
    const TuvRef<TuvDirNode> root = FakeTree::chain(100000);
    EXPECT_EQ(TreeTotals(*root, 1).ofRoot(), (EntryTotals{10, 4096, 1, 100000}));
    EXPECT_EQ(TreeTotals(*root, 1000000).keptFolders(), 100001U);
}

TEST(TreeTotals, takingAwayStopsAtZero) {
    EntryTotals totals{10, 20, 3, 4};
    totals -= {11, 5, 4, 1};
    EXPECT_EQ(totals, (EntryTotals{0, 15, 0, 3}));
}

}  // namespace
}  // namespace kavaro
