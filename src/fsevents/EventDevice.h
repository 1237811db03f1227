#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace kavaro {

// What stands for the kernel's event device: a source of kernel records. One thread.
class EventDevice {
  public:
    struct Problem {
        std::string text;
        bool isVolume = false;  // the path or what it leads to is at fault, not the rights or the kernel
        bool needsRights = false;
    };
    using Open = std::function<std::unique_ptr<EventDevice>(const std::string& volume, Problem* problem)>;

    virtual ~EventDevice() = default;
    // Puts whole records into the buffer, at most `length` bytes, and gives their number of bytes; waits at most so
    // many seconds for the first. 0 or less: there is nothing.
    virtual int read(std::uint8_t* buffer, int length, double seconds) = 0;
    // Of the volume whose events these are.
    virtual std::uint32_t device() const = 0;
    // Nothing will come any more: the volume has been unmounted.
    virtual bool isGone() const = 0;
    // How often changes were lost because the kernel's queue was full.
    virtual int overflows() const = 0;
};

}  // namespace kavaro
