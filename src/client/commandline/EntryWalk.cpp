#include "client/commandline/EntryWalk.h"

#include <algorithm>
#include <vector>

#include "platform/Text.h"

namespace kavaro {

namespace {

const TuvDirNode* asFolder(const TuvNode* node) {
    return node->isDirectory() ? static_cast<const TuvDirNode*>(node) : nullptr;
}

// Puts entries in order. Entries that the key does not tell apart are ordered by name and ID, so that the same tree
// always looks the same.
class Before {
  public:
    Before(const TreeTotals& totals, const EntryView& view) : _totals(totals), _view(view) {}

    bool operator()(const TuvNode* a, const TuvNode* b) const {
        if (_view.sort == SortKey::date && a->contentModDate() != b->contentModDate()) {
            return a->contentModDate() > b->contentModDate();
        }
        if (_view.sort == SortKey::size || _view.sort == SortKey::count) {
            const std::uint64_t keyOfA = keyOf(a), keyOfB = keyOf(b);
            if (keyOfA != keyOfB) return keyOfA > keyOfB;
        }
        if (const int order = compare(a->fileName(), b->fileName())) return order < 0;
        return a->inode() < b->inode();
    }

  private:
    std::uint64_t keyOf(const TuvNode* node) const {
        const TuvDirNode* folder = asFolder(node);
        const bool bySize = _view.sort == SortKey::size;
        if (!folder) return !bySize ? 1 : _view.apparent ? node->logicalSize() : node->physicalSize();
        const EntryTotals& totals = _totals.of(*folder);
        return bySize ? shownSize(totals, _view) : totals.files + totals.folders;
    }

    const TreeTotals& _totals;
    const EntryView& _view;
};

struct Level {
    const TuvDirNode* folder;
    std::vector<const TuvNode*> entries;  // those to show
    std::size_t next = 0;
    EntryTotals rest;  // of the entries not shown yet
    std::uint64_t restCount = 0;
};

Level enter(const TuvDirNode& folder, const TreeTotals& totals, const EntryView& view) {
    Level level{&folder, {}, 0, totals.of(folder), 0};
    std::vector<const TuvNode*>& entries = level.entries;
    entries.reserve(static_cast<std::size_t>(folder.childrenCount()));
    for (int i = 0; i < folder.folderCount(); ++i) entries.push_back(folder.folders()->folderAtIndex(i));
    for (int i = 0; i < folder.fileCount(); ++i) entries.push_back(folder.files()->nodeAtIndex(i));
    std::size_t shown = entries.size();
    if (view.top > 0) shown = std::min(shown, static_cast<std::size_t>(view.top));
    const auto end = entries.begin() + static_cast<std::ptrdiff_t>(shown);
    std::partial_sort(entries.begin(), end, entries.end(), Before(totals, view));
    level.restCount = entries.size() - shown;
    entries.resize(shown);
    if (level.restCount > 0) entries.shrink_to_fit();
    return level;
}

}  // namespace

void walkEntries(const TuvDirNode& root, const TreeTotals& totals, const EntryView& view,
                 const std::function<bool(const EntryRow&)>& row) {
    if (view.depth < 1) return;
    std::vector<Level> levels;
    levels.push_back(enter(root, totals, view));
    while (!levels.empty()) {
        Level& level = levels.back();
        const int depth = static_cast<int>(levels.size());
        if (level.next == level.entries.size()) {
            if (level.restCount > 0 && !row({nullptr, nullptr, depth, level.rest, level.restCount})) return;
            levels.pop_back();
            continue;
        }
        const TuvNode* node = level.entries[level.next++];
        const TuvDirNode* folder = asFolder(node);
        const EntryTotals own = folder ? totals.of(*folder) : TreeTotals::ofFile(*node);
        level.rest -= own;
        if (folder) --level.rest.folders;
        if (!row({node, folder, depth, own, 0})) return;
        if (folder && depth < view.depth) levels.push_back(enter(*folder, totals, view));
    }
}

}  // namespace kavaro
