#include <sys/stat.h>

#include <string>
#include <vector>

#include "model/ModelLog.h"
#include "model/TuvDirNode.h"
#include "platform/Environment.h"
#include "platform/FileContent.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

constexpr const char* kTrashName = ".Trash";

bool isFolder(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

// Sizes, counts of the past and flags stay: only the children go, however deep.
void TuvDirNode::unloadNodes() {
    std::vector<TuvDirNode*> waiting{this};
    std::vector<TuvRef<TuvDirNode>> visited;  // keeps subfolders alive until their own children are gone
    while (!waiting.empty()) {
        TuvDirNode* folder = waiting.back();
        waiting.pop_back();
        folder->takeFiles();
        TuvRef<TuvObjectArray> subfolders = folder->takeFolders();
        for (TuvObject* object : *subfolders) {
            auto* subfolder = static_cast<TuvDirNode*>(object);
            if (subfolder->childrenCount() == 0) continue;
            visited.push_back(TuvRef<TuvDirNode>::share(subfolder));
            waiting.push_back(subfolder);
        }
    }
}

void TuvDirNode::createDotTrashIfNeeded() {
    const std::string path(filePath());
    const std::string home = homeFolder();
    if (path.empty() || home.empty() || path != home) return;
    const std::string trash = stringByAppendingPathComponent(home, kTrashName);
    if (isFolder(trash)) {
        if (hasLoadNodes())
            TuvLog::error(tuvDirNodeLog, "createDotTrashIfNeeded",
                          "Trash folder %@ exists but we don't have a node !!!", trash);
        return;
    }
    // Failure is not reported. The permissions are those whatever the process's mask takes away.
    if (makePrivateFolder(trash) == 0) ::chmod(trash.c_str(), 0700);
}

TuvDirNode* TuvDirNode::trashFolder() const {
    return folderWithFileName(kTrashName);
}

}  // namespace kavaro
