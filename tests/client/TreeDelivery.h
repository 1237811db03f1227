#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "client/TreeAssembler.h"
#include "client/TreeTotals.h"
#include "client/commandline/FakeTree.h"
#include "model/FolderWalk.h"

namespace kavaro {

// A measured tree and the notifications that a server would post of it.
class TreeDelivery {
  public:
    explicit TreeDelivery(TuvRef<TuvDirNode> root) : _root(std::move(root)) {
        FolderWalk walk(_root.get());
        while (TuvDirNode* folder = walk.next()) _folders.push_back(folder);
        _order.assign(_folders.rbegin(), _folders.rend() - 1);
    }

    // A tree with names, sizes and node IDs by chance. Files bear the ID of their folder in their name.
    static TuvRef<TuvDirNode> randomTree(std::mt19937& random, int folders) {
        TuvRef<TuvDirNode> root = FakeTree::root("/random", 1);
        std::vector<TuvDirNode*> made = {root.get()};
        std::vector<std::uint32_t> inodes;
        for (int i = 0; i < folders; ++i) inodes.push_back(static_cast<std::uint32_t>(2 + 3 * i));
        std::shuffle(inodes.begin(), inodes.end(), random);
        for (std::uint32_t inode : inodes) {
            // Half of the time one of the last few: deep places.
            const std::size_t window = random() % 2 ? made.size() : std::min<std::size_t>(made.size(), 3);
            TuvDirNode* parent = made[made.size() - 1 - random() % window];
            made.push_back(FakeTree::addFolder(*parent, "d" + std::to_string(inode), inode));
        }
        for (TuvDirNode* folder : made) {
            for (std::uint32_t file = random() % 4; file > 0; --file)
                FakeTree::addFile(*folder, "f" + std::to_string(folder->inode()) + "." + std::to_string(file),
                                  0x40000000 + folder->inode() * 4 + file, random() % 100000, random() % 100 * 512);
        }
        FakeTree::resolve(*root);
        return root;
    }

    // From now on in another order that has every folder behind its subfolders.
    void shuffle(std::mt19937& random) {
        std::map<const TuvDirNode*, int> missing;
        std::vector<TuvDirNode*> ready;
        for (TuvDirNode* folder : _folders) {
            missing[folder] = folder->folderCount();
            if (folder->folderCount() == 0) ready.push_back(folder);
        }
        _order.clear();
        while (!ready.empty()) {
            std::swap(ready[random() % ready.size()], ready.back());
            TuvDirNode* folder = ready.back();
            ready.pop_back();
            if (folder != _root.get()) _order.push_back(folder);
            if (TuvDirNode* parent = folder->parent(); parent && --missing[parent] == 0) ready.push_back(parent);
        }
    }

    const TuvDirNode& root() const { return *_root; }
    // All folders but the root, subfolders before their folder.
    const std::vector<TuvDirNode*>& order() const { return _order; }

    // As it is before anything below it has been measured.
    ByteBuffer startedBytes() const { return startedRoot()->serialize(); }
    TuvRef<TuvDirNode> startedRoot() const {
        TuvRef<TuvDirNode> root = TuvDirNode::fromBytes(rootBytes().view());
        root->setIsResolved(false, true);
        for (TuvObject* object : *root->folders()) static_cast<TuvDirNode*>(object)->setIsResolved(false, true);
        return root;
    }
    ByteBuffer rootBytes() const { return _root->serialize(); }
    ByteBuffer batch(std::size_t begin, std::size_t end) const {
        auto array = make<TuvObjectArray>();
        for (std::size_t i = begin; i < end; ++i) array->addObject(_order[i]);
        return array->serialize();
    }

  private:
    TuvRef<TuvDirNode> _root;
    std::vector<TuvDirNode*> _folders;
    std::vector<TuvDirNode*> _order;
};

// All that a tree says, one line for each node, in no order of importance.
inline std::vector<std::string> linesOf(const TuvDirNode& root) {
    std::vector<std::string> lines;
    FolderWalk walk(&root);
    while (TuvDirNode* folder = walk.next()) {
        const std::string parent = folder->parent() ? std::to_string(folder->parent()->inode()) : "none";
        lines.push_back(parent + " > " + std::to_string(folder->inode()) + " " + std::string(folder->fileName()) + " " +
                        std::to_string(folder->logicalSize()) + " " + std::to_string(folder->physicalSize()) +
                        (folder->isResolved() ? " resolved" : ""));
        for (TuvObject* object : *folder->files()) {
            const auto* file = static_cast<TuvNode*>(object);
            lines.push_back(std::to_string(folder->inode()) + " > " + std::to_string(file->inode()) + " " +
                            std::string(file->fileName()) + " " + std::to_string(file->logicalSize()) + " " +
                            std::to_string(file->physicalSize()));
        }
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

// What a folder holds by itself.
inline EntryTotals heldBy(const TuvDirNode& folder) {
    EntryTotals sum;
    for (TuvObject* object : *folder.files()) sum += TreeTotals::ofFile(*static_cast<TuvNode*>(object));
    return sum;
}

// What the first folders of a delivery hold by themselves, and the root.
inline EntryTotals heldByFirst(const TreeDelivery& delivery, std::size_t count) {
    EntryTotals sum = heldBy(delivery.root());
    for (std::size_t i = 0; i < count; ++i) sum += heldBy(*delivery.order()[i]);
    return sum;
}

}  // namespace kavaro
