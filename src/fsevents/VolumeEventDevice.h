#pragma once

#include <vector>

#include "fsevents/EventDevice.h"
#include "platform/ByteBuffer.h"
#include "platform/FileSystemWatch.h"

namespace kavaro {

// The changes of a real volume as kernel records. Several changes of an entry that the kernel tells as one become
// records in the order create, modify, stat changed, rename, delete; an entry that was deleted and made again is one
// that is there: its deletion comes first. Changes by this process are left out, as are those of the files that
// standard output and standard error go to: a log of events must not make events.
class VolumeEventDevice : public EventDevice {
  public:
    static std::unique_ptr<EventDevice> open(const std::string& volume, Problem* problem);
    explicit VolumeEventDevice(std::unique_ptr<FileSystemWatch> watch);

    int read(std::uint8_t* buffer, int length, double seconds) override;
    std::uint32_t device() const override { return _watch->device(); }
    bool isGone() const override { return _isGone; }
    int overflows() const override { return _overflows; }

    // Appends the records of one change and, to `ends`, where each ends.
    static void encode(const FileSystemChange& change, std::uint32_t device, ByteBuffer& records,
                       std::vector<std::size_t>& ends);

  private:
    // Fills _records with the next change's. False when there is none now.
    bool encodeNext();

    const std::unique_ptr<FileSystemWatch> _watch;
    std::vector<std::uint64_t> _ownFiles;  // inodes on the volume
    FileSystemChange _change;
    ByteBuffer _records;             // of the last change
    std::vector<std::size_t> _ends;  // of each record in it
    std::size_t _delivered = 0;      // records of it
    bool _isGone = false;
    int _overflows = 0;
};

}  // namespace kavaro
