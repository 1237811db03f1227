#pragma once

#include <vector>

#include "platform/ByteBuffer.h"

namespace kavaro {

class TuvDirNode;
class TuvNode;
class TuvObjectArray;

// Writes the stream form at the end of a buffer. Iterative: a tree of any depth needs no stack. Made for one call.
class StreamWriter {
  public:
    explicit StreamWriter(ByteBuffer& data) : _data(data) {}
    void node(const TuvNode& node);
    void folder(const TuvDirNode& folder, int depth);
    // Homogeneous arrays. REQUIRES for folders: every element is a TuvDirNode.
    void files(const TuvObjectArray& array, int depth);
    void folders(const TuvObjectArray& array, int depth);
    // Count and log line of an array form; the records follow.
    void beginArray(const TuvObjectArray& array, int depth);
    void endHomogeneousArray(const TuvObjectArray& array);

  private:
    struct OpenFolders {
        const TuvObjectArray* array;
        int next;
    };
    void folderHeader(const TuvNode& folder, int depth);
    // Everything of a folder but the records of its folders array.
    void folderWithFiles(const TuvDirNode& folder, int depth, int childDepth);

    ByteBuffer& _data;
    std::vector<OpenFolders> _open;  // the way down to the record being written
};

}  // namespace kavaro
