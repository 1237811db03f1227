#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "scan/ScanTest.h"

namespace kavaro {
namespace {

struct Sizes {
    std::uint64_t logical = 0;
    std::uint64_t physical = 0;
    bool operator==(const Sizes&) const = default;
};

Sizes sizesOf(const TuvNode& node) {
    return {node.logicalSize(), node.physicalSize()};
}

// A child as the twin sees it. `node` is null until the twin has learned which one it is.
struct Entry {
    std::uint32_t inode = 0;
    std::string name;
    Sizes sizes;
    const TuvObject* node = nullptr;
};

using Entries = std::vector<Entry>;

const Entry* find(const Entries& entries, std::uint32_t inode) {
    const auto found = std::find_if(entries.begin(), entries.end(), [&](const Entry& e) { return e.inode == inode; });
    return found == entries.end() ? nullptr : &*found;
}

void sortByInode(Entries& entries) {
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.inode < b.inode; });
}

// A folder below some ancestors: the rules of merging, in the plainest form.
struct Twin {
    Entries files, folders;
    std::vector<Sizes> above;  // ancestors, nearest first
    Sizes own;
    bool isResolved = true;

    void addAbove(std::uint64_t logical, std::uint64_t physical) {
        for (Sizes& sizes : above) {
            sizes.logical += logical;
            sizes.physical += physical;
        }
    }

    void mergeFiles(Entries fresh) {
        const Sizes before = own;
        sortByInode(files);
        sortByInode(fresh);
        Entries merged;
        for (Entry& file : files) {
            own.logical -= file.sizes.logical;
            own.physical -= file.sizes.physical;
            if (const Entry* now = find(fresh, file.inode))
                merged.push_back({file.inode, now->name, now->sizes, file.node});
        }
        for (Entry& file : fresh)
            if (!find(files, file.inode)) merged.push_back(file);
        for (const Entry& file : merged) {
            own.logical += file.sizes.logical;
            own.physical += file.sizes.physical;
        }
        files = std::move(merged);
        addAbove(own.logical - before.logical, own.physical - before.physical);
    }

    bool mergeFolders(Entries fresh) {
        sortByInode(folders);
        sortByInode(fresh);
        Entries merged;
        for (Entry& folder : folders) {
            if (find(fresh, folder.inode)) {
                merged.push_back(folder);
                continue;
            }
            own.logical += folder.sizes.logical;  // the wrong way round, as it must be
            own.physical += folder.sizes.physical;
            addAbove(-folder.sizes.logical, -folder.sizes.physical);
        }
        bool added = false;
        for (Entry& folder : fresh) {
            if (find(folders, folder.inode)) continue;
            merged.push_back(folder);
            added = true;
        }
        folders = std::move(merged);
        if (added) {
            own = {};
            for (Sizes& sizes : above) sizes = {};
            isResolved = false;
        }
        return !added;
    }
};

// The same in nodes, and chance.
class Pair {
  public:
    explicit Pair(std::uint32_t seed) : _random(seed) {
        TuvDirNode* folder = _root.get();
        for (std::uint32_t levels = 1 + _random() % 5; levels > 0; --levels) {
            addFile(folder, newFile(id(), "sibling", size(), size()));
            folder = addFolder(folder, newFolder(id(), "level"));
        }
        _folder = folder;
        for (const Entry& entry : entries(_random() % 20))
            addFile(_folder, newFile(entry.inode, entry.name, entry.sizes.logical, entry.sizes.physical));
        for (const Entry& entry : entries(_random() % 10)) addFolder(_folder, folderOf(entry));
        // Sums that overflow are sums too, and totals need not be right before a merge.
        _folder->setIsResolved(true, true);
        if (_random() % 2) {
            for (TuvDirNode* one = _folder; one; one = one->parent()) {
                one->setLogicalSize(size());
                one->setPhysicalSize(size());
            }
        }
        takeNodes(_folder->files(), &_twin.files);
        takeNodes(_folder->folders(), &_twin.folders);
        _twin.own = sizesOf(*_folder);
        for (const TuvDirNode* one = _folder->parent(); one; one = one->parent()) _twin.above.push_back(sizesOf(*one));
    }

    void mergeFiles() {
        const Entries listing = listingOf(_twin.files);
        auto fresh = make<TuvObjectArray>();
        for (const Entry& entry : listing) {
            auto file = newFile(entry.inode, entry.name, entry.sizes.logical, entry.sizes.physical);
            if (_random() % 2) file->setParent(_folder);
            fresh->adoptObject(file.leak());
        }
        EXPECT_TRUE(_folder->mergeFiles(fresh.get()));
        _twin.mergeFiles(listing);
    }
    void mergeFolders() {
        const Entries listing = listingOf(_twin.folders);
        auto fresh = make<TuvObjectArray>();
        for (const Entry& entry : listing) fresh->adoptObject(folderOf(entry).leak());
        const bool result = _folder->mergeFolders(fresh.get());
        EXPECT_EQ(result, _twin.mergeFolders(listing));
    }

    void expectEqual() {
        expectChildren(_folder->files(), _twin.files);
        expectChildren(_folder->folders(), _twin.folders);
        EXPECT_EQ(sizesOf(*_folder), _twin.own);
        EXPECT_EQ(_folder->isResolved(), _twin.isResolved);
        std::size_t level = 0;
        for (const TuvDirNode* one = _folder->parent(); one; one = one->parent(), ++level) {
            ASSERT_LT(level, _twin.above.size());
            EXPECT_EQ(sizesOf(*one), _twin.above[level]) << level << " above";
            EXPECT_EQ(one->isResolved(), _twin.isResolved);
            EXPECT_EQ(one->childrenCount(), 2);
        }
        EXPECT_EQ(level, _twin.above.size());
    }

  private:
    std::uint32_t id() { return _nextInode += 1 + _random() % 3; }
    std::uint64_t size() {
        const std::uint64_t wide = (std::uint64_t{_random()} << 32) | _random();
        return _random() % 8 == 0 ? wide : wide % 100000;
    }
    Entries entries(std::uint32_t count) {
        Entries made;
        for (; count > 0; --count) {
            const std::uint32_t inode = id();
            made.push_back({inode, "n" + std::to_string(inode), {size(), size()}, nullptr});
        }
        std::shuffle(made.begin(), made.end(), _random);
        return made;
    }
    // Some stay as they are, some change, some go, some come; and once in a while all or none.
    Entries listingOf(const Entries& now) {
        const std::uint32_t mood = _random() % 10;
        Entries listing;
        for (const Entry& entry : now) {
            if (mood == 0 || (mood > 1 && _random() % 4 == 0)) continue;
            listing.push_back(entry);
            Entry& kept = listing.back();
            kept.node = nullptr;
            if (_random() % 3 == 0) kept.sizes = {size(), size()};
            if (_random() % 3 == 0) kept.name += "'";
        }
        if (mood > 1) {
            const Entries more = entries(_random() % 6);
            listing.insert(listing.end(), more.begin(), more.end());
        }
        std::shuffle(listing.begin(), listing.end(), _random);
        return listing;
    }
    static TuvRef<TuvDirNode> folderOf(const Entry& entry) {
        auto folder = newFolder(entry.inode, entry.name);
        folder->setLogicalSize(entry.sizes.logical);
        folder->setPhysicalSize(entry.sizes.physical);
        return folder;
    }
    static void takeNodes(const TuvObjectArray* nodes, Entries* entries) {
        entries->clear();
        for (int i = 0; i < nodes->count(); ++i) {
            const TuvNode* node = nodes->nodeAtIndex(i);
            entries->push_back({node->inode(), std::string(node->fileName()), sizesOf(*node), node});
        }
    }
    // Also tells the twin which nodes came in.
    void expectChildren(const TuvObjectArray* nodes, Entries& expected) {
        ASSERT_EQ(static_cast<std::size_t>(nodes->count()), expected.size());
        for (int i = 0; i < nodes->count(); ++i) {
            const TuvNode* node = nodes->nodeAtIndex(i);
            Entry& entry = expected[static_cast<std::size_t>(i)];
            EXPECT_EQ(node->inode(), entry.inode) << "at " << i;
            EXPECT_EQ(node->fileName(), entry.name);
            EXPECT_EQ(sizesOf(*node), entry.sizes);
            EXPECT_EQ(node->parent(), _folder);
            EXPECT_EQ(node->retainCount(), 1);
            if (!entry.node) entry.node = node;
            EXPECT_EQ(node, entry.node) << "another node for " << entry.inode;
        }
    }

    std::mt19937 _random;
    std::uint32_t _nextInode = 1;
    TuvRef<TuvDirNode> _root = newFolder(1, "/root");
    TuvDirNode* _folder = nullptr;
    Twin _twin;
};

TEST(MergeTwin, FilesOfRandomListings) {
    ModelLogs logs(LogLevel::off);
    for (std::uint32_t seed = 0; seed < 300 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Pair pair(seed);
        pair.expectEqual();
        for (int round = 0; round < 12; ++round) {
            pair.mergeFiles();
            pair.expectEqual();
        }
    }
}

TEST(MergeTwin, FoldersOfRandomListings) {
    ModelLogs logs(LogLevel::off);
    for (std::uint32_t seed = 1000; seed < 1300 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Pair pair(seed);
        for (int round = 0; round < 12; ++round) {
            pair.mergeFolders();
            pair.expectEqual();
        }
    }
}

TEST(MergeTwin, FilesAndFoldersInTurns) {
    ModelLogs logs(LogLevel::off);
    for (std::uint32_t seed = 2000; seed < 2300 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Pair pair(seed);
        std::mt19937 random(seed);
        for (int round = 0; round < 12; ++round) {
            random() % 2 ? pair.mergeFiles() : pair.mergeFolders();
            pair.expectEqual();
        }
    }
}

// Of names of one file any takes what a fresh one says: their number stays, so does the sum when the sizes do.
TEST(MergeTwin, HardLinksWithinOneFolder) {
    ModelLogs logs(LogLevel::off);
    auto folder = newFolder(1, "/links");
    for (const char* name : {"a", "b", "c"}) addFile(folder.get(), newFile(7, name, 100, 4096));
    folder->setIsResolved(true);
    auto fresh = make<TuvObjectArray>();
    for (const char* name : {"a", "b", "c"}) fresh->adoptObject(newFile(7, name, 100, 4096).leak());
    EXPECT_TRUE(folder->mergeFiles(fresh.get()));
    EXPECT_EQ(idsOf(folder->files()), (std::vector<std::uint32_t>{7, 7, 7}));
    EXPECT_EQ(sizesOf(*folder), (Sizes{300, 12288}));
}

}  // namespace
}  // namespace kavaro
