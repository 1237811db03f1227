#include "client/ServerLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Environment.h"

namespace kavaro {

namespace {

void makeFolders(const std::string& folder) {
    for (std::size_t slash = folder.find('/', 1);; slash = folder.find('/', slash + 1)) {
        ::mkdir(folder.substr(0, slash).c_str(), 0700);
        if (slash == std::string::npos) break;
    }
}

std::string pathOfOpenFile(int fd) {
    return "/proc/self/fd/" + std::to_string(fd);
}

}  // namespace

ServerLog::~ServerLog() {
    forget();
}

void ServerLog::forget() {
    if (_fd >= 0) ::close(_fd);
    if (_hasName && !_isKept) ::unlink(_path.c_str());
    _path.clear();
    _fd = -1;
    _hasName = _isKept = false;
}

std::string ServerLog::open() {
    if (_isKept) forget();
    if (_fd >= 0) return pathOfOpenFile(_fd);
    const std::string folder = stateFolder();
    if (folder.empty()) return {};
    makeFolders(folder);
    if (::access(folder.c_str(), W_OK) != 0) return {};
    const std::string number = ++_number > 1 ? "." + std::to_string(_number) : std::string();
    _path = folder + "/kavarod." + std::to_string(::getpid()) + number + ".log";
    if (_startsNameless) _fd = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (_fd < 0) {
        // The folder may be another user's: root with that user's home. What stands there is not written to.
        ::unlink(_path.c_str());
        _fd = ::open(_path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
        _hasName = _fd >= 0;
    }
    if (_fd >= 0) return pathOfOpenFile(_fd);
    _path.clear();
    return {};
}

std::string ServerLog::keep() {
    if (_path.empty()) return {};
    _isKept = true;
    if (_hasName) return _path;
    // One of a process that had our number before us goes.
    ::unlink(_path.c_str());
    _hasName = ::linkat(AT_FDCWD, pathOfOpenFile(_fd).c_str(), AT_FDCWD, _path.c_str(), AT_SYMLINK_FOLLOW) == 0;
    return _hasName ? _path : std::string();
}

}  // namespace kavaro
