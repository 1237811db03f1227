#include "cleanup/UniversalHeader.h"

#include <gtest/gtest.h>

#include <functional>

#include "cleanup/UniversalFile.h"

namespace kavaro {
namespace {

std::optional<UniversalHeader> readFrom(std::string_view file, std::string* fault = nullptr) {
    std::string ignored;
    return UniversalHeader::read(bytesOf(file.substr(0, UniversalHeader::kLongest)), file.size(),
                                 fault ? fault : &ignored);
}

// What is said of a file after its header was changed.
std::string faultAfter(const std::function<void(UniversalHeader&)>& change, bool isWide = false) {
    const std::string file = universalFile({kPPC, kI386}, isWide);
    UniversalHeader header = readFrom(file).value();
    change(header);
    std::string bytes = header.bytes();
    if (bytes.size() < file.size()) bytes += file.substr(bytes.size());
    std::string fault = "none";
    EXPECT_FALSE(readFrom(bytes, &fault));
    return fault;
}

TEST(UniversalHeader, GoldenBytesOfBothForms) {
    UniversalHeader header;
    header.slices = {{18, 10, 4096, 258, 12, 0}, {0x01000007, 0x80000003, 8192, 3, 13, 0}};
    EXPECT_EQ(header.bytes(), std::string("\xca\xfe\xba\xbe\0\0\0\2"
                                          "\0\0\0\x12\0\0\0\x0a\0\0\x10\0\0\0\1\2\0\0\0\x0c"
                                          "\1\0\0\x07\x80\0\0\3\0\0\x20\0\0\0\0\3\0\0\0\x0d",
                                          48));
    header.isWide = true;
    header.slices = {{18, 10, 0x100001000, 0x200000003, 12, 7}};
    EXPECT_EQ(header.bytes(), std::string("\xca\xfe\xba\xbf\0\0\0\1"
                                          "\0\0\0\x12\0\0\0\x0a"
                                          "\0\0\0\1\0\0\x10\0\0\0\0\2\0\0\0\3"
                                          "\0\0\0\x0c\0\0\0\7",
                                          40));
    std::string fault;
    const std::string bytes = header.bytes();
    EXPECT_EQ(UniversalHeader::read(bytesOf(bytes), 0x300001003, &fault), header) << fault;
    EXPECT_FALSE(UniversalHeader::read(bytesOf(bytes), 0x300001002, &fault));
    EXPECT_EQ(fault, "architecture ppc7400 goes beyond the end of the file");
}

TEST(UniversalHeader, ReadsWhatIsThere) {
    for (const bool isWide : {false, true}) {
        const auto header = readFrom(universalFile(kFourSlices, isWide));
        ASSERT_TRUE(header);
        EXPECT_EQ(header->isWide, isWide);
        ASSERT_EQ(header->slices.size(), 4u);
        EXPECT_EQ(header->slices[1].name(), "ppc7400");
        EXPECT_EQ(header->slices[1].offset, 8192u);
        EXPECT_EQ(header->slices[1].size, 2000u);
        EXPECT_EQ(header->slices[3].name(), "x86_64");
        EXPECT_EQ(header->slices[3].cpuSubtype, 0x80000003u);
        EXPECT_EQ(header->end(), 16384u + 4000u);
    }
}

TEST(UniversalHeader, OtherFilesHaveNoFault) {
    for (const char* text : {"", "\xca\xfe\xba", "#!/bin/sh\necho\n", "\xcf\xfa\xed\xfe\7\0\0\1\3\0\0\0"}) {
        std::string fault = "none";
        EXPECT_FALSE(readFrom(text, &fault));
        EXPECT_EQ(fault, "") << text;
    }
}

TEST(UniversalHeader, AJavaClassIsNone) {
    for (const std::uint32_t version : {45u, 52u, 65u, 3u << 16 | 45u}) {
        std::string file = universalFile({kPPC});
        for (int i = 0; i < 4; ++i) file[static_cast<std::size_t>(4 + i)] = static_cast<char>(version >> (24 - 8 * i));
        std::string fault;
        EXPECT_FALSE(readFrom(file, &fault));
        EXPECT_EQ(fault,
                  "its table would have " + std::to_string(version) + " entries: it is a Java class, or damaged");
    }
}

TEST(UniversalHeader, RefusesTablesThatMakeNoSense) {
    EXPECT_EQ(faultAfter([](UniversalHeader& h) { h.slices.clear(); }), "its table is empty");
    EXPECT_EQ(faultAfter([](UniversalHeader& h) { h.slices[1].alignment = 16; }),
              "architecture i386 has an alignment of 2^16");
    EXPECT_EQ(faultAfter([](UniversalHeader& h) { h.slices[1].alignment = 0xffffffff; }),
              "architecture i386 has an alignment of 2^4294967295");
    EXPECT_EQ(faultAfter([](UniversalHeader& h) { h.slices[0].size = 0; }), "architecture ppc is empty");
    EXPECT_EQ(faultAfter([](UniversalHeader& h) { h.slices[0].offset = 0; }), "architecture ppc lies over the table");
    EXPECT_EQ(faultAfter([](UniversalHeader& h) { h.slices[0].offset = 4097; }), "architecture ppc is not aligned");
    EXPECT_EQ(faultAfter([](UniversalHeader& h) { h.slices[1].size = 3001; }),
              "architecture i386 goes beyond the end of the file");
    EXPECT_EQ(faultAfter([](UniversalHeader& h) { h.slices[1].offset = 0xfffff000; }),
              "architecture i386 goes beyond the end of the file");
    EXPECT_EQ(faultAfter([](UniversalHeader& h) { h.slices[0].size = 4097; }),
              "architecture i386 lies over architecture ppc");
    EXPECT_EQ(faultAfter([](UniversalHeader& h) { h.slices[1].offset = 4096; }),
              "architecture i386 lies over architecture ppc");
    EXPECT_EQ(faultAfter([](UniversalHeader& h) {
                  h.slices[1].cpuType = h.slices[0].cpuType;
                  h.slices[1].cpuSubtype = h.slices[0].cpuSubtype | 0x80000000;
              }),
              "architecture ppc is there twice");
    EXPECT_EQ(faultAfter([](UniversalHeader& h) { h.slices[1].size = ~std::uint64_t{0}; }, true),
              "architecture i386 goes beyond the end of the file");
    EXPECT_EQ(faultAfter([](UniversalHeader& h) { h.slices[1].offset = ~std::uint64_t{4095}; }, true),
              "architecture i386 goes beyond the end of the file");
}

TEST(UniversalHeader, EveryPrefixIsRefused) {
    for (const bool isWide : {false, true}) {
        const std::string file = universalFile({kPPC, kX86_64}, isWide);
        for (std::size_t length = 0; length < file.size(); ++length)
            EXPECT_FALSE(readFrom(std::string_view(file).substr(0, length))) << length;
        EXPECT_TRUE(readFrom(file));
    }
}

TEST(UniversalHeader, WhatIsReadAfterAFlippedBitMakesSense) {
    for (const bool isWide : {false, true}) {
        const std::string file = universalFile({kPPC, kX86_64, kARM64}, isWide);
        const std::size_t bits = 8 * (8 + 3 * (isWide ? 32u : 20u));
        for (std::size_t bit = 0; bit < bits; ++bit) {
            std::string changed = file;
            changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << bit % 8));
            const auto header = readFrom(changed);
            if (!header) continue;
            EXPECT_EQ(header->bytes(), changed.substr(0, header->length()));
            EXPECT_LE(header->end(), changed.size());
            for (const UniversalSlice& slice : header->slices) EXPECT_GE(slice.offset, header->length());
        }
    }
}

TEST(UniversalHeader, AsManySlicesAsThereMayBe) {
    std::vector<MadeSlice> slices;
    for (std::uint32_t i = 0; i < UniversalHeader::kMostSlices; ++i) slices.push_back({99, i, "code", 2});
    EXPECT_TRUE(readFrom(universalFile(slices)));
    EXPECT_TRUE(readFrom(universalFile(slices, true)));
    slices.push_back({99, 1000, "code", 2});
    EXPECT_FALSE(readFrom(universalFile(slices)));
}

TEST(UniversalHeader, LaysSlicesOutAtTheirAlignment) {
    UniversalHeader header = readFrom(universalFile({kPPC, kI386, kX86_64, kARM64})).value();
    header.slices.erase(header.slices.begin());
    header.layOut();
    EXPECT_EQ(header.slices[0].offset, 4096u);
    EXPECT_EQ(header.slices[1].offset, 8192u);
    EXPECT_EQ(header.slices[2].offset, 16384u);
    EXPECT_EQ(header.end(), 16384u + 5000u);
}

// The table need not name the slices in the order in which they lie in the file.
TEST(UniversalHeader, TheOrderOfTheTableStays) {
    UniversalHeader header = readFrom(universalFile({kPPC, kI386, kX86_64})).value();
    std::swap(header.slices[0], header.slices[2]);
    const UniversalHeader before = header;
    header.layOut();
    EXPECT_EQ(header, before);
    header.slices.erase(header.slices.begin() + 1);
    header.layOut();
    EXPECT_EQ(header.slices[0].name(), "x86_64");
    EXPECT_EQ(header.slices[0].offset, 8192u);
    EXPECT_EQ(header.slices[1].name(), "ppc");
    EXPECT_EQ(header.slices[1].offset, 4096u);
}

TEST(UniversalHeader, Gaps) {
    const UniversalHeader header = readFrom(universalFile({kPPC, kI386})).value();
    const auto gaps = header.gaps(20000);
    ASSERT_EQ(gaps.size(), 3u);
    EXPECT_EQ(gaps[0].begin, 48u);
    EXPECT_EQ(gaps[0].end, 4096u);
    EXPECT_EQ(gaps[1].begin, 5096u);
    EXPECT_EQ(gaps[1].end, 8192u);
    EXPECT_EQ(gaps[2].begin, 11192u);
    EXPECT_EQ(gaps[2].end, 20000u);
    EXPECT_EQ(header.gaps(11192).size(), 2u);
}

TEST(UniversalHeader, ThinFiles) {
    const auto thin = [](const char* bytes) { return thinArchitecture(bytesOf(std::string_view(bytes, 12))); };
    EXPECT_EQ(thin("\xcf\xfa\xed\xfe\7\0\0\1\3\0\0\x80"), "x86_64");
    EXPECT_EQ(thin("\xce\xfa\xed\xfe\7\0\0\0\3\0\0\0"), "i386");
    EXPECT_EQ(thin("\xfe\xed\xfa\xce\0\0\0\x12\0\0\0\x0a"), "ppc7400");
    EXPECT_EQ(thin("\xfe\xed\xfa\xcf\1\0\0\x12\0\0\0\0"), "ppc64");
    EXPECT_EQ(thin("#!/bin/sh\nls"), std::nullopt);
    EXPECT_EQ(thinArchitecture(bytesOf("\xcf\xfa\xed\xfe\7")), std::nullopt);
}

}  // namespace
}  // namespace kavaro
