#include "cleanup/UniversalHeader.h"

#include <algorithm>
#include <numeric>

#include "cleanup/ArchitectureNames.h"

namespace kavaro {

namespace {

std::uint32_t bigEndian32(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
           static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
}

std::uint64_t bigEndian64(const std::uint8_t* bytes) {
    return static_cast<std::uint64_t>(bigEndian32(bytes)) << 32 | bigEndian32(bytes + 4);
}

std::uint32_t littleEndian32(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[3]) << 24 | static_cast<std::uint32_t>(bytes[2]) << 16 |
           static_cast<std::uint32_t>(bytes[1]) << 8 | bytes[0];
}

void append32(std::string& bytes, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xff);
}

void append64(std::string& bytes, std::uint64_t value) {
    append32(bytes, static_cast<std::uint32_t>(value >> 32));
    append32(bytes, static_cast<std::uint32_t>(value));
}

UniversalSlice readSlice(const std::uint8_t* entry, bool isWide) {
    UniversalSlice slice;
    slice.cpuType = bigEndian32(entry);
    slice.cpuSubtype = bigEndian32(entry + 4);
    if (isWide) {
        slice.offset = bigEndian64(entry + 8);
        slice.size = bigEndian64(entry + 16);
        slice.alignment = bigEndian32(entry + 24);
        slice.reserved = bigEndian32(entry + 28);
    } else {
        slice.offset = bigEndian32(entry + 8);
        slice.size = bigEndian32(entry + 12);
        slice.alignment = bigEndian32(entry + 16);
    }
    return slice;
}

std::string quoted(const UniversalSlice& slice) {
    return "architecture " + slice.name();
}

bool isSameArchitecture(const UniversalSlice& a, const UniversalSlice& b) {
    return a.cpuType == b.cpuType && ((a.cpuSubtype ^ b.cpuSubtype) & ~kCapabilityBits) == 0;
}

}  // namespace

std::string UniversalSlice::name() const {
    return nameOfArchitecture(cpuType, cpuSubtype);
}

std::optional<UniversalHeader> UniversalHeader::read(ByteView beginning, std::uint64_t fileSize, std::string* fault) {
    fault->clear();
    if (beginning.size() < 8) return std::nullopt;
    const std::uint32_t magic = bigEndian32(beginning.data());
    if (magic != kMagic && magic != kWideMagic) return std::nullopt;
    const std::uint32_t count = bigEndian32(beginning.data() + 4);
    if (count > kMostSlices) {
        *fault = "its table would have " + std::to_string(count) + " entries: it is a Java class, or damaged";
        return std::nullopt;
    }
    UniversalHeader header;
    header.isWide = magic == kWideMagic;
    header.slices.resize(count);
    if (header.length() > beginning.size() || header.length() > fileSize) {
        *fault = "its table is cut short";
        return std::nullopt;
    }
    const std::size_t entryLength = header.isWide ? 32 : 20;
    for (std::size_t i = 0; i < count; ++i)
        header.slices[i] = readSlice(beginning.data() + 8 + i * entryLength, header.isWide);
    *fault = header.faultOf(fileSize);
    if (!fault->empty()) return std::nullopt;
    return header;
}

std::string UniversalHeader::faultOf(std::uint64_t fileSize) const {
    if (slices.empty()) return "its table is empty";
    for (std::size_t i = 0; i < slices.size(); ++i) {
        const UniversalSlice& slice = slices[i];
        if (slice.alignment > kMostAlignment)
            return quoted(slice) + " has an alignment of 2^" + std::to_string(slice.alignment);
        if (slice.size == 0) return quoted(slice) + " is empty";
        if (slice.offset < length()) return quoted(slice) + " lies over the table";
        if (slice.offset > fileSize || slice.size > fileSize - slice.offset)
            return quoted(slice) + " goes beyond the end of the file";
        if (slice.offset % (std::uint64_t{1} << slice.alignment) != 0) return quoted(slice) + " is not aligned";
        for (std::size_t k = 0; k < i; ++k)
            if (isSameArchitecture(slices[k], slice)) return quoted(slice) + " is there twice";
    }
    const std::vector<std::size_t> order = byOffset();
    for (std::size_t i = 1; i < order.size(); ++i) {
        const UniversalSlice& before = slices[order[i - 1]];
        if (before.offset + before.size > slices[order[i]].offset)
            return quoted(slices[order[i]]) + " lies over " + quoted(before);
    }
    return {};
}

std::vector<std::size_t> UniversalHeader::byOffset() const {
    std::vector<std::size_t> order(slices.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [this](std::size_t a, std::size_t b) { return slices[a].offset < slices[b].offset; });
    return order;
}

std::string UniversalHeader::bytes() const {
    std::string bytes;
    append32(bytes, isWide ? kWideMagic : kMagic);
    append32(bytes, static_cast<std::uint32_t>(slices.size()));
    for (const UniversalSlice& slice : slices) {
        append32(bytes, slice.cpuType);
        append32(bytes, slice.cpuSubtype);
        if (isWide) {
            append64(bytes, slice.offset);
            append64(bytes, slice.size);
            append32(bytes, slice.alignment);
            append32(bytes, slice.reserved);
        } else {
            append32(bytes, static_cast<std::uint32_t>(slice.offset));
            append32(bytes, static_cast<std::uint32_t>(slice.size));
            append32(bytes, slice.alignment);
        }
    }
    return bytes;
}

std::uint64_t UniversalHeader::end() const {
    std::uint64_t last = length();
    for (const UniversalSlice& slice : slices) last = std::max(last, slice.offset + slice.size);
    return last;
}

void UniversalHeader::layOut() {
    std::uint64_t next = length();
    for (const std::size_t index : byOffset()) {
        UniversalSlice& slice = slices[index];
        const std::uint64_t unit = std::uint64_t{1} << slice.alignment;
        slice.offset = (next + unit - 1) / unit * unit;
        next = slice.offset + slice.size;
    }
}

std::vector<UniversalHeader::Range> UniversalHeader::gaps(std::uint64_t fileSize) const {
    std::vector<Range> gaps;
    std::uint64_t next = length();
    for (const std::size_t index : byOffset()) {
        if (slices[index].offset > next) gaps.push_back({next, slices[index].offset});
        next = slices[index].offset + slices[index].size;
    }
    if (fileSize > next) gaps.push_back({next, fileSize});
    return gaps;
}

std::optional<std::string> thinArchitecture(ByteView beginning) {
    constexpr std::uint32_t kThin = 0xfeedface, kThin64 = 0xfeedfacf;
    if (beginning.size() < 12) return std::nullopt;
    for (const auto number : {bigEndian32, littleEndian32}) {
        const std::uint32_t magic = number(beginning.data());
        if (magic == kThin || magic == kThin64)
            return nameOfArchitecture(number(beginning.data() + 4), number(beginning.data() + 8));
    }
    return std::nullopt;
}

}  // namespace kavaro
