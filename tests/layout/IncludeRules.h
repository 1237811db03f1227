#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kavaro::layout {

// One #include of a source: what stands between the quotes or the angle brackets, and on which line.
struct Include {
    std::string name;
    bool quoted = false;
    int line = 0;

    bool operator==(const Include&) const = default;
};

// Every #include of `text`, in order; comments and string literals hold none.
std::vector<Include> includesIn(std::string_view text);

// The room of a file by its path below src/, "" when it lies in none: the first folder, with client/commandline a room
// of its own. client/main.cpp belongs to the command line, which it starts.
std::string roomOf(std::string_view path);

// Whether `room` is known at all.
bool isRoom(std::string_view room);

// Whether a file of room `from` may include one of room `to`.
bool mayInclude(std::string_view from, std::string_view to);

// Whether a file of `room` may include the system header `name`. C++'s and the C library's are free; a library's belong
// to the rooms named for it; everything unknown belongs to platform.
bool mayIncludeSystemHeader(std::string_view room, std::string_view name);

// What is wrong with the includes of one file, as lines "path:line: what"; empty when nothing is. `path` is relative to
// `source`, the folder src/.
std::vector<std::string> includeFaults(const std::filesystem::path& source, const std::string& path,
                                       std::string_view text);

}  // namespace kavaro::layout
