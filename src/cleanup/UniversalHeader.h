#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/ByteView.h"

namespace kavaro {

// The code for one kind of processor in a universal file.
struct UniversalSlice {
    std::uint32_t cpuType = 0;
    std::uint32_t cpuSubtype = 0;  // with capabilities
    std::uint64_t offset = 0;      // bytes from the beginning of the file
    std::uint64_t size = 0;        // bytes
    std::uint32_t alignment = 0;   // the offset is a multiple of 2^alignment
    std::uint32_t reserved = 0;    // of the wide form alone
    bool operator==(const UniversalSlice&) const = default;

    std::string name() const;
};

// The table at the beginning of a universal file, in either form: entries of 20 bytes with offsets of 32 bits, or of 32
// bytes with offsets of 64. All numbers are big-endian. Read only when it makes sense: 1 to kMostSlices slices of
// different kinds, aligned, none empty, none over another one, the table or the end of the file.
struct UniversalHeader {
    static constexpr std::uint32_t kMagic = 0xcafebabe, kWideMagic = 0xcafebabf;
    // A class file of Java has the same magic, and then its version, which is 45 at least.
    static constexpr std::uint32_t kMostSlices = 42;
    static constexpr std::uint32_t kMostAlignment = 15;
    static constexpr std::size_t kLongest = 8 + 32 * kMostSlices;  // bytes

    bool isWide = false;
    std::vector<UniversalSlice> slices;  // in the order of the table
    bool operator==(const UniversalHeader&) const = default;

    // Of the first bytes of a file, kLongest or all that there are. Nothing otherwise; `fault` then says, for people,
    // what is wrong with the table, and is empty for a file that is not universal.
    static std::optional<UniversalHeader> read(ByteView beginning, std::uint64_t fileSize, std::string* fault);
    std::string bytes() const;

    std::size_t length() const { return 8 + slices.size() * (isWide ? 32 : 20); }
    std::uint64_t end() const;  // of the last slice in the file
    // Gives the slices, in the order of their offsets, the first offsets that their alignments allow. None grows.
    void layOut();
    struct Range {
        std::uint64_t begin, end;
    };
    // What lies in the file outside the table and the slices.
    std::vector<Range> gaps(std::uint64_t fileSize) const;

  private:
    std::vector<std::size_t> byOffset() const;
    std::string faultOf(std::uint64_t fileSize) const;
};

// Name of the architecture of a file that holds code for one alone; nothing when it is no such file.
std::optional<std::string> thinArchitecture(ByteView beginning);

}  // namespace kavaro
