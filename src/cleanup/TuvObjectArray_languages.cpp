#include <algorithm>
#include <array>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "format/TuvNodeFormatter.h"
#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "platform/TextCase.h"
#include "support/Stopwatch.h"

namespace kavaro {

namespace {

constexpr const char* kSelector = "coalesceLanguages";

std::string_view firstPath(const TuvObjectArray& group) {
    return group.nodeAtIndex(0)->filePath();
}

std::string displayName(const TuvObjectArray& group) {
    return TuvNodeFormatter::languageName(group.nodeAtIndex(0)).value_or(std::string());
}

// Whether an English folder lies beside a language folder; each place is looked at once.
class EnglishSiblings {
  public:
    bool has(const TuvNode& folder) {
        const TuvDirNode* place = folder.parent();
        if (!place) return false;
        const auto [known, isNew] = _places.try_emplace(place, false);
        if (isNew) known->second = place->folderWithFileName("English.lproj") || place->folderWithFileName("en.lproj");
        return known->second;
    }

  private:
    std::unordered_map<const TuvDirNode*, bool> _places;
};

void keepThoseBesideEnglish(TuvObjectArray& group, EnglishSiblings& siblings) {
    std::vector<int> without;
    for (int i = 0; i < group.count(); ++i) {
        const TuvNode* folder = group.nodeAtIndex(i);
        if (siblings.has(*folder)) {
            if (tuvObjectArrayLog.debugOn())
                TuvLog::debug(tuvObjectArrayLog, kSelector, "Has English, %@", folder->filePath());
        } else {
            if (tuvObjectArrayLog.errorOn())
                TuvLog::error(tuvObjectArrayLog, kSelector, "Has NO English, %@", folder->filePath());
            without.push_back(i);
        }
    }
    group.removeObjectsAtIndexes(without);
}

void keepGroupsBesideEnglish(TuvObjectArray& groups) {
    EnglishSiblings siblings;
    std::vector<int> emptied;
    for (int i = 0; i < groups.count(); ++i) {
        TuvObjectArray* group = groups.arrayAtIndex(i);
        if (tuvObjectArrayLog.debugOn()) {
            TuvLog::debug(tuvObjectArrayLog, kSelector, "%d items", group->count());
            TuvLog::debug(tuvObjectArrayLog, kSelector, "-----------------------------------------");
        }
        keepThoseBesideEnglish(*group, siblings);
        if (group->count() == 0) emptied.push_back(i);
    }
    groups.removeObjectsAtIndexes(emptied);
}

// One group for each name, in the order of the names; the groups that went into it leave the list.
TuvRef<TuvObjectArray> mergedByName(TuvObjectArray& groups, const std::vector<std::string>& names) {
    std::unordered_map<std::string, std::vector<int>> indexes;
    for (int i = 0; i < groups.count(); ++i) indexes[displayName(*groups.arrayAtIndex(i))].push_back(i);
    auto result = make<TuvObjectArray>();
    std::vector<bool> isMerged(static_cast<std::size_t>(groups.count()));
    for (const std::string& name : names) {
        auto merged = make<TuvObjectArray>();
        for (const int i : indexes[name]) {
            const TuvObjectArray* group = groups.arrayAtIndex(i);
            merged->addObjectsFromArray(group);
            if (tuvObjectArrayLog.infoOn())
                TuvLog::info(tuvObjectArrayLog, kSelector, "Added %d (%d) nodes to [%@] %@", group->count(),
                             merged->count(), name, firstPath(*group));
            isMerged[static_cast<std::size_t>(i)] = true;
        }
        if (merged->count() > 0)
            result->adoptObject(merged.leak());
        else
            TuvLog::error(tuvObjectArrayLog, kSelector, "ZERO count for %@ !!!", name);
    }
    std::vector<int> gone;
    for (std::size_t i = 0; i < isMerged.size(); ++i)
        if (isMerged[i]) gone.push_back(static_cast<int>(i));
    groups.removeObjectsAtIndexes(gone);
    return result;
}

void addLeftovers(TuvObjectArray& result, const TuvObjectArray& groups) {
    if (groups.count() == 0) return;
    TuvLog::error(tuvObjectArrayLog, kSelector, "We could not match %d lprojects", groups.count());
    for (int i = 0; i < groups.count(); ++i) {
        const TuvObjectArray* group = groups.arrayAtIndex(i);
        TuvLog::error(tuvObjectArrayLog, kSelector, "We could not match %d nodes for %@", group->count(),
                      firstPath(*group));
    }
    result.addObjectsFromArray(&groups);
}

// What no application can do without. In another locale than an English one, English has another name there.
void dropEnglishAndNonlocalized(TuvObjectArray& groups) {
    const std::array<std::string, 3> kept{"english", "nonlocalized",
                                          lowercaseString(TuvNodeFormatter::languageNameFromLproj("en"))};
    std::vector<int> dropped;
    for (int i = 0; i < groups.count(); ++i) {
        const TuvObjectArray* group = groups.arrayAtIndex(i);
        const std::string name = lowercaseString(displayName(*group));
        if (std::find(kept.begin(), kept.end(), name) == kept.end()) continue;
        TuvLog::error(tuvObjectArrayLog, kSelector, "Will skip %d items for %@ [%@]", group->count(), name,
                      firstPath(*group));
        dropped.push_back(i);
    }
    groups.removeObjectsAtIndexes(dropped);
}

}  // namespace

void TuvObjectArray::coalesceLanguages() {
    const Stopwatch watch;
    const int initial = count();
    const std::vector<std::string> names = TuvNodeFormatter::uniqueLanguageNames(this);
    keepGroupsBesideEnglish(*this);
    const TuvRef<TuvObjectArray> result = mergedByName(*this, names);
    addLeftovers(*result, *this);
    removeAllObjects();
    addObjectsFromArray(result.get());
    dropEnglishAndNonlocalized(*this);
    TuvLog::info(tuvObjectArrayLog, kSelector, "Coalesced %d into %d language folders in %9.3f ms", initial, count(),
                 watch.milliseconds());
}

}  // namespace kavaro
