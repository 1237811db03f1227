#include "client/commandline/MatchWalk.h"

#include <gtest/gtest.h>

#include "client/commandline/FakeTree.h"

namespace kavaro {
namespace {

using Paths = std::vector<std::string>;

Measurement measured(TuvRef<TuvDirNode> root) {
    Measurement measurement;
    measurement.path = std::string(root->fileName());
    measurement.root = std::move(root);
    return measurement;
}

Paths found(Measurement& measurement, std::string_view folder, const std::function<bool(const TuvNode&)>& test) {
    Paths paths;
    walkMatches(measurement, folder, test, [&](const TuvNode&, const std::string& path) {
        paths.push_back(path);
        return true;
    });
    return paths;
}

bool all(const TuvNode&) {
    return true;
}

TEST(MatchWalk, foldersComeBeforeWhatTheyHold) {
    Measurement measurement = measured(smallTree());
    EXPECT_EQ(found(measurement, "/data", all),
              (Paths{"/data", "/data/list", "/data/写真", "/data/big", "/data/big/film", "/data/big/deep",
                     "/data/big/deep/note", "/data/small"}));
}

TEST(MatchWalk, pathsBeginAsTheFolderWasGiven) {
    Measurement measurement = measured(smallTree());
    const auto isNote = [](const TuvNode& node) { return node.fileName() == "note" || node.fileName() == "data"; };
    EXPECT_EQ(found(measurement, ".", isNote), (Paths{".", "./big/deep/note"}));
    EXPECT_EQ(found(measurement, "x/", isNote), (Paths{"x/", "x/big/deep/note"}));
    EXPECT_EQ(found(measurement, "/", isNote), (Paths{"/", "/big/deep/note"}));
}

TEST(MatchWalk, theRootIsTestedUnderItsLastName) {
    TuvRef<TuvDirNode> root = FakeTree::root("/home/photos/a");
    FakeTree::addFile(*root, "b", 3, 10, 4096);
    FakeTree::resolve(*root);
    Measurement measurement = measured(std::move(root));
    const TuvNode* seen = nullptr;
    walkMatches(
        measurement, "a", [&](const TuvNode& node) { return node.fileName() == "a"; },
        [&](const TuvNode& node, const std::string&) {
            seen = &node;
            EXPECT_TRUE(node.isDirectory());
            EXPECT_EQ(node.physicalSize(), 4096u);
            EXPECT_EQ(node.inode(), 2u);
            EXPECT_EQ(node.modDate(), static_cast<double>(FakeTree::kDate));
            return true;
        });
    EXPECT_NE(seen, nullptr);
    EXPECT_EQ(measurement.root->fileName(), "/home/photos/a");
}

TEST(MatchWalk, endsWhenNobodyReadsOn) {
    Measurement measurement = measured(smallTree());
    for (std::size_t most = 1; most <= 8; ++most) {
        Paths paths;
        walkMatches(measurement, ".", all, [&](const TuvNode&, const std::string& path) {
            paths.push_back(path);
            return paths.size() < most;
        });
        EXPECT_EQ(paths.size(), most);
    }
}

TEST(MatchWalk, unfinishedFoldersHaveWhatWasMeasured) {
    TuvRef<TuvDirNode> root = FakeTree::root("/data");
    TuvDirNode* big = FakeTree::addFolder(*root, "big", 10);
    FakeTree::addFile(*big, "film", 11, 100, 5000);
    TuvDirNode* done = FakeTree::addFolder(*big, "done", 12);
    FakeTree::addFile(*done, "x", 13, 10, 700);
    done->setIsResolved(true);
    Measurement measurement = measured(std::move(root));
    measurement.partial = true;
    std::vector<std::uint64_t> sizes;
    walkMatches(
        measurement, ".", [](const TuvNode& node) { return node.isDirectory(); },
        [&](const TuvNode& node, const std::string&) {
            sizes.push_back(node.physicalSize());
            return true;
        });
    EXPECT_EQ(sizes, (std::vector<std::uint64_t>{5700, 5700, 700}));
}

TEST(MatchWalk, goesDeep) {
    constexpr int kLevels = 20000;
    Measurement measurement = measured(FakeTree::chain(kLevels));
    const Paths paths = found(measurement, "c", [](const TuvNode& node) { return node.fileName() == "file"; });
    ASSERT_EQ(paths.size(), 1u);
    EXPECT_EQ(paths[0].size(), 1 + 2 * kLevels + 5u);
}

}  // namespace
}  // namespace kavaro
