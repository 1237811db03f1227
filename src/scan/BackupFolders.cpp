#include "scan/BackupFolders.h"

#include <atomic>
#include <string>

#include "model/ModelLog.h"
#include "platform/Text.h"
#include "platform/UserDefaults.h"

namespace kavaro {

namespace {

constexpr int kNotRead = -1;
std::atomic<int> setting{kNotRead};

}  // namespace

bool backupFoldersAllowed() {
    int value = setting.load(std::memory_order_relaxed);
    if (value == kNotRead) {
        value = UserDefaults::standard().integerForKey("loadTimeMachineFolders") == 1 ? 1 : 0;
        setting.store(value, std::memory_order_relaxed);
        const std::string domain(kPreferencesDomain);
        TuvLog::info(tuvDirNodeLog, "loadNodes", "%@",
                     value == 1 ? "defaults delete " + domain + " loadTimeMachineFolders"
                                : "defaults write " + domain + " loadTimeMachineFolders 1");
    }
    return value == 1;
}

bool isBackupFolderName(std::string_view name) {
    constexpr std::string_view kStore = "Backups.backupdb";
    return name.size() == kStore.size() && caseInsensitiveCompare(name, kStore) == 0;
}

void forgetBackupFolderSetting() {
    setting.store(kNotRead, std::memory_order_relaxed);
}

}  // namespace kavaro
