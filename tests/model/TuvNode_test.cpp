#include "model/TuvNode.h"

#include <bit>

#include "ModelTest.h"
#include "model/NodeFilterRule.h"

namespace kavaro {
namespace {

TEST(TuvNodeTest, IsSmall) {
    EXPECT_EQ(sizeof(TuvNode), 72u);
}

TEST(TuvNodeTest, IsBornAsAResolvedFile) {
    auto node = make<TuvNode>();
    EXPECT_EQ(node->flags(), 0x11);
    EXPECT_EQ(node->inode(), 0u);
    EXPECT_EQ(node->objectID(), 0u);
    EXPECT_EQ(node->contentModDate(), 0);
    EXPECT_EQ(node->logicalSize(), 0u);
    EXPECT_EQ(node->physicalSize(), 0u);
    EXPECT_FALSE(node->hasFileName());
    EXPECT_FALSE(node->hasCachedFilePath());
    EXPECT_EQ(node->parent(), nullptr);
    EXPECT_EQ(node->retainCount(), 1u);
    EXPECT_TRUE(node->isResolved());
    EXPECT_FALSE(node->isDirectory());
}

TEST(TuvNodeTest, IsWhatItsInodeSays) {
    auto node = newFile(5, "a");
    auto same = newFile(5, "b");
    auto other = newFile(6, "a");
    EXPECT_EQ(node->objectID(), 5u);
    EXPECT_TRUE(node->isEqual(node.get()));
    EXPECT_TRUE(node->isEqual(same.get()));
    EXPECT_FALSE(node->isEqual(other.get()));
    EXPECT_FALSE(node->isEqual(nullptr));
    EXPECT_TRUE(newFolder(5)->isEqual(node.get()));
    EXPECT_FALSE(newFolder(5)->isEqual(nullptr));
}

TEST(TuvNodeTest, TypesFollowTheFlags) {
    struct Case {
        std::uint16_t flags;
        int type;
        const char* name;
        bool hardLink;
    };
    for (const Case& c : {Case{0x01, 1, "File", true}, Case{0x02, 2, "Folder", false}, Case{0x03, 1, "File", true},
                          Case{0x00, 3, "Other", false}, Case{0x30, 3, "Other", false}}) {
        auto node = make<TuvNode>();
        node->setFlags(c.flags);
        EXPECT_EQ(node->nodeType(), c.type);
        EXPECT_STREQ(node->nodeTypeString(), c.name);
        EXPECT_EQ(node->isHardLink(), c.hardLink);
        EXPECT_EQ(node->isDirectory(), (c.flags & 2) != 0);
    }
    EXPECT_FALSE(make<TuvDirNode>()->isHardLink());
}

TEST(TuvNodeTest, ResolvedIsOneBit) {
    auto node = make<TuvNode>();
    node->setLogicalSize(7);
    node->setFlags(0x33);
    node->setIsResolved(false);
    EXPECT_EQ(node->flags(), 0x23);
    node->setIsResolved(false);
    EXPECT_EQ(node->flags(), 0x23);
    node->setIsResolved(true, true);
    EXPECT_EQ(node->flags(), 0x33);
    node->setIsResolved(false, true);
    EXPECT_EQ(node->flags(), 0x23);
    EXPECT_EQ(node->logicalSize(), 7u);
}

TEST(TuvNodeTest, TheLongFormGoesThroughTheShortOne) {
    struct Noting : TuvNode {
        using TuvNode::setIsResolved;
        void setIsResolved(bool flag) override { _flag = flag; }
        int _flag = -1;
    };
    auto node = make<Noting>();
    static_cast<TuvNode*>(node.get())->setIsResolved(true, false);
    EXPECT_EQ(node->_flag, 1);
    static_cast<TuvNode*>(node.get())->setIsResolved(false, true);
    EXPECT_EQ(node->_flag, 0);
}

TEST(TuvNodeTest, AnswersOfAPlainNode) {
    auto node = newFile(4);
    EXPECT_EQ(node->fileCount(), 0);
    EXPECT_EQ(node->folderCount(), 0);
    EXPECT_EQ(node->recursiveFileCount(), 1);
    EXPECT_EQ(node->recursiveFolderCount(), 0);
    EXPECT_FALSE(node->isSymbolicLink());
    EXPECT_TRUE(node->isSameFileSystem());
    EXPECT_FALSE(node->isReadOnly());
    auto folder = newFolder(1);
    TuvNode* child = addFile(folder.get(), newFile(5));
    std::vector<std::uint32_t> inodes{77};
    child->parentINodes(1, inodes);
    EXPECT_EQ(inodes, std::vector<std::uint32_t>{77});
    EXPECT_TRUE(child->parentINodes(*folder).empty());
}

TEST(TuvNodeTest, DatesCountFrom1904) {
    EXPECT_EQ(TuvNode::dateForJan1904(), -2082844800.0);
    auto node = make<TuvNode>();
    EXPECT_EQ(node->modDate(), -2082844800.0);
    node->setContentModDate(2082844800.0 + 1000000000.25);
    EXPECT_EQ(node->modDate(), 1000000000.25);
}

TEST(TuvNodeTest, CatalogDatesAreTheUpperSixBytesOfTheRecord) {
    EXPECT_EQ(TuvNode::timeIntervalFromUTCDateTime({}), 0);
    UTCDateTime date;
    date.lowSeconds = 3000000000u;
    if (std::endian::native == std::endian::little) {
        EXPECT_EQ(TuvNode::timeIntervalFromUTCDateTime(date), 3000000000.0);
        date.fraction = 3;
        EXPECT_EQ(TuvNode::timeIntervalFromUTCDateTime(date), 3000000000.0 + 3 * 4294967296.0);
        date.highSeconds = 0xffff;  // shifted out
        EXPECT_EQ(TuvNode::timeIntervalFromUTCDateTime(date), 3000000000.0 + 3 * 4294967296.0);
        date = {};
        date.fraction = 0xffff;  // not taken for a sign
        EXPECT_EQ(TuvNode::timeIntervalFromUTCDateTime(date), 65535 * 4294967296.0);
    } else {
        date.highSeconds = 3;
        date.fraction = 0xffff;
        EXPECT_EQ(TuvNode::timeIntervalFromUTCDateTime(date), 3000000000.0 + 3 * 4294967296.0);
    }
    for (std::int64_t seconds : {std::int64_t{0}, std::int64_t{1}, std::int64_t{1700000000}, std::int64_t{9000000000}})
        EXPECT_EQ(TuvNode::convertUTCtoNSDate(catalogDate(seconds)), static_cast<double>(seconds));
}

TEST(TuvNodeTest, AZeroCatalogDateIsNoDate) {
    EXPECT_EQ(TuvNode::convertUTCtoNSDate({}), std::nullopt);
    UTCDateTime date;
    date.lowSeconds = 1;
    EXPECT_EQ(TuvNode::convertUTCtoNSDate(date), -2082844799.0);
    date = {};
    date.highSeconds = 1;  // not zero, though its interval may be
    EXPECT_TRUE(TuvNode::convertUTCtoNSDate(date).has_value());
}

TEST(TuvNodeTest, MergesWhatDiffers) {
    ModelLogs logs;
    auto folder = newFolder(1, "/r");
    TuvNode* node = addFile(folder.get(), newFile(2, "old", 10, 20));
    node->filePath();
    EXPECT_TRUE(node->mergeNode(*newFile(2, "old", 10, 20)));
    EXPECT_EQ(logs.lines(), std::vector<std::string>{});
    EXPECT_TRUE(node->hasCachedFilePath());
    EXPECT_TRUE(node->mergeNode(*newFile(3, "new", 11, 22)));
    EXPECT_EQ(node->logicalSize(), 11u);
    EXPECT_EQ(node->physicalSize(), 22u);
    EXPECT_EQ(node->fileName(), "new");
    EXPECT_EQ(node->inode(), 2u);
    EXPECT_EQ(node->filePath(), "/r/new");
    node->mergeNode(*newFile(2, "new", 12, 22));
    node->mergeNode(*newFile(2, "new", 12, 23));
    auto nameless = make<TuvNode>();
    nameless->mergeNode(*make<TuvNode>());
    auto sized = make<TuvNode>();
    sized->setLogicalSize(1);
    nameless->mergeNode(*sized);
    EXPECT_EQ(logs.lines(), (std::vector<std::string>{
                                "TuvNode mergeNode: Merged [/r/new]", "TuvNode mergeNode: Merged [/r/new]",
                                "TuvNode mergeNode: Merged [/r/new]", "TuvNode mergeNode: Merged [NO FILE NAME]"}));
    EXPECT_EQ(logs->count(LogLevel::info, "Merged"), 4);
    node->mergeNode(*sized);
    EXPECT_FALSE(node->hasFileName());
}

TEST(TuvNodeTest, AsksTheFilter) {
    struct Rule : NodeFilterRule {
        bool accepts(const TuvNode& node, bool flag) const override { return flag == (node.inode() == 1); }
    };
    EXPECT_FALSE(newFile(1)->filterUsing(Rule()));
    EXPECT_TRUE(newFile(1)->filterUsing(Rule(), true));
    EXPECT_TRUE(newFile(2)->filterUsing(Rule(), false));
}

TEST(TuvNodeTest, CountsLiveNodes) {
    const int before = TuvNode::instanceCount();
    {
        auto file = make<TuvNode>();
        auto folder = make<TuvDirNode>();
        EXPECT_EQ(TuvNode::instanceCount(), before + 2);
        addFile(folder.get(), newFile(1));
        EXPECT_EQ(TuvNode::instanceCount(), before + 3);
    }
    EXPECT_EQ(TuvNode::instanceCount(), before);
}

}  // namespace
}  // namespace kavaro
