#include "platform/FileDigests.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "platform/FileDescriptor.h"
#include "platform/FolderOpener.h"

namespace kavaro {

namespace {

// An open file on its way to its digest.
class FileReader {
  public:
    int open(const std::string& path) {
        if (path.find('\0') != std::string::npos) return ENOENT;  // there is no such name
        // What is no regular file must not keep us waiting, nor do anything because it was opened: it is looked at
        // before it is opened for reading, and both are the same file.
        const FileDescriptor place(FolderOpener().open(AT_FDCWD, path, O_PATH, FolderOpener::Rule::followLinks));
        if (!place.isOpen() || fstat(place.get(), &_before) != 0) return errno;
        if (!S_ISREG(_before.st_mode)) return S_ISDIR(_before.st_mode) ? EISDIR : EINVAL;
        if (const int error = openForReading(place, path); error != 0) return error;
        _read = 0;
        posix_fadvise(_file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
        posix_fadvise(_file.get(), 0, 0, POSIX_FADV_NOREUSE);
        announce();
        return 0;
    }

    std::uint64_t size() const { return static_cast<std::uint64_t>(_before.st_size); }
    bool isAtEnd() const { return _read == size(); }

    // Reads `length` bytes or up to the end; the size that the file had when it was opened counts.
    int read(std::uint8_t* buffer, std::size_t length, std::size_t* got) {
        length = static_cast<std::size_t>(std::min<std::uint64_t>(length, size() - _read));
        *got = 0;
        while (*got < length) {
            const ssize_t count = ::read(_file.get(), buffer + *got, length - *got);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) return errno;
            if (count == 0) return ESTALE;  // it has become shorter
            *got += static_cast<std::size_t>(count);
        }
        _read += length;
        announce();
        return 0;
    }

    // After the last read: whether what was read is what the file held all the time. What holds more than its size
    // says, as the files of the kernel do, is none.
    int finish() {
        struct stat after {};
        std::uint8_t more = 0;
        if (::read(_file.get(), &more, 1) != 0) return ESTALE;
        if (fstat(_file.get(), &after) != 0) return errno;
        const bool isSame = after.st_size == _before.st_size && after.st_nlink > 0 &&
                            after.st_mtim.tv_sec == _before.st_mtim.tv_sec &&
                            after.st_mtim.tv_nsec == _before.st_mtim.tv_nsec;
        return isSame ? 0 : ESTALE;
    }

    void close() { _file.reset(); }

  private:
    // Through /proc, which leads to the very file; where there is none, by the path once more.
    int openForReading(const FileDescriptor& place, const std::string& path) {
        constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY;
        const FolderOpener opener;
        const struct stat seen = _before;
        _file.reset(opener.open(AT_FDCWD, "/proc/self/fd/" + std::to_string(place.get()), kFlags,
                                FolderOpener::Rule::followLinks));
        if (!_file.isOpen() && errno == ENOENT)
            _file.reset(opener.open(AT_FDCWD, path, kFlags, FolderOpener::Rule::followLinks));
        if (!_file.isOpen() || fstat(_file.get(), &_before) != 0) return errno;
        return _before.st_dev == seen.st_dev && _before.st_ino == seen.st_ino ? 0 : ESTALE;
    }

    // The disk may fetch the next part while this one, and those of the other files, are worked on.
    void announce() {
        const std::uint64_t left = size() - _read;
        if (left == 0) return;
        posix_fadvise(_file.get(), static_cast<off_t>(_read),
                      static_cast<off_t>(std::min<std::uint64_t>(left, kFileReadBytes)), POSIX_FADV_WILLNEED);
    }

    FileDescriptor _file;
    struct stat _before {};
    std::uint64_t _read = 0;
};

FileDigest digestOfOne(const std::string& path) {
    FileReader file;
    int error = file.open(path);
    MD5Stream stream;
    const auto buffer = std::make_unique<std::uint8_t[]>(kFileReadBytes);
    while (error == 0 && !file.isAtEnd()) {
        std::size_t got = 0;
        error = file.read(buffer.get(), kFileReadBytes, &got);
        if (error == 0) stream.add({buffer.get(), got});
    }
    if (error == 0) error = file.finish();
    if (error != 0) return {std::nullopt, error};
    return {stream.finish(), 0};
}

// One stream of blocks: a file's bytes, then its tail.
struct Lane {
    FileReader file;
    MD5State state;
    std::size_t index = 0;  // among the paths
    std::unique_ptr<std::uint8_t[]> buffer{new std::uint8_t[kFileReadBytes + sizeof(MD5Tail::bytes)]};
    const std::uint8_t* next = nullptr;  // in the buffer
    std::size_t blocks = 0;              // from there on
    bool isLast = false;                 // nothing follows what is in the buffer

    int start(const std::string& path) {
        state = MD5State();
        isLast = false;
        const int error = file.open(path);
        return error != 0 ? error : fill();
    }
    int fill() {
        std::size_t got = 0;
        int error = file.read(buffer.get(), kFileReadBytes, &got);
        if (error != 0) return error;
        next = buffer.get();
        blocks = got / kMD5BlockBytes;
        isLast = file.isAtEnd();
        if (!isLast) return 0;  // then it is a whole read, and whole blocks
        const std::size_t whole = blocks * kMD5BlockBytes;
        const MD5Tail tail({next + whole, got - whole}, file.size());
        std::copy_n(tail.bytes, tail.blocks * kMD5BlockBytes, buffer.get() + whole);
        blocks += tail.blocks;
        return file.finish();
    }
};
static_assert(kFileReadBytes % kMD5BlockBytes == 0);

// Lanes of this thread that are not in use. They are kept: to get their memory from the system anew for every few
// files takes longer than the files do.
std::vector<std::unique_ptr<Lane>>& spareLanes() {
    static thread_local std::vector<std::unique_ptr<Lane>> lanes;
    return lanes;
}

// Feeds files through the lanes of the processor. A lane takes the next file when it is done with one.
class LaneRunner {
  public:
    LaneRunner(const std::vector<std::string>& paths, const std::vector<MD5Kernel>& kernels)
        : _paths(paths), _kernels(kernels), _results(paths.size()) {}

    std::vector<FileDigest> run() {
        const std::size_t most = std::min(_kernels.size() - 1, _paths.size());
        for (std::size_t i = 0; i < most; ++i) {
            _lanes.push_back(takeLane());
            if (!startNext(*_lanes.back())) giveBack(_lanes.size() - 1);
        }
        while (!_lanes.empty()) {
            step();
            for (std::size_t i = 0; i < _lanes.size();) {
                if (_lanes[i]->blocks > 0 || goOn(*_lanes[i])) {
                    ++i;
                } else {
                    giveBack(i);
                }
            }
        }
        return std::move(_results);
    }

  private:
    static std::unique_ptr<Lane> takeLane() {
        if (spareLanes().empty()) return std::make_unique<Lane>();
        std::unique_ptr<Lane> lane = std::move(spareLanes().back());
        spareLanes().pop_back();
        return lane;
    }
    void giveBack(std::size_t index) {
        spareLanes().push_back(std::move(_lanes[index]));
        if (index + 1 < _lanes.size()) _lanes[index] = std::move(_lanes.back());
        _lanes.pop_back();
    }

    // False when no file is left.
    bool startNext(Lane& lane) {
        while (_next < _paths.size()) {
            lane.index = _next++;
            const int error = lane.start(_paths[lane.index]);
            if (error == 0) return true;
            lane.file.close();
            _results[lane.index].error = error;
        }
        return false;
    }

    // All lanes take as many blocks as the one with the fewest has. Lanes of the kernel that have no file do the work
    // of the first once more, for nothing.
    void step() {
        MD5State* states[kMD5MostLanes];
        const std::uint8_t* data[kMD5MostLanes];
        MD5State unused[kMD5MostLanes];
        const MD5Kernel& kernel = _kernels[_lanes.size()];
        std::size_t blocks = _lanes.front()->blocks;
        for (std::size_t i = 0; i < static_cast<std::size_t>(kernel.lanes); ++i) {
            const bool isUsed = i < _lanes.size();
            states[i] = isUsed ? &_lanes[i]->state : &unused[i];
            data[i] = isUsed ? _lanes[i]->next : _lanes.front()->next;
            if (isUsed) blocks = std::min(blocks, _lanes[i]->blocks);
        }
        kernel.run(states, data, blocks);
        for (const std::unique_ptr<Lane>& lane : _lanes) {
            lane->next += blocks * kMD5BlockBytes;
            lane->blocks -= blocks;
        }
    }

    // The lane's buffer is used up. False when there is nothing more for it to do.
    bool goOn(Lane& lane) {
        FileDigest& result = _results[lane.index];
        if (!lane.isLast) {
            result.error = lane.fill();
            if (result.error == 0) return true;
        } else {
            result.digest = lane.state.digest();
        }
        lane.file.close();
        return startNext(lane);
    }

    const std::vector<std::string>& _paths;
    const std::vector<MD5Kernel>& _kernels;
    std::vector<FileDigest> _results;
    std::vector<std::unique_ptr<Lane>> _lanes;
    std::size_t _next = 0;
};

}  // namespace

std::vector<FileDigest> md5OfFiles(const std::vector<std::string>& paths) {
    if (paths.size() == 1) return {digestOfOne(paths.front())};
    return md5OfFiles(paths, fastestMD5Kernels());
}

std::vector<FileDigest> md5OfFiles(const std::vector<std::string>& paths, const std::vector<MD5Kernel>& kernels) {
    return LaneRunner(paths, kernels).run();
}

}  // namespace kavaro
