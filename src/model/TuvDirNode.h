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
    TuvObjectArray* files() const { return _files.get(); }      // never null; borrowed
    TuvObjectArray* folders() const { return _folders.get(); }  // never null; borrowed
    // New arrays, or one that is appended to: files, then folders, then with `recursive` those of each subfolder.
    TuvRef<TuvObjectArray> children() const;
    void children(TuvObjectArray* array, bool recursive) const;
    TuvRef<TuvObjectArray> recursiveChildren() const;
    // The first in the order of children(), folders before files; null when there is none. Linear.
    TuvDirNode* folderWithFileName(std::string_view name) const;
    TuvNode* childWithINode(std::uint32_t inode, bool includeFiles, bool recursive) const;

    // Puts the folder in the place of the subfolder with its inode; false when there is none.
    bool attachChildNode(TuvDirNode* folder);
    bool attachChildNodeRecursively(TuvDirNode* folder);
    // By inode, one child for each node asked for; sums are made anew up to the root.
    bool removeChildNode(const TuvNode* node);
    void removeChildNodes(const TuvObjectArray* nodes);
    // REQUIRES: ascending by inode. What was found leaves the list.
    void removeChildNodesRecursive(TuvObjectArray* sortedNodes);

    // Resolved: the sizes are the sums of the children's as they are now. Otherwise they are 0.
    void setIsResolved(bool flag) override;
    void setIsResolved(bool flag, bool propagate) override;  // with `propagate` all ancestors likewise
    bool canBeResolved() const;  // it is, or its children are loaded and all its subfolders resolved
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
    // Lists the folder, one level deep, and appends new children to the arrays. Always true: what cannot be read is
    // logged, told to the ScanSession and loaded as empty. Unless the path is no folder any more, the node is loaded.
    bool loadNodes(TuvObjectArray* files, TuvObjectArray* folders);
    // Into its own arrays; false, and nothing done, when it is loaded already.
    bool loadNodes();
    void loadNodes_debugLowLevel() const;  // counts the entries alone, for the log
    // Lists the folder again and merges its files by inode, differences in size up to the root. Always true.
    bool diffNodes();
    bool mergeFiles(TuvObjectArray* fresh);  // sorts `fresh`
    // As for a node; a folder that changed is brought up to date by diffNodes().
    bool hasFileSytemChanged(const PropertyList& cachedAttributes, int ignored) override;
    // Merges a fresh listing of the subfolders by inode, which it sorts: those that stay keep their nodes. False when
    // at least one was added; the folder and all above it are unresolved then. Otherwise the ancestors shrink by what
    // was removed, while the folder's own sizes grow by it until it is resolved again.
    bool mergeFolders(TuvObjectArray* fresh);
    // Drops all children; sizes and flags stay, so the folder is not listed again.
    void unloadNodes();
    // Makes ~/.Trash when this folder is the home folder.
    void createDotTrashIfNeeded();
    TuvDirNode* trashFolder() const;  // the child named ".Trash", or null

    // cleanup/
    // New arrays. The language folders of the whole tree, an array of groups of folders: those whose names differ in
    // letter case or extension alone make one. coalesceLanguages() chooses among them.
    TuvRef<TuvObjectArray> languages() const;
    // Files within nib bundles that running applications do not read, by path; not those that a signature covers.
    // Reads the signature files.
    TuvRef<TuvObjectArray> nibFiles() const;
    // Programs of applications and frameworks below the folder, which may hold code for several kinds of processors.
    TuvRef<TuvObjectArray> lipoFiles() const;
    // Files that may have a duplicate, below it too with `recursive`. Appends, or makes a new array.
    void potentialyDuplicateChildren(TuvObjectArray* out, signed char recursive) const;
    TuvRef<TuvObjectArray> potentialyDuplicateChildren() const;
    // Arrays of those that share a size other than 0 with another one, largest first.
    TuvRef<TuvObjectArray> potentialyDuplicateFiles() const;

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

// Logs such an array: its size, its members and an empty line.
void debugDuplicates(const TuvObjectArray* group, const char* selector);

inline TuvDirNode* TuvObjectArray::asFolder(TuvObject* object) {
    return static_cast<TuvDirNode*>(object);
}

}  // namespace kavaro
