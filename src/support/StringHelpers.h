#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kavaro {

struct FileReference;

// A short text for people, the same in every locale: "0 bytes", "1 byte", "1023 bytes", "1.0 KB", "1.4 MB". From a
// kilobyte up with one decimal, rounded half up; what would round to 1024.0 is shown in the next unit. The largest
// unit is TB.
std::string compactStringFromSize(std::uint64_t bytes);

// Without blanks, tabs, line ends, vertical tabs and form feeds at both ends.
std::string trimWhiteSpace(std::string_view text);

// Without what a tool's output carries around its values at both ends: blanks, control characters (NUL and DEL
// included), the quotes " ' `, the brackets ( ) [ ] { } and the marks , ; :. Everything in between stays.
std::string trimBadCharacters(std::string_view text);

// Turns a path into a reference that holds the file or folder open, and says whether it is a folder. A link at the end
// of the path is not followed. False, with both results untouched, when there is no such entry or it cannot be reached.
bool getFSRef(const std::string& path, FileReference* reference, bool* isDir);

// The reverse: path of the file or folder that a reference holds open, as it is named now; empty when it holds none.
std::string pathFromFSRef(const FileReference& reference);

// Runs an executable, given by absolute path, without a shell, and waits for its end. Everything it wrote to standard
// output; nothing when it could not be started. Where there is no executable at the path, a built-in tool that is
// registered under it (BuiltInTools.h) answers in its place.
std::optional<std::string> stringFromTask(const std::string& path, const std::vector<std::string>& arguments);
// Whether that is the case for this path now.
bool isBuiltInTask(const std::string& path);

}  // namespace kavaro
