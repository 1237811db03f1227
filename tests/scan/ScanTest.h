#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "FakeCatalog.h"
#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "model/ModelTest.h"
#include "platform/UserDefaults.h"
#include "scan/BackupFolders.h"
#include "scan/ScanSession.h"

namespace kavaro {

using Texts = std::vector<std::string>;

// A test of listings on a disk in memory, with a home and settings of its own.
class ScanTest : public testing::Test {
  protected:
    ScanTest() {
        _environment.set("HOME", _ownHome.path());
        _environment.set("XDG_CONFIG_HOME", _ownHome.path());
        forgetBackupFolderSetting();
        ScanSession::setCatalogFactory([this](const std::string&) { return disk; });
    }
    ~ScanTest() override {
        ScanSession::setCatalogFactory({});
        UserDefaults::standard().setArguments({});
    }

    static TuvRef<TuvDirNode> folderNode(std::string_view path, std::uint32_t inode = 1) {
        return newFolder(inode, path);
    }
    static Texts namesOf(const TuvObjectArray* nodes) {
        Texts names;
        for (int i = 0; i < nodes->count(); ++i) names.emplace_back(nodes->nodeAtIndex(i)->fileName());
        return names;
    }
    // "path: reason" of the folders that the last listings could not read.
    static Texts missed() {
        Texts texts;
        for (const MissedFolder& folder : ScanSession::current()->takeMissed())
            texts.push_back(folder.path + ": " + folder.reason);
        return texts;
    }

    std::shared_ptr<FakeCatalog> disk = std::make_shared<FakeCatalog>();

  private:
    TempFolder _ownHome;
    ScopedEnvironment _environment;
};

// Texts of one level, but for the arrays' and for the line about backup folders that comes once.
inline Texts textsOf(ModelLogs& logs, LogLevel level) {
    Texts texts;
    for (const LogCapture::Line& line : logs->lines()) {
        const bool isOfArrays = line.component == tuvObjectArrayLog.name();
        if (line.level == level && !isOfArrays && line.text.find("loadTimeMachineFolders") == std::string::npos)
            texts.push_back(line.text);
    }
    return texts;
}

}  // namespace kavaro
