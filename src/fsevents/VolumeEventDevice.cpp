#include "fsevents/VolumeEventDevice.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "fsevents/FSEventsLog.h"
#include "fsevents/KernelRecord.h"
#include "platform/Clock.h"

namespace kavaro {

namespace {

// After the first change has come: those that follow it are read with it, and the kernel merges what it can. One read
// for each change would cost three times as much.
constexpr double kGatherSeconds = 0.01;

}  // namespace

std::unique_ptr<EventDevice> VolumeEventDevice::open(const std::string& volume, Problem* problem) {
    FileSystemWatch::Options options;
    options.ignoredProcess = getpid();
    FileSystemWatch::Problem reason;
    std::unique_ptr<FileSystemWatch> watch = FileSystemWatch::open(volume, options, &reason);
    if (watch) return std::make_unique<VolumeEventDevice>(std::move(watch));
    *problem = {reason.text, reason.isVolume, reason.code == EPERM};
    return nullptr;
}

VolumeEventDevice::VolumeEventDevice(std::unique_ptr<FileSystemWatch> watch) : _watch(std::move(watch)) {
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
        struct stat info {};
        if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && static_cast<std::uint32_t>(info.st_dev) == device())
            _ownFiles.push_back(info.st_ino);
    }
}

int VolumeEventDevice::read(std::uint8_t* buffer, int length, double seconds) {
    std::size_t filled = 0;
    bool hasWaited = false;
    for (;;) {
        while (_delivered < _ends.size()) {
            const std::size_t begin = _delivered == 0 ? 0 : _ends[_delivered - 1];
            const std::size_t size = _ends[_delivered] - begin;
            if (size > static_cast<std::size_t>(length) - filled) {
                if (filled > 0) return static_cast<int>(filled);
            } else {
                std::memcpy(buffer + filled, _records.data() + begin, size);
                filled += size;
            }
            ++_delivered;  // one that fits into no read is left out
        }
        if (encodeNext()) continue;
        if (filled > 0 || hasWaited) return static_cast<int>(filled);
        hasWaited = true;
        const FileSystemWatch::State state = _watch->wait(seconds);
        if (state == FileSystemWatch::State::unmounted) {
            _isGone = true;
            return 0;
        }
        if (state == FileSystemWatch::State::changes) Clock::system().sleep(std::min(seconds, kGatherSeconds));
    }
}

bool VolumeEventDevice::encodeNext() {
    while (_watch->next(&_change)) {
        if (_change.what == FileSystemChange::kLost) {
            ++_overflows;
            TuvLog::error(tuvFSEventsLog,
                          "_listenForFSEventsTH:", "The kernel's queue of events was full: changes of %@ are missing.",
                          _watch->volume());
            continue;
        }
        if (std::ranges::count(_ownFiles, _change.inode) != 0) continue;
        _records.clear();
        _ends.clear();
        _delivered = 0;
        encode(_change, device(), _records, _ends);
        return true;
    }
    return false;
}

void VolumeEventDevice::encode(const FileSystemChange& change, std::uint32_t device, ByteBuffer& records,
                               std::vector<std::size_t>& ends) {
    const auto inode = static_cast<std::uint32_t>(change.inode);
    KernelRecordWriter writer(records);
    const auto addPlace = [&](const std::string& path) {
        writer.addText(record::kString, path);
        writer.addNumber(record::kInode, inode);
        writer.addNumber(record::kDevice, device);
    };
    const auto add = [&](std::uint32_t what, std::int32_t type) {
        if (!(change.what & what)) return;
        writer.begin(type, change.process);
        addPlace(change.path);
        if (type == record::kRename) addPlace(change.destination);
        writer.end();
        ends.push_back(records.size());
    };
    if (change.isThereAgain) add(FileSystemChange::kDeleted, record::kDelete);
    add(FileSystemChange::kCreated, change.isFolder ? record::kCreateDir : record::kCreateFile);
    add(FileSystemChange::kModified, record::kModified);
    add(FileSystemChange::kAttributes, record::kStatChanged);
    add(FileSystemChange::kRenamed, record::kRename);
    if (!change.isThereAgain) add(FileSystemChange::kDeleted, record::kDelete);
}

}  // namespace kavaro
