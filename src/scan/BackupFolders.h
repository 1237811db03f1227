#pragma once

#include <string_view>

namespace kavaro {

// Whether backup folders are scanned: the default "loadTimeMachineFolders" is read on the first call and kept for the
// life of the process. Only the value 1 allows them. The first call logs how to flip the setting.
bool backupFoldersAllowed();

// True for a backup store's name, in any mixture of upper and lower case.
bool isBackupFolderName(std::string_view name);

// For tests: the next call reads the setting again.
void forgetBackupFolderSetting();

}  // namespace kavaro
