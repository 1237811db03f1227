#include "fsevents/RowReader.h"

#include <algorithm>
#include <utility>

#include "fsevents/EventRecording.h"

namespace kavaro {

RowReader::RowReader(RowHandler row, LongRowHandler longRow)
    : _row(std::move(row)), _longRow(std::move(longRow)), _searchFrom(kRowStart.size()) {}

void RowReader::read(std::string_view piece) {
    _bytesRead += piece.size();
    _text += piece;
    std::size_t start = 0;
    std::size_t searchFrom = _searchFrom;
    std::size_t found;
    while ((found = _text.find(kRowStart, searchFrom)) != std::string::npos) {
        handOver(std::string_view(_text).substr(start, found - start));
        start = found;
        searchFrom = found + kRowStart.size() - 1;
    }
    _text.erase(0, start);
    // The beginning of the next one may be there already.
    const std::size_t looked = _text.size() - std::min(_text.size(), kRowStart.size() - 1);
    _searchFrom = std::max(searchFrom - start, looked);
    if (_text.size() > kLongestRow) {
        const std::size_t dropped = std::min(_searchFrom, _text.size());
        _dropped += dropped;
        _text.erase(0, dropped);
        _searchFrom = 0;
    }
}

// Of a row and the character behind it.
void RowReader::handOver(std::string_view text) {
    const std::uint64_t bytes = std::exchange(_dropped, 0) + text.size();
    ++_rowsRead;
    if (bytes > kLongestRow)
        _longRow(bytes);
    else
        _row(text.substr(0, text.size() - 1));
}

}  // namespace kavaro
