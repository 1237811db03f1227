#include "filters/TuvNodeFilter.h"
#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "platform/Text.h"
#include "support/Stopwatch.h"

namespace kavaro {

namespace {

constexpr const char* kSelector = "languages";

void closeGroup(TuvObjectArray& groups, TuvRef<TuvObjectArray> group, std::string_view name) {
    if (!group) return;
    TuvLog::info(tuvDirNodeLog, kSelector, "Got %d nodes for language %@", group->count(), name);
    groups.adoptObject(group.leak());
}

}  // namespace

TuvRef<TuvObjectArray> TuvDirNode::languages() const {
    const Stopwatch watch;
    const auto filter = TuvNodeFilter::filterFrom("Folder", nullptr, std::string_view(), "lproj");
    const TuvRef<TuvObjectArray> folders = recursiveChildren()->filterUsing(*filter, false);
    folders->sortByFunction(TuvNode_sortByNameInsensitive);

    auto groups = make<TuvObjectArray>();
    TuvRef<TuvObjectArray> group;
    std::string name;
    for (int i = 0; i < folders->count(); ++i) {
        TuvNode* folder = folders->nodeAtIndex(i);
        if (!folder->isDirectory()) continue;
        std::string next = folder->fileNameWithoutExtension();
        if (!group || caseInsensitiveCompare(next, name) != 0) {
            closeGroup(*groups, std::move(group), name);
            group = make<TuvObjectArray>();
            name = std::move(next);
        }
        group->addObject(folder);
    }
    closeGroup(*groups, std::move(group), name);
    TuvLog::info(tuvDirNodeLog, kSelector, "Got into %d raw lprojects in %9.3f ms", groups->count(),
                 watch.milliseconds());
    return groups;
}

}  // namespace kavaro
