#pragma once

#include <cstddef>
#include <string>

namespace kavaro {

// Opens files by paths of any length relative to an open folder, with one system call for a path that fits into one.
// Where the kernel has no openat2 (or a filter refuses it) and no link may be followed, it opens name by name. Keeps
// nothing but that choice; safe from any thread.
class FolderOpener {
  public:
    enum class Rule {
        followLinks,  // those before the last name; the last one too without O_NOFOLLOW
        noLinks,      // a link anywhere is ELOOP or ENOTDIR
        sameMount,    // noLinks, and a way that leaves the folder's mount is EXDEV. Only with openat2
    };

    explicit FolderOpener(bool usesOpenat2 = kernelHasOpenat2()) : _usesOpenat2(usesOpenat2) {}

    // An open file (always O_CLOEXEC), or -1 with errno set. `folder` may be AT_FDCWD. The path is relative, except
    // with followLinks; it ends with a NUL.
    int open(int folder, const std::string& path, int flags, Rule rule) const {
        return open(folder, path.c_str(), path.size(), flags, rule);
    }
    int open(int folder, const char* path, std::size_t length, int flags, Rule rule) const;

    bool usesOpenat2() const { return _usesOpenat2; }
    static bool kernelHasOpenat2();

  private:
    int openPart(int folder, const char* path, int flags, Rule rule) const;
    int openNameByName(int folder, const char* path, int flags) const;

    const bool _usesOpenat2;
};

}  // namespace kavaro
