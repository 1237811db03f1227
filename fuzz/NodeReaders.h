#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "model/TuvDirNode.h"
#include "model/serialization/TuvNodeSerializer.h"

// What the fuzzers run, and the tests with the corpus: every reader of node bytes, over bytes that may be anything.
// Ends the process when a reader breaks its promise.
namespace kavaro::fuzz {

inline void check(bool kept) {
    if (!kept) std::abort();
}

// What was read must be usable: written again without the depth cut, it must be read again and be the same bytes.
inline void writeAgain(const TuvDirNode& folder) {
    ByteBuffer first, second;
    folder.serialize(first, 3);
    const TuvRef<TuvDirNode> again = TuvDirNode::fromBytes(first.view());
    check(static_cast<bool>(again));
    again->serialize(second, 3);
    check(textOf(first.view()) == textOf(second.view()));
}

inline void readNodeStream(ByteView bytes) {
    const auto end = static_cast<int>(bytes.size());
    const TuvRef<TuvObjectArray> batch = TuvObjectArray::fromBytes(bytes);
    if (batch) check(static_cast<std::size_t>(batch->count()) * 36 <= bytes.size());
    const TuvRef<TuvDirNode> folder = TuvDirNode::fromBytes(bytes);
    if (folder) writeAgain(*folder);
    for (int type = 0; type <= 2; ++type) {
        auto array = make<TuvObjectArray>();
        int cursor = 0;
        if (array->deserialize(bytes, &cursor, type)) check(cursor >= 4 && cursor <= end);
    }
    auto node = make<TuvNode>();
    int cursor = 0;
    if (node->deserialize(bytes, &cursor)) check(cursor == static_cast<int>(32 + node->fileName().size()));
}

// The bytes: a byte n, n index records, n node records, and the rest is the data stream.
inline void readNodeDatabase(ByteView bytes) {
    constexpr std::size_t kRecords = sizeof(TuvNodeIndex) + sizeof(TuvNodeBase);
    if (bytes.empty()) return;
    const std::size_t total = bytes[0];
    bytes = bytes.subspan(1);
    if (total == 0 || total * kRecords > bytes.size()) return;
    std::vector<TuvNodeIndex> index(total);
    std::vector<TuvNodeBase> nodes(total);
    std::memcpy(index.data(), bytes.data(), total * sizeof(TuvNodeIndex));
    std::memcpy(nodes.data(), bytes.data() + total * sizeof(TuvNodeIndex), total * sizeof(TuvNodeBase));
    const ByteView data = bytes.subspan(total * kRecords);

    auto root = make<TuvDirNode>();
    if (!root->tuvNodeDatabase_deserialize(index[0], nodes[0], data)) return;
    int cursor = 1;
    if (!root->tuvNodeDatabase_deserialize(index.data(), nodes.data(), data, &cursor, static_cast<int>(total))) return;
    check(cursor >= 0 && cursor < static_cast<int>(total));
    check(root->recursiveFileCount() + root->recursiveFolderCount() <= cursor);
    writeAgain(*root);
    ByteBuffer newIndex, newNodes, newData;
    root->tuvNodeDatabase_serialize(&newIndex, &newNodes, &newData);
    check(newIndex.size() <= (static_cast<std::size_t>(cursor) + 1) * sizeof(TuvNodeIndex));
}

}  // namespace kavaro::fuzz
