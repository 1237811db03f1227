#pragma once

#include <string>
#include <string_view>

namespace kavaro {

// Buffered writing to a descriptor that it does not own. The first failed write is kept, everything after it is
// dropped: long producers ask failed() now and then. Flushes when destroyed.
class Output {
  public:
    explicit Output(int fd) : _fd(fd) { _buffer.reserve(kBufferSize); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output() { flush(); }

    void put(char byte) {
        if (_buffer.size() >= kBufferSize) flush();
        _buffer.push_back(byte);
    }
    void write(std::string_view text);
    void flush();

    bool failed() const { return _error != 0; }
    int error() const { return _error; }  // errno, 0 while all went well

  private:
    static constexpr std::size_t kBufferSize = 65536;
    int _fd;
    int _error = 0;
    std::string _buffer;
};

// Texts for people. `reason` and `advice` are sentences without the full stop; an empty advice is left out.
// "kavaro: PATH: REASON. ADVICE.\n"
std::string errorMessage(std::string_view path, std::string_view reason, std::string_view advice);
// The same without "kavaro: " and the line end: the form of Measurement::failure.
std::string failureText(std::string_view path, std::string_view reason, std::string_view advice);
std::string withProgramName(std::string_view failure);

std::string counted(std::uint64_t number, const char* one, const char* many);  // "1 file", "1,234 files"

}  // namespace kavaro
