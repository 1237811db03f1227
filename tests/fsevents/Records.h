#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fsevents/TuvFSEvents.h"

namespace kavaro {

inline constexpr std::uint32_t kTestDevice = 0x0801;

// Bytes of kernel records, written without the program's own writer.
inline std::string bytes16(unsigned value) {
    return {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8 & 0xFF)};
}
inline std::string bytes32(std::uint32_t value) {
    return bytes16(value & 0xFFFF) + bytes16(value >> 16);
}
inline std::string argument(unsigned type, const std::string& data) {
    return bytes16(type) + bytes16(static_cast<unsigned>(data.size())) + data;
}
inline std::string place(const std::string& path, std::uint32_t inode, std::uint32_t device = kTestDevice) {
    return argument(2, path + '\0') + argument(7, bytes32(inode)) + argument(9, bytes32(device));
}
inline std::string kernelRecord(int type, const std::string& arguments) {
    return bytes32(static_cast<std::uint32_t>(type)) + bytes32(77) + arguments + "\x3F\xB3";
}

// A listener without threads that is given records.
class RecordReader {
  public:
    RecordReader() { TuvFSEvent::setAcceptedDevice(kTestDevice); }
    // In memory of exactly that size, where a sanitizer sees every byte too many that is read.
    void read(const std::string& bytes) {
        const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
        TuvFSEvents_print_event(&listener, exact.data(), static_cast<int>(exact.size()));
    }
    // What waits, ascending by inode: "CREATE_FILE 5 /path", for a rename " -> 5 /other"; " + TYPE" for each child.
    std::vector<std::string> events() {
        std::vector<std::string> texts;
        const TuvRef<TuvObjectArray> batch = listener.events().takeAll();
        for (const TuvObject* object : *batch) texts.push_back(textOf(*static_cast<const TuvFSEvent*>(object)));
        return texts;
    }
    static std::string textOf(const TuvFSEvent& event) {
        const char* name = TuvFSEvent::stringType(event.type());
        std::string text = (name ? name : "?") + std::string(" ") + std::to_string(event.inode()) + " " +
                           (event.filePath().data() ? std::string(event.filePath()) : "(none)");
        if (event.filePathDestination().data() || event.inodeDestination() != 0)
            text += " -> " + std::to_string(event.inodeDestination()) + " " + std::string(event.filePathDestination());
        if (!event.childEvents()) return text;
        for (const TuvObject* child : *event.childEvents())
            text += std::string(" + ") + TuvFSEvent::stringType(static_cast<const TuvFSEvent*>(child)->type());
        return text;
    }

    TuvFSEvents listener;
};

}  // namespace kavaro
