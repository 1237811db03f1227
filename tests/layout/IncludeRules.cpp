#include "layout/IncludeRules.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

namespace kavaro::layout {
namespace {

using Rooms = std::set<std::string, std::less<>>;

// Who may include whom, itself excepted; every reach is written out.
const std::map<std::string, Rooms, std::less<>>& edges() {
    static const std::map<std::string, Rooms, std::less<>> table = [] {
        const Rooms upToScan = {"platform", "support", "model", "scan"};
        Rooms upToFactory = upToScan;
        upToFactory.insert({"fsevents", "cleanup", "filters", "format"});
        // Languages are told apart by the names that format gives them, their folders found by a filter.
        Rooms upToFormat = upToScan;
        upToFormat.insert({"filters", "format"});
        Rooms upToServer = upToFactory;
        upToServer.insert("factory");
        return std::map<std::string, Rooms, std::less<>>{
            {"platform", {}},
            {"support", {"platform"}},
            {"model", {"platform", "support"}},
            {"scan", {"platform", "support", "model"}},
            {"fsevents", upToScan},
            {"cleanup", upToFormat},
            {"filters", upToScan},
            {"format", upToScan},
            {"factory", upToFactory},
            {"server", upToServer},
            {"client", {"platform", "support", "model", "filters", "format", "cleanup"}},
            {"client/commandline",
             {"platform", "support", "model", "fsevents", "filters", "format", "cleanup", "client", "factory"}},
        };
    }();
    return table;
}

// Headers with ".h" that C, POSIX and the C library give everybody.
bool isLibc(std::string_view name) {
    static const std::set<std::string_view> names = {
        "assert.h",   "ctype.h",      "cxxabi.h",      "dirent.h",    "dlfcn.h",     "endian.h",    "errno.h",
        "execinfo.h", "fcntl.h",      "fnmatch.h",     "getopt.h",    "grp.h",       "inttypes.h",  "langinfo.h",
        "libintl.h",  "limits.h",     "locale.h",      "math.h",      "poll.h",      "pthread.h",   "pwd.h",
        "sched.h",    "signal.h",     "spawn.h",       "stddef.h",    "stdint.h",    "stdio.h",     "stdlib.h",
        "string.h",   "strings.h",    "sys/file.h",    "sys/ioctl.h", "sys/mman.h",  "sys/param.h", "sys/resource.h",
        "sys/stat.h", "sys/socket.h", "sys/statvfs.h", "sys/time.h",  "sys/times.h", "sys/types.h", "sys/uio.h",
        "sys/un.h",   "sys/wait.h",   "sys/utsname.h", "termios.h",   "time.h",      "unistd.h",    "utime.h"};
    return names.contains(name);
}

// The libraries that rooms other than platform may use.
struct Library {
    std::string_view prefix;
    std::array<std::string_view, 2> rooms;
};
constexpr Library libraries[] = {
    {"fmt/", {"platform", "support"}},
    {"spdlog/", {"platform", "support"}},
    {"CLI/", {"client/commandline", ""}},
    {"rapidjson/", {"client/commandline", ""}},
};

// A copy of `text` with comments blanked; lines stay where they are. String literals stay: include names are such.
std::string withoutComments(std::string_view text) {
    enum { code, lineComment, blockComment, literal, character } state = code;
    std::string result(text);
    for (size_t i = 0; i < result.size(); ++i) {
        const char c = text[i];
        const char next = i + 1 < text.size() ? text[i + 1] : '\0';
        if (c == '\n') {
            if (state != blockComment) state = code;
        } else if (state == code) {
            if (c == '"') state = literal;
            if (c == '\'') state = character;
            if (c == '/' && next == '/') state = lineComment;
            if (c == '/' && next == '*') state = blockComment;
            if (state == lineComment || state == blockComment) {
                result[i] = result[i + 1] = ' ';
                ++i;
            }
        } else if (state == blockComment && c == '*' && next == '/') {
            result[i] = result[i + 1] = ' ';
            ++i;
            state = code;
        } else if (state == lineComment || state == blockComment) {
            result[i] = ' ';
        } else if (c == '\\') {
            ++i;
        } else if ((state == literal && c == '"') || (state == character && c == '\'')) {
            state = code;
        }
    }
    return result;
}

std::string_view trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(" \t\r");
    return begin == std::string_view::npos ? std::string_view() : text.substr(begin);
}

}  // namespace

std::vector<Include> includesIn(std::string_view text) {
    const std::string clean = withoutComments(text);
    std::vector<Include> includes;
    int line = 0;
    for (size_t begin = 0; begin <= clean.size();) {
        const size_t end = std::min(clean.find('\n', begin), clean.size());
        std::string_view rest = trimmed(std::string_view(clean).substr(begin, end - begin));
        begin = end + 1;
        ++line;
        if (!rest.starts_with('#')) continue;
        rest = trimmed(rest.substr(1));
        if (!rest.starts_with("include")) continue;
        rest = trimmed(rest.substr(7));
        if (rest.empty() || (rest[0] != '"' && rest[0] != '<')) continue;
        const bool quoted = rest[0] == '"';
        const size_t close = rest.find(quoted ? '"' : '>', 1);
        if (close != std::string_view::npos) includes.push_back({std::string(rest.substr(1, close - 1)), quoted, line});
    }
    return includes;
}

std::string roomOf(std::string_view path) {
    if (path.starts_with("client/commandline/") || path == "client/main.cpp") return "client/commandline";
    const size_t slash = path.find('/');
    return slash == std::string_view::npos ? "" : std::string(path.substr(0, slash));
}

bool isRoom(std::string_view room) {
    return edges().contains(room);
}

bool mayInclude(std::string_view from, std::string_view to) {
    const auto found = edges().find(from);
    return found != edges().end() && isRoom(to) && (from == to || found->second.contains(to));
}

bool mayIncludeSystemHeader(std::string_view room, std::string_view name) {
    const bool standard = name.find_first_of("./") == std::string_view::npos;
    if (standard || isLibc(name)) return true;
    for (const Library& library : libraries) {
        if (name.starts_with(library.prefix)) return std::ranges::count(library.rooms, room) != 0;
    }
    return room == "platform";
}

std::vector<std::string> includeFaults(const std::filesystem::path& source, const std::string& path,
                                       std::string_view text) {
    std::vector<std::string> faults;
    const std::string room = roomOf(path);
    if (!isRoom(room)) faults.push_back(path + ": lies in no room");
    for (const Include& include : includesIn(text)) {
        const std::string place = path + ":" + std::to_string(include.line) + ": ";
        if (!include.quoted) {
            if (!mayIncludeSystemHeader(room, include.name)) {
                faults.push_back(place + room + " may not include <" + include.name + ">");
            }
        } else if (!std::filesystem::exists(source / include.name) || include.name.find("..") != std::string::npos) {
            faults.push_back(place + "\"" + include.name + "\" is no path from src/ on");
        } else if (!mayInclude(room, roomOf(include.name))) {
            faults.push_back(place + room + " may not include \"" + include.name + "\"");
        }
    }
    return faults;
}

}  // namespace kavaro::layout
