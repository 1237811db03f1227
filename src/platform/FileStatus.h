#pragma once

#include <sys/stat.h>

#include <string>

namespace kavaro {

// lstat() for a path of any length. An errno value, 0 for success.
int fileStatusAtPath(const std::string& path, struct stat* status);
// The same of the folder that a path leads to, links followed.
int folderStatusAtPath(const std::string& path, struct stat* status);

}  // namespace kavaro
