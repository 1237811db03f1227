#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kavaro {

// Cuts a text that comes piece by piece into the rows of a recording: each from one "index=" to the character before
// the next, the first one from the text's start. What is behind the last "index=" is no row. Keeps one row at a time,
// of at most kLongestRow bytes; a longer one is counted and not kept.
class RowReader {
  public:
    // Two paths of a rename, each byte escaped, would have to be more than 100 KiB each to come here.
    static constexpr std::size_t kLongestRow = 1024 * 1024;

    using RowHandler = std::function<void(std::string_view row)>;
    using LongRowHandler = std::function<void(std::uint64_t bytes)>;

    RowReader(RowHandler row, LongRowHandler longRow);
    void read(std::string_view piece);
    std::uint64_t bytesRead() const { return _bytesRead; }
    std::uint64_t rowsRead() const { return _rowsRead; }
    // What is behind the last "index=", and that; the end of it when it is very long.
    std::string_view rest() const { return _text; }

  private:
    void handOver(std::string_view text);

    const RowHandler _row;
    const LongRowHandler _longRow;
    std::string _text;           // from the current row's start on, or what is left of a row that is too long
    std::size_t _searchFrom;     // in _text: where the next "index=" may begin
    std::uint64_t _dropped = 0;  // bytes of the current row that are not in _text
    std::uint64_t _bytesRead = 0;
    std::uint64_t _rowsRead = 0;
};

}  // namespace kavaro
