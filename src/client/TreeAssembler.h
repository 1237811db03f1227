#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/TuvDirNode.h"

namespace kavaro {

// Puts the tree of one job together from its notifications. Folders arrive children first: each is kept by its node ID
// until its parent comes and takes it in place of the placeholder, which costs one look-up a folder. A folder that
// arrives again while it waits is left out. One thread.
class TreeAssembler {
  public:
    struct Counts {
        std::uint64_t folders = 0;  // resolved so far
        std::uint64_t files = 0;
        std::uint64_t logicalSize = 0;
        std::uint64_t physicalSize = 0;
    };

    // Begins a tree, and forgets the one before.
    void start(TuvRef<TuvDirNode> root);
    // Payloads of the notifications. False for bytes that make no sense: they change nothing.
    bool resolved(ByteView batch);
    bool completed(ByteView root);

    bool hasStarted() const { return static_cast<bool>(_root); }
    // completed() has come, each folder has its parent and no placeholder is left.
    bool isComplete() const { return _complete; }
    const Counts& counts() const { return _counts; }
    // As much as is known of the path of the folder that arrived last.
    std::string lastFolder() const;

    // Gives the tree away. Before it is complete it is what has arrived: folders whose own parent is missing hang
    // under the child of the root that was being sized, whose sizes, like the root's, are the sums of what is there;
    // folders that were not finished are unresolved. Null before start().
    TuvRef<TuvDirNode> takeTree();

  private:
    using Waiting = std::unordered_map<std::uint32_t, TuvRef<TuvDirNode>>;
    void takeIn(TuvDirNode* folder);
    void attachArrived(TuvDirNode* folder);
    TuvDirNode* firstUnfinished() const;
    void hangOrphans();

    TuvRef<TuvDirNode> _root;
    Waiting _waiting;  // arrived, parent not yet
    std::string _lastName;
    std::uint32_t _lastInode = 0;
    Counts _counts;
    std::uint64_t _placeholders = 0;  // in the folders that arrived
    mutable int _finished = 0;        // children of the root before this one have all arrived
    bool _complete = false;
};

}  // namespace kavaro
