#include "fsevents/KernelRecord.h"

namespace kavaro {

void KernelRecordWriter::add16(std::uint32_t value) {
    std::uint8_t* bytes = _buffer.extend(2);
    bytes[0] = static_cast<std::uint8_t>(value);
    bytes[1] = static_cast<std::uint8_t>(value >> 8);
}

void KernelRecordWriter::add32(std::uint32_t value) {
    add16(value & 0xFFFF);
    add16(value >> 16);
}

void KernelRecordWriter::begin(std::int32_t type, std::int32_t process) {
    add32(static_cast<std::uint32_t>(type));
    add32(static_cast<std::uint32_t>(process));
}

void KernelRecordWriter::addText(record::ArgumentType type, std::string_view text) {
    add16(type);
    add16(static_cast<std::uint32_t>(text.size() + 1));
    _buffer.append(text.data(), text.size());
    *_buffer.extend(1) = 0;
}

void KernelRecordWriter::addNumber(record::ArgumentType type, std::uint32_t number) {
    add16(type);
    add16(4);
    add32(number);
}

void KernelRecordWriter::end() {
    add16(record::kDone);
}

}  // namespace kavaro
