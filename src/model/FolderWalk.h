#pragma once

#include <vector>

#include "model/TuvDirNode.h"

namespace kavaro {

// All folders of a tree, each before its subfolders, the subtree of the first subfolder before the second subfolder.
// Needs memory for the depth, no stack. A folder's list of subfolders is read when the walk goes on behind the folder:
// its visitor may change it.
class FolderWalk {
  public:
    explicit FolderWalk(const TuvDirNode* root) : _next(root) {}

    // Null at the end.
    TuvDirNode* next() {
        if (_next) {
            auto* folder = const_cast<TuvDirNode*>(_next);
            _next = nullptr;
            _levels.push_back({folder->folders(), 0});
            return folder;
        }
        while (!_levels.empty()) {
            Level& level = _levels.back();
            if (TuvDirNode* folder = level.folders->folderAtIndex(level.index)) {
                ++level.index;
                _levels.push_back({folder->folders(), 0});
                return folder;
            }
            _levels.pop_back();
        }
        return nullptr;
    }

  private:
    struct Level {
        const TuvObjectArray* folders;
        int index;
    };
    const TuvDirNode* _next;
    std::vector<Level> _levels;
};

}  // namespace kavaro
