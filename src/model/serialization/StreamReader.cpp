#include "model/serialization/StreamReader.h"

#include "model/TuvDirNode.h"
#include "model/serialization/ByteFields.h"
#include "model/serialization/SerializationLog.h"
#include "model/serialization/StreamRecords.h"

namespace kavaro {

namespace {

void fill(TuvNode& node, const NodeHeader& header) {
    node.setInode(header.inode);
    node.setContentModDate(header.contentModDate);
    node.setLogicalSize(header.logicalSize);
    node.setPhysicalSize(header.physicalSize);
}

}  // namespace

bool malformed(const LogComponent& component, const char* what, std::int64_t at, std::size_t size) {
    TuvLog::error(component, "deserialize", "Malformed data: %s at byte %d of %d", what, at, size);
    return false;
}

bool StreamReader::fail(const LogComponent& component, const char* what) const {
    return malformed(component, what, *_cursor, _data.size());
}

bool StreamReader::name(TuvNode& node, std::size_t length, const LogComponent& component) {
    std::string_view text;
    if (!deserializeNSString(_data, _cursor, length, &text)) return fail(component, "name is cut short");
    node.setFileName(NodeText(text));
    return true;
}

bool StreamReader::node(TuvNode& node) {
    NodeHeader header;
    if (!deserializeIVar(_data, &header, _cursor, sizeof header)) return fail(tuvNodeLog, "file record is cut short");
    fill(node, header);
    return name(node, header.nameLength, tuvNodeLog);
}

bool StreamReader::count(std::size_t smallestRecord, int* count) {
    ArrayCount stored;
    if (!deserializeIVar(_data, &stored, _cursor, sizeof stored)) return fail(tuvObjectArrayLog, "count is cut short");
    if (stored < 0) return fail(tuvObjectArrayLog, "negative count");
    if (!hasBytes(_data, *_cursor, static_cast<std::size_t>(stored) * smallestRecord))
        return fail(tuvObjectArrayLog, "count is larger than the data");
    *count = stored;
    return true;
}

bool StreamReader::emptyArray(TuvObjectArray& array, std::size_t smallestRecord, int* left) {
    if (!count(smallestRecord, left)) return false;
    array.removeAllObjects();
    if (array.size() < *left) array.setSize(*left);
    return true;
}

bool StreamReader::files(TuvObjectArray& array, TuvDirNode* parent) {
    int left;
    if (!emptyArray(array, sizeof(NodeHeader), &left)) return false;
    for (; left > 0; --left) {
        TuvNode* child = new TuvNode;
        array.adoptObject(child);
        if (parent) child->setParent(parent);
        if (!node(*child)) return false;
    }
    return true;
}

bool StreamReader::folderWithFiles(TuvDirNode& folder) {
    FolderHeader header;
    if (!deserializeIVar(_data, &header, _cursor, sizeof header))
        return fail(tuvDirNodeLog, "folder record is cut short");
    fill(folder, header.node);
    folder.setFlags(header.flags);
    if (!name(folder, header.node.nameLength, tuvDirNodeLog)) return false;
    if (header.depth < kDepthOfChildren) return true;
    int left;
    if (!files(*folder.files(), &folder)) return false;
    if (!emptyArray(*folder.folders(), sizeof(FolderHeader), &left)) return false;
    if (left > 0) _open.push_back({&folder, left});
    return true;
}

bool StreamReader::folder(TuvDirNode& root) {
    if (!folderWithFiles(root)) return false;
    while (!_open.empty()) {
        OpenFolder& top = _open.back();
        TuvDirNode* parent = top.folder;
        if (--top.left == 0) _open.pop_back();
        TuvDirNode* child = new TuvDirNode;
        parent->folders()->adoptObject(child);
        child->setParent(parent);
        if (!folderWithFiles(*child)) return false;
    }
    return true;
}

bool StreamReader::folders(TuvObjectArray& array) {
    int left;
    if (!emptyArray(array, sizeof(FolderHeader), &left)) return false;
    for (; left > 0; --left) {
        TuvDirNode* child = new TuvDirNode;
        array.adoptObject(child);
        if (!folder(*child)) return false;
    }
    return true;
}

bool StreamReader::inPlace(TuvObjectArray& array) {
    int left;
    if (!count(sizeof(NodeHeader), &left)) return false;
    if (left > array.count()) return fail(tuvObjectArrayLog, "count is larger than the array");
    while (array.count() > left) array.removeLastObject();
    for (int i = 0; i < left; ++i) {
        if (!array.nodeAtIndex(i)->deserialize(_data, _cursor)) return false;
    }
    return true;
}

bool StreamReader::mixed(TuvObjectArray& array) {
    int left;
    if (!emptyArray(array, sizeof(TypeCode) + sizeof(NodeHeader), &left)) return false;
    for (; left > 0; --left) {
        TypeCode type;
        if (!deserializeIVar(_data, &type, _cursor, sizeof type))
            return fail(tuvObjectArrayLog, "type code is cut short");
        if (type == TuvNode::kTypeFile) {
            TuvNode* file = new TuvNode;
            array.adoptObject(file);
            if (!node(*file)) return false;
        } else if (type == TuvNode::kTypeFolder) {
            TuvDirNode* child = new TuvDirNode;
            array.adoptObject(child);
            if (!folder(*child)) return false;
        } else {
            TuvLog::error(tuvObjectArrayLog, "deserialize", "Node types %d are not implemented", type);
            return false;
        }
    }
    return true;
}

}  // namespace kavaro
