#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/SafeFolder.h"

namespace kavaro {

// Gives a regular file new content. A second file, which has no name, takes the content, gets what the first one has
// besides it (owner, group, mode, extended attributes with access lists, times), is brought to the disk and takes the
// first one's place by rename. Before that rename the first file is as it was, whatever fails, and nothing of the
// second one is left. Where the file system knows no files without a name, the second one has a name of its own.
//
// Refused: links, files with several names, files that somebody has open for writing or opens or changes meanwhile,
// and a mode or an owner that cannot be kept. What vouches for the content (security.ima, security.evm) is left out.
//
// Each step gives false when it fails; reason() then says why, and the object is of no more use. One thread at a time.
class FileRewrite {
  public:
    FileRewrite() = default;
    FileRewrite(const FileRewrite&) = delete;
    FileRewrite& operator=(const FileRewrite&) = delete;
    ~FileRewrite();

    // The path is absolute, and no part of it a link. As long as the object lives, who opens the file for writing
    // waits, and makes the next step fail.
    bool open(const std::string& path);
    std::uint64_t size() const { return static_cast<std::uint64_t>(_status.st_size); }
    // All bytes, or none: the file holds them.
    bool read(std::uint64_t offset, void* bytes, std::size_t length);

    bool create();
    bool write(std::uint64_t offset, const void* bytes, std::size_t length);
    // Of the first file into the second. Holes stay holes, and what nothing is written to reads as zeros.
    bool copy(std::uint64_t from, std::uint64_t to, std::uint64_t length);
    bool commit();

    const std::string& reason() const { return _reason; }  // for people, without a full stop

  private:
    bool fail(std::string reason);
    bool failWith(const char* what);  // and errno
    bool takeLease();
    bool isUntouched();
    bool createWithName();
    bool keepAttributes();
    bool keepExtendedAttributes();
    bool takePlace();
    bool giveName();
    bool copyData(std::uint64_t from, std::uint64_t to, std::uint64_t length);
    bool setLength();

    SafePlace _place;
    FileDescriptor _old, _new;
    struct stat _status {};  // of the first file, before it was read
    std::uint64_t _end = 0;  // of what the second file holds, holes at its end too
    std::string _newName;    // empty while the second file has none
    std::string _reason;
};

}  // namespace kavaro
