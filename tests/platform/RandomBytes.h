#pragma once

#include <random>
#include <string>

namespace kavaro {

// The same ones for the same seed.
inline std::string randomBytes(std::size_t length, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(length, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

}  // namespace kavaro
