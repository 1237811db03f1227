#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "cleanup/LipoTool.h"
#include "cleanup/UniversalHeader.h"

// What the fuzzer runs, and the test with the corpus: the reader of universal files, over a file that may be anything.
// Ends the process when it breaks its promise.
namespace kavaro::fuzz {

inline void checkUniversal(bool kept) {
    if (!kept) std::abort();
}

// As many lines beginning with "architecture" as there are slices, whatever the bytes are.
inline void checkDetails(ByteView beginning, std::uint64_t fileSize, std::size_t slices) {
    const std::string text = lipoDetails("/a\narchitecture b\nsize 1", beginning, fileSize);
    std::size_t lines = 0;
    for (std::size_t at = text.find("\narchitecture"); at != std::string::npos;
         at = text.find("\narchitecture", at + 1))
        ++lines;
    checkUniversal(lines == slices && text.rfind("architecture", 0) != 0 && text.back() == '\n');
}

inline void readUniversalFile(ByteView file) {
    const ByteView beginning = file.first(std::min(file.size(), UniversalHeader::kLongest));
    std::string fault;
    const auto header = UniversalHeader::read(beginning, file.size(), &fault);
    checkDetails(beginning, file.size(), header ? header->slices.size() : 0);
    thinArchitecture(beginning);
    if (!header) return;
    checkUniversal(fault.empty() && header->bytes() == textOf(file.first(header->length())));
    checkUniversal(header->end() <= file.size());
    std::uint64_t covered = header->length();
    for (const UniversalSlice& slice : header->slices) covered += slice.size;
    for (const UniversalHeader::Range& gap : header->gaps(file.size())) covered += gap.end - gap.begin;
    checkUniversal(covered == file.size());
    // Without its first slice, as it would be rewritten.
    if (header->slices.size() < 2) return;
    UniversalHeader less = *header;
    less.slices.erase(less.slices.begin());
    less.layOut();
    checkUniversal(less.end() <= header->end());
    for (std::size_t i = 0; i < less.slices.size(); ++i)
        checkUniversal(less.slices[i].offset <= header->slices[i + 1].offset);
    const std::string bytes = less.bytes();
    checkUniversal(UniversalHeader::read(bytesOf(bytes), less.end(), &fault) == less);
}

}  // namespace kavaro::fuzz
