#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace kavaro {

// Whole files. Errors are errno values, 0 for success.

// Gives the content of an open regular file; EISDIR or EINVAL for what is none.
int readWholeFile(int fd, std::string* content);
// The same for a path of any length; links are followed, nothing is waited for. EFBIG for more than `limit` bytes.
int readFileAtPath(const std::string& path, std::size_t limit, std::string* content);
// The same piece by piece, for files of any size; a piece is valid during the call.
int readFileInPieces(const std::string& path, const std::function<void(std::string_view)>& piece);
// Writes all of it at the place where the open file stands. What was written before an error stays.
int writeWhole(int fd, std::string_view content);
// Makes a folder and what is missing above it, for this user alone (0700).
int makePrivateFolder(const std::string& path);
// Puts a file (0600) in the place of `path` at once: whoever opens it sees the old content or the whole new one, also
// after a crash. The folder must be there.
int replaceFile(const std::string& path, std::string_view content);

}  // namespace kavaro
