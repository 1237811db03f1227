#include "platform/UserDefaults.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "platform/Environment.h"
#include "platform/FileContent.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

// Keeps other writers of the folder's preferences away while it lives. Where the file system has no locks, or the
// folder cannot be opened, there is none: the write itself says what is wrong.
class FolderLock {
  public:
    explicit FolderLock(const std::string& folder) : _fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (_fd < 0) return;
        while (flock(_fd, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    ~FolderLock() {
        if (_fd >= 0) close(_fd);
    }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

  private:
    int _fd;
};

// The file that a chain of links ends at; the path itself when it is no link or leads nowhere.
std::string targetOf(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    if (!resolved) return path;
    std::string target(resolved);
    std::free(resolved);
    return target;
}

// Size in the stamp of a file whose content could not be had: it is tried again at every look.
constexpr std::int64_t kUnread = -2;

bool isKey(const std::string& argument) {
    return argument.size() > 1 && argument[0] == '-' && argument[1] != '-';
}

bool isValue(const std::string& argument) {
    return argument.size() < 2 || argument[0] != '-' || (argument[1] >= '0' && argument[1] <= '9');
}

}  // namespace

UserDefaults& UserDefaults::standard() {
    // Never destroyed: threads may still look something up while the process ends.
    static auto* defaults = new UserDefaults;
    return *defaults;
}

std::string UserDefaults::pathOfDomain(std::string_view domain) {
    std::string folder = baseFolder("XDG_CONFIG_HOME", ".config");
    bool isName = !domain.empty() && domain.find('/') == std::string_view::npos && domain.find('\0') == domain.npos;
    if (folder.empty() || !isName) return {};
    return stringByAppendingPathComponent(folder, std::string(domain) + ".plist");
}

void UserDefaults::setArguments(const std::vector<std::string>& arguments) {
    PropertyList pairs;
    for (std::size_t index = 0; index + 1 < arguments.size(); index++) {
        if (!isKey(arguments[index]) || !isValue(arguments[index + 1])) continue;
        pairs.set(arguments[index].substr(1), arguments[index + 1]);
        index++;
    }
    std::lock_guard guard(_mutex);
    _arguments = std::move(pairs);
}

std::optional<PropertyList> UserDefaults::objectForKey(std::string_view key) {
    std::lock_guard guard(_mutex);
    return find(key);
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) {
    std::optional<PropertyList> value = objectForKey(key);
    if (!value) return std::nullopt;
    if (const std::string* text = value->string()) return *text;
    bool isNumber = value->as<bool>() || value->as<std::int64_t>() || value->as<double>();
    return isNumber ? std::optional(value->description()) : std::nullopt;
}

std::int64_t UserDefaults::integerForKey(std::string_view key) {
    std::optional<PropertyList> value = objectForKey(key);
    return value ? value->intValue() : 0;
}

bool UserDefaults::boolForKey(std::string_view key) {
    std::optional<PropertyList> value = objectForKey(key);
    return value && value->boolValue();
}

PropertyList UserDefaults::all() {
    std::lock_guard guard(_mutex);
    refresh();
    return _file;
}

std::string UserDefaults::problem() {
    std::lock_guard guard(_mutex);
    refresh();
    return _problem;
}

std::string UserDefaults::setObject(std::string_view key, PropertyList value) {
    std::lock_guard guard(_mutex);
    return write(key, std::move(value));
}

std::optional<PropertyList> UserDefaults::find(std::string_view key) {
    if (const PropertyList* argument = _arguments.get(key)) return *argument;
    refresh();
    const PropertyList* value = _file.get(key);
    return value ? std::optional(*value) : std::nullopt;
}

void UserDefaults::refresh() {
    if (_resolvesPath) {
        _path = pathOfDomain(kPreferencesDomain);
        _resolvesPath = false;
    }
    if (_path.empty()) return;
    struct stat info {};
    Stamp now;
    if (stat(_path.c_str(), &info) == 0) {
        now = {info.st_ctim.tv_sec, info.st_ctim.tv_nsec, info.st_size, info.st_ino};
    } else if (errno != ENOENT && errno != ENOTDIR) {
        now.size = kUnread;  // something is there, and reading will say what is wrong
    }
    if (now == _stamp && now.size != kUnread) return;
    _stamp = now;
    read();
}

// Puts the file's dictionary into _file, or an empty one and the reason into _problem. The stamp was taken before:
// a change in between is seen at the next look.
void UserDefaults::read() {
    _file = PropertyList::Dictionary();
    _problem.clear();
    if (_stamp.size == -1) return;
    // Not blocking: it might be a pipe.
    int fd = open(_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    int error = fd < 0 ? errno : 0;
    std::string content;
    if (fd >= 0) {
        error = readWholeFile(fd, &content);
        close(fd);
    }
    if (error == ENOENT) return;
    if (error != 0) {
        _stamp.size = kUnread;
        _problem = _path + ": " + errorText(error);
        return;
    }
    std::optional<PropertyList> root = PropertyList::fromBytes(bytesOf(content));
    if (!root) {
        _problem = _path + ": not a property list";
    } else if (!root->dictionary()) {
        _problem = _path + ": the root of the property list is not a dictionary";
    } else {
        _file = std::move(*root);
    }
}

std::string UserDefaults::write(std::string_view key, PropertyList value) {
    refresh();
    if (_path.empty()) return "preferences: there is no home folder, or no such domain";
    const std::string target = targetOf(_path);
    const std::string folder = stringByDeletingLastPathComponent(target);
    if (int error = makePrivateFolder(folder.empty() ? "." : folder)) return folder + ": " + errorText(error);
    FolderLock lock(folder.empty() ? "." : folder);
    refresh();
    if (!_problem.empty()) return _problem;

    PropertyList changed = _file;
    if (value.isNull()) {
        if (!changed.get(key)) return {};
        changed.remove(key);
    } else {
        changed.set(key, std::move(value));
    }
    std::string content = changed.toXML();
    if (content.empty()) return _path + ": the value is nested too deeply";
    // What cannot be read again would make all other settings unreadable, too.
    std::optional<PropertyList> readBack = PropertyList::fromBytes(bytesOf(content));
    if (!readBack || (readBack->get(key) != nullptr) != (changed.get(key) != nullptr)) {
        return _path + ": key or value cannot be written in a property list";
    }
    if (int error = replaceFile(target, content)) return _path + ": " + errorText(error);
    refresh();
    return {};
}

}  // namespace kavaro
