#pragma once

#include <unistd.h>

#include <utility>

namespace kavaro {

// Owns an open file, or none (-1). One thread at a time.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : _fd(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : _fd(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    ~FileDescriptor() { reset(); }

    int get() const { return _fd; }
    bool isOpen() const { return _fd >= 0; }
    int release() { return std::exchange(_fd, -1); }
    void reset(int fd = -1) {
        if (_fd >= 0) close(_fd);
        _fd = fd;
    }

  private:
    int _fd = -1;
};

}  // namespace kavaro
