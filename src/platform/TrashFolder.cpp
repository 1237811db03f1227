#include "platform/TrashFolder.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/EntryStatus.h"
#include "platform/Environment.h"
#include "platform/FileContent.h"

namespace kavaro {

namespace {

constexpr int kPlaceFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr std::uint64_t kNumbersInARow = 16;  // after which they are doubled: gaps do no harm
constexpr std::size_t kShortName = 100;       // bytes, for file systems that take less than others
constexpr std::uint64_t kMostNumbers = std::uint64_t{1} << 40;

std::unique_ptr<TrashFolder> none(int code, int* error) {
    *error = code;
    return nullptr;
}

// Opens a folder of this user's own, made when it is missing.
int openOwn(int parent, const char* name, FileDescriptor* folder) {
    if (mkdirat(parent, name, 0700) != 0 && errno != EEXIST) return errno;
    folder->reset(openat(parent, name, kPlaceFlags));
    if (!folder->isOpen()) return errno;
    EntryStatus status;
    if (const int error = readStatus(folder->get(), "", &status)) return error;
    return status.owner == geteuid() ? 0 : EPERM;
}

// The top of a volume; what may be mounted over it meanwhile is not taken for it.
int openTop(const Mount& mount, FileDescriptor* top) {
    if (const int error = openSafeFolder(mount.point, O_PATH, top)) return error;
    EntryStatus status;
    if (const int error = readStatus(top->get(), "", &status)) return error;
    return status.mount == mount.id ? 0 : EXDEV;
}

int renameWithoutReplacing(int from, const char* name, int to, const char* newName) {
    if (renameat2(from, name, to, newName, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // A file system that does not know the rule. The info file has taken the name, so nobody who keeps to the rules of
    // the Trash puts something there in between.
    EntryStatus status;
    const int error = readStatus(to, newName, &status);
    if (error != ENOENT) return error == 0 ? EEXIST : error;
    return renameat(from, name, to, newName) == 0 ? 0 : errno;
}

std::size_t cutBetweenCharacters(std::string_view text, std::size_t length) {
    if (length >= text.size()) return text.size();
    const auto isInside = [&](std::size_t at) { return (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80; };
    std::size_t cut = length;
    while (cut > 0 && length - cut < 3 && isInside(cut)) --cut;
    return isInside(cut) ? length : cut;
}

}  // namespace

std::unique_ptr<TrashFolder> TrashFolder::ofUser(int* error) {
    const std::string data = baseFolder("XDG_DATA_HOME", ".local/share");
    if (data.empty()) return none(ENOENT, error);
    // A home that is named but not there is not made: such users are meant to have none.
    const std::string home = homeFolder();
    struct stat info {};
    const bool isBelowHome = !home.empty() && data.starts_with(home + "/");
    if (isBelowHome && (stat(home.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))) return none(ENOENT, error);
    if (const int failure = makePrivateFolder(data)) return none(failure, error);
    const FileDescriptor parent(open(data.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!parent.isOpen()) return none(errno, error);
    return in(parent.get(), "Trash", {}, error);
}

std::unique_ptr<TrashFolder> TrashFolder::sharedOfVolume(const Mount& mount, int* error) {
    FileDescriptor top;
    if (const int failure = openTop(mount, &top)) return none(failure, error);
    const FileDescriptor common(openat(top.get(), ".Trash", kPlaceFlags));
    if (!common.isOpen()) return none(errno, error);
    EntryStatus status;
    if (const int failure = readStatus(common.get(), "", &status)) return none(failure, error);
    if ((status.mode & S_ISVTX) == 0) return none(EPERM, error);
    return in(common.get(), std::to_string(geteuid()), mount.point, error);
}

std::unique_ptr<TrashFolder> TrashFolder::ownOfVolume(const Mount& mount, int* error) {
    FileDescriptor top;
    if (const int failure = openTop(mount, &top)) return none(failure, error);
    return in(top.get(), ".Trash-" + std::to_string(geteuid()), mount.point, error);
}

std::unique_ptr<TrashFolder> TrashFolder::in(int parent, const std::string& name, std::string volume, int* error) {
    std::unique_ptr<TrashFolder> trash(new TrashFolder);
    FileDescriptor folder;
    int failure = openOwn(parent, name.c_str(), &folder);
    if (failure == 0) failure = openOwn(folder.get(), "files", &trash->_files);
    if (failure == 0) failure = openOwn(folder.get(), "info", &trash->_info);
    EntryStatus status;
    if (failure == 0) failure = readStatus(trash->_files.get(), "", &status);
    if (failure != 0) return none(failure, error);
    trash->_mount = status.mount;
    trash->_path = pathOfDescriptor(folder.get());
    trash->_volume = std::move(volume);
    return trash;
}

std::string TrashFolder::infoText(std::string_view place, std::string_view date) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string text = "[Trash Info]\nPath=";
    for (const char c : place) {
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                             std::string_view("/-._~").find(c) != std::string_view::npos;
        const auto byte = static_cast<unsigned char>(c);
        if (isPlain) {
            text += c;
        } else {
            text += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return text.append("\nDeletionDate=").append(date).append("\n");
}

std::string TrashFolder::numberedName(std::string_view name, std::uint64_t number, std::size_t longest) {
    const std::string middle = number > 1 ? "." + std::to_string(number) : std::string();
    const std::size_t dot = name.rfind('.');
    // As long an extension as anybody uses stays when a name is cut.
    const bool hasExtension = dot != std::string_view::npos && dot > 0 && name.size() - dot <= 16;
    const std::string_view extension = hasExtension ? name.substr(dot) : std::string_view();
    const std::string_view base = name.substr(0, name.size() - extension.size());
    const std::size_t room = longest - std::min(longest, middle.size() + extension.size());
    return std::string(base.substr(0, cutBetweenCharacters(base, room))).append(middle).append(extension);
}

std::string TrashFolder::placeText(std::string_view path) const {
    const std::string_view volume = _volume == "/" ? std::string_view() : std::string_view(_volume);
    if (_volume.empty() || path.size() <= volume.size() + 1) return std::string(path);
    if (!path.starts_with(volume) || path[volume.size()] != '/') return std::string(path);
    return std::string(path.substr(volume.size() + 1));
}

// EEXIST: the name is taken.
int TrashFolder::reserve(const std::string& name, const std::string& info) {
    const std::string file = name + std::string(kInfoEnding);
    const FileDescriptor fd(
        openat(_info.get(), file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd.isOpen()) return errno;
    const int error = writeWhole(fd.get(), info);
    if (error != 0) unlinkat(_info.get(), file.c_str(), 0);
    return error;
}

int TrashFolder::moveIn(const SafePlace& place, const std::string& name) {
    const int error = renameWithoutReplacing(place.folder.get(), place.name.c_str(), _files.get(), name.c_str());
    if (error != 0) unlinkat(_info.get(), (name + std::string(kInfoEnding)).c_str(), 0);
    return error;
}

int TrashFolder::take(const SafePlace& place, std::string_view path, std::string_view date) {
    const std::string info = infoText(placeText(path), date);
    const auto last = _lastNumbers.find(place.name);
    std::uint64_t number = last == _lastNumbers.end() ? 1 : last->second + 1;
    std::size_t longest = kLongestName;
    for (std::uint64_t tries = 1; number < kMostNumbers; ++tries) {
        const std::string name = numberedName(place.name, number, longest);
        int error = reserve(name, info);
        if (error == 0) error = moveIn(place, name);
        if (error == ENAMETOOLONG && longest > kShortName) {
            longest = kShortName;
            continue;
        }
        if (error == 0) {
            if (number > 1) _lastNumbers[place.name] = number;
            _lastName = name;
        }
        if (error != EEXIST) return error;
        number = tries < kNumbersInARow ? number + 1 : number * 2;
    }
    return EEXIST;
}

}  // namespace kavaro
