#include "platform/FileDigests.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <utility>

#include "platform/Mutex.h"
#include "platform/RegularFile.h"

namespace kavaro {

namespace {

// An open file on its way to its digest.
class FileReader {
  public:
    int open(const std::string& path) {
        if (const int error = _file.open(path); error != 0) return error;
        _read = 0;
        posix_fadvise(_file.fd(), 0, 0, POSIX_FADV_SEQUENTIAL);
        posix_fadvise(_file.fd(), 0, 0, POSIX_FADV_NOREUSE);
        announce();
        return 0;
    }

    std::uint64_t size() const { return static_cast<std::uint64_t>(_file.status().st_size); }
    bool isAtEnd() const { return _read == size(); }

    // Reads `length` bytes or up to the end; the size that the file had when it was opened counts.
    int read(std::uint8_t* buffer, std::size_t length, std::size_t* got) {
        length = static_cast<std::size_t>(std::min<std::uint64_t>(length, size() - _read));
        *got = 0;
        while (*got < length) {
            const ssize_t count = ::read(_file.fd(), buffer + *got, length - *got);
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
        if (::read(_file.fd(), &more, 1) != 0) return ESTALE;
        if (fstat(_file.fd(), &after) != 0) return errno;
        const struct stat& before = _file.status();
        const bool isSame = after.st_size == before.st_size && after.st_nlink > 0 &&
                            after.st_mtim.tv_sec == before.st_mtim.tv_sec &&
                            after.st_mtim.tv_nsec == before.st_mtim.tv_nsec;
        return isSame ? 0 : ESTALE;
    }

    void close() { _file.close(); }

  private:
    // The disk may fetch the next part while this one, and those of the other files, are worked on.
    void announce() {
        const std::uint64_t left = size() - _read;
        if (left == 0) return;
        posix_fadvise(_file.fd(), static_cast<off_t>(_read),
                      static_cast<off_t>(std::min<std::uint64_t>(left, kFileReadBytes)), POSIX_FADV_WILLNEED);
    }

    RegularFile _file;
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

    // Takes over an open file.
    int start(FileReader&& opened, std::size_t number) {
        file = std::move(opened);
        index = number;
        state = MD5State();
        isLast = false;
        return fill();
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

// Lanes that no thread uses. They are kept: to get their memory from the system anew for every few files takes longer
// than the files do.
class SpareLanes {
  public:
    std::unique_ptr<Lane> take() KAVARO_EXCLUDES(_mutex) {
        const MutexLock lock(_mutex);
        if (_lanes.empty()) return std::make_unique<Lane>();
        std::unique_ptr<Lane> lane = std::move(_lanes.back());
        _lanes.pop_back();
        return lane;
    }
    void giveBack(std::unique_ptr<Lane> lane) KAVARO_EXCLUDES(_mutex) {
        const MutexLock lock(_mutex);
        _lanes.push_back(std::move(lane));
    }

  private:
    Mutex _mutex;
    std::vector<std::unique_ptr<Lane>> _lanes KAVARO_GUARDED_BY(_mutex);
};

SpareLanes& spareLanes() {
    static auto* const lanes = new SpareLanes;  // threads may outlive what is static
    return *lanes;
}

// Feeds files through the lanes of the processor. A lane takes the next file when it is done with one.
class LaneRunner {
  public:
    LaneRunner(const std::vector<std::string>& paths, const std::vector<MD5Kernel>& kernels)
        : _paths(paths), _kernels(kernels), _results(paths.size()) {}

    std::vector<FileDigest> run() {
        const std::size_t most = std::min(_kernels.size() - 1, _paths.size());
        for (std::size_t i = 0; i < most; ++i) {
            _lanes.push_back(spareLanes().take());
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
    void giveBack(std::size_t index) {
        spareLanes().giveBack(std::move(_lanes[index]));
        if (index + 1 < _lanes.size()) _lanes[index] = std::move(_lanes.back());
        _lanes.pop_back();
    }

    // Opens the next files before a lane has room for them, so that the disk fetches several at the same time.
    void openAhead() {
        while (_opened.size() < _kernels.size() && _next < _paths.size()) {
            FileReader file;
            const std::size_t index = _next++;
            if (const int error = file.open(_paths[index]); error != 0) {
                _results[index].error = error;
            } else {
                _opened.emplace_back(index, std::move(file));
            }
        }
    }

    // False when no file is left.
    bool startNext(Lane& lane) {
        while (true) {
            openAhead();
            if (_opened.empty()) return false;
            auto [index, file] = std::move(_opened.front());
            _opened.pop_front();
            const int error = lane.start(std::move(file), index);
            if (error == 0) return true;
            lane.file.close();
            _results[index].error = error;
        }
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
    std::deque<std::pair<std::size_t, FileReader>> _opened;  // with their index
    std::size_t _next = 0;                                   // to be opened
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
