#include "client/TreeUpdate.h"

#include <gtest/gtest.h>

#include <random>

#include "client/TreeDelivery.h"

namespace kavaro {
namespace {

TuvDirNode* folderWithID(TuvDirNode& root, std::uint32_t inode) {
    return static_cast<TuvDirNode*>(root.childWithINode(inode, false, true));
}

// A record as the server writes it of the folder with this ID: its name is a whole path, its subfolders are headers.
struct Record {
    explicit Record(std::uint32_t inode, std::string_view path = "/data/somewhere")
        : folder(FakeTree::root(path, inode)) {}
    Record& file(std::string_view name, std::uint32_t inode, std::uint64_t logical, std::uint64_t physical) {
        FakeTree::addFile(*folder, name, inode, logical, physical);
        return *this;
    }
    Record& sub(std::string_view name, std::uint32_t inode) {
        TuvDirNode* made = FakeTree::addFolder(*folder, name, inode);
        made->setFlags(TuvNode::kFolder);
        return *this;
    }
    TreeUpdate applyTo(TuvDirNode& root) const {
        const ByteBuffer bytes = folder->serialize();
        return applyFolderRecord(root, bytes.view());
    }
    TuvRef<TuvDirNode> folder;
};

// The record that says of a folder what the tree says.
Record sameAs(const TuvDirNode& folder) {
    Record record(folder.inode());
    for (TuvObject* object : *folder.files()) {
        const auto* file = static_cast<TuvNode*>(object);
        record.file(file->fileName(), file->inode(), file->logicalSize(), file->physicalSize());
    }
    for (TuvObject* object : *folder.folders()) {
        const auto* sub = static_cast<TuvDirNode*>(object);
        record.sub(sub->fileName(), sub->inode());
    }
    return record;
}

// smallTree(): /data (2) / big (10) / film (11, 5242000 of 5242880 bytes), deep (12) / note (13, 1000 of 1024);
// small (14), list (15, 307000 of 307200), a file of two kilobytes (16).
class TreeUpdateTest : public testing::Test {
  protected:
    void expectSizes(std::uint32_t inode, std::uint64_t logical, std::uint64_t physical) const {
        const TuvDirNode* folder = inode == 2 ? _root.get() : folderWithID(*_root, inode);
        ASSERT_TRUE(folder);
        EXPECT_EQ(folder->logicalSize(), logical) << inode;
        EXPECT_EQ(folder->physicalSize(), physical) << inode;
    }

    TuvRef<TuvDirNode> _root = smallTree();
    TuvDirNode* _big = folderWithID(*_root, 10);
    TuvDirNode* _deep = folderWithID(*_root, 12);
    const std::uint64_t _logical = _root->logicalSize();
    const std::uint64_t _physical = _root->physicalSize();
};

TEST_F(TreeUpdateTest, ARecordThatSaysTheSameChangesNothing) {
    const std::vector<std::string> before = linesOf(*_root);
    for (const TuvDirNode* folder : {_root.get(), _big, _deep}) {
        EXPECT_EQ(sameAs(*folder).applyTo(*_root), TreeUpdate::applied);
        EXPECT_EQ(linesOf(*_root), before);
    }
    EXPECT_EQ(folderWithID(*_root, 12), _deep);
}

TEST_F(TreeUpdateTest, FilesThatCameWentAndGrewReachTheRoot) {
    TuvNode* film = _big->files()->nodeAtIndex(0);
    Record record(10);
    record.file("more", 50, 30, 512).file("film 2", 11, 100, 4096).sub("deep", 12);
    EXPECT_EQ(record.applyTo(*_root), TreeUpdate::applied);
    ASSERT_EQ(_big->fileCount(), 2);
    EXPECT_EQ(_big->files()->nodeAtIndex(0)->filePath(), "/data/big/more");
    EXPECT_EQ(_big->files()->nodeAtIndex(1), film);
    EXPECT_EQ(film->fileName(), "film 2");
    EXPECT_EQ(_big->folders()->objectAtIndex(0), _deep);
    EXPECT_EQ(_deep->fileCount(), 1);
    EXPECT_EQ(_big->fileName(), "big");  // the record's is a path
    expectSizes(10, 30 + 100 + 1000, 512 + 4096 + 1024);
    expectSizes(2, _logical - 5242000 + 130, _physical - 5242880 + 4608);
    EXPECT_TRUE(_root->isResolved());
}

TEST_F(TreeUpdateTest, ASubfolderThatWentTakesItsSizesAlong) {
    Record record(10);
    record.file("film", 11, 5242000, 5242880);
    EXPECT_EQ(record.applyTo(*_root), TreeUpdate::applied);
    EXPECT_EQ(_big->folderCount(), 0);
    expectSizes(10, 5242000, 5242880);
    expectSizes(2, _logical - 1000, _physical - 1024);
    EXPECT_TRUE(_root->isResolved());
}

TEST_F(TreeUpdateTest, ANewSubfolderLeavesAllAboveUnresolvedUntilItsRecordComes) {
    Record record = sameAs(*_big);
    EXPECT_EQ(record.sub("new", 60).applyTo(*_root), TreeUpdate::applied);
    TuvDirNode* added = folderWithID(*_root, 60);
    ASSERT_TRUE(added);
    EXPECT_EQ(added->parent(), _big);
    for (const TuvDirNode* folder : {static_cast<const TuvDirNode*>(added), static_cast<const TuvDirNode*>(_big),
                                     static_cast<const TuvDirNode*>(_root.get())})
        EXPECT_FALSE(folder->isResolved()) << folder->filePath();
    EXPECT_TRUE(_deep->isResolved());
    expectSizes(2, _logical, _physical);  // of what is there
    EXPECT_EQ(TreeTotals(*_root, 0).ofRoot().physicalSize, _physical);

    EXPECT_EQ(Record(60).file("inside", 61, 7, 512).applyTo(*_root), TreeUpdate::applied);
    EXPECT_EQ(folderWithID(*_root, 60), added);
    EXPECT_TRUE(added->isResolved());
    EXPECT_TRUE(_big->isResolved());
    EXPECT_TRUE(_root->isResolved());
    expectSizes(60, 7, 512);
    expectSizes(2, _logical + 7, _physical + 512);
}

// A tree that was left unfinished: folders of which only the header came have no sizes.
TEST_F(TreeUpdateTest, AFolderTheTreeKnewNothingOfIsTheRecords) {
    TuvDirNode* small = folderWithID(*_root, 14);
    small->setIsResolved(false, true);
    Record record = sameAs(*_root);
    TuvDirNode* known = record.folder->folders()->folderAtIndex(1);
    ASSERT_EQ(known->inode(), 14u);
    FakeTree::resolve(*record.folder);
    known->setLogicalSize(70);
    known->setPhysicalSize(4096);
    EXPECT_EQ(record.applyTo(*_root), TreeUpdate::applied);
    expectSizes(14, 70, 4096);
    expectSizes(2, _logical + 70, _physical + 4096);
    EXPECT_TRUE(_root->isResolved());
    EXPECT_EQ(folderWithID(*_root, 12), _deep);  // what was known stays, whatever the header said
    expectSizes(12, 1000, 1024);
}

TEST_F(TreeUpdateTest, ARenamedSubfolderTakesThePathsBelowItAlong) {
    EXPECT_EQ(_deep->files()->nodeAtIndex(0)->filePath(), "/data/big/deep/note");
    EXPECT_EQ(_big->files()->nodeAtIndex(0)->filePath(), "/data/big/film");
    Record record(2);
    record.sub("large", 10).sub("small", 14).file("list", 15, 307000, 307200);
    EXPECT_EQ(record.applyTo(*_root), TreeUpdate::applied);
    EXPECT_EQ(folderWithID(*_root, 10), _big);
    EXPECT_EQ(_big->filePath(), "/data/large");
    EXPECT_EQ(_deep->filePath(), "/data/large/deep");
    EXPECT_EQ(_deep->files()->nodeAtIndex(0)->filePath(), "/data/large/deep/note");
    EXPECT_EQ(_big->files()->nodeAtIndex(0)->filePath(), "/data/large/film");
    EXPECT_EQ(_root->filePath(), "/data");
}

TEST_F(TreeUpdateTest, DatesFollow) {
    Record record = sameAs(*_big);
    record.folder->setContentModDate(77);
    record.folder->files()->nodeAtIndex(0)->setContentModDate(78);
    record.folder->folders()->nodeAtIndex(0)->setContentModDate(79);
    EXPECT_EQ(record.applyTo(*_root), TreeUpdate::applied);
    EXPECT_EQ(_big->contentModDate(), 77);
    EXPECT_EQ(_big->files()->nodeAtIndex(0)->contentModDate(), 78);
    EXPECT_EQ(_deep->contentModDate(), 79);
}

TEST_F(TreeUpdateTest, AFileThatBecameAFolderAndTheReverse) {
    Record record(10);
    record.sub("film", 11).file("deep", 12, 5, 512);
    EXPECT_EQ(record.applyTo(*_root), TreeUpdate::applied);
    ASSERT_EQ(_big->fileCount(), 1);
    EXPECT_EQ(_big->files()->nodeAtIndex(0)->inode(), 12u);
    EXPECT_EQ(_big->files()->nodeAtIndex(0)->nodeType(), TuvNode::kTypeFile);
    ASSERT_EQ(_big->folderCount(), 1);
    EXPECT_TRUE(_big->folders()->nodeAtIndex(0)->isDirectory());
    expectSizes(10, 5, 512);
    EXPECT_FALSE(_root->isResolved());
    EXPECT_EQ(Record(12).applyTo(*_root), TreeUpdate::unknownFolder);
    EXPECT_EQ(Record(11).applyTo(*_root), TreeUpdate::applied);
    EXPECT_TRUE(_root->isResolved());
}

TEST_F(TreeUpdateTest, NamesOfOneFileAreMatchedByName) {
    Record record(10);
    for (const char* name : {"c", "a", "b"}) record.file(name, 11, 100, 4096);
    EXPECT_EQ(record.applyTo(*_root), TreeUpdate::applied);
    std::vector<TuvObject*> nodes(_big->files()->begin(), _big->files()->end());
    ASSERT_EQ(nodes.size(), 3u);
    expectSizes(10, 300, 12288);
    Record fewer(10);
    for (const char* name : {"b", "d", "c"}) fewer.file(name, 11, 100, 4096);
    EXPECT_EQ(fewer.applyTo(*_root), TreeUpdate::applied);
    EXPECT_EQ(_big->files()->objectAtIndex(0), nodes[2]);
    EXPECT_EQ(_big->files()->objectAtIndex(1), nodes[1]);  // "a" is "d" now
    EXPECT_EQ(_big->files()->objectAtIndex(2), nodes[0]);
    EXPECT_EQ(_big->files()->nodeAtIndex(1)->fileName(), "d");
    expectSizes(10, 300, 12288);
}

TEST_F(TreeUpdateTest, RecordsThatMakeNoSenseChangeNothing) {
    const std::vector<std::string> before = linesOf(*_root);
    const auto expectRefused = [&](const Record& record, const char* what) {
        EXPECT_EQ(record.applyTo(*_root), TreeUpdate::senseless) << what;
        EXPECT_EQ(linesOf(*_root), before) << what;
    };
    expectRefused(Record(10).sub("a", 70).sub("b", 71).sub("c", 70), "two subfolders of one ID");
    expectRefused(Record(10).sub("a", 70).file("b", 70, 1, 1), "a file and a subfolder of one ID");
    expectRefused(Record(10).sub("a", 10), "itself");
    expectRefused(Record(12).sub("a", 2), "a folder above");
    expectRefused(Record(12).sub("a", 10), "the folder above");
    Record notListed(10);
    notListed.folder->setFlags(TuvNode::kFolder);
    expectRefused(notListed, "not listed");

    EXPECT_EQ(Record(99).applyTo(*_root), TreeUpdate::unknownFolder);
    EXPECT_EQ(Record(15).applyTo(*_root), TreeUpdate::unknownFolder);  // a file's
    EXPECT_EQ(applyFolderRecord(*_root, {}), TreeUpdate::noRecord);
    EXPECT_EQ(linesOf(*_root), before);
}

TEST_F(TreeUpdateTest, RecordsCutShortChangeNothing) {
    const std::vector<std::string> before = linesOf(*_root);
    const ByteBuffer bytes = Record(10).file("x", 80, 1, 1).sub("y", 81).folder->serialize();
    for (std::size_t length = 1; length < bytes.size(); ++length)
        EXPECT_EQ(applyFolderRecord(*_root, bytes.view().subspan(0, length)), TreeUpdate::senseless) << length;
    EXPECT_EQ(linesOf(*_root), before);
}

TEST_F(TreeUpdateTest, TheRootOfATreeCanBeTheFolder) {
    EXPECT_EQ(Record(2).file("only", 90, 1, 512).applyTo(*_root), TreeUpdate::applied);
    EXPECT_EQ(_root->fileName(), "/data");
    EXPECT_EQ(_root->folderCount(), 0);
    expectSizes(2, 1, 512);
}

TEST(TreeUpdate, AFolderBelow100000Levels) {
    const TuvRef<TuvDirNode> root = FakeTree::chain(100000);
    Record record(10 + 99999);
    EXPECT_EQ(record.file("file", 3, 20, 8192).applyTo(*root), TreeUpdate::applied);
    EXPECT_EQ(root->physicalSize(), 8192u);
    EXPECT_EQ(Record(10).applyTo(*root), TreeUpdate::applied);
    EXPECT_EQ(root->physicalSize(), 0u);
}

// Whatever chance makes of the bytes, they change nothing or give a tree that holds together.
TEST(TreeUpdate, AlteredRecordsGiveSomeTreeOrNone) {
    std::mt19937 random(17);
    int applied = 0;
    for (int round = 0; round < 4000; ++round) {
        const TuvRef<TuvDirNode> root = smallTree();
        const std::vector<std::string> before = linesOf(*root);
        const ByteBuffer record = Record(10)
                                      .file("film", 11, 1, 1)
                                      .file("more", 51, 2, 512)
                                      .sub("deep", 12)
                                      .sub("new", 60)
                                      .folder->serialize();
        std::vector<std::uint8_t> bytes(record.view().begin(), record.view().end());
        for (std::uint32_t flips = 1 + random() % 3; flips > 0; --flips)
            bytes[random() % bytes.size()] ^= static_cast<std::uint8_t>(1u << random() % 8);
        if (applyFolderRecord(*root, {bytes.data(), bytes.size()}) != TreeUpdate::applied) {
            EXPECT_EQ(linesOf(*root), before);
            continue;
        }
        ++applied;
        for (FolderWalk walk(root.get()); const TuvDirNode* folder = walk.next();) {
            for (const TuvObjectArray* list : {folder->files(), folder->folders()})
                for (int i = 0; i < list->count(); ++i) ASSERT_EQ(list->nodeAtIndex(i)->parent(), folder);
        }
        EXPECT_EQ(root->physicalSize(), root->files()->physicalSize() + root->folders()->physicalSize());
        EXPECT_LT(TreeTotals(*root, 3).ofRoot().folders, 1000u);
    }
    EXPECT_GT(applied, 500);
}

}  // namespace
}  // namespace kavaro
