#pragma once

#include <string>
#include <string_view>

#include "platform/ByteView.h"

namespace kavaro {

// Text is bytes as the file system gives them: UTF-8 in the normal case. Nothing here re-encodes or loses a byte.

bool isValidUTF8(std::string_view text);
// By code point; bytes that are not UTF-8 compare as bytes. Less than, equal to or greater than 0.
int compare(std::string_view a, std::string_view b);
// By Unicode case folding; names that are not UTF-8 compare as bytes.
int caseInsensitiveCompare(std::string_view a, std::string_view b);
// Position of the first occurrence of `part` in `text` ignoring case, and the length in bytes of what matched there.
// npos when there is none.
std::size_t findCaseInsensitive(std::string_view text, std::string_view part, std::size_t* matchLength);

// For people: bytes that are not UTF-8 or that would steer a terminal appear as \xNN, a line end as \n.
std::string printable(std::string_view text);
std::string base64(ByteView bytes);

// Path helpers with the meaning that Foundation-style path operations have: no file system access.
std::string lastPathComponent(std::string_view path);                                      // "/a/b/" -> "b", "/" -> "/"
std::string stringByAppendingPathComponent(std::string_view path, std::string_view name);  // one "/" between them
std::string stringByDeletingLastPathComponent(std::string_view path);
std::string pathExtension(std::string_view path);  // "a.tar.gz" -> "gz", ".bashrc" -> ""
std::string stringByDeletingPathExtension(std::string_view path);

}  // namespace kavaro
