#include "platform/Removal.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include "platform/EntryStatus.h"
#include "platform/Environment.h"
#include "platform/MountTable.h"

namespace kavaro {

namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr std::size_t kOpenLevels = 16;  // deeper trees are climbed by ".."
constexpr int kAttempts = 100;           // at emptying a folder that somebody else fills

// A folder on the way down.
struct Level {
    std::string name;  // in the folder above
    FileDescriptor folder;
    EntryStatus status;
    std::vector<std::string> subfolders;  // still to remove
    int attempts = 0;
};

// Removes one tree. Goes down by opening names of open folders, and up by the folder it came from: the one that is
// still open, or "..", which must then be the same folder as before. (By number: overlay file systems give a folder a
// new date of birth when something below it goes.)
class TreeRemoval {
  public:
    explicit TreeRemoval(const std::string& path) : _path(path) {}

    Removal run(const SafePlace& place);

  private:
    bool fail(int error, const std::string& name = {});
    bool refuseMounts(int folder);
    bool enter(int parent, std::string name, bool* isFolder);
    bool removeEntry(Level& level, const char* name, unsigned char type);
    bool clear(Level& level);
    bool climb(FileDescriptor* above);
    bool removeEmpty(const SafePlace& place);
    bool descend();
    void closeFarLevel();

    const std::string& _path;
    std::vector<Level> _levels;
    Removal _result;
};

bool TreeRemoval::fail(int error, const std::string& name) {
    _result.error = error;
    _result.path = _path;
    for (std::size_t i = 1; i < _levels.size(); ++i) _result.path.append("/").append(_levels[i].name);
    if (!name.empty()) _result.path.append("/").append(name);
    if (_result.reason.empty()) _result.reason = removalErrorText(error);
    return false;
}

// Before anything is touched. The walk itself enters no other mount either.
bool TreeRemoval::refuseMounts(int folder) {
    const std::string path = pathOfDescriptor(folder);
    if (path.empty()) return true;
    MountTable mounts;
    const std::optional<std::string> point = mounts.firstBelow(path);
    if (!point) return true;
    _result.reason = "another file system is mounted in it, at " + *point;
    return fail(EXDEV);
}

// Pushes the folder of a name. A name that is no folder (any more) sets *isFolder to false and is no failure.
bool TreeRemoval::enter(int parent, std::string name, bool* isFolder) {
    Level level;
    level.folder.reset(openat(parent, name.c_str(), kFolderFlags));
    *isFolder = level.folder.isOpen() || (errno != ELOOP && errno != ENOTDIR);
    if (!*isFolder) return true;
    if (!level.folder.isOpen()) return fail(errno, _levels.empty() ? std::string() : name);
    if (const int error = readStatus(level.folder.get(), "", &level.status)) return fail(error, name);
    const bool isOtherMount = !_levels.empty() && level.status.mount != _levels.front().status.mount;
    if (isOtherMount || level.status.isMountRoot) return fail(EBUSY, _levels.empty() ? std::string() : name);
    level.name = std::move(name);
    _levels.push_back(std::move(level));
    closeFarLevel();
    return true;
}

void TreeRemoval::closeFarLevel() {
    if (_levels.size() > kOpenLevels) _levels[_levels.size() - 1 - kOpenLevels].folder.reset();
}

// Folders are noted, everything else goes at once.
bool TreeRemoval::removeEntry(Level& level, const char* name, unsigned char type) {
    if (type != DT_DIR) {
        if (unlinkat(level.folder.get(), name, 0) == 0 || errno == ENOENT) return true;
        const int error = errno;
        EntryStatus status;
        // EPERM is what some file systems say of a folder.
        const bool mayBeFolder = error == EISDIR || error == EPERM;
        if (!mayBeFolder || readStatus(level.folder.get(), name, &status) != 0 || !status.isFolder())
            return fail(error, name);
    }
    level.subfolders.emplace_back(name);
    return true;
}

// Lists the folder until nothing but folders is left: some file systems skip entries while others are removed.
bool TreeRemoval::clear(Level& level) {
    struct Close {
        void operator()(DIR* stream) const { closedir(stream); }
    };
    FileDescriptor own(openat(level.folder.get(), ".", kFolderFlags));
    const std::unique_ptr<DIR, Close> stream(own.isOpen() ? fdopendir(own.get()) : nullptr);
    if (!stream) return fail(errno);
    own.release();
    for (bool removed = true; removed && level.attempts < kAttempts; ++level.attempts) {
        removed = false;
        level.subfolders.clear();
        rewinddir(stream.get());
        errno = 0;
        while (const dirent* entry = readdir(stream.get())) {
            const std::string_view name = entry->d_name;
            if (name == "." || name == "..") continue;
            const std::size_t folders = level.subfolders.size();
            if (!removeEntry(level, entry->d_name, entry->d_type)) return false;
            removed |= level.subfolders.size() == folders;
            errno = 0;
        }
        if (errno != 0) return fail(errno);
    }
    return true;
}

// The folder that holds the last level.
bool TreeRemoval::climb(FileDescriptor* above) {
    Level& parent = _levels[_levels.size() - 2];
    if (parent.folder.isOpen()) return true;
    above->reset(openat(_levels.back().folder.get(), "..", kFolderFlags));
    if (!above->isOpen()) return fail(errno);
    EntryStatus status;
    if (const int error = readStatus(above->get(), "", &status)) return fail(error);
    if (!status.isSameAs(parent.status)) return fail(ESTALE);
    parent.folder = std::move(*above);
    return true;
}

// Takes the last level, which is empty, out of the folder above it.
bool TreeRemoval::removeEmpty(const SafePlace& place) {
    Level& level = _levels.back();
    const bool isTop = _levels.size() == 1;
    FileDescriptor above;
    if (!isTop && !climb(&above)) return false;
    const int parent = isTop ? place.folder.get() : _levels[_levels.size() - 2].folder.get();
    if (unlinkat(parent, level.name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) {
        // Filled meanwhile: another round.
        const bool isFilled = errno == ENOTEMPTY || errno == EEXIST;
        if (isFilled && level.attempts < kAttempts) return clear(level);
        return fail(isFilled ? ENOTEMPTY : errno);
    }
    _levels.pop_back();
    return true;
}

// Into the next subfolder of the last level.
bool TreeRemoval::descend() {
    Level& level = _levels.back();
    std::string name = std::move(level.subfolders.back());
    level.subfolders.pop_back();
    bool isFolder = false;
    if (!enter(level.folder.get(), name, &isFolder)) {
        if (_result.error != ENOENT) return false;
        _result = Removal();  // somebody else removed it
        return true;
    }
    if (isFolder) return clear(_levels.back());
    // Swapped for something else: that goes as it is.
    if (unlinkat(level.folder.get(), name.c_str(), 0) == 0 || errno == ENOENT) return true;
    return fail(errno, name);
}

Removal TreeRemoval::run(const SafePlace& place) {
    bool isFolder = false;
    bool ok = enter(place.folder.get(), place.name, &isFolder);
    if (ok && !isFolder) fail(ENOTDIR);
    ok = ok && isFolder && refuseMounts(_levels.front().folder.get()) && clear(_levels.back());
    while (ok && !_levels.empty()) ok = _levels.back().subfolders.empty() ? removeEmpty(place) : descend();
    return std::move(_result);
}

Removal failure(int error, const std::string& path, std::string reason) {
    return {error, path, std::move(reason)};
}

}  // namespace

Removal removeItem(const std::string& path, RemovalKind kind) {
    SafePlace place;
    if (const int error = openSafePlace(path, &place)) return failure(error, path, removalErrorText(error));
    return removeItem(place, path, kind);
}

Removal removeItem(const SafePlace& place, const std::string& path, RemovalKind kind) {
    EntryStatus status;
    if (const int error = readStatus(place.folder.get(), place.name.c_str(), &status))
        return failure(error, path, removalErrorText(error));
    if (status.isFolder()) {
        if (kind == RemovalKind::onlyNoFolder) return failure(EISDIR, path, removalErrorText(EISDIR));
        return TreeRemoval(path).run(place);
    }
    if (unlinkat(place.folder.get(), place.name.c_str(), 0) == 0) return {};
    return failure(errno, path, removalErrorText(errno));
}

}  // namespace kavaro
