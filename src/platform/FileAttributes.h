#pragma once

#include <string>

#include "platform/PropertyList.h"

namespace kavaro {

// Keys of a dictionary of file attributes. The first two are dates.
inline constexpr const char* kFileCreationDate = "NSFileCreationDate";
inline constexpr const char* kFileModificationDate = "NSFileModificationDate";
inline constexpr const char* kFileType = "NSFileType";                          // string, one of the words below
inline constexpr const char* kFileSize = "NSFileSize";                          // integer, bytes
inline constexpr const char* kFilePosixPermissions = "NSFilePosixPermissions";  // integer, as chmod() takes them
inline constexpr const char* kFileReferenceCount = "NSFileReferenceCount";      // integer, hard links
inline constexpr const char* kFileSystemFileNumber = "NSFileSystemFileNumber";  // integer, the inode
inline constexpr const char* kFileOwnerAccountID = "NSFileOwnerAccountID";      // integer
inline constexpr const char* kFileOwnerAccountName = "NSFileOwnerAccountName";  // string, absent when nobody has it
inline constexpr const char* kFileGroupOwnerAccountID = "NSFileGroupOwnerAccountID";      // likewise
inline constexpr const char* kFileGroupOwnerAccountName = "NSFileGroupOwnerAccountName";  // likewise

inline constexpr const char* kFileTypeRegular = "NSFileTypeRegular";
inline constexpr const char* kFileTypeDirectory = "NSFileTypeDirectory";
inline constexpr const char* kFileTypeSymbolicLink = "NSFileTypeSymbolicLink";
inline constexpr const char* kFileTypeSocket = "NSFileTypeSocket";
inline constexpr const char* kFileTypeCharacterSpecial = "NSFileTypeCharacterSpecial";
inline constexpr const char* kFileTypeBlockSpecial = "NSFileTypeBlockSpecial";
inline constexpr const char* kFileTypeUnknown = "NSFileTypeUnknown";  // a pipe too

// The dates of a file or folder, a path of any length; a final link is looked at itself unless it is to be
// traversed. The creation date is the birth time; where the file system keeps none, there is none. Dates keep a quarter
// of a microsecond: as XML, which has whole seconds, they would come back older than they were. Null, with errno in
// *error, when there is no such entry.
PropertyList fileAttributesAtPath(const std::string& path, bool traverseLink, int* error = nullptr);
// With all the other keys. Looks up two accounts.
PropertyList allFileAttributesAtPath(const std::string& path, bool traverseLink, int* error = nullptr);

}  // namespace kavaro
