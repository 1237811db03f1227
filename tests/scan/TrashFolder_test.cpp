#include <sys/stat.h>

#include "scan/ScanTest.h"

namespace kavaro {
namespace {

// Type and permissions; 0 when there is nothing.
mode_t modeOf(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode : 0;
}

class TrashFolderTest : public ScanTest {
  protected:
    TempFolder _temp;
    std::string _home = _temp.makeFolder("home");
    std::string _trash = _home + "/.Trash";
    ScopedEnvironment _environment{"HOME", _home};
    ModelLogs _logs;
};

TEST_F(TrashFolderTest, IsMadeForTheHomeFolderAlone) {
    _temp.makeFolder("other");
    folderNode(_temp.path("other"))->createDotTrashIfNeeded();
    EXPECT_EQ(modeOf(_temp.path("other/.Trash")), 0u);
    make<TuvDirNode>()->createDotTrashIfNeeded();
    const mode_t mask = umask(0777);  // permissions do not depend on it
    folderNode(_home)->createDotTrashIfNeeded();
    umask(mask);
    EXPECT_EQ(modeOf(_trash), S_IFDIR | 0700u);
    EXPECT_EQ(_logs->count(""), 0);
}

TEST_F(TrashFolderTest, WhatIsMissingAboveItIsMadeToo) {
    const std::string home = _temp.path("new/home");
    ScopedEnvironment environment("HOME", home);
    folderNode(home)->createDotTrashIfNeeded();
    EXPECT_EQ(modeOf(home + "/.Trash"), S_IFDIR | 0700u);
    EXPECT_EQ(modeOf(home), S_IFDIR | 0700u);
}

TEST_F(TrashFolderTest, OneThatIsThereIsLeftAlone) {
    _temp.makeFolder("home/.Trash");
    ASSERT_EQ(chmod(_trash.c_str(), 0755), 0);
    auto home = folderNode(_home);
    home->createDotTrashIfNeeded();
    EXPECT_EQ(_logs->count(""), 0);
    home->setHasLoadNodes();
    home->createDotTrashIfNeeded();
    EXPECT_EQ(_logs->count(LogLevel::error, "Trash folder " + _trash + " exists but we don't have a node !!!"), 1);
    EXPECT_EQ(modeOf(_trash), S_IFDIR | 0755u);
}

TEST_F(TrashFolderTest, AFileInItsPlaceStays) {
    _temp.write("home/.Trash", "kept");
    folderNode(_home)->createDotTrashIfNeeded();
    EXPECT_EQ(_temp.read("home/.Trash"), "kept");
    EXPECT_EQ(_logs->count(""), 0);
}

TEST_F(TrashFolderTest, IsFoundByItsExactName) {
    auto home = folderNode(_home);
    EXPECT_EQ(home->trashFolder(), nullptr);
    for (const char* name : {".trash", ".Trash", ".Trash2"}) home->folders()->adoptObject(folderNode(name).leak());
    EXPECT_EQ(home->trashFolder(), home->folders()->folderAtIndex(1));
}

}  // namespace
}  // namespace kavaro
