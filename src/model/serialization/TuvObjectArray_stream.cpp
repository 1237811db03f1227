#include "model/TuvDirNode.h"
#include "model/serialization/ByteFields.h"
#include "model/serialization/SerializationLog.h"
#include "model/serialization/StreamReader.h"
#include "model/serialization/StreamRecords.h"
#include "model/serialization/StreamWriter.h"
#include "support/Stopwatch.h"

namespace kavaro {

namespace {

constexpr std::size_t kCapacityPerElement = 256;

bool readWhole(TuvObjectArray& array, ByteView bytes) {
    if (!bytes.data()) return true;
    const Stopwatch watch;
    int cursor = 0;
    if (!StreamReader(bytes, &cursor).mixed(array)) return false;
    if (tuvObjectArrayLog.debugOn()) {
        TuvLog::debug(tuvObjectArrayLog, "TuvObjectArray", "%d nodes from %d bytes, in %9.3f ms", array.count(),
                      bytes.size(), watch.milliseconds());
    }
    return true;
}

}  // namespace

TuvObjectArray::TuvObjectArray(ByteView bytes) {
    if (!readWhole(*this, bytes)) removeAllObjects();
}

TuvRef<TuvObjectArray> TuvObjectArray::fromBytes(ByteView bytes) {
    TuvRef<TuvObjectArray> array = make<TuvObjectArray>();
    if (!readWhole(*array, bytes)) return nullptr;
    return array;
}

ByteBuffer TuvObjectArray::serialize() const {
    if (_count == 0) return {};
    const Stopwatch watch;
    if (tuvObjectArrayLog.debugOn()) TuvLog::debug(tuvObjectArrayLog, "serialize", "%d objects", _count);
    ByteBuffer data(static_cast<std::size_t>(_count) * kCapacityPerElement);
    serialize(data, kDepthOfChildren);
    if (tuvObjectArrayLog.debugOn()) {
        TuvLog::debug(tuvObjectArrayLog, "serialize", "%d nodes into %d bytes, in %9.3f ms", _count, data.size(),
                      watch.milliseconds());
    }
    return data;
}

void TuvObjectArray::serialize(ByteBuffer& data, int depth) const {
    StreamWriter writer(data);
    writer.beginArray(*this, depth);
    for (int i = 0; i < _count; ++i) {
        const TuvNode& node = *nodeAtIndex(i);
        const int type = node.nodeType();
        if (type == TuvNode::kTypeOther) {
            TuvLog::error(tuvObjectArrayLog, "serialize", "Node types %d are not implemented", type);
            continue;
        }
        const TypeCode code = static_cast<TypeCode>(type);
        serializeIVar(data, &code, sizeof code);
        if (type == TuvNode::kTypeFile) {
            writer.node(node);
        } else {
            node.serialize(data, depth);
        }
    }
}

void TuvObjectArray::serialize(ByteBuffer& data, int depth, int type) const {
    StreamWriter writer(data);
    if (type == TuvNode::kTypeFile) {
        writer.files(*this, depth);
    } else if (type == TuvNode::kTypeFolder) {
        writer.folders(*this, depth);
    } else {
        writer.beginArray(*this, depth);
        for (int i = 0; i < _count; ++i) nodeAtIndex(i)->serialize(data, depth);
        writer.endHomogeneousArray(*this);
    }
}

bool TuvObjectArray::deserialize(ByteView data, int* cursor) {
    return StreamReader(data, cursor).mixed(*this);
}

bool TuvObjectArray::deserialize(ByteView data, int* cursor, int type) {
    StreamReader reader(data, cursor);
    if (type == TuvNode::kTypeFile) return reader.files(*this, nullptr);
    if (type == TuvNode::kTypeFolder) return reader.folders(*this);
    return reader.inPlace(*this);
}

}  // namespace kavaro
