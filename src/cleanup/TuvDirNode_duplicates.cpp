#include <algorithm>
#include <vector>

#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "support/Stopwatch.h"

namespace kavaro {

namespace {

constexpr int kGroupCapacity = 16;

// Whether the text, in small letters, ends with a suffix of small ASCII letters. The Kelvin sign is the one character
// beyond ASCII whose small letter is within.
bool endsInSmallLetters(std::string_view text, std::string_view suffix) {
    static constexpr std::string_view kKelvin = "\xe2\x84\xaa";
    while (!suffix.empty()) {
        if (text.empty()) return false;
        const char last = text.back();
        const char small = last >= 'A' && last <= 'Z' ? static_cast<char>(last - 'A' + 'a') : last;
        if (small == suffix.back())
            text.remove_suffix(1);
        else if (suffix.back() == 'k' && text.ends_with(kKelvin))
            text.remove_suffix(kKelvin.size());
        else
            return false;
        suffix.remove_suffix(1);
    }
    return true;
}

// Caches of a library, version control, what a build makes, programs that belong together: not the user's files.
bool isLeftOut(const TuvDirNode* folder) {
    const std::string_view name = folder->fileName();
    const TuvDirNode* parent = folder->parent();
    if (endsInSmallLetters(name, "caches") && parent && endsInSmallLetters(parent->fileName(), "library")) return true;
    static constexpr std::string_view kSuffixes[] = {".svn", "build", ".app", ".framework", "cvs"};
    return std::any_of(std::begin(kSuffixes), std::end(kSuffixes),
                       [&](std::string_view suffix) { return endsInSmallLetters(name, suffix); });
}

void addCandidates(const TuvDirNode* folder, TuvObjectArray* out) {
    for (TuvObject* object : *folder->files())
        if (!endsInSmallLetters(static_cast<TuvNode*>(object)->fileName(), ".ds_store")) out->addObject(object);
}

// A candidate with its size at hand: sorting follows no pointer.
struct Candidate {
    std::uint64_t size;
    TuvNode* node;
};

// In the order of TuvNode_sortByLogicalSize, which leaves equal ones where they are.
std::vector<Candidate> sortedBySize(const TuvObjectArray* nodes) {
    std::vector<Candidate> candidates;
    candidates.reserve(static_cast<std::size_t>(nodes->count()));
    for (int i = 0; i < nodes->count(); ++i) {
        TuvNode* node = nodes->nodeAtIndex(i);
        candidates.push_back({node->logicalSize(), node});
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate& a, const Candidate& b) { return a.size > b.size; });
    return candidates;
}

// Sizes are logged as 32-bit values.
int logged(std::uint64_t size) {
    return static_cast<int>(size);
}

// Groups of neighbours of one size other than 0.
void addGroups(const std::vector<Candidate>& candidates, TuvObjectArray* groups) {
    const char* const selector = "potentialyDuplicateFiles";
    const bool debugOn = tuvDirNodeLog.debugOn();
    std::uint64_t previous = 0;
    TuvNode* anchor = nullptr;
    TuvObjectArray* group = nullptr;
    for (const auto& [size, node] : candidates) {
        if (size != previous) {
            if (debugOn)
                TuvLog::debug(tuvDirNodeLog, selector, "size change %d --> %d, %09d, %@", logged(previous),
                              logged(size), node->inode(), node);
            anchor = node;
            group = nullptr;
        } else if (size != 0) {
            if (!group) {
                auto fresh = make<TuvObjectArray>(kGroupCapacity);
                fresh->addObject(anchor);
                group = fresh.get();
                groups->adoptObject(fresh.leak());
            }
            group->addObject(node);
            if (debugOn)
                TuvLog::debug(tuvDirNodeLog, selector, "potential duplicate %d, %d, %09d, %@", group->count(),
                              logged(size), node->inode(), node);
        }
        previous = size;
    }
}

// Drops groups of one and gives the number of members of the others.
int countMembers(TuvObjectArray* groups) {
    std::vector<int> small;
    int sum = 0;
    for (int i = 0; i < groups->count(); ++i) {
        const int count = groups->arrayAtIndex(i)->count();
        if (count <= 1)
            small.push_back(i);
        else
            sum += count;
    }
    groups->removeObjectsAtIndexes(small);
    return sum;
}

}  // namespace

void TuvDirNode::potentialyDuplicateChildren(TuvObjectArray* out, signed char recursive) const {
    struct Level {
        const TuvObjectArray* folders;
        int next;
    };
    addCandidates(this, out);
    if (!recursive) return;
    std::vector<Level> levels = {{folders(), 0}};
    while (!levels.empty()) {
        Level& level = levels.back();
        const TuvDirNode* folder = level.folders->folderAtIndex(level.next);
        if (!folder) {
            levels.pop_back();
            continue;
        }
        ++level.next;
        if (isLeftOut(folder)) continue;
        addCandidates(folder, out);
        levels.push_back({folder->folders(), 0});
    }
}

TuvRef<TuvObjectArray> TuvDirNode::potentialyDuplicateChildren() const {
    auto candidates = make<TuvObjectArray>();
    potentialyDuplicateChildren(candidates.get(), 1);
    return candidates;
}

TuvRef<TuvObjectArray> TuvDirNode::potentialyDuplicateFiles() const {
    const char* const selector = "potentialyDuplicateFiles";
    const Stopwatch watch;
    if (tuvDirNodeLog.debugOn()) TuvLog::debug(tuvDirNodeLog, selector, "-----------------------------------------");
    TuvRef<TuvObjectArray> candidates = potentialyDuplicateChildren();
    const int count = candidates->count();
    auto groups = make<TuvObjectArray>(count / 16);
    addGroups(sortedBySize(candidates.get()), groups.get());
    candidates = nullptr;
    const int members = countMembers(groups.get());
    TuvLog::info(tuvDirNodeLog, selector, "Found %d groups with %d duplicate files from %d files in %9.3f ms",
                 groups->count(), members, count, watch.milliseconds());
    return groups;
}

void debugDuplicates(const TuvObjectArray* group, const char* selector) {
    const TuvNode* first = group->nodeAtIndex(0);
    TuvLog::info(tuvDirNodeLog, selector, "%06d bytes, %d duplicates", first ? first->logicalSize() : 0,
                 group->count());
    for (int i = 0; i < group->count(); ++i) {
        const TuvNode* node = group->nodeAtIndex(i);
        TuvLog::info(tuvDirNodeLog, selector, "%06d, %d, %@", node->logicalSize(), node->inode(), node);
    }
    TuvLog::info(tuvDirNodeLog, selector, "");
}

}  // namespace kavaro
