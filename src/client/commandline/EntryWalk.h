#pragma once

#include <functional>

#include "client/TreeTotals.h"
#include "model/TuvDirNode.h"

namespace kavaro {

enum class SortKey {
    size,   // largest first
    name,   // by code point
    date,   // newest first
    count,  // most files and folders first
};

// Which entries of a tree are shown, and in which order. The order decides which ones are the first `top`.
struct EntryView {
    int depth = 1;  // levels below the root
    int top = 0;    // entries of each folder, 0 for all
    SortKey sort = SortKey::size;
    bool apparent = false;  // size means the logical one
};

inline std::uint64_t shownSize(const EntryTotals& totals, const EntryView& view) {
    return view.apparent ? totals.logicalSize : totals.physicalSize;
}

// One entry on the way. Where a folder holds more than `top` entries, a last row without a node stands for the rest.
struct EntryRow {
    const TuvNode* node = nullptr;
    const TuvDirNode* folder = nullptr;  // the node, when it is a folder
    int level = 1;                       // 1 for entries of the root
    EntryTotals totals;
    std::uint64_t restCount = 0;  // entries that a row without a node stands for
};

// Calls `row` for the entries of `root`, each folder before what it holds. False from `row` ends the walk. Needs no
// stack for depth; holds one pointer for each entry of the folders it is in.
void walkEntries(const TuvDirNode& root, const TreeTotals& totals, const EntryView& view,
                 const std::function<bool(const EntryRow&)>& row);

}  // namespace kavaro
