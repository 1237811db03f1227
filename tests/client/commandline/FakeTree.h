#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "model/TuvDirNode.h"

namespace kavaro {

// Builds measured trees by hand.
struct FakeTree {
    static constexpr std::int64_t kDate = 1709210096;  // 2024-02-29 12:34:56 UTC

    static TuvRef<TuvDirNode> root(std::string_view path, std::uint32_t inode = 2, std::int64_t date = kDate) {
        TuvRef<TuvDirNode> made = make<TuvDirNode>();
        fill(*made, path, inode, date);
        made->setHasLoadNodes();
        return made;
    }
    static TuvDirNode* addFolder(TuvDirNode& parent, std::string_view name, std::uint32_t inode,
                                 std::int64_t date = kDate) {
        TuvRef<TuvDirNode> made = root(name, inode, date);
        made->setParent(&parent);
        TuvDirNode* folder = made.get();
        parent.folders()->adoptObject(made.leak());
        return folder;
    }
    static TuvNode* addFile(TuvDirNode& parent, std::string_view name, std::uint32_t inode, std::uint64_t logicalSize,
                            std::uint64_t physicalSize, std::int64_t date = kDate) {
        TuvRef<TuvNode> made = make<TuvNode>();
        fill(*made, name, inode, date);
        made->setLogicalSize(logicalSize);
        made->setPhysicalSize(physicalSize);
        made->setParent(&parent);
        TuvNode* file = made.get();
        parent.files()->adoptObject(made.leak());
        return file;
    }
    // Gives all folders their sums, innermost first.
    static void resolve(TuvDirNode& root) {
        std::vector<TuvDirNode*> folders = {&root};
        for (std::size_t i = 0; i < folders.size(); ++i) {
            for (int k = 0; k < folders[i]->folderCount(); ++k) {
                folders.push_back(folders[i]->folders()->folderAtIndex(k));
            }
        }
        while (!folders.empty()) {
            folders.back()->setIsResolved(true);
            folders.pop_back();
        }
    }
    // A chain of folders named "d" below the root, the innermost holding one file of 10 and 4096 bytes.
    static TuvRef<TuvDirNode> chain(int levels) {
        TuvRef<TuvDirNode> made = root("/chain");
        TuvDirNode* inner = made.get();
        for (int i = 0; i < levels; ++i) inner = addFolder(*inner, "d", static_cast<std::uint32_t>(10 + i));
        addFile(*inner, "file", 3, 10, 4096);
        resolve(*made);
        return made;
    }

  private:
    static void fill(TuvNode& node, std::string_view name, std::uint32_t inode, std::int64_t date) {
        node.setFileName(name);
        node.setInode(inode);
        node.setContentModDate(static_cast<double>(date) - TuvNode::dateForJan1904());
    }
};

// "/data" with a few sizes: 5.5 MB and 1 KB and so on.
//   big/ (film 5 MB, deep/ (note 1 KB)), small/ (empty), list 300 KB, 写真 2 KB
inline TuvRef<TuvDirNode> smallTree() {
    TuvRef<TuvDirNode> made = FakeTree::root("/data");
    TuvDirNode* big = FakeTree::addFolder(*made, "big", 10, FakeTree::kDate + 60);
    FakeTree::addFile(*big, "film", 11, 5242000, 5242880);
    TuvDirNode* deep = FakeTree::addFolder(*big, "deep", 12);
    FakeTree::addFile(*deep, "note", 13, 1000, 1024, FakeTree::kDate - 60);
    FakeTree::addFolder(*made, "small", 14);
    FakeTree::addFile(*made, "list", 15, 307000, 307200);
    FakeTree::addFile(*made, "写真", 16, 1500, 2048, FakeTree::kDate + 120);
    FakeTree::resolve(*made);
    return made;
}

}  // namespace kavaro
