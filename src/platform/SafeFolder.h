#pragma once

#include <string>

#include "platform/FileDescriptor.h"

namespace kavaro {

// The way to what is to be removed, moved or rewritten. No part of it is a link, nor one that somebody puts there while
// it is walked; what is done then is done relative to the open folder, so that later changes of the path do not matter.
// Paths are absolute, of any bytes and any length. All functions are safe from any thread.

// The folder that holds an entry, open as a place (O_PATH), and the entry's name in it.
struct SafePlace {
    FileDescriptor folder;
    std::string name;
};

// Where the entry of a path is. It need not exist, and is not looked at: it may be a link. 0, or an errno value: EINVAL
// for a path that is not absolute, holds "..", or names no entry, as "/" does; ELOOP or ENOTDIR for a link on the way.
int openSafePlace(const std::string& path, SafePlace* place);

// The folder of a path itself. `flags` as those of open(); O_DIRECTORY and O_CLOEXEC are added.
int openSafeFolder(const std::string& path, int flags, FileDescriptor* folder);

// Whether the entry is there; a link is, whatever it leads to, and so is one that cannot be looked at.
bool entryExists(const SafePlace& place);
// Whether another entry beside it has this name and would still be something when this one is gone: a link must lead
// somewhere else.
bool hasSibling(const SafePlace& place, const char* name);

// What an errno value of removing or moving an entry means, for people, without a full stop.
std::string removalErrorText(int error);

}  // namespace kavaro
