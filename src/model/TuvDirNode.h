#pragma once

#include <memory>
#include <string>
#include <utility>

#include "model/TuvNode.h"

namespace kavaro {

// A folder: a node with its file and folder children and the operations that keep the tree consistent. States, held
// in the flags: placeholder (made by its parent's listing), loaded, resolved (its sizes are the sums of its
// children's). Members are defined by the room whose business they are. Walks are iterative: any depth is fine.
class TuvDirNode : public TuvNode {
  public:
    TuvDirNode();
    // Reads a folder record; malformed bytes leave the folder as new.
    explicit TuvDirNode(ByteView bytes);
    // Null, with one log line, for malformed bytes.
    static TuvRef<TuvDirNode> fromBytes(ByteView bytes);

    int fileCount() const override { return _files->count(); }
    int folderCount() const override { return _folders->count(); }
    int childrenCount() const { return fileCount() + folderCount(); }
    int recursiveFileCount() const override;
    int recursiveFolderCount() const override;
    TuvObjectArray* files() const { return _files.get(); }
    TuvObjectArray* folders() const { return _folders.get(); }
    TuvRef<TuvObjectArray> children() const;
    void children(TuvObjectArray* array, bool recursive) const;
    TuvRef<TuvObjectArray> recursiveChildren() const;
    TuvDirNode* folderWithFileName(std::string_view name) const;
    TuvNode* childWithINode(std::uint32_t inode, bool includeFiles, bool recursive) const;

    bool attachChildNode(TuvDirNode* folder);
    bool attachChildNodeRecursively(TuvDirNode* folder);
    bool removeChildNode(const TuvNode* node);
    void removeChildNodes(const TuvObjectArray* nodes);
    void removeChildNodesRecursive(TuvObjectArray* sortedNodes);

    using TuvNode::isEqual;
    void setIsResolved(bool flag) override;
    void setIsResolved(bool flag, bool propagate) override;
    bool canBeResolved() const;
    bool hasLoadNodes() const { return flags() & kHasLoaded; }
    void setHasLoadNodes() { setFlags(flags() | kHasLoaded); }
    void parentINodes(std::uint32_t stopInode, std::vector<std::uint32_t>& inodes) const override;
    std::vector<std::uint32_t> parentINodes(const TuvNode& node) const override;

    // Load statistics of the process: number of loads and summed milliseconds.
    static void resetStatInfo();
    static void appendStatInfo(double milliseconds);
    static std::string reportStatInfo();

    // scan/
    // The node of one path, a TuvDirNode for a folder; null when it cannot be stat'ed. Its name is the whole path.
    static TuvRef<TuvNode> loadFromPath(const std::string& path);
    bool loadNodes(TuvObjectArray* files, TuvObjectArray* folders);
    bool loadNodes();
    void loadNodes_debugLowLevel() const;
    bool diffNodes();
    bool mergeFiles(TuvObjectArray* fresh);
    void unloadNodes();
    void createDotTrashIfNeeded();
    TuvDirNode* trashFolder() const;

    // serialization/
    void serialize(ByteBuffer& data, int depth) const override;
    bool deserialize(ByteView data, int* cursor) override;
    ByteBuffer serialize() const override;
    TuvNode* deserialize(ByteView data) override;
    void tuvNodeDatabase_serialize(ByteBuffer* index, ByteBuffer* node, ByteBuffer* data) const override;
    void tuvNodeDatabase_serialize2(TuvNodeSerializer& serializer) const override;
    using TuvNode::tuvNodeDatabase_deserialize;
    // Reads the children; the folder's own records have been read. On return the cursor is the index of the last
    // record that was used.
    bool tuvNodeDatabase_deserialize(const TuvNodeIndex* index, const TuvNodeBase* nodes, ByteView data, int* cursor,
                                     int total);

    void debug(int shift, int depth) const override;
    void debug() const override;

  protected:
    ~TuvDirNode() override;
    void destroy() override;

  private:
    // Gives the folder a new, empty list and the old one to the caller.
    TuvRef<TuvObjectArray> takeFiles() { return std::exchange(_files, make<TuvObjectArray>()); }
    TuvRef<TuvObjectArray> takeFolders() { return std::exchange(_folders, make<TuvObjectArray>()); }

    TuvRef<TuvObjectArray> _files;
    TuvRef<TuvObjectArray> _folders;
};

inline TuvDirNode* TuvObjectArray::asFolder(TuvObject* object) {
    return static_cast<TuvDirNode*>(object);
}

}  // namespace kavaro
