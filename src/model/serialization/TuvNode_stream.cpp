#include "model/TuvDirNode.h"
#include "model/serialization/StreamReader.h"
#include "model/serialization/StreamRecords.h"
#include "model/serialization/StreamWriter.h"

namespace kavaro {

namespace {

constexpr std::size_t kRecordCapacity = 65536;

}  // namespace

void TuvNode::serialize(ByteBuffer& data, int) const {
    StreamWriter(data).node(*this);
}

ByteBuffer TuvNode::serialize() const {
    ByteBuffer data(kRecordCapacity);
    serialize(data, kDepthOfHeader);
    return data;
}

bool TuvNode::deserialize(ByteView data, int* cursor) {
    return StreamReader(data, cursor).node(*this);
}

TuvNode* TuvNode::deserialize(ByteView data) {
    int cursor = 0;
    return deserialize(data, &cursor) ? this : nullptr;
}

TuvDirNode::TuvDirNode(ByteView bytes) : TuvDirNode() {
    int cursor = 0;
    if (StreamReader(bytes, &cursor).folder(*this)) return;
    setInode(0);
    setFlags(kFolder);
    setContentModDate(0);
    setLogicalSize(0);
    setPhysicalSize(0);
    setFileName(NodeText());
    _files->removeAllObjects();
    _folders->removeAllObjects();
}

TuvRef<TuvDirNode> TuvDirNode::fromBytes(ByteView bytes) {
    TuvRef<TuvDirNode> folder = make<TuvDirNode>();
    int cursor = 0;
    if (!StreamReader(bytes, &cursor).folder(*folder)) return nullptr;
    return folder;
}

void TuvDirNode::serialize(ByteBuffer& data, int depth) const {
    StreamWriter(data).folder(*this, depth);
}

ByteBuffer TuvDirNode::serialize() const {
    ByteBuffer data(kRecordCapacity);
    serialize(data, kDepthOfChildren);
    return data;
}

bool TuvDirNode::deserialize(ByteView data, int* cursor) {
    return StreamReader(data, cursor).folder(*this);
}

TuvNode* TuvDirNode::deserialize(ByteView data) {
    int cursor = 0;
    return deserialize(data, &cursor) ? this : nullptr;
}

}  // namespace kavaro
