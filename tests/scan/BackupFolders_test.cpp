#include "scan/ScanTest.h"

namespace kavaro {
namespace {

class BackupFoldersTest : public ScanTest {
  protected:
    BackupFoldersTest() {
        disk->addFolder("/root", 1);
        for (std::uint32_t i = 0; i < std::size(kNames); ++i)
            disk->addFolder("/root/" + std::string(kNames[i]), 10 + i);
    }
    static void setDefault(const std::string& value) {
        UserDefaults::standard().setArguments({"-loadTimeMachineFolders", value});
    }
    // Names of the folders that a listing leaves to be scanned.
    Texts scanned() {
        auto root = folderNode("/root");
        EXPECT_TRUE(root->loadNodes());
        EXPECT_EQ(root->folderCount(), static_cast<int>(std::size(kNames)));
        Texts names;
        for (int i = 0; i < root->folderCount(); ++i) {
            const TuvDirNode* folder = root->folders()->folderAtIndex(i);
            if (!folder->hasLoadNodes()) names.emplace_back(folder->fileName());
        }
        return names;
    }

    static constexpr const char* kNames[] = {"Backups.backupdb", "BACKUPS.backupDB", "Backups.backupdb2", "Backups"};
    const Texts _all{kNames, std::end(kNames)};
    const Texts _others{"Backups.backupdb2", "Backups"};
};

TEST_F(BackupFoldersTest, StayEmptyInAnySpelling) {
    ModelLogs logs;
    EXPECT_EQ(scanned(), _others);
    EXPECT_EQ(textsOf(logs, LogLevel::error),
              (Texts{"We can't scan TimeMachine backup folders: \"/root/[Backups.backupdb]\"",
                     "We can't scan TimeMachine backup folders: \"/root/[BACKUPS.backupDB]\""}));
    EXPECT_EQ(logs->count(LogLevel::info, "defaults write org.kavaro.Kavaro loadTimeMachineFolders 1"), 1);
    EXPECT_EQ(missed(), (Texts{"/root/Backups.backupdb: backup folder", "/root/BACKUPS.backupDB: backup folder"}));
}

TEST_F(BackupFoldersTest, OneAllowsThem) {
    setDefault("1");
    ModelLogs logs;
    EXPECT_EQ(scanned(), _all);
    EXPECT_EQ(textsOf(logs, LogLevel::error), Texts{});
    EXPECT_EQ(logs->count(LogLevel::info, "defaults delete org.kavaro.Kavaro loadTimeMachineFolders"), 1);
}

TEST_F(BackupFoldersTest, NoOtherValueDoes) {
    for (const char* value : {"0", "2", "-1", "x"}) {
        setDefault(value);
        forgetBackupFolderSetting();
        EXPECT_EQ(scanned(), _others) << value;
    }
}

TEST_F(BackupFoldersTest, TheSettingIsReadOnce) {
    ModelLogs logs;
    EXPECT_EQ(scanned(), _others);
    setDefault("1");
    EXPECT_EQ(scanned(), _others);
    EXPECT_EQ(logs->count("loadTimeMachineFolders"), 1);
}

}  // namespace
}  // namespace kavaro
