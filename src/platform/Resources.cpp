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

Folder& folder() {
    static Folder folder{{}, resourcesFolder(executablePath())};
    return folder;
}

}  // namespace

std::string resourcesFolder() {
    std::lock_guard lock(folder().mutex);
    return folder().path;
}

std::string resourcesFolder(const std::string& executablePath) {
    std::string base = executablePath;  // Kavaro.app/Contents/Linux/kavaro
    for (int i = 0; i < 3; ++i) base = stringByDeletingLastPathComponent(base);
    const std::string last = lastPathComponent(base);
    if (last == "Kavaro.app") return stringByAppendingPathComponent(base, "Resources");
    return last == "trunk" ? stringByAppendingPathComponent(base, "Applications/Kavaro") : "";
}

void setResourcesFolder(std::string path) {
    std::lock_guard lock(folder().mutex);
    folder().path = std::move(path);
}

}  // namespace kavaro
