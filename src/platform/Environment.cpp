#include "platform/Environment.h"

#include <pwd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace kavaro {

namespace {

constexpr int kColumnsOfUnsizedTerminal = 80;

std::string linkTarget(const char* path) {
    std::vector<char> buffer(256);
    while (true) {
        ssize_t length = readlink(path, buffer.data(), buffer.size());
        if (length < 0) return {};
        if (static_cast<std::size_t>(length) < buffer.size()) {
            return {buffer.data(), static_cast<std::size_t>(length)};
        }
        buffer.resize(buffer.size() * 2);
    }
}

// What is gone from its folder (a replaced program, a removed folder) is still known by where it was.
std::string pathOfLink(const char* link) {
    std::string path = linkTarget(link);
    constexpr std::string_view kDeleted = " (deleted)";
    if (path.size() > kDeleted.size() && path.ends_with(kDeleted) && access(path.c_str(), F_OK) != 0) {
        path.resize(path.size() - kDeleted.size());
    }
    return path;
}

std::string homeInUserDatabase() {
    std::vector<char> buffer(1024);
    passwd entry{};
    passwd* found = nullptr;
    while (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    return found && found->pw_dir ? found->pw_dir : "";
}

// Value in bytes of a line "Key:   123 kB" of the process's status file.
std::uint64_t memoryOfProcess(int pid, const char* key) {
    char path[64];
    if (pid == 0) {
        std::snprintf(path, sizeof path, "/proc/self/status");
    } else {
        std::snprintf(path, sizeof path, "/proc/%d/status", pid);
    }
    std::FILE* file = std::fopen(path, "re");
    if (!file) return 0;
    std::uint64_t bytes = 0;
    std::size_t keyLength = std::strlen(key);
    char line[256];
    while (std::fgets(line, sizeof line, file)) {
        if (std::strncmp(line, key, keyLength) != 0 || line[keyLength] != ':') continue;
        bytes = std::strtoull(line + keyLength + 1, nullptr, 10) * 1024;
        break;
    }
    std::fclose(file);
    return bytes;
}

}  // namespace

std::string executablePath() {
    return pathOfLink("/proc/self/exe");
}

std::string pathOfDescriptor(int fd) {
    if (fd < 0) return {};
    std::string path = pathOfLink(("/proc/self/fd/" + std::to_string(fd)).c_str());
    return path.starts_with('/') ? path : "";  // pipes and sockets have names without a place
}

std::string homeFolder() {
    std::string home = environmentVariable("HOME");
    return home.empty() ? homeInUserDatabase() : home;
}

std::string baseFolder(const char* variable, const char* belowHome) {
    std::string folder = environmentVariable(variable);
    if (folder.starts_with('/')) return folder;
    std::string home = homeFolder();
    return home.empty() ? "" : home + "/" + belowHome;
}

std::string stateFolder() {
    std::string base = baseFolder("XDG_STATE_HOME", ".local/state");
    return base.empty() ? "" : base + "/kavaro";
}

std::string cacheFolder() {
    std::string base = baseFolder("XDG_CACHE_HOME", ".cache");
    return base.empty() ? "" : base + "/kavaro";
}

std::string environmentVariable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool isTerminal(int fd) {
    return isatty(fd) == 1;
}

int terminalColumns(int fd) {
    if (!isTerminal(fd)) return 0;
    winsize size{};
    if (ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kColumnsOfUnsizedTerminal;
    return size.ws_col;
}

std::uint64_t peakMemoryOfProcess(int pid) {
    return memoryOfProcess(pid, "VmHWM");
}

std::uint64_t currentMemoryOfProcess(int pid) {
    return memoryOfProcess(pid, "VmRSS");
}

std::string errorText(int code) {
    // The plain text whatever the locale, and safe from any thread.
    const char* text = strerrordesc_np(code);
    return text ? text : "error " + std::to_string(code);
}

}  // namespace kavaro
