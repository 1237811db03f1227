#pragma once

#include "model/TuvDirNode.h"
#include "platform/ByteView.h"

namespace kavaro {

// What became of a folder record.
enum class TreeUpdate {
    applied,
    noRecord,       // no bytes: the server had nothing to tell
    senseless,      // malformed bytes, or a folder that cannot be as the record says
    unknownFolder,  // the tree has no such folder
};

// Puts a fresh record of one folder, as the server answers hasFileSytemChanged and prioritizeNodeWithInodePath, into a
// tree that is held already. The folder is found by its node ID, the first in the order of the tree; its own name
// stays, for the record's is a whole path. Its children are matched by node ID among their kind, several names of one
// file by name first:
//   those that stay keep their nodes, and folders what lies below them, with the record's name and date and, files, its
//   sizes; the others go; new ones are the record's nodes, and so are folders of which the tree knew nothing;
//   the children are in the record's order.
// The sizes of the folder and of all above it become the sums of what is there. They are resolved when they are loaded
// and all their subfolders are: a new subfolder leaves all above it unresolved until its own record comes.
//
// A record that makes no sense changes nothing: cut short, of a folder that was not listed, two subfolders or a file
// and a subfolder of one ID, a subfolder with the ID of the folder itself or of one above it.
//
// Cost: one walk over the folders of the tree to find the one, n log n in its children, and one pass over the children
// of each folder above it; for a subfolder with another name, one over all that is below it, for the cached paths.
TreeUpdate applyFolderRecord(TuvDirNode& root, ByteView record);

}  // namespace kavaro
