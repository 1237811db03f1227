#include "ModelTest.h"

namespace kavaro {
namespace {

using Ids = std::vector<std::uint32_t>;

// /, /Users, /Users/a
class TuvNodePathsTest : public testing::Test {
  protected:
    TuvRef<TuvDirNode> _root = newFolder(1, "/");
    TuvDirNode* _users = addFolder(_root.get(), newFolder(2, "Users"));
    TuvNode* _a = addFile(_users, newFile(3, "a"));
};

TEST_F(TuvNodePathsTest, PathsFollowTheParents) {
    EXPECT_EQ(_a->filePath(), "/Users/a");
    EXPECT_TRUE(_root->hasCachedFilePath());
    EXPECT_TRUE(_users->hasCachedFilePath());
    EXPECT_EQ(_users->filePath(), "/Users");
    EXPECT_EQ(_root->filePath(), "/");
    EXPECT_EQ(_a->filePath().data(), _a->filePath().data());
    EXPECT_EQ(_a->description(), "/Users/a");
    EXPECT_EQ(_users->description(), "/Users");
}

TEST_F(TuvNodePathsTest, ARootHoldsItsWholePath) {
    auto root = newFolder(1, "/usr/share");
    EXPECT_EQ(addFile(root.get(), newFile(2, "x"))->filePath(), "/usr/share/x");
    auto slashed = newFolder(1, "/usr/share/");
    EXPECT_EQ(addFile(slashed.get(), newFile(2, "x"))->filePath(), "/usr/share/x");
    auto relative = newFolder(1, "here");
    EXPECT_EQ(addFile(relative.get(), newFile(2, "x"))->filePath(), "here/x");
    auto empty = newFolder(1, "");
    EXPECT_EQ(addFile(empty.get(), newFile(2, "x"))->filePath(), "x");
}

TEST_F(TuvNodePathsTest, NamesMayBeAnyBytes) {
    auto file = newFile(4, "sp ace\n\xff\xfe");
    EXPECT_EQ(addFile(_users, std::move(file))->filePath(), "/Users/sp ace\n\xff\xfe");
}

TEST_F(TuvNodePathsTest, WithoutAName) {
    auto nameless = make<TuvDirNode>();
    EXPECT_EQ(nameless->fileName(), "No File Name !!!");
    EXPECT_EQ(nameless->filePath(), "NO FILE NAME");
    EXPECT_EQ(nameless->description(), "NO FILE NAME");
    EXPECT_FALSE(nameless->hasCachedFilePath());
    EXPECT_EQ(addFile(nameless.get(), newFile(5, "x"))->filePath(), "NO FILE NAME/x");
    EXPECT_FALSE(nameless->hasCachedFilePath());
    nameless->setParent(_root.get());
    EXPECT_EQ(nameless->filePath(), "NO FILE NAME");
    nameless->setFilePath("/given");
    EXPECT_EQ(nameless->filePath(), "/given");
    EXPECT_EQ(addFile(nameless.get(), newFile(6, "y"))->filePath(), "/given/y");
}

TEST_F(TuvNodePathsTest, RenamingDropsTheOwnCacheAlone) {
    EXPECT_EQ(_a->filePath(), "/Users/a");
    _a->setFileName("a");  // the same name
    EXPECT_TRUE(_a->hasCachedFilePath());
    _a->setFileName(NodeText("a"));
    EXPECT_TRUE(_a->hasCachedFilePath());
    _a->setFileName("b");
    EXPECT_FALSE(_a->hasCachedFilePath());
    EXPECT_EQ(_a->filePath(), "/Users/b");
    _a->setFileName(NodeText("c"));
    EXPECT_EQ(_a->filePath(), "/Users/c");
    _users->setFileName("Home");
    EXPECT_EQ(_users->filePath(), "/Home");
    EXPECT_EQ(_a->filePath(), "/Users/c");
    _a->setFileName(std::string_view());
    EXPECT_FALSE(_a->hasFileName());
    EXPECT_EQ(_a->filePath(), "NO FILE NAME");
}

TEST_F(TuvNodePathsTest, AnotherParentDropsTheOwnCacheAlone) {
    auto other = newFolder(9, "/other");
    EXPECT_EQ(_a->filePath(), "/Users/a");
    _users->setParent(other.get());
    EXPECT_EQ(_users->filePath(), "/other/Users");
    EXPECT_EQ(_a->filePath(), "/Users/a");
    EXPECT_EQ(other->retainCount(), 1u);
    _users->setParent(nullptr);
    EXPECT_EQ(_users->filePath(), "Users");
}

TEST_F(TuvNodePathsTest, TheSameParentIsAnError) {
    ModelLogs logs;
    EXPECT_EQ(_a->filePath(), "/Users/a");
    _a->setParent(_users);
    EXPECT_TRUE(_a->hasCachedFilePath());
    newFile(1)->setParent(nullptr);
    EXPECT_EQ(logs.lines(), (std::vector<std::string>{"TuvNode setParent: Same or Null value",
                                                      "TuvNode setParent: Same or Null value"}));
    EXPECT_EQ(logs->count(LogLevel::error, "Same"), 2);
}

TEST_F(TuvNodePathsTest, ASetPathIsTheCache) {
    _a->setFilePath("/elsewhere");
    EXPECT_EQ(_a->filePath(), "/elsewhere");
    EXPECT_EQ(_a->fileName(), "a");
    _users->setFilePath("/changed");
    _a->setFileName("b");
    EXPECT_EQ(_a->filePath(), "/changed/b");
    _a->setFilePath(std::string_view());
    EXPECT_FALSE(_a->hasCachedFilePath());
    EXPECT_EQ(_a->filePath(), "/changed/b");
}

TEST_F(TuvNodePathsTest, LongPathsStayInTheNodeThatWasAsked) {
    TuvDirNode* folder = _users;
    std::vector<TuvDirNode*> chain;
    std::string path = "/Users";
    for (int i = 0; i < 60; ++i) {
        folder = addFolder(folder, newFolder(10, std::string(99, 'x')));
        chain.push_back(folder);
        path += "/" + std::string(99, 'x');
    }
    EXPECT_EQ(folder->description(), path);
    EXPECT_FALSE(folder->hasCachedFilePath());
    EXPECT_EQ(folder->filePath(), path);
    EXPECT_TRUE(folder->hasCachedFilePath());
    std::size_t cached = 0;
    for (TuvDirNode* node : chain)
        if (node->hasCachedFilePath()) ++cached;
    EXPECT_EQ(cached, (TuvNode::kCachedAncestorPathLimit - 6) / 100 + 1);
}

TEST_F(TuvNodePathsTest, PartsOfTheName) {
    auto node = newFile(1, "a/b.tar.gz");
    EXPECT_EQ(node->convertedFileName(), "a:b.tar.gz");
    EXPECT_EQ(node->fileName(), "a/b.tar.gz");
    EXPECT_EQ(node->fileExtension(), "gz");
    EXPECT_EQ(node->fileNameWithoutExtension(), "b.tar");
    EXPECT_EQ(newFile(1, "plain")->fileExtension(), "");
    EXPECT_EQ(newFile(1, "plain")->fileNameWithoutExtension(), "plain");
    auto nameless = make<TuvNode>();
    EXPECT_EQ(nameless->convertedFileName(), "No File Name !!!");
    EXPECT_EQ(nameless->fileExtension(), "No File Name !!!");
    EXPECT_EQ(nameless->fileNameWithoutExtension(), "No File Name !!!");
}

TEST_F(TuvNodePathsTest, RelativeToAnotherNode) {
    EXPECT_EQ(_a->filePathRelativeOfNode(nullptr), "/Users/a");
    EXPECT_EQ(_a->filePathRelativeOfNode(_users), "/a");
    EXPECT_EQ(_a->filePathRelativeOfNode(_root.get()), "Users/a");
    EXPECT_EQ(_a->filePathRelativeOfNode(_a), "");
    EXPECT_EQ(_a->filePathRelativeOfNode(newFile(1, "/USERS").get()), "/a");
    EXPECT_EQ(_a->filePathRelativeOfNode(newFile(1, "/nowhere").get()), "/Users/a");
    // As many characters from the start as matched, wherever they matched.
    EXPECT_EQ(_a->filePathRelativeOfNode(newFile(1, "sers").get()), "rs/a");
    // Characters are counted, not bytes.
    auto accented = newFile(1, "/\u00e9\u00e9/x\u20ac");
    EXPECT_EQ(accented->filePathRelativeOfNode(newFile(1, "/x").get()), "\u00e9/x\u20ac");
    EXPECT_EQ(accented->filePathRelativeOfNode(newFile(1, "X\u20ac").get()), "\u00e9/x\u20ac");
    EXPECT_EQ(accented->filePathRelativeOfNode(newFile(1, "/\u00c9").get()), "\u00e9/x\u20ac");
    EXPECT_EQ(newFile(1, "/\xff/b\xff")->filePathRelativeOfNode(newFile(1, "/b").get()), "/b\xff");
}

TEST_F(TuvNodePathsTest, FromAWholePathToAName) {
    ModelLogs logs;
    auto node = newFile(1, "/Users/b");
    node->setFileNameAsChildOfParent();  // no parent
    EXPECT_EQ(node->fileName(), "/Users/b");
    node->setParent(_users);
    node->setFileNameAsChildOfParent();
    EXPECT_EQ(node->fileName(), "b");
    EXPECT_EQ(node->filePath(), "/Users/b");
    auto atRoot = newFile(1, "/b");
    atRoot->setParent(_root.get());
    atRoot->setFileNameAsChildOfParent();
    EXPECT_EQ(atRoot->fileName(), "b");
    for (const char* name : {"b", "/Users"}) {  // no such path in it, or no separator behind it
        auto kept = newFile(1, name);
        kept->setParent(_users);
        kept->setFileNameAsChildOfParent();
        EXPECT_EQ(kept->fileName(), name);
    }
    auto wide = newFile(1, "/Users\u00e9b");  // whatever stands in the separator's place
    wide->setParent(_users);
    wide->setFileNameAsChildOfParent();
    EXPECT_EQ(wide->fileName(), "b");
    auto nothing = newFile(1, "/Users/");  // nothing follows the separator
    nothing->setParent(_users);
    nothing->setFileNameAsChildOfParent();
    EXPECT_TRUE(nothing->hasFileName());
    EXPECT_EQ(nothing->fileName(), "");
    EXPECT_EQ(logs.lines(), std::vector<std::string>{});
    auto nameless = make<TuvNode>();
    nameless->setFileNameAsChildOfParent();
    EXPECT_EQ(logs.lines(), std::vector<std::string>{"TuvNode setFileNameAsChildOfParent: No File Name !!!"});
    EXPECT_EQ(logs->count(LogLevel::error, "No File Name"), 1);
}

TEST_F(TuvNodePathsTest, ChainsOfParents) {
    auto chain = _a->parentChain(_root.get(), false);
    EXPECT_EQ(idsOf(chain.get()), (Ids{2, 3}));
    EXPECT_EQ(chain->size(), 8);
    EXPECT_EQ(chain->retainCount(), 1u);
    EXPECT_EQ(_a->retainCount(), 2u);
    EXPECT_EQ(idsOf(_a->parentChain(_root.get(), true).get()), (Ids{1, 2, 3}));
    EXPECT_EQ(idsOf(_a->parentChain(nullptr, false).get()), (Ids{1, 2, 3}));
    EXPECT_EQ(idsOf(_a->parentChain(nullptr, true).get()), (Ids{1, 2, 3}));
    EXPECT_EQ(_a->parentChain(_a, false)->count(), 0);
    EXPECT_EQ(idsOf(_a->parentChain(_a, true).get()), (Ids{3}));
    auto stranger = newFolder(9);
    EXPECT_EQ(idsOf(_a->parentChain(stranger.get(), true).get()), (Ids{9, 1, 2, 3}));
}

}  // namespace
}  // namespace kavaro
