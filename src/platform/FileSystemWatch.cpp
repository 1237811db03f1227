#include "platform/FileSystemWatch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/Environment.h"
#include "platform/FileContent.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

constexpr std::uint64_t kWanted =
    FAN_CREATE | FAN_DELETE | FAN_MODIFY | FAN_CLOSE_WRITE | FAN_ATTRIB | FAN_RENAME | FAN_ONDIR;
constexpr std::size_t kReadSize = 256 * 1024;
// What may wait in memory while the removal of a folder is looked for.
constexpr std::size_t kMostAhead = 64u << 20;
// Levels of removed folders above a change; more are not believed.
constexpr std::size_t kMostLevels = 20000;
constexpr std::size_t kHandleHead = offsetof(file_handle, f_handle);

template <class T>
T valueAt(std::string_view bytes, std::size_t at) {
    T value;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

std::string reasonOf(int code) {
    switch (code) {
        case EINVAL:
            return "Invalid argument (Linux 5.17 or newer is needed)";
        case ENOSYS:
            return "Function not implemented (the kernel was built without fanotify)";
        default:
            return errorText(code);
    }
}

// The highest folder above it on the same file system.
std::string topOf(std::string path, dev_t device) {
    while (path != "/") {
        std::string above = stringByDeletingLastPathComponent(path);
        struct stat info {};
        if (stat(above.c_str(), &info) != 0 || info.st_dev != device) break;
        path = std::move(above);
    }
    return path;
}

// The volume's own handle, as the bytes of a `struct file_handle`; empty when it has none.
std::string handleOf(int folder, const char* path, int flags) {
    alignas(file_handle) char space[kHandleHead + MAX_HANDLE_SZ] = {};
    auto* handle = static_cast<file_handle*>(static_cast<void*>(space));
    handle->handle_bytes = MAX_HANDLE_SZ;
    int mount = 0;
    if (name_to_handle_at(folder, path, handle, &mount, flags) != 0) return {};
    return {space, kHandleHead + handle->handle_bytes};
}

}  // namespace

// Views into one event's bytes; those that are not there have no data.
struct FileSystemWatch::Event {
    fanotify_event_metadata head{};
    std::string_view entry;  // handles
    std::string_view folder, oldFolder, newFolder;
    std::string_view name, oldName, newName;

    // `bytes` is a whole event, as long as its head says.
    static Event read(std::string_view bytes) {
        Event event;
        event.head = valueAt<fanotify_event_metadata>(bytes, 0);
        std::size_t at = event.head.metadata_len;
        while (at + sizeof(fanotify_event_info_header) <= bytes.size()) {
            const auto info = valueAt<fanotify_event_info_header>(bytes, at);
            if (info.len < sizeof info || info.len > bytes.size() - at) break;
            event.readInfo(info.info_type, bytes.substr(at, info.len));
            at += info.len;
        }
        return event;
    }

  private:
    void readInfo(int type, std::string_view info) {
        constexpr std::size_t kHandle = offsetof(fanotify_event_info_fid, handle);
        if (info.size() < kHandle + kHandleHead) return;
        const std::size_t length = kHandleHead + valueAt<std::uint32_t>(info, kHandle);
        if (length > info.size() - kHandle) return;
        const std::string_view handle = info.substr(kHandle, length);
        std::string_view text = info.substr(kHandle + length);
        text = text.substr(0, text.find('\0'));
        if (type == FAN_EVENT_INFO_TYPE_FID) {
            entry = handle;
        } else if (type == FAN_EVENT_INFO_TYPE_DFID_NAME) {
            folder = handle;
            name = text;
        } else if (type == FAN_EVENT_INFO_TYPE_OLD_DFID_NAME) {
            oldFolder = handle;
            oldName = text;
        } else if (type == FAN_EVENT_INFO_TYPE_NEW_DFID_NAME) {
            newFolder = handle;
            newName = text;
        }
    }
};

std::unique_ptr<FileSystemWatch> FileSystemWatch::open(const std::string& volume, const Options& options,
                                                       Problem* problem) {
    const auto fail = [&](int code, std::string text, bool isVolume) {
        *problem = {code, std::move(text), isVolume};
        return nullptr;
    };
    const FileDescriptor folder(::open(volume.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!folder.isOpen() || fstat(folder.get(), &info) != 0) {
        const int code = errno;
        return fail(code, volume + ": " + errorText(code), true);
    }
    const std::string path = pathOfDescriptor(folder.get());
    if (path.empty()) return fail(ENAMETOOLONG, volume + ": " + errorText(ENAMETOOLONG), true);
    std::unique_ptr<FileSystemWatch> watch(new FileSystemWatch(path, topOf(path, info.st_dev), info.st_dev, options));
    unsigned flags = FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK | FAN_REPORT_DFID_NAME_TARGET;
    if (options.unlimitedQueue) flags |= FAN_UNLIMITED_QUEUE;
    watch->_queue.reset(fanotify_init(flags, O_RDONLY | O_CLOEXEC | O_LARGEFILE));
    if (!watch->_queue.isOpen() ||
        fanotify_mark(watch->_queue.get(), FAN_MARK_ADD | FAN_MARK_FILESYSTEM, kWanted, folder.get(), nullptr) != 0) {
        const int code = errno;
        if (code == ENODEV || code == EOPNOTSUPP || code == EXDEV)
            return fail(code, volume + ": " + errorText(code) + " (this kind of file system does not tell its changes)",
                        true);
        return fail(code, reasonOf(code), false);
    }
    const std::string handle = handleOf(folder.get(), "", AT_EMPTY_PATH);
    watch->_form = formOfHandle(handle, info.st_ino);
    watch->_folders.setVolumeHandle(handleOf(AT_FDCWD, watch->_top.c_str(), 0));
    watch->_showsMark = watch->isMarked() == true;
    watch->_mounts.reset(::open("/proc/thread-self/mountinfo", O_RDONLY | O_CLOEXEC));
    return watch;
}

// Told from the handle and the inode number of one entry. Those that differ hold the number itself or, to be safe from
// taking a generation for it, nothing we know.
FileSystemWatch::HandleForm FileSystemWatch::formOfHandle(std::string_view handle, std::uint64_t inode) {
    for (const HandleForm form : {HandleForm::doubleWordAfterWord, HandleForm::doubleWord, HandleForm::word})
        if (inode != 0 && inodeOfHandle(handle, form) == inode) return form;
    return HandleForm::opaque;
}

std::uint64_t FileSystemWatch::inodeOfHandle(std::string_view handle, HandleForm form) {
    const std::size_t size = handle.size();
    switch (form) {
        case HandleForm::word:  // inode, generation
            return size == kHandleHead + 8 ? valueAt<std::uint32_t>(handle, kHandleHead) : 0;
        case HandleForm::doubleWord:  // inode, others
            return size >= kHandleHead + 12 ? valueAt<std::uint64_t>(handle, kHandleHead) : 0;
        case HandleForm::doubleWordAfterWord:  // generation, inode
            return size == kHandleHead + 12 ? valueAt<std::uint64_t>(handle, kHandleHead + 4) : 0;
        case HandleForm::opaque:
            break;
    }
    return 0;
}

FileSystemWatch::State FileSystemWatch::wait(double seconds) {
    _folders.closeVolume();
    pollfd questions[] = {{_queue.get(), POLLIN, 0}, {_mounts.get(), POLLPRI, 0}};
    if (_isUnmounted) seconds = 0;
    const int milliseconds = static_cast<int>(std::ceil(std::min(std::max(seconds, 0.0), 3600.0) * 1000));
    const bool isAnswered = poll(questions, 2, milliseconds) > 0;
    if (isAnswered && questions[1].revents != 0 && !_isUnmounted) lookAtMounts();
    if (isAnswered && questions[0].revents != 0) return State::changes;
    return _isUnmounted ? State::unmounted : State::quiet;
}

// The kernel drops the mark of a file system that is unmounted for good, even if it is mounted again at once.
std::optional<bool> FileSystemWatch::isMarked() const {
    constexpr std::size_t kMost = 1 << 20;
    std::string text;
    if (readFileAtPath("/proc/thread-self/fdinfo/" + std::to_string(_queue.get()), kMost, &text) != 0)
        return std::nullopt;
    return text.find("fanotify sdev:") != std::string::npos;
}

void FileSystemWatch::lookAtMounts() {
    struct stat info {};
    // A file system in memory gets the number of one that has just gone.
    _isUnmounted = stat(_top.c_str(), &info) != 0 || info.st_dev != _device || (_showsMark && isMarked() == false);
    if (!_isUnmounted) {
        _folders.forgetAll();
        return;
    }
    // It may still be mounted elsewhere. What is known of its folders says where the last changes were.
    fanotify_mark(_queue.get(), FAN_MARK_FLUSH | FAN_MARK_FILESYSTEM, 0, AT_FDCWD, nullptr);
    _folders.endVolume();
}

// False when there is nothing to read now, or too much waits already.
bool FileSystemWatch::readMore() {
    const std::size_t before = _buffer.size();
    if (before - _next > kMostAhead) return false;
    _buffer.reserve(before + kReadSize);
    ssize_t length = -1;
    do {
        length = read(_queue.get(), _buffer.data() + before, kReadSize);
    } while (length < 0 && errno == EINTR);
    if (length <= 0) return false;
    _buffer.extend(static_cast<std::size_t>(length));
    return true;
}

bool FileSystemWatch::takeEvent() {
    if (_next == _buffer.size()) {
        _buffer.clear();
        _removed.clear();
        _next = _indexed = 0;
        if (!readMore()) return false;
    }
    const std::string_view rest = textOf(_buffer.view()).substr(_next);
    const std::uint32_t length =
        rest.size() < sizeof(fanotify_event_metadata) ? 0 : valueAt<fanotify_event_metadata>(rest, 0).event_len;
    if (length < sizeof(fanotify_event_metadata) || length > rest.size()) {
        _next = _buffer.size();  // not from a kernel that we know
        return false;
    }
    _event.clear();
    _event.append(rest.data(), length);
    _next += length;
    return true;
}

bool FileSystemWatch::next(FileSystemChange* change) {
    while (takeEvent())
        if (tell(Event::read(textOf(_event.view())), change)) return true;
    return false;
}

bool FileSystemWatch::tell(const Event& event, FileSystemChange* change) {
    const std::uint64_t mask = event.head.mask;
    const bool isFolder = (mask & FAN_ONDIR) != 0;
    const bool isIgnored = _options.ignoredProcess != 0 && event.head.pid == _options.ignoredProcess;
    *change = {0, isFolder, false, event.head.pid, 0, std::move(change->path), std::move(change->destination)};
    change->destination.clear();
    if (mask & FAN_Q_OVERFLOW) {
        _folders.forgetAll();  // a folder may have been renamed
        change->path.clear();
        change->what = FileSystemChange::kLost;
        return true;
    }
    // Where folders are must be known whoever moved them.
    if (isIgnored && !isFolder) return false;
    if (mask & FAN_RENAME) return tellRename(event, change) && !isIgnored;
    if (!placeOf(event.folder, event.name, &change->path)) return false;
    if (mask & FAN_CREATE) change->what |= FileSystemChange::kCreated;
    if (mask & (FAN_MODIFY | FAN_CLOSE_WRITE)) change->what |= FileSystemChange::kModified;
    if (mask & FAN_ATTRIB) change->what |= FileSystemChange::kAttributes;
    if (mask & FAN_DELETE) change->what |= FileSystemChange::kDeleted;
    // A folder's own attributes come with the folder's handle alone.
    const std::string_view entry = event.entry.data() ? event.entry : event.folder;
    if (isFolder && (mask & (FAN_CREATE | FAN_DELETE))) _folders.remember(entry, change->path);
    if (isIgnored || change->what == 0) return false;
    constexpr std::uint32_t kBoth = FileSystemChange::kCreated | FileSystemChange::kDeleted;
    if ((change->what & kBoth) == kBoth) change->isThereAgain = handleOf(AT_FDCWD, change->path.c_str(), 0) == entry;
    change->inode = inodeOf(entry);
    return true;
}

// What comes out of the dark is new here, and what goes there is gone.
bool FileSystemWatch::tellRename(const Event& event, FileSystemChange* change) {
    const bool hasOld = placeOf(event.oldFolder, event.oldName, &change->path);
    const bool hasNew = placeOf(event.newFolder, event.newName, &change->destination);
    if (change->isFolder) {
        _folders.forgetAll();
        if (hasNew && event.entry.data()) _folders.remember(event.entry, change->destination);
    }
    if (!hasOld && !hasNew) return false;
    change->what = FileSystemChange::kRenamed;
    if (!hasNew) change->what = FileSystemChange::kDeleted;
    if (!hasOld) {
        change->what = FileSystemChange::kCreated;
        change->path = change->destination;
        change->destination.clear();
    }
    change->inode = inodeOf(event.entry);
    return true;
}

// The path of an entry of a folder, "." being the folder itself. False when nobody knows it.
bool FileSystemWatch::placeOf(std::string_view folder, std::string_view name, std::string* path) {
    const std::string* found = folder.data() && !name.empty() ? pathOfFolder(folder) : nullptr;
    if (!found) return false;
    path->assign(*found);
    if (name == ".") return true;
    if (path->back() != '/') *path += '/';
    path->append(name);
    return path->size() <= FolderPaths::kLongestPath;
}

const std::string* FileSystemWatch::pathOfFolder(std::string_view handle) {
    const bool isNew = !_folders.keptPathOf(handle);
    const std::string* path = _folders.pathOf(handle);
    return path || !isNew ? path : pathOfRemovedFolder(handle);
}

// A folder that is gone: its own removal is on its way to us, and says where it was. So it may be with those above it.
const std::string* FileSystemWatch::pathOfRemovedFolder(std::string_view handle) {
    std::vector<std::pair<std::string, std::string>> levels;  // handle and name, from the bottom up
    std::string at(handle);
    const std::string* above = nullptr;
    while (!above && levels.size() < kMostLevels) {
        const RemovedFolder* removed = removedFolder(at);
        if (!removed) return nullptr;
        levels.emplace_back(std::exchange(at, removed->parent), removed->name);
        above = _folders.pathOf(at);
    }
    if (!above) return nullptr;
    std::string path = *above;
    for (std::size_t i = levels.size(); i-- > 0;) {
        if (path.back() != '/') path += '/';
        path += levels[i].second;
        if (path.size() > FolderPaths::kLongestPath) return nullptr;
        above = _folders.remember(levels[i].first, path);
    }
    return above;
}

// Reads ahead until it is found or nothing more has come.
const FileSystemWatch::RemovedFolder* FileSystemWatch::removedFolder(const std::string& handle) {
    do {
        _indexed = std::max(_indexed, _next);
        const std::string_view bytes = textOf(_buffer.view());
        while (bytes.size() - _indexed >= sizeof(fanotify_event_metadata)) {
            const std::uint32_t length = valueAt<fanotify_event_metadata>(bytes, _indexed).event_len;
            if (length < sizeof(fanotify_event_metadata) || length > bytes.size() - _indexed) break;
            const Event event = Event::read(bytes.substr(_indexed, length));
            _indexed += length;
            if ((event.head.mask & FAN_ONDIR) && (event.head.mask & FAN_DELETE) && event.entry.data())
                _removed[std::string(event.entry)] = {std::string(event.folder), std::string(event.name)};
        }
        const auto found = _removed.find(handle);
        if (found != _removed.end()) return &found->second;
    } while (readMore());
    return nullptr;
}

std::uint64_t FileSystemWatch::inodeOf(std::string_view handle) {
    if (!handle.data()) return 0;
    if (_form != HandleForm::opaque) return inodeOfHandle(handle, _form);
    const FileDescriptor entry = _folders.openHandle(handle);
    struct stat info {};
    if (entry.isOpen() && fstat(entry.get(), &info) == 0) _inodes.remember(handle, info.st_ino);
    return _inodes.inodeOf(handle);
}

}  // namespace kavaro
