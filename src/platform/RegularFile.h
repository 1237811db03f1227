#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/FileDescriptor.h"

namespace kavaro {

// A regular file, open for reading. What is none is not even opened: it might keep us waiting, or do something because
// it was opened. One thread at a time.
class RegularFile {
  public:
    // An errno value, 0 for success: EISDIR and EINVAL for what is no regular file, ESTALE when another one took its
    // place meanwhile. Links are followed, the path may be of any length. Closes what was open before.
    int open(const std::string& path);
    void close() { _file.reset(); }

    int fd() const { return _file.get(); }
    // As it was opened.
    const struct stat& status() const { return _status; }

  private:
    FileDescriptor _file;
    struct stat _status {};
};

}  // namespace kavaro
