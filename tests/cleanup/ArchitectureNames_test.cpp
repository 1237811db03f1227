#include "cleanup/ArchitectureNames.h"

#include <gtest/gtest.h>

namespace kavaro {
namespace {

constexpr std::uint32_t k64 = 0x01000000, k64Bit32 = 0x02000000;

TEST(ArchitectureNames, OfEachKind) {
    const struct {
        std::uint32_t type, subtype;
        const char *name, *typeName, *subtypeName;
    } known[] = {
        {7, 3, "i386", "CPU_TYPE_I386", "CPU_SUBTYPE_I386_ALL"},
        {7, 4, "i486", "CPU_TYPE_I386", "CPU_SUBTYPE_486"},
        {7, 5, "pentium", "CPU_TYPE_I386", "CPU_SUBTYPE_PENT"},
        {7, 0x16, "pentpro", "CPU_TYPE_I386", "CPU_SUBTYPE_PENTPRO"},
        {7, 0x56, "pentIIm5", "CPU_TYPE_I386", "CPU_SUBTYPE_PENTII_M5"},
        {7 | k64, 3, "x86_64", "CPU_TYPE_X86_64", "CPU_SUBTYPE_X86_64_ALL"},
        {7 | k64, 8, "x86_64h", "CPU_TYPE_X86_64", "CPU_SUBTYPE_X86_64_H"},
        {18, 0, "ppc", "CPU_TYPE_POWERPC", "CPU_SUBTYPE_POWERPC_ALL"},
        {18, 1, "ppc601", "CPU_TYPE_POWERPC", "CPU_SUBTYPE_POWERPC_601"},
        {18, 3, "ppc603", "CPU_TYPE_POWERPC", "CPU_SUBTYPE_POWERPC_603"},
        {18, 5, "ppc603ev", "CPU_TYPE_POWERPC", "CPU_SUBTYPE_POWERPC_603ev"},
        {18, 7, "ppc604e", "CPU_TYPE_POWERPC", "CPU_SUBTYPE_POWERPC_604e"},
        {18, 9, "ppc750", "CPU_TYPE_POWERPC", "CPU_SUBTYPE_POWERPC_750"},
        {18, 10, "ppc7400", "CPU_TYPE_POWERPC", "CPU_SUBTYPE_POWERPC_7400"},
        {18, 11, "ppc7450", "CPU_TYPE_POWERPC", "CPU_SUBTYPE_POWERPC_7450"},
        {18, 100, "ppc970", "CPU_TYPE_POWERPC", "CPU_SUBTYPE_POWERPC_970"},
        {18 | k64, 0, "ppc64", "CPU_TYPE_POWERPC64", "CPU_SUBTYPE_POWERPC64_ALL"},
        {18 | k64, 100, "ppc970-64", "CPU_TYPE_POWERPC64", "CPU_SUBTYPE_POWERPC_970"},
        {12, 0, "arm", "CPU_TYPE_ARM", "CPU_SUBTYPE_ARM_ALL"},
        {12, 6, "armv6", "CPU_TYPE_ARM", "CPU_SUBTYPE_ARM_V6"},
        {12, 9, "armv7", "CPU_TYPE_ARM", "CPU_SUBTYPE_ARM_V7"},
        {12, 11, "armv7s", "CPU_TYPE_ARM", "CPU_SUBTYPE_ARM_V7S"},
        {12 | k64, 0, "arm64", "CPU_TYPE_ARM64", "CPU_SUBTYPE_ARM64_ALL"},
        {12 | k64, 2, "arm64e", "CPU_TYPE_ARM64", "CPU_SUBTYPE_ARM64E"},
        {12 | k64Bit32, 1, "arm64_32", "CPU_TYPE_ARM64_32", "CPU_SUBTYPE_ARM64_32_V8"},
    };
    for (const auto& one : known) {
        const ArchitectureNames names = namesOfArchitecture(one.type, one.subtype);
        EXPECT_EQ(names.name, one.name);
        EXPECT_EQ(names.type, one.typeName) << one.name;
        EXPECT_EQ(names.subtype, one.subtypeName) << one.name;
        EXPECT_EQ(names.capabilities, "0x0") << one.name;
        EXPECT_EQ(nameOfArchitecture(one.type, one.subtype), one.name);
    }
}

TEST(ArchitectureNames, UnknownOnesAreNumbers) {
    const ArchitectureNames strange = namesOfArchitecture(99, 3);
    EXPECT_EQ(strange.name, "(cputype (99) cpusubtype (3))");
    EXPECT_EQ(strange.type, "(99)");
    EXPECT_EQ(strange.subtype, "(3)");
    const ArchitectureNames fresh = namesOfArchitecture(18, 77);
    EXPECT_EQ(fresh.name, "(cputype (18) cpusubtype (77))");
    EXPECT_EQ(fresh.type, "CPU_TYPE_POWERPC");
    EXPECT_EQ(fresh.subtype, "(77)");
    EXPECT_EQ(nameOfArchitecture(0xffffffff, 0), "(cputype (-1) cpusubtype (0))");
}

TEST(ArchitectureNames, CapabilitiesAreNoPartOfTheName) {
    EXPECT_EQ(nameOfArchitecture(7 | k64, 0x80000003), "x86_64");
    EXPECT_EQ(namesOfArchitecture(7 | k64, 0x80000003).capabilities, "CPU_SUBTYPE_LIB64");
    EXPECT_EQ(namesOfArchitecture(12 | k64, 0x80000002).capabilities, "PTR_AUTH_VERSION USERSPACE 0");
    EXPECT_EQ(namesOfArchitecture(12 | k64, 0xc1000002).capabilities, "PTR_AUTH_VERSION KERNEL 1");
    EXPECT_EQ(namesOfArchitecture(7, 0x12000003).capabilities, "0x12");
}

}  // namespace
}  // namespace kavaro
