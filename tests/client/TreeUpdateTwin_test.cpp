#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "client/TreeDelivery.h"
#include "client/TreeUpdate.h"

namespace kavaro {
namespace {

// What every node has, as plain values. `node` is null for one that came with a record.
struct Values {
    std::uint32_t inode = 0;
    std::string name;
    std::uint64_t logical = 0, physical = 0;
    double date = 0;
    const TuvNode* node = nullptr;

    static Values of(const TuvNode& node, bool remember) {
        return {node.inode(),        std::string(node.fileName()), node.logicalSize(),
                node.physicalSize(), node.contentModDate(),        remember ? &node : nullptr};
    }
};

struct Folder : Values {
    std::uint32_t parent = 0;
    bool isLoaded = false, isResolved = false;
    std::vector<Values> files;
    std::vector<std::uint32_t> folders;

    static Folder of(const TuvDirNode& node, bool remember) {
        Folder folder;
        static_cast<Values&>(folder) = Values::of(node, remember);
        folder.isLoaded = node.hasLoadNodes();
        folder.isResolved = node.isResolved();
        return folder;
    }
    bool isPlaceholder() const { return !isResolved && files.empty() && folders.empty(); }
};

// All folders of a tree by their IDs, and the rules in the plainest form.
class Twin {
  public:
    explicit Twin(const TuvDirNode& root) : _root(root.inode()) {
        for (FolderWalk walk(&root); const TuvDirNode* node = walk.next();) {
            Folder folder = Folder::of(*node, true);
            folder.parent = node->parent() ? node->parent()->inode() : 0;
            for (TuvObject* file : *node->files())
                folder.files.push_back(Values::of(*static_cast<TuvNode*>(file), true));
            for (TuvObject* sub : *node->folders()) folder.folders.push_back(sub->objectID());
            _folders[folder.inode] = folder;
        }
    }

    void apply(const TuvDirNode& record) {
        Folder& folder = _folders.at(record.inode());
        folder.date = record.contentModDate();
        folder.isLoaded = true;
        folder.files = filesAfter(folder.files, record);
        std::set<std::uint32_t> gone(folder.folders.begin(), folder.folders.end());
        std::vector<std::uint32_t> now;
        for (TuvObject* object : *record.folders()) {
            Folder fresh = Folder::of(*static_cast<TuvDirNode*>(object), false);
            fresh.parent = folder.inode;
            now.push_back(fresh.inode);
            if (gone.erase(fresh.inode) == 0) {
                _folders[fresh.inode] = fresh;
                continue;
            }
            Folder& own = _folders.at(fresh.inode);
            if (own.isPlaceholder() && !fresh.isPlaceholder()) {
                own = fresh;
            } else {
                own.name = fresh.name;
                own.date = fresh.date;
            }
        }
        for (const std::uint32_t inode : gone) forget(inode);
        folder.folders = now;
        for (std::uint32_t at = folder.inode; at != 0; at = _folders.at(at).parent) sum(_folders.at(at));
    }

    // Learns which nodes came in.
    void expectEqual(const TuvDirNode& root) {
        std::size_t seen = 0;
        for (FolderWalk walk(&root); TuvDirNode* node = walk.next(); ++seen) {
            ASSERT_TRUE(_folders.contains(node->inode()));
            Folder& folder = _folders.at(node->inode());
            expectValues(*node, folder);
            EXPECT_EQ(node->isResolved(), folder.isResolved) << node->inode();
            EXPECT_EQ(node->hasLoadNodes(), folder.isLoaded) << node->inode();
            EXPECT_EQ(node->parent() ? node->parent()->inode() : 0, folder.parent);
            ASSERT_EQ(static_cast<std::size_t>(node->fileCount()), folder.files.size());
            for (int i = 0; i < node->fileCount(); ++i) {
                expectValues(*node->files()->nodeAtIndex(i), folder.files[static_cast<std::size_t>(i)]);
                EXPECT_EQ(node->files()->nodeAtIndex(i)->parent(), node);
            }
            std::vector<std::uint32_t> subs;
            for (TuvObject* sub : *node->folders()) subs.push_back(sub->objectID());
            EXPECT_EQ(subs, folder.folders);
            EXPECT_EQ(node->filePath(), pathOf(folder));
        }
        EXPECT_EQ(seen, _folders.size());
    }

    std::vector<std::uint32_t> inodes() const {
        std::vector<std::uint32_t> inodes;
        for (const auto& [inode, folder] : _folders) inodes.push_back(inode);
        return inodes;
    }
    const Folder& at(std::uint32_t inode) const { return _folders.at(inode); }

  private:
    static std::vector<Values> filesAfter(std::vector<Values> own, const TuvDirNode& record) {
        std::vector<Values> now;
        for (TuvObject* file : *record.files()) now.push_back(Values::of(*static_cast<TuvNode*>(file), false));
        const auto take = [&](Values& fresh, bool byName) {
            auto best = own.end();
            for (auto old = own.begin(); old != own.end(); ++old) {
                if (old->inode != fresh.inode || (byName && old->name != fresh.name)) continue;
                if (best == own.end() || old->name < best->name) best = old;
            }
            if (best == own.end()) return;
            fresh.node = best->node;
            own.erase(best);
        };
        for (Values& fresh : now) take(fresh, true);
        // What is left of several names of one file, in the order of names.
        std::vector<Values*> left;
        for (Values& fresh : now)
            if (!fresh.node) left.push_back(&fresh);
        std::stable_sort(left.begin(), left.end(), [](Values* a, Values* b) { return a->name < b->name; });
        for (Values* fresh : left) take(*fresh, false);
        return now;
    }
    void forget(std::uint32_t inode) {
        for (const std::uint32_t below : _folders.at(inode).folders) forget(below);
        _folders.erase(inode);
    }
    void sum(Folder& folder) {
        folder.logical = folder.physical = 0;
        folder.isResolved = folder.isLoaded;
        const auto add = [&](const Values& child) {
            folder.logical += child.logical;
            folder.physical += child.physical;
        };
        for (const Values& file : folder.files) add(file);
        for (const std::uint32_t inode : folder.folders) {
            add(_folders.at(inode));
            if (!_folders.at(inode).isResolved) folder.isResolved = false;
        }
    }
    static void expectValues(const TuvNode& node, Values& values) {
        EXPECT_EQ(node.inode(), values.inode);
        EXPECT_EQ(node.fileName(), values.name);
        EXPECT_EQ(node.logicalSize(), values.logical) << values.inode;
        EXPECT_EQ(node.physicalSize(), values.physical) << values.inode;
        EXPECT_EQ(node.contentModDate(), values.date);
        EXPECT_EQ(node.retainCount(), 1);
        if (!values.node) values.node = &node;
        EXPECT_EQ(&node, values.node) << "another node for " << values.inode;
    }
    std::string pathOf(const Folder& folder) const {
        return folder.parent == 0 ? folder.name : pathOf(_folders.at(folder.parent)) + "/" + folder.name;
    }

    const std::uint32_t _root;
    std::map<std::uint32_t, Folder> _folders;
};

// Records by chance: of a folder as it might be now.
class Records {
  public:
    explicit Records(std::uint32_t seed) : _random(seed) {}

    TuvRef<TuvDirNode> next(const Twin& twin) {
        const std::vector<std::uint32_t> inodes = twin.inodes();
        const Folder& folder = twin.at(inodes[_random() % inodes.size()]);
        TuvRef<TuvDirNode> record = FakeTree::root("/path/of/it", folder.inode, date());
        const std::uint32_t mood = _random() % 8;  // 0: all went, 1: nothing came
        std::vector<std::pair<std::uint32_t, std::string>> files, folders;
        const auto stays = [&] { return mood != 0 && _random() % 5 != 0; };
        for (const Values& file : folder.files)
            if (stays()) files.emplace_back(file.inode, named(file.name));
        for (const std::uint32_t inode : folder.folders)
            if (stays()) folders.emplace_back(inode, named(twin.at(inode).name));
        for (std::uint32_t more = mood == 1 ? 0 : _random() % 4; more > 0; --more) files.emplace_back(id(), name());
        for (std::uint32_t more = mood == 1 ? 0 : _random() % 3; more > 0; --more) folders.emplace_back(id(), name());
        // Files and folders that became the other, and second names of files.
        const auto move = [&](auto& from, auto& to) {
            if (from.empty() || _random() % 8 != 0) return;
            const auto [inode, name] = from.back();
            std::erase_if(from, [inode = inode](const auto& entry) { return entry.first == inode; });
            to.emplace_back(inode, name);
        };
        move(folders, files);
        move(files, folders);
        if (!files.empty() && _random() % 2) files.emplace_back(files[_random() % files.size()].first, name());
        std::shuffle(files.begin(), files.end(), _random);
        std::shuffle(folders.begin(), folders.end(), _random);
        for (const auto& [inode, name] : files)
            FakeTree::addFile(*record, name, inode, _random() % 100000, _random() % 100 * 512, date());
        for (const auto& [inode, name] : folders) addHeader(*record, name, inode);
        return record;
    }

  private:
    void addHeader(TuvDirNode& record, const std::string& name, std::uint32_t inode) {
        TuvDirNode* header = FakeTree::addFolder(record, name, inode, date());
        header->setFlags(TuvNode::kFolder);
        if (_random() % 3 != 0) return;
        header->setFlags(TuvNode::kFolder | TuvNode::kResolved | TuvNode::kHasLoaded);
        header->setLogicalSize(_random() % 100000);
        header->setPhysicalSize(_random() % 100 * 512);
    }
    std::uint32_t id() { return _nextInode += 1 + _random() % 3; }
    std::string name() { return "n" + std::to_string(_random() % 1000); }
    std::string named(const std::string& before) { return _random() % 4 == 0 ? name() : before; }
    std::int64_t date() { return FakeTree::kDate + _random() % 100; }

    std::mt19937 _random;
    std::uint32_t _nextInode = 0x50000000;
};

TEST(TreeUpdateTwin, RandomRecordsIntoRandomTrees) {
    for (std::uint32_t seed = 0; seed < 150 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const TuvRef<TuvDirNode> root = TreeDelivery::randomTree(random, static_cast<int>(random() % 40));
        Twin twin(*root);
        Records records(seed + 1);
        twin.expectEqual(*root);
        for (int round = 0; round < 30 && !testing::Test::HasFailure(); ++round) {
            const TuvRef<TuvDirNode> record = records.next(twin);
            const ByteBuffer bytes = record->serialize();
            ASSERT_EQ(applyFolderRecord(*root, bytes.view()), TreeUpdate::applied);
            twin.apply(*record);
            twin.expectEqual(*root);
        }
    }
}

// A tree as it is left by a measurement that was broken off.
TEST(TreeUpdateTwin, RandomRecordsIntoUnfinishedTrees) {
    for (std::uint32_t seed = 0; seed < 60 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        TreeDelivery delivery(TreeDelivery::randomTree(random, 30));
        delivery.shuffle(random);
        TreeAssembler assembler;
        assembler.start(delivery.startedRoot());
        ASSERT_TRUE(assembler.resolved(delivery.batch(0, random() % delivery.order().size()).view()));
        const TuvRef<TuvDirNode> root = assembler.takeTree();
        Twin twin(*root);
        Records records(seed + 1);
        for (int round = 0; round < 30 && !testing::Test::HasFailure(); ++round) {
            const TuvRef<TuvDirNode> record = records.next(twin);
            const ByteBuffer bytes = record->serialize();
            ASSERT_EQ(applyFolderRecord(*root, bytes.view()), TreeUpdate::applied);
            twin.apply(*record);
            twin.expectEqual(*root);
        }
    }
}

}  // namespace
}  // namespace kavaro
