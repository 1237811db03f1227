#pragma once

#include <vector>

#include "platform/ByteView.h"

namespace kavaro {

class LogComponent;
class TuvDirNode;
class TuvNode;
class TuvObjectArray;

// Reads the stream form at a cursor, from bytes that nobody has checked. Every length is held against what remains
// before anything is read or allocated, so memory is bounded by a small multiple of the input. False, after one log
// line, for bytes that are cut short or make no sense; what was read until then stays where it is. Iterative: nested
// folders need no stack. Made for one call.
class StreamReader {
  public:
    // `cursor` outlives the reader.
    StreamReader(ByteView data, int* cursor) : _data(data), _cursor(cursor) {}
    bool node(TuvNode& node);
    bool folder(TuvDirNode& folder);
    // Array forms: the array's old elements go, unless they are read in place.
    bool files(TuvObjectArray& array, TuvDirNode* parent);
    bool folders(TuvObjectArray& array);
    bool inPlace(TuvObjectArray& array);
    bool mixed(TuvObjectArray& array);

  private:
    struct OpenFolder {
        TuvDirNode* folder;
        int left;  // folder children still to read
    };
    // A count that the remaining bytes can hold, given the smallest record.
    bool count(std::size_t smallestRecord, int* count);
    bool emptyArray(TuvObjectArray& array, std::size_t smallestRecord, int* count);
    // Everything of a folder but the records of its folders array, for which the folder is left open.
    bool folderWithFiles(TuvDirNode& folder);
    bool name(TuvNode& node, std::size_t length, const LogComponent& component);
    bool fail(const LogComponent& component, const char* what) const;

    ByteView _data;
    int* _cursor;
    std::vector<OpenFolder> _open;
};

}  // namespace kavaro
