#include <algorithm>
#include <map>
#include <memory>
#include <random>

#include "ModelTest.h"

namespace kavaro {
namespace {

// A folder tree as simple as can be: recursive, by value, nothing kept but what the rules name.
struct Naive {
    std::uint32_t inode = 0;
    Naive* parent = nullptr;
    bool folder = false, resolved = false, loaded = false;
    std::uint64_t logical = 0, physical = 0;
    std::vector<std::unique_ptr<Naive>> files, folders;

    void setResolved(bool flag) {
        resolved = flag;
        logical = physical = 0;
        if (!flag) return;
        for (const auto* list : {&files, &folders})
            for (const auto& child : *list) {
                logical += child->logical;
                physical += child->physical;
            }
    }
    void setResolvedUp(bool flag) {
        setResolved(flag);
        if (parent) parent->setResolvedUp(flag);
    }
    bool canBeResolved() const {
        return resolved || (loaded && std::all_of(folders.begin(), folders.end(),
                                                  [](const auto& child) { return child->resolved; }));
    }
    bool remove(std::uint32_t id) {
        for (auto* list : {&files, &folders})
            for (auto child = list->begin(); child != list->end(); ++child)
                if ((*child)->inode == id) {
                    list->erase(child);
                    setResolvedUp(true);
                    return true;
                }
        return false;
    }
    void removeAll(std::vector<std::uint32_t>& ids) {
        if (ids.empty()) return;
        bool changed = false;
        for (auto* list : {&files, &folders})
            for (std::size_t i = 0; i < list->size();) {
                auto found = std::find(ids.begin(), ids.end(), (*list)[i]->inode);
                if (found == ids.end()) {
                    ++i;
                    continue;
                }
                ids.erase(found);
                list->erase(list->begin() + static_cast<std::ptrdiff_t>(i));
                changed = true;
            }
        if (changed) setResolvedUp(true);
        for (const auto& child : folders) child->removeAll(ids);
    }
    bool attach(const std::function<std::unique_ptr<Naive>()>& fresh, std::uint32_t id) {
        for (auto& child : folders)
            if (child->inode == id) {
                child = fresh();
                child->parent = this;
                return true;
            }
        return std::any_of(folders.begin(), folders.end(), [&](const auto& child) { return child->attach(fresh, id); });
    }
    int fileCount() const {
        int sum = static_cast<int>(files.size());
        for (const auto& child : folders) sum += child->fileCount();
        return sum;
    }
    int folderCount() const {
        int sum = static_cast<int>(folders.size());
        for (const auto& child : folders) sum += child->folderCount();
        return sum;
    }
};

class TreeTwins {
  public:
    explicit TreeTwins(unsigned seed) : _random(seed) {
        _root->setInode(1);
        _twin.inode = 1;
        _twin.folder = true;
        _next = 2;
    }

    void run(int steps) {
        for (int i = 0; i < steps && !testing::Test::HasFailure(); ++i) {
            step();
            compare(*_root, _twin);
            ASSERT_EQ(_root->recursiveFileCount(), _twin.fileCount());
            ASSERT_EQ(_root->recursiveFolderCount(), _twin.folderCount());
            ASSERT_EQ(TuvNode::instanceCount(), 1 + _twin.fileCount() + _twin.folderCount());
        }
    }

  private:
    unsigned upTo(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit)(_random); }

    // One folder, the same in both trees.
    std::pair<TuvDirNode*, Naive*> anyFolder() {
        std::pair<TuvDirNode*, Naive*> place{_root.get(), &_twin};
        while (!place.second->folders.empty() && upTo(3)) {
            const auto i = upTo(static_cast<unsigned>(place.second->folders.size()) - 1);
            place = {place.first->folders()->folderAtIndex(static_cast<int>(i)), place.second->folders[i].get()};
        }
        return place;
    }

    std::unique_ptr<Naive> newTwin(std::uint32_t inode, Naive* parent, bool folder, std::uint64_t logical) {
        auto twin = std::make_unique<Naive>();
        twin->inode = inode;
        twin->parent = parent;
        twin->folder = folder;
        twin->resolved = !folder;
        twin->logical = logical;
        twin->physical = logical * 3;
        return twin;
    }

    void addTo(TuvDirNode* folder, Naive* twin) {
        if (upTo(1)) {
            const std::uint64_t size = upTo(1000);
            addFile(folder, newFile(_next, "f", size, size * 3));
            twin->files.push_back(newTwin(_next, twin, false, size));
        } else {
            addFolder(folder, newFolder(_next));
            twin->folders.push_back(newTwin(_next, twin, true, 0));
        }
        ++_next;
    }

    void step() {
        auto [folder, twin] = anyFolder();
        switch (upTo(9)) {
            default:
                return addTo(folder, twin);
            case 0:
                folder->setHasLoadNodes();
                twin->loaded = true;
                return;
            case 1: {
                const bool flag = upTo(2);
                folder->setIsResolved(flag);
                return twin->setResolved(flag);
            }
            case 2: {
                const bool flag = upTo(2);
                folder->setIsResolved(flag, true);
                return twin->setResolvedUp(flag);
            }
            case 3: {
                const std::uint32_t id = anyID();
                ASSERT_EQ(folder->removeChildNode(newFile(id).get()), twin->remove(id));
                return;
            }
            case 4:
                return removeList(folder, twin);
            case 5:
                return attach();
        }
    }

    std::uint32_t anyID() { return 2 + upTo(_next); }

    void removeList(TuvDirNode* folder, Naive* twin) {
        std::vector<std::uint32_t> ids;
        auto list = make<TuvObjectArray>();
        for (unsigned i = upTo(3); i > 0; --i) {
            ids.push_back(anyID());
            list->adoptObject(newFile(ids.back()).leak());
        }
        ModelLogs logs;
        folder->removeChildNodes(list.get());
        twin->removeAll(ids);
    }

    void attach() {
        const std::uint32_t id = anyID();
        auto fresh = newFolder(id);
        addFile(fresh.get(), newFile(_next, "f", 5, 15));
        const auto freshTwin = [&] {
            auto twin = newTwin(id, nullptr, true, 0);
            twin->files.push_back(newTwin(_next, twin.get(), false, 5));
            return twin;
        };
        ASSERT_EQ(_root->attachChildNodeRecursively(fresh.get()), _twin.attach(freshTwin, id));
        ++_next;
    }

    void compare(const TuvDirNode& folder, const Naive& twin) {
        ASSERT_EQ(folder.inode(), twin.inode);
        ASSERT_EQ(folder.logicalSize(), twin.logical) << "inode " << twin.inode;
        ASSERT_EQ(folder.physicalSize(), twin.physical) << "inode " << twin.inode;
        ASSERT_EQ(folder.isResolved(), twin.resolved);
        ASSERT_EQ(folder.canBeResolved(), twin.canBeResolved());
        ASSERT_EQ(folder.fileCount(), static_cast<int>(twin.files.size()));
        ASSERT_EQ(folder.folderCount(), static_cast<int>(twin.folders.size()));
        for (std::size_t i = 0; i < twin.files.size(); ++i)
            ASSERT_EQ(folder.files()->nodeAtIndex(static_cast<int>(i))->inode(), twin.files[i]->inode);
        for (std::size_t i = 0; i < twin.folders.size(); ++i) {
            const TuvDirNode* child = folder.folders()->folderAtIndex(static_cast<int>(i));
            ASSERT_EQ(child->parent(), &folder);
            compare(*child, *twin.folders[i]);
        }
    }

    std::mt19937 _random;
    TuvRef<TuvDirNode> _root = make<TuvDirNode>();
    Naive _twin;
    std::uint32_t _next = 0;
};

TEST(TreeTwinTest, RandomChangesKeepTheSums) {
    for (unsigned seed = 0; seed < 40 && !HasFailure(); ++seed) TreeTwins(seed).run(400);
    EXPECT_EQ(TuvNode::instanceCount(), 0);
}

}  // namespace
}  // namespace kavaro
