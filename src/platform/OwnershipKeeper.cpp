#include "platform/OwnershipKeeper.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace kavaro {

namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;

// File times come from this clock, which is some milliseconds behind the other one.
std::int64_t clockOfFileTimes() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now.tv_sec * kNanoseconds + now.tv_nsec;
}

}  // namespace

int OwnershipKeeper::look(int folder, const char* name, Look* look) {
    constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_EMPTY_PATH;
    struct statx record {};
    if (statx(folder, name, kFlags, STATX_BASIC_STATS | STATX_BTIME, &record) != 0) return errno;
    look->ownership = {record.stx_uid, record.stx_gid, record.stx_mode & 07777u};
    look->mode = record.stx_mode;
    look->links = record.stx_nlink;
    look->deviceMajor = record.stx_dev_major;
    look->deviceMinor = record.stx_dev_minor;
    look->inode = record.stx_ino;
    look->birth = (record.stx_mask & STATX_BTIME) == 0
                      ? 0
                      : record.stx_btime.tv_sec * kNanoseconds + static_cast<std::int64_t>(record.stx_btime.tv_nsec);
    return 0;
}

OwnershipKeeper::OwnershipKeeper(const std::string& path) : _start(clockOfFileTimes()) {
    _error = openSafePlace(path, &_place);
    if (_error == 0) _error = look(_place.folder.get(), _place.name.c_str(), &_before);
}

std::optional<OwnershipKeeper::Ownership> OwnershipKeeper::before() const {
    return _error == 0 ? std::optional(_before.ownership) : std::nullopt;
}

std::optional<OwnershipKeeper::Ownership> OwnershipKeeper::now() const {
    Look now;
    if (!_place.folder.isOpen() || look(_place.folder.get(), _place.name.c_str(), &now) != 0) return std::nullopt;
    return now.ownership;
}

bool OwnershipKeeper::mayHave(const Look& now) const {
    const bool isSame = now.deviceMajor == _before.deviceMajor && now.deviceMinor == _before.deviceMinor &&
                        now.inode == _before.inode && now.birth == _before.birth;
    const bool isOurs = now.ownership.owner == geteuid() && now.birth >= _start;
    const bool isHarmless =
        S_ISREG(_before.mode) && _before.links == 1 && (_before.ownership.permissions & (S_ISUID | S_ISGID)) == 0;
    return isSame || (isOurs && isHarmless);
}

int OwnershipKeeper::giveBack() const {
    if (_error != 0) return _error;
    // What is looked at is what is changed.
    const FileDescriptor entry(openat(_place.folder.get(), _place.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!entry.isOpen()) return errno;
    Look now;
    if (const int error = look(entry.get(), "", &now)) return error;
    if (!S_ISREG(now.mode)) return S_ISLNK(now.mode) ? ELOOP : EINVAL;
    if (now.links != 1) return EMLINK;
    if (!mayHave(now)) return EPERM;
    const auto [owner, group, permissions] = _before.ownership;
    // Before the mode: a change of owner drops the set-ID bits.
    if ((now.ownership.owner != owner || now.ownership.group != group) &&
        fchownat(entry.get(), "", owner, group, AT_EMPTY_PATH) != 0)
        return errno;
    const std::string way = "/proc/self/fd/" + std::to_string(entry.get());
    return chmod(way.c_str(), permissions) == 0 ? 0 : errno;
}

}  // namespace kavaro
