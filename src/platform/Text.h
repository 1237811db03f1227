#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/ByteView.h"

namespace kavaro {

// Text is bytes as the file system gives them: UTF-8 in the normal case. Nothing here re-encodes or loses a byte.
// All functions are safe from any thread.

bool isValidUTF8(std::string_view text);
// By code point, which is the order of the bytes. Less than, equal to or greater than 0.
int compare(std::string_view a, std::string_view b);
// By full Unicode case folding, code point for code point; bytes that are not UTF-8 stand for themselves. An order for
// all texts, so that sorting by it is safe whatever they hold. Texts that differ in case alone are equal.
int caseInsensitiveCompare(std::string_view a, std::string_view b);
// Position of the first occurrence of `part` in `text` ignoring case, and the length in bytes of what matched there.
// Only whole characters match. npos and 0 when there is none; an empty part is nowhere.
std::size_t findCaseInsensitive(std::string_view text, std::string_view part, std::size_t* matchLength);
bool hasPrefixCaseInsensitive(std::string_view text, std::string_view prefix);

// Looks for one text in many: folds it once, and ASCII names are fast. Never changes; safe from any thread.
class CaseInsensitiveSearch {
  public:
    explicit CaseInsensitiveSearch(std::string_view part);
    // As findCaseInsensitive().
    std::size_t find(std::string_view text, std::size_t* matchLength) const;
    bool isIn(std::string_view text) const { return find(text, nullptr) != std::string_view::npos; }

  private:
    std::size_t findByCharacter(std::string_view text, std::size_t* matchLength) const;

    std::string _key;  // folded
    bool _isASCII;
};

// For people: bytes that are not UTF-8 or that would steer a terminal appear as \xNN, a line end as \n.
std::string printable(std::string_view text);
std::string base64(ByteView bytes);

// Path helpers with the meaning that Foundation-style path operations have: no file system access.
std::string lastPathComponent(std::string_view path);  // "/a/b/" -> "b", "/" -> "/"
// One "/" between them, none at the end; an empty path gives the name alone.
std::string stringByAppendingPathComponent(std::string_view path, std::string_view name);
std::string stringByDeletingLastPathComponent(std::string_view path);  // "/a/b/" -> "/a", "/a" -> "/", "a" -> ""
std::string pathExtension(std::string_view path);                      // "a.tar.gz" -> "gz", ".bashrc" -> ""
std::string stringByDeletingPathExtension(std::string_view path);      // "/a/b.c/" -> "/a/b"

}  // namespace kavaro
