#include "platform/Trash.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <cerrno>
#include <cmath>
#include <optional>
#include <string_view>

#include "platform/Clock.h"
#include "platform/EntryStatus.h"
#include "platform/Environment.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

std::string reasonOf(int error) {
    if (error == EXDEV) return "there is no Trash on its volume, and nothing is copied to another one";
    if (error == EINVAL) return "the Trash itself is in it";
    return removalErrorText(error);
}

Trash::Result refusal(int error, std::string reason) {
    Trash::Result result;
    result.error = error;
    result.reason = std::move(reason);
    return result;
}

bool isAtOrBelow(std::string_view path, std::string_view folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

// As it stands in an info file: without doubled slashes and ".".
std::string plainPath(std::string_view path) {
    std::string plain;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        const std::string_view name = path.substr(0, slash);
        if (!name.empty() && name != ".") plain.append("/").append(name);
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
    }
    return plain;
}

}  // namespace

Trash::Trash() : Trash([] { return Clock::system().wallSeconds(); }) {}

std::string Trash::dateText(double secondsSince1970) {
    const auto seconds = static_cast<time_t>(std::floor(secondsSince1970));
    struct tm parts {};
    char text[64];
    if (!localtime_r(&seconds, &parts)) return "1970-01-01T00:00:00";
    return {text, strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts)};
}

Trash::Slot& Trash::slot(Kind kind, const Mount* mount) {
    Slot& slot = _slots[{kind, kind != ofUser && mount ? mount->id : 0}];
    if (slot.isTried) return slot;
    slot.isTried = true;
    if (kind == ofUser) {
        slot.folder = TrashFolder::ofUser(&slot.error);
    } else if (!mount) {
        slot.error = ENOENT;
    } else if (kind == sharedOfVolume) {
        slot.folder = TrashFolder::sharedOfVolume(*mount, &slot.error);
    } else {
        slot.folder = TrashFolder::ownOfVolume(*mount, &slot.error);
    }
    return slot;
}

// What a rename would do all the same, or say in other words.
bool Trash::refuses(const SafePlace& place, const std::string& path, Result* result) {
    EntryStatus status;
    if (const int error = readStatus(place.folder.get(), place.name.c_str(), &status)) {
        *result = refusal(error, removalErrorText(error));
        return true;
    }
    if (status.isMountRoot) {
        *result = refusal(EBUSY, removalErrorText(EBUSY));
        return true;
    }
    if (!status.isFolder()) return false;
    const std::optional<std::string> point = _mounts.firstBelow(path);
    if (!point) return false;
    *result = refusal(EBUSY, "another file system is mounted in it, at " + *point);
    return true;
}

// True when that decides it: it is in the Trash, or another Trash would not do better.
bool Trash::tryTo(Slot& slot, const SafePlace& place, std::uint64_t mount, const std::string& path, Result* result) {
    if (!slot.folder) {
        *result = refusal(slot.error, reasonOf(EXDEV));
        return false;
    }
    TrashFolder& folder = *slot.folder;
    if (!folder.path().empty() && isAtOrBelow(path, folder.path())) {
        *result = refusal(EINVAL, "it is in the Trash already");
        return true;
    }
    const int error = folder.take(place, path, dateText(_now()));
    if (error == 0) {
        *result = Result();
        result->trashFolder = folder.path();
        result->name = folder.lastName();
        return true;
    }
    // An overlay gives no folder of a lower layer away, not even to itself.
    if (error == EXDEV && mount != 0 && folder.mount() == mount) {
        *result = refusal(error, "its file system could only copy it, and nothing is copied");
        return true;
    }
    *result = refusal(error, reasonOf(error));
    // A Trash that has no room, or may not be written, may be on another volume.
    return error != EXDEV && error != ENOSPC && error != EDQUOT && error != EROFS;
}

Trash::Result Trash::move(const std::string& path) {
    SafePlace place;
    if (const int error = openSafePlace(path, &place)) return refusal(error, removalErrorText(error));
    EntryStatus parent;
    if (const int error = readStatus(place.folder.get(), "", &parent)) return refusal(error, removalErrorText(error));
    // No link is on the way, so this is the path under which the kernel knows it.
    const std::string plain = plainPath(path);
    Result result;
    if (refuses(place, plain, &result)) return result;

    const Mount* found = _mounts.withID(parent.mount);
    const std::optional<Mount> mount = found ? std::optional(*found) : std::nullopt;
    const auto last = _lastKinds.find(parent.mount);
    if (last != _lastKinds.end() && (last->second == ofUser || mount)) {
        tryTo(slot(last->second, mount ? &*mount : nullptr), place, parent.mount, plain, &result);
        if (result.ok()) return result;
    }
    std::optional<Result> full;  // says more than that the next one is not there
    for (const Kind kind : {ofUser, sharedOfVolume, ownOfVolume}) {
        if (kind != ofUser && !mount) break;
        Slot& candidate = slot(kind, mount ? &*mount : nullptr);
        const bool isDecided = tryTo(candidate, place, parent.mount, plain, &result);
        if (result.ok()) _lastKinds[parent.mount] = kind;
        if (isDecided) return result;
        if (candidate.folder && result.error != EXDEV) full = result;
    }
    return full ? *full : result;
}

std::optional<TrashDetour> trashDetour(const std::string& folder) {
    int error = 0;
    if (TrashFolder::ofUser(&error)) return std::nullopt;
    const std::string data = baseFolder("XDG_DATA_HOME", ".local/share");
    struct stat info {};
    std::string above = data;  // the nearest that is there
    while (!above.empty() && stat(above.c_str(), &info) != 0) above = stringByDeletingLastPathComponent(above);
    FileDescriptor place;
    EntryStatus status;
    struct stat ofPlace {};
    if (above.empty() || openSafeFolder(folder, O_PATH, &place) != 0 || readStatus(place.get(), "", &status) != 0 ||
        fstat(place.get(), &ofPlace) != 0 || ofPlace.st_dev != info.st_dev)
        return std::nullopt;
    MountTable mounts;
    const Mount* mount = mounts.withID(status.mount);
    if (!mount) return std::nullopt;
    int ofVolume = 0;
    std::unique_ptr<TrashFolder> trash = TrashFolder::sharedOfVolume(*mount, &ofVolume);
    if (!trash) trash = TrashFolder::ownOfVolume(*mount, &ofVolume);
    if (!trash) return std::nullopt;
    return TrashDetour{data + "/Trash", errorText(error), trash->path()};
}

}  // namespace kavaro
