#pragma once

#include <cstdint>
#include <string>

namespace kavaro {

// How people and tools call a kind of processor, which files know by two numbers: its type, and its subtype, whose
// highest eight bits are capabilities. Numbers that are not known are shown as numbers.
struct ArchitectureNames {
    std::string name;          // "ppc7400", "x86_64"; "(cputype (99) cpusubtype (3))"
    std::string type;          // "CPU_TYPE_POWERPC"; "(99)"
    std::string subtype;       // "CPU_SUBTYPE_POWERPC_7400"; "(3)"
    std::string capabilities;  // "0x0", "CPU_SUBTYPE_LIB64", "PTR_AUTH_VERSION USERSPACE 0"
};

inline constexpr std::uint32_t kCapabilityBits = 0xff000000;

ArchitectureNames namesOfArchitecture(std::uint32_t type, std::uint32_t subtype);
std::string nameOfArchitecture(std::uint32_t type, std::uint32_t subtype);

}  // namespace kavaro
