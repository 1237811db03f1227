#include "cleanup/ArchitectureNames.h"

#include <cstdio>
#include <string_view>

namespace kavaro {

namespace {

constexpr std::uint32_t k64Bit = 0x01000000, k64Bit32 = 0x02000000;  // in a type: wide registers, narrow pointers
constexpr std::uint32_t kMC680x0 = 6, kIntel = 7, kHPPA = 11, kARM = 12, kMC88000 = 13, kSPARC = 14, kI860 = 15,
                        kPowerPC = 18;
constexpr std::uint32_t kARM64 = kARM | k64Bit, kARM64E = 2;

struct Type {
    std::uint32_t type;
    std::string_view name;           // without "CPU_TYPE_"
    std::string_view subtypePrefix;  // after "CPU_SUBTYPE_"
};

constexpr Type kTypes[] = {
    {kMC680x0, "MC680x0", ""},
    {kIntel, "I386", ""},
    {kIntel | k64Bit, "X86_64", "X86_64_"},
    {kHPPA, "HPPA", "HPPA_"},
    {kARM, "ARM", "ARM_"},
    {kARM64, "ARM64", ""},
    {kARM | k64Bit32, "ARM64_32", "ARM64_32_"},
    {kMC88000, "MC88000", "MC88000_"},
    {kSPARC, "SPARC", "SPARC_"},
    {kI860, "I860", "I860_"},
    {kPowerPC, "POWERPC", "POWERPC_"},
    {kPowerPC | k64Bit, "POWERPC64", "POWERPC"},
};

struct Architecture {
    std::uint32_t type, subtype;
    std::string_view name;
    std::string_view subtypeName;  // after the type's prefix
};

constexpr Architecture kArchitectures[] = {
    {kMC680x0, 1, "m68k", "MC680x0_ALL"},
    {kMC680x0, 2, "m68040", "MC68040"},
    {kMC680x0, 3, "m68030", "MC68030_ONLY"},
    {kIntel, 3, "i386", "I386_ALL"},
    {kIntel, 4, "i486", "486"},
    {kIntel, 0x84, "i486SX", "486SX"},
    {kIntel, 5, "pentium", "PENT"},
    {kIntel, 0x16, "pentpro", "PENTPRO"},
    {kIntel, 0x36, "pentIIm3", "PENTII_M3"},
    {kIntel, 0x56, "pentIIm5", "PENTII_M5"},
    {kIntel, 0x0a, "pentium4", "PENTIUM_4"},
    {kIntel | k64Bit, 3, "x86_64", "ALL"},
    {kIntel | k64Bit, 8, "x86_64h", "H"},
    {kHPPA, 0, "hppa", "ALL"},
    {kHPPA, 1, "hppa7100LC", "7100LC"},
    {kARM, 0, "arm", "ALL"},
    {kARM, 5, "armv4t", "V4T"},
    {kARM, 6, "armv6", "V6"},
    {kARM, 7, "armv5", "V5TEJ"},
    {kARM, 8, "xscale", "XSCALE"},
    {kARM, 9, "armv7", "V7"},
    {kARM, 10, "armv7f", "V7F"},
    {kARM, 11, "armv7s", "V7S"},
    {kARM, 12, "armv7k", "V7K"},
    {kARM, 13, "armv8", "V8"},
    {kARM, 14, "armv6m", "V6M"},
    {kARM, 15, "armv7m", "V7M"},
    {kARM, 16, "armv7em", "V7EM"},
    {kARM64, 0, "arm64", "ARM64_ALL"},
    {kARM64, 1, "arm64v8", "ARM64_V8"},
    {kARM64, kARM64E, "arm64e", "ARM64E"},
    {kARM | k64Bit32, 0, "arm64_32", "ALL"},
    {kARM | k64Bit32, 1, "arm64_32", "V8"},
    {kMC88000, 0, "m88k", "ALL"},
    {kSPARC, 0, "sparc", "ALL"},
    {kI860, 0, "i860", "ALL"},
    {kPowerPC, 0, "ppc", "ALL"},
    {kPowerPC, 1, "ppc601", "601"},
    {kPowerPC, 2, "ppc602", "602"},
    {kPowerPC, 3, "ppc603", "603"},
    {kPowerPC, 4, "ppc603e", "603e"},
    {kPowerPC, 5, "ppc603ev", "603ev"},
    {kPowerPC, 6, "ppc604", "604"},
    {kPowerPC, 7, "ppc604e", "604e"},
    {kPowerPC, 8, "ppc620", "620"},
    {kPowerPC, 9, "ppc750", "750"},
    {kPowerPC, 10, "ppc7400", "7400"},
    {kPowerPC, 11, "ppc7450", "7450"},
    {kPowerPC, 100, "ppc970", "970"},
    {kPowerPC | k64Bit, 0, "ppc64", "64_ALL"},
    {kPowerPC | k64Bit, 100, "ppc970-64", "_970"},
};

const Type* typeOf(std::uint32_t type) {
    for (const Type& known : kTypes)
        if (known.type == type) return &known;
    return nullptr;
}

const Architecture* architectureOf(std::uint32_t type, std::uint32_t subtype) {
    for (const Architecture& known : kArchitectures)
        if (known.type == type && known.subtype == (subtype & ~kCapabilityBits)) return &known;
    return nullptr;
}

// As a number with sign, which is what the tool shows.
std::string inParentheses(std::uint32_t number) {
    return "(" + std::to_string(static_cast<std::int32_t>(number)) + ")";
}

std::string capabilitiesOf(std::uint32_t type, std::uint32_t subtype) {
    const std::uint32_t bits = (subtype & kCapabilityBits) >> 24;
    if (type == kARM64 && (subtype & ~kCapabilityBits) == kARM64E && (bits & 0x80))
        return std::string("PTR_AUTH_VERSION ") + (bits & 0x40 ? "KERNEL " : "USERSPACE ") + std::to_string(bits & 0xf);
    if ((type & k64Bit) && bits == 0x80) return "CPU_SUBTYPE_LIB64";
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", bits);
    return text;
}

}  // namespace

std::string nameOfArchitecture(std::uint32_t type, std::uint32_t subtype) {
    if (const Architecture* known = architectureOf(type, subtype)) return std::string(known->name);
    return "(cputype " + inParentheses(type) + " cpusubtype " + inParentheses(subtype & ~kCapabilityBits) + ")";
}

ArchitectureNames namesOfArchitecture(std::uint32_t type, std::uint32_t subtype) {
    const Type* knownType = typeOf(type);
    const Architecture* known = architectureOf(type, subtype);
    ArchitectureNames names;
    names.name = nameOfArchitecture(type, subtype);
    names.type = knownType ? "CPU_TYPE_" + std::string(knownType->name) : inParentheses(type);
    names.subtype = known ? "CPU_SUBTYPE_" + std::string(knownType->subtypePrefix) + std::string(known->subtypeName)
                          : inParentheses(subtype & ~kCapabilityBits);
    names.capabilities = capabilitiesOf(type, subtype);
    return names;
}

}  // namespace kavaro
