#pragma once

#include <memory>
#include <optional>

#include "platform/ByteView.h"

namespace kavaro {

// An open file descriptor, closed by its owner.
class FileHandle {
  public:
    explicit FileHandle(int fd) : _fd(fd) {}
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    ~FileHandle();
    int fd() const { return _fd; }

  private:
    int _fd;
};

// A mapped file; the pages live as long as `owner`.
struct MappedFile {
    std::shared_ptr<void> owner;
    ByteView view;
};

// A memory file that holds `bytes` and can never change again. Null when the system has no room for it.
std::shared_ptr<const FileHandle> makeSealedFile(ByteView bytes);

// Maps a file that came from another process, read-only. Nothing unless it is sealed against writing, growing and
// shrinking (so that its pages cannot change or vanish under the reader) and is not empty. The file's offset, which
// all receivers share, is neither used nor moved.
std::optional<MappedFile> mapSealedFile(int fd);

}  // namespace kavaro
