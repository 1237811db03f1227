#include "platform/MemoryFile.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace kavaro {

namespace {

constexpr int kContentSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

bool writeAll(int fd, ByteView bytes) {
    while (!bytes.empty()) {
        ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace

FileHandle::~FileHandle() {
    if (_fd >= 0) close(_fd);
}

std::shared_ptr<const FileHandle> makeSealedFile(ByteView bytes) {
    int fd = memfd_create("kavaro", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) return nullptr;
    auto file = std::make_shared<const FileHandle>(fd);
    if (!writeAll(fd, bytes)) return nullptr;
    if (fcntl(fd, F_ADD_SEALS, kContentSeals | F_SEAL_SEAL) != 0) return nullptr;
    return file;
}

std::optional<MappedFile> mapSealedFile(int fd) {
    int seals = fcntl(fd, F_GET_SEALS);
    if (seals < 0 || (seals & kContentSeals) != kContentSeals) return std::nullopt;
    struct stat status {};
    if (fstat(fd, &status) != 0 || status.st_size <= 0) return std::nullopt;
    auto size = static_cast<std::uint64_t>(status.st_size);
    if (size > PTRDIFF_MAX) return std::nullopt;
    void* pages = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    if (pages == MAP_FAILED) return std::nullopt;
    MappedFile mapped;
    mapped.owner = std::shared_ptr<void>(pages, [size](void* first) { munmap(first, size); });
    mapped.view = ByteView(static_cast<const std::uint8_t*>(pages), size);
    return mapped;
}

}  // namespace kavaro
