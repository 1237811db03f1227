#include "platform/FileRewrite.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <vector>

#include "platform/Environment.h"
#include "platform/ExtendedAttributes.h"

namespace kavaro {

namespace {

constexpr std::size_t kPieceSize = 1u << 20;
constexpr int kNameAttempts = 16;
constexpr std::uint32_t kPermissions = 07777;

// While it lives, a write beyond the process's limit of file sizes fails and sends this thread no signal.
class SizeLimitSignal {
  public:
    SizeLimitSignal() {
        sigemptyset(&_signal);
        sigaddset(&_signal, SIGXFSZ);
        sigset_t pending;
        sigpending(&pending);
        _wasPending = sigismember(&pending, SIGXFSZ) == 1;
        pthread_sigmask(SIG_BLOCK, &_signal, &_before);
    }
    SizeLimitSignal(const SizeLimitSignal&) = delete;
    SizeLimitSignal& operator=(const SizeLimitSignal&) = delete;
    ~SizeLimitSignal() {
        const timespec atOnce{};
        while (!_wasPending && sigtimedwait(&_signal, nullptr, &atOnce) < 0 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &_before, nullptr);
    }

  private:
    sigset_t _signal, _before;
    bool _wasPending = false;
};

// 0, or an errno value.
int writeAll(int fd, std::uint64_t offset, const void* bytes, std::size_t length) {
    SizeLimitSignal noSignal;
    const char* next = static_cast<const char*>(bytes);
    while (length > 0) {
        const ssize_t written = pwrite(fd, next, length, static_cast<off_t>(offset));
        if (written < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        next += written;
        offset += static_cast<std::uint64_t>(written);
        length -= static_cast<std::size_t>(written);
    }
    return 0;
}

bool isSameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

std::string randomName() {
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number) number = static_cast<std::uint64_t>(getpid());
    char name[64];
    std::snprintf(name, sizeof name, ".kavaro-rewrite-%016llx", static_cast<unsigned long long>(number));
    return name;
}

std::string placeOfDescriptor(int fd) {
    return "/proc/self/fd/" + std::to_string(fd);
}

}  // namespace

FileRewrite::~FileRewrite() {
    if (!_newName.empty()) unlinkat(_place.folder.get(), _newName.c_str(), 0);
}

bool FileRewrite::fail(std::string reason) {
    _reason = std::move(reason);
    return false;
}

bool FileRewrite::failWith(const char* what) {
    return fail(std::string(what) + ": " + errorText(errno));
}

bool FileRewrite::open(const std::string& path) {
    if (const int error = openSafePlace(path, &_place)) return fail(removalErrorText(error));
    // Looked at before it is opened: opening a device does things.
    if (fstatat(_place.folder.get(), _place.name.c_str(), &_status, AT_SYMLINK_NOFOLLOW) != 0)
        return fail(removalErrorText(errno));
    if (S_ISLNK(_status.st_mode)) return fail("it is a link, which is not followed");
    if (!S_ISREG(_status.st_mode)) return fail("it is no file");
    constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    _old.reset(openat(_place.folder.get(), _place.name.c_str(), kFlags));
    if (!_old.isOpen()) {
        if (errno == EWOULDBLOCK) return fail("another program has it open");
        return fail(removalErrorText(errno));
    }
    if (fstat(_old.get(), &_status) != 0 || !S_ISREG(_status.st_mode)) return fail("it is no file any more");
    if (_status.st_nlink > 1)
        return fail("it has " + std::to_string(_status.st_nlink) +
                    " names (hard links), and the others would keep the old content");
    return takeLease();
}

// The kernel gives a read lease only while nobody has the file open for writing, and holds up who wants that later. The
// signal that then comes is one that is ignored unless somebody catches it.
bool FileRewrite::takeLease() {
    if (fcntl(_old.get(), F_SETSIG, SIGURG) == 0 && fcntl(_old.get(), F_SETLEASE, F_RDLCK) == 0) return true;
    if (errno == EAGAIN) return fail("another program has it open for writing");
    return failWith("whether another program has it open for writing cannot be told");
}

bool FileRewrite::read(std::uint64_t offset, void* bytes, std::size_t length) {
    char* next = static_cast<char*>(bytes);
    while (length > 0) {
        const ssize_t got = pread(_old.get(), next, length, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return failWith("it cannot be read");
        if (got == 0) return fail("it is shorter than it was");
        next += got;
        offset += static_cast<std::uint64_t>(got);
        length -= static_cast<std::size_t>(got);
    }
    return true;
}

bool FileRewrite::create() {
    _new.reset(openat(_place.folder.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    return _new.isOpen() || createWithName();
}

bool FileRewrite::createWithName() {
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        const std::string name = randomName();
        constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        _new.reset(openat(_place.folder.get(), name.c_str(), kFlags, 0600));
        if (_new.isOpen()) {
            _newName = name;
            return true;
        }
        if (errno != EEXIST) break;
    }
    return failWith("no new file can be made beside it");
}

bool FileRewrite::write(std::uint64_t offset, const void* bytes, std::size_t length) {
    errno = writeAll(_new.get(), offset, bytes, length);
    _end = std::max(_end, offset + length);
    return errno == 0 || failWith("the new file cannot be written");
}

// Only what takes room on the disk: a file of terabytes may be next to nothing but holes.
bool FileRewrite::copy(std::uint64_t from, std::uint64_t to, std::uint64_t length) {
    _end = std::max(_end, to + length);
    while (length > 0) {
        const off_t data = lseek(_old.get(), static_cast<off_t>(from), SEEK_DATA);
        if (data < 0 && errno == ENXIO) return true;
        // Where the file system does not tell, all of it is data.
        const std::uint64_t begin = data < 0 ? from : static_cast<std::uint64_t>(data);
        if (begin - from >= length) return true;
        const off_t hole = data < 0 ? -1 : lseek(_old.get(), data, SEEK_HOLE);
        const std::uint64_t left = length - (begin - from);
        const std::uint64_t size = hole <= data ? left : std::min(left, static_cast<std::uint64_t>(hole) - begin);
        if (!copyData(begin, to + (begin - from), size)) return false;
        const std::uint64_t done = begin - from + size;
        from += done;
        to += done;
        length -= done;
    }
    return true;
}

bool FileRewrite::copyData(std::uint64_t from, std::uint64_t to, std::uint64_t length) {
    std::vector<char> piece(static_cast<std::size_t>(std::min<std::uint64_t>(length, kPieceSize)));
    while (length > 0) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(length, piece.size()));
        if (fcntl(_old.get(), F_GETLEASE) != F_RDLCK) return fail("another program opens it for writing");
        if (!read(from, piece.data(), size) || !write(to, piece.data(), size)) return false;
        from += size;
        to += size;
        length -= size;
    }
    return true;
}

// A hole at the end is not written.
bool FileRewrite::setLength() {
    SizeLimitSignal noSignal;
    struct stat now {};
    if (fstat(_new.get(), &now) == 0 && static_cast<std::uint64_t>(now.st_size) >= _end) return true;
    return ftruncate(_new.get(), static_cast<off_t>(_end)) == 0 || failWith("the new file cannot be written");
}

bool FileRewrite::commit() {
    if (!setLength() || !keepAttributes()) return false;
    if (fsync(_new.get()) != 0) return failWith("the new file cannot be written");
    return isUntouched() && takePlace();
}

bool FileRewrite::keepAttributes() {
    if (fchown(_new.get(), _status.st_uid, _status.st_gid) != 0) return failWith("its owner cannot be kept");
    if (fchmod(_new.get(), _status.st_mode & kPermissions) != 0) return failWith("its permissions cannot be kept");
    if (!keepExtendedAttributes()) return false;
    const timespec times[2] = {_status.st_atim, _status.st_mtim};
    if (futimens(_new.get(), times) != 0) return failWith("its times cannot be kept");
    // Some bits are dropped without a word.
    struct stat now {};
    if (fstat(_new.get(), &now) != 0 || now.st_mode != _status.st_mode || now.st_uid != _status.st_uid ||
        now.st_gid != _status.st_gid)
        return fail("its permissions cannot be kept");
    return true;
}

bool FileRewrite::keepExtendedAttributes() {
    const std::string fault = copyExtendedAttributes(_old.get(), _new.get());
    return fault.empty() || fail(fault);
}

bool FileRewrite::isUntouched() {
    struct stat now {};
    // Besides the times, which some file systems keep in steps of some milliseconds.
    if (fstat(_old.get(), &now) != 0 || now.st_size != _status.st_size || now.st_nlink != 1 ||
        now.st_mode != _status.st_mode || now.st_uid != _status.st_uid || now.st_gid != _status.st_gid ||
        !isSameTime(now.st_mtim, _status.st_mtim) || !isSameTime(now.st_ctim, _status.st_ctim))
        return fail("it was changed meanwhile");
    struct stat named {};
    if (fstatat(_place.folder.get(), _place.name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0 ||
        named.st_dev != now.st_dev || named.st_ino != now.st_ino)
        return fail("another file took its place meanwhile");
    if (fcntl(_old.get(), F_GETLEASE) != F_RDLCK) return fail("another program opens it for writing");
    return true;
}

bool FileRewrite::giveName() {
    const int folder = _place.folder.get();
    const std::string source = placeOfDescriptor(_new.get());
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        const std::string name = randomName();
        // The first way needs a privilege, the second one /proc.
        if (linkat(_new.get(), "", folder, name.c_str(), AT_EMPTY_PATH) == 0 ||
            (errno != EEXIST && linkat(AT_FDCWD, source.c_str(), folder, name.c_str(), AT_SYMLINK_FOLLOW) == 0)) {
            _newName = name;
            return true;
        }
        if (errno != EEXIST) break;
    }
    return failWith("the new file cannot be named");
}

bool FileRewrite::takePlace() {
    if (_newName.empty() && !giveName()) return false;
    const int folder = _place.folder.get();
    if (renameat(folder, _newName.c_str(), folder, _place.name.c_str()) != 0)
        return failWith("the new file cannot take its place");
    _newName.clear();
    // A folder that may be written and not read cannot be synced.
    const FileDescriptor readable(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (readable.isOpen() && fsync(readable.get()) != 0 && errno != EINVAL)
        return failWith("it was rewritten, but its folder cannot be written to the disk");
    return true;
}

}  // namespace kavaro
