#include "platform/RemovalObstacle.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/EntryStatus.h"
#include "platform/Environment.h"
#include "platform/FolderOpener.h"
#include "platform/MountTable.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

constexpr std::size_t kMostFolders = 10'000;

// 0 when entries may be taken out of an open folder (O_PATH will do).
int mayEmpty(int folder) {
    return faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

struct Contents {
    int error = 0;
    bool isEmpty = true;
    std::vector<std::string> folders;
};

Contents contentsOf(int folder) {
    struct Close {
        void operator()(DIR* stream) const { closedir(stream); }
    };
    Contents contents;
    FileDescriptor own(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, Close> stream(own.isOpen() ? fdopendir(own.get()) : nullptr);
    if (!stream) {
        contents.error = errno;
        return contents;
    }
    own.release();
    while (const dirent* entry = readdir(stream.get())) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") continue;
        contents.isEmpty = false;
        if (entry->d_type == DT_DIR) contents.folders.emplace_back(name);
    }
    return contents;
}

// Of the folders at and below one: "NAME: REASON".
std::string obstacleWithin(const SafePlace& place) {
    const FolderOpener opener;
    std::vector<std::string> waiting{place.name};  // relative to the folder that holds it
    for (std::size_t looked = 0; !waiting.empty() && looked < kMostFolders; ++looked) {
        const std::string name = std::move(waiting.back());
        waiting.pop_back();
        const FileDescriptor folder(
            opener.open(place.folder.get(), name, O_PATH | O_DIRECTORY | O_NOFOLLOW, FolderOpener::Rule::noLinks));
        if (!folder.isOpen()) continue;
        Contents contents = contentsOf(folder.get());
        int error = contents.error;
        if (error == 0 && !contents.isEmpty) error = mayEmpty(folder.get());
        if (error != 0) return printable(name) + ": " + removalErrorText(error);
        for (const std::string& below : contents.folders) waiting.push_back(name + "/" + below);
    }
    return {};
}

}  // namespace

std::string removalObstacle(const std::string& path, RemovalKind kind, bool asThisUser) {
    SafePlace place;
    EntryStatus status;
    EntryStatus parent;
    int error = openSafePlace(path, &place);
    if (error == 0) error = readStatus(place.folder.get(), place.name.c_str(), &status);
    if (error == 0) error = readStatus(place.folder.get(), "", &parent);
    if (error == 0 && status.isFolder() && kind == RemovalKind::onlyNoFolder) error = EISDIR;
    if (error == 0 && status.isMountRoot) error = EBUSY;
    if (error == 0 && asThisUser) error = mayEmpty(place.folder.get());
    const bool isProtected = (parent.mode & S_ISVTX) != 0 && status.owner != geteuid() && parent.owner != geteuid();
    if (error == 0 && asThisUser && isProtected && geteuid() != 0) error = EPERM;
    if (error != 0) return removalErrorText(error);
    if (!status.isFolder()) return {};
    const FileDescriptor folder(openat(place.folder.get(), place.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    const std::optional<std::string> point = MountTable().firstBelow(pathOfDescriptor(folder.get()));
    if (point) return "another file system is mounted in it, at " + printable(*point);
    return asThisUser ? obstacleWithin(place) : std::string();
}

std::string rewriteObstacle(const std::string& path, std::uint64_t bytes) {
    std::string obstacle = removalObstacle(path, RemovalKind::onlyNoFolder, true);
    if (!obstacle.empty()) return obstacle;
    SafePlace place;
    if (const int error = openSafePlace(path, &place)) return removalErrorText(error);
    // Nobody gets this for permission bits, which keep nobody from replacing a file either.
    if (faccessat(place.folder.get(), place.name.c_str(), W_OK, AT_EACCESS) != 0 && errno == EPERM)
        return "an attribute of the file forbids every change (lsattr shows it)";
    struct statvfs volume {};
    if (fstatvfs(place.folder.get(), &volume) != 0) return {};
    const std::uint64_t blocks = geteuid() == 0 ? volume.f_bfree : volume.f_bavail;
    if (blocks * volume.f_frsize < bytes) return "no space is left for the new file beside it";
    return {};
}

}  // namespace kavaro
