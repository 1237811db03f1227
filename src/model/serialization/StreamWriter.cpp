#include "model/serialization/StreamWriter.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "model/TuvDirNode.h"
#include "model/serialization/ByteFields.h"
#include "model/serialization/SerializationLog.h"
#include "model/serialization/StreamRecords.h"

namespace kavaro {

namespace {

constexpr int kLargeArray = 8000;

NodeHeader headerOf(const TuvNode& node, std::size_t nameLength) {
    return {node.inode(), node.contentModDate(), node.logicalSize(), node.physicalSize(),
            static_cast<std::uint32_t>(nameLength)};
}

// The field is narrower than the argument; every depth above 2 means the same.
std::int16_t storedDepth(int depth) {
    using Limits = std::numeric_limits<std::int16_t>;
    return static_cast<std::int16_t>(std::clamp<int>(depth, Limits::min(), Limits::max()));
}

}  // namespace

void StreamWriter::node(const TuvNode& node) {
    const std::string_view name = nameToWrite(node);
    const NodeHeader header = headerOf(node, name.size());
    std::uint8_t* out = _data.extend(sizeof header + name.size());
    std::memcpy(out, &header, sizeof header);
    if (!name.empty()) std::memcpy(out + sizeof header, name.data(), name.size());
}

void StreamWriter::folderHeader(const TuvNode& folder, int depth) {
    const std::string_view name = nameToWrite(folder);
    const FolderHeader header{headerOf(folder, name.size()), folder.flags(), storedDepth(depth)};
    std::uint8_t* out = _data.extend(sizeof header + name.size());
    std::memcpy(out, &header, sizeof header);
    if (!name.empty()) std::memcpy(out + sizeof header, name.data(), name.size());
}

void StreamWriter::beginArray(const TuvObjectArray& array, int depth) {
    if (tuvObjectArrayLog.debugOn()) {
        TuvLog::debug(tuvObjectArrayLog, "serialize", "%d objects %d bytes, recurse depth %d", array.count(),
                      _data.size(), depth);
    }
    const ArrayCount count = array.count();
    serializeIVar(_data, &count, sizeof count);
}

void StreamWriter::endHomogeneousArray(const TuvObjectArray& array) {
    if (array.count() <= kLargeArray) return;
    TuvLog::info(tuvObjectArrayLog, "serialize", "large array with %d rows, %d bytes", array.count(), _data.size());
}

void StreamWriter::files(const TuvObjectArray& array, int depth) {
    beginArray(array, depth);
    for (int i = 0; i < array.count(); ++i) node(*array.nodeAtIndex(i));
    endHomogeneousArray(array);
}

void StreamWriter::folderWithFiles(const TuvDirNode& folder, int depth, int childDepth) {
    folderHeader(folder, depth);
    files(*folder.files(), childDepth);
    beginArray(*folder.folders(), childDepth);
}

void StreamWriter::folder(const TuvDirNode& root, int depth) {
    if (depth < kDepthOfChildren) {
        folderHeader(root, depth);
        return;
    }
    if (depth == kDepthOfChildren) {
        const TuvObjectArray& children = *root.folders();
        folderWithFiles(root, depth, kDepthOfHeader);
        for (int i = 0; i < children.count(); ++i) folderHeader(*children.nodeAtIndex(i), kDepthOfHeader);
        endHomogeneousArray(children);
        return;
    }
    folderWithFiles(root, depth, depth);
    _open.assign(1, {root.folders(), 0});
    while (!_open.empty()) {
        OpenFolders& top = _open.back();
        if (top.next == top.array->count()) {
            endHomogeneousArray(*top.array);
            _open.pop_back();
            continue;
        }
        const TuvDirNode& folder = *top.array->folderAtIndex(top.next++);
        folderWithFiles(folder, depth, depth);
        _open.push_back({folder.folders(), 0});
    }
}

void StreamWriter::folders(const TuvObjectArray& array, int depth) {
    beginArray(array, depth);
    for (int i = 0; i < array.count(); ++i) folder(*array.folderAtIndex(i), depth);
    endHomogeneousArray(array);
}

}  // namespace kavaro
