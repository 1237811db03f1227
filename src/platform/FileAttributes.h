#pragma once

#include <string>

#include "platform/PropertyList.h"

namespace kavaro {

// Keys of a dictionary of file attributes; both values are dates.
inline constexpr const char* kFileCreationDate = "NSFileCreationDate";
inline constexpr const char* kFileModificationDate = "NSFileModificationDate";

// The attributes of a file or folder, a path of any length; a final link is looked at itself unless it is to be
// traversed. The creation date is the birth time; where the file system keeps none, there is none. Dates keep a quarter
// of a microsecond: as XML, which has whole seconds, they would come back older than they were. Null, with errno in
// *error, when there is no such entry.
PropertyList fileAttributesAtPath(const std::string& path, bool traverseLink, int* error = nullptr);

}  // namespace kavaro
