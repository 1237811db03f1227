#include <array>
#include <string>
#include <string_view>

#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "platform/Text.h"
#include "support/Stopwatch.h"
#include "support/TuvLog.h"

namespace kavaro {

namespace {

// A folder's name and those of the two above it. Beyond the tree's root, whose name is its path, those in that path.
using Lineage = std::array<std::string, 3>;

Lineage lineageOf(const TuvDirNode* folder) {
    Lineage names;
    std::string path;
    for (std::string& name : names) {
        if (folder && folder->parent()) {
            name = folder->fileName();
            folder = folder->parent();
            continue;
        }
        if (folder) path = folder->filePath();
        folder = nullptr;
        name = lastPathComponent(path);
        path = stringByDeletingLastPathComponent(path);
    }
    return names;
}

bool holdsCandidates(const Lineage& names) {
    const auto& [parent, grandparent, greatGrandparent] = names;
    if (parent == "MacOS") return grandparent == "Contents" && pathExtension(greatGrandparent) == "app";
    return parent != ".svn" && parent != "CVS" && grandparent == "Versions" &&
           pathExtension(greatGrandparent) == "framework";
}

}  // namespace

TuvRef<TuvObjectArray> TuvDirNode::lipoFiles() const {
    const Stopwatch watch;
    TuvLog::info(tuvDirNodeLog, "lipoFiles", "%@", filePath());
    auto kept = make<TuvObjectArray>();
    // The files of one folder come one after another.
    const TuvDirNode* folder = nullptr;
    bool keeps = false;
    const TuvRef<TuvObjectArray> all = recursiveChildren();
    for (int i = 0; i < all->count(); ++i) {
        TuvNode* node = all->nodeAtIndex(i);
        if (node->nodeType() != kTypeFile || !node->parent()) continue;
        if (node->parent() != folder) {
            folder = node->parent();
            keeps = holdsCandidates(lineageOf(folder));
        }
        if (keeps && node->fileName() != "CodeResources") kept->addObject(node);
    }
    TuvLog::info(tuvDirNodeLog, "lipoFiles", "%d files, filtered files, in %9.3f ms", kept->count(),
                 watch.milliseconds());
    return kept;
}

}  // namespace kavaro
