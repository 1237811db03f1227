#include <limits>

#include "model/FolderWalk.h"
#include "model/TuvDirNode.h"
#include "model/serialization/ByteFields.h"
#include "model/serialization/SerializationLog.h"
#include "model/serialization/TuvNodeSerializer.h"

namespace kavaro {

namespace {

// The folder, its files, then each of its folders with its whole subtree.
template <class Visit>
void visitInPreorder(const TuvDirNode& root, Visit visit) {
    for (FolderWalk walk(&root); const TuvDirNode* folder = walk.next();) {
        visit(*folder);
        for (int i = 0; i < folder->fileCount(); ++i) visit(*folder->files()->nodeAtIndex(i));
    }
}

TuvNodeIndex indexRecordOf(const TuvNode& node) {
    const TuvNode* parent = node.parent();
    return {node.inode(), parent ? parent->inode() : 0};
}

// The name as it goes into the data stream at `offset`. One that the record's narrow fields cannot point at is left
// out: a wrong length would spoil its neighbours.
std::string_view storableName(const TuvNode& node, std::size_t offset) {
    const std::string_view name = nameToWrite(node);
    const bool fits = name.size() <= std::numeric_limits<std::uint16_t>::max() &&
                      offset + name.size() <= std::numeric_limits<std::uint32_t>::max();
    if (fits) return name;
    TuvLog::error(tuvNodeLog, "tuvNodeDatabase_serialize", "Name of %d bytes at offset %d left out: inode %d",
                  name.size(), offset, node.inode());
    return {};
}

TuvNodeBase nodeRecordOf(const TuvNode& node, std::string_view name, std::size_t offset) {
    TuvNodeBase record;
    record.contentModDate = node.contentModDate();
    record.logicalSize = node.logicalSize();
    record.physicalSize = node.physicalSize();
    record.nameOffset = offset <= std::numeric_limits<std::uint32_t>::max() ? static_cast<std::uint32_t>(offset) : 0;
    record.nameLength = static_cast<std::uint16_t>(name.size());
    record.flags = node.flags();
    return record;
}

const char* typeWord(std::uint16_t flags) {
    return flags & TuvNode::kFile ? "file" : flags & TuvNode::kFolder ? "folder" : "other";
}

}  // namespace

void TuvNode::tuvNodeDatabase_serialize(ByteBuffer* index, ByteBuffer* node, ByteBuffer* data) const {
    if (index) {
        const TuvNodeIndex record = indexRecordOf(*this);
        serializeIVar(*index, &record, sizeof record);
    }
    if (node && data) {
        const std::string_view name = storableName(*this, data->size());
        const TuvNodeBase record = nodeRecordOf(*this, name, data->size());
        serializeIVar(*node, &record, sizeof record);
        serializeNSString(*data, name.data(), name.size());
    }
}

void TuvNode::tuvNodeDatabase_serialize2(TuvNodeSerializer& serializer) const {
    const TuvNodeIndex index = indexRecordOf(*this);
    serializeIVar(serializer.indexBuffer, &index, sizeof index);
    serializeIndexBytes(serializer, false);

    const std::string_view name = storableName(*this, serializer.dataOffset);
    const TuvNodeBase record = nodeRecordOf(*this, name, serializer.dataOffset);
    serializeIVar(serializer.nodeBuffer, &record, sizeof record);
    serializeNodeBytes(serializer, false);

    serializer.dataOffset += record.nameLength;
    serializeNSString(serializer.dataBuffer, name.data(), name.size());
    serializeDataBytes(serializer, false);

    ++serializer.nodesTotal;
    if (++serializer.nodesSinceRenewal > serializer.poolInterval) serializer.nodesSinceRenewal = 0;
}

void TuvDirNode::tuvNodeDatabase_serialize(ByteBuffer* index, ByteBuffer* node, ByteBuffer* data) const {
    visitInPreorder(*this, [&](const TuvNode& each) { each.TuvNode::tuvNodeDatabase_serialize(index, node, data); });
}

void TuvDirNode::tuvNodeDatabase_serialize2(TuvNodeSerializer& serializer) const {
    visitInPreorder(*this, [&](const TuvNode& each) { each.TuvNode::tuvNodeDatabase_serialize2(serializer); });
}

void TuvObjectArray::tuvNodeDatabase_serialize(ByteBuffer* index, ByteBuffer* node, ByteBuffer* data) const {
    for (int i = 0; i < _count; ++i) nodeAtIndex(i)->tuvNodeDatabase_serialize(index, node, data);
}

void TuvObjectArray::tuvNodeDatabase_serialize2(TuvNodeSerializer& serializer) const {
    for (int i = 0; i < _count; ++i) nodeAtIndex(i)->tuvNodeDatabase_serialize2(serializer);
}

bool TuvNode::tuvNodeDatabase_deserialize(const TuvNodeIndex& index, const TuvNodeBase& node, ByteView data) {
    const std::size_t offset = node.nameOffset;
    const std::size_t length = node.nameLength;
    if (offset > data.size() || length > data.size() - offset)
        return malformed(tuvNodeLog, "name is outside of the data stream", node.nameOffset, data.size());
    const std::string_view name = length ? textOf(data.subspan(offset, length)) : std::string_view("");
    setInode(index.inode);
    setFlags(node.flags);
    setContentModDate(node.contentModDate);
    setLogicalSize(node.logicalSize);
    setPhysicalSize(node.physicalSize);
    setFileName(NodeText(name));
    if (tuvNodeLog.traceOn()) {
        TuvLog::trace(tuvNodeLog, "tuvNodeDatabase_deserialize", "%8d %8d %8s [%8d->%3d] [%@]", index.inode,
                      index.parentInode, typeWord(node.flags), node.nameOffset, node.nameLength, name);
    }
    return true;
}

bool TuvDirNode::tuvNodeDatabase_deserialize(const TuvNodeIndex* index, const TuvNodeBase* nodes, ByteView data,
                                             int* cursor, int total) {
    if (*cursor < 0) return malformed(tuvDirNodeLog, "negative record number", *cursor, data.size());
    std::vector<TuvDirNode*> open{this};  // the way down to the record being read
    std::uint64_t names = 0;              // bytes of the names so far
    int i = *cursor;
    for (; i < total; ++i) {
        while (!open.empty() && open.back()->inode() != index[i].parentInode) open.pop_back();
        if (open.empty()) break;
        TuvDirNode* parent = open.back();
        if (tuvDirNodeLog.traceOn()) {
            TuvLog::trace(tuvDirNodeLog, "tuvNodeDatabase_deserialize", "%8d %8d %8s [%8d->%3d]", index[i].inode,
                          index[i].parentInode, typeWord(nodes[i].flags), nodes[i].nameOffset, nodes[i].nameLength);
        }
        if (nodes[i].flags & kFile) {
            TuvNode* file = new TuvNode;
            parent->files()->adoptObject(file);
            if (!file->tuvNodeDatabase_deserialize(index[i], nodes[i], data)) return false;
            file->setParent(parent);
        } else if (nodes[i].flags & kFolder) {
            TuvDirNode* folder = new TuvDirNode;
            parent->folders()->adoptObject(folder);
            if (!folder->TuvNode::tuvNodeDatabase_deserialize(index[i], nodes[i], data)) return false;
            folder->setParent(parent);
            open.push_back(folder);
        } else {
            continue;
        }
        // Each name has bytes of its own. Records that shared them could ask for far more memory than there are bytes.
        names += nodes[i].nameLength;
        if (names > data.size())
            return malformed(tuvDirNodeLog, "names share bytes of the data stream", nodes[i].nameOffset, data.size());
    }
    *cursor = i - 1;
    return true;
}

}  // namespace kavaro
