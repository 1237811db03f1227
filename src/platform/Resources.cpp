#include "platform/Resources.h"

#include <mutex>

#include "platform/Environment.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

struct Folder {
    std::mutex mutex;
    std::string path;
};

std::string folderOfProgram() {
    std::string app = executablePath();  // Kavaro.app/Contents/Linux/kavaro
    for (int i = 0; i < 3; ++i) app = stringByDeletingLastPathComponent(app);
    return lastPathComponent(app) == "Kavaro.app" ? stringByAppendingPathComponent(app, "Resources") : "";
}

Folder& folder() {
    static Folder folder{{}, folderOfProgram()};
    return folder;
}

}  // namespace

std::string resourcesFolder() {
    std::lock_guard lock(folder().mutex);
    return folder().path;
}

void setResourcesFolder(std::string path) {
    std::lock_guard lock(folder().mutex);
    folder().path = std::move(path);
}

}  // namespace kavaro
