#include "platform/SafeFolder.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TempFolder.h"

namespace kavaro {
namespace {

std::string nameAt(const std::string& path) {
    SafePlace place;
    const int error = openSafePlace(path, &place);
    return error == 0 ? place.name : "error " + std::to_string(error);
}

// Also true of a folder that holds the entry which `path` names.
bool leadsTo(const FileDescriptor& folder, const std::string& path) {
    struct stat opened {};
    struct stat named {};
    return fstat(folder.get(), &opened) == 0 && stat(path.c_str(), &named) == 0 && opened.st_ino == named.st_ino &&
           opened.st_dev == named.st_dev;
}

bool isLinkError(int error) {
    return error == ELOOP || error == ENOTDIR;  // by the kernel's way, or name by name
}

TEST(SafeFolder, OpensTheFolderThatHoldsAnEntry) {
    TempFolder temp;
    const std::string folder = temp.makeFolder("folder");
    SafePlace place;
    ASSERT_EQ(openSafePlace(folder + "/entry", &place), 0);
    EXPECT_EQ(place.name, "entry");
    EXPECT_TRUE(leadsTo(place.folder, folder));
    EXPECT_FALSE(entryExists(place));
    temp.write("folder/entry", "");
    EXPECT_TRUE(entryExists(place));
    ASSERT_EQ(openSafePlace("//" + folder + "/.//entry/./", &place), 0);
    EXPECT_EQ(place.name, "entry");
    EXPECT_TRUE(leadsTo(place.folder, folder));
    EXPECT_EQ(nameAt("/entry"), "entry");
    EXPECT_EQ(nameAt(folder + "/\xff\n\"'"), "\xff\n\"'");
}

TEST(SafeFolder, RefusesPathsThatLeadNowhereSafe) {
    TempFolder temp;
    temp.write("file", "");
    const std::string invalid = "error " + std::to_string(EINVAL);
    for (const std::string& path : {std::string(), std::string("relative"), std::string("/"), std::string("//."),
                                    temp.path("a/../b"), temp.path(".."), temp.path("nul") + std::string("\0x", 2)})
        EXPECT_EQ(nameAt(path), invalid) << path;
    EXPECT_EQ(nameAt(temp.path("absent/entry")), "error " + std::to_string(ENOENT));
    EXPECT_EQ(nameAt(temp.path("file/entry")), "error " + std::to_string(ENOTDIR));
}

TEST(SafeFolder, FollowsNoLink) {
    TempFolder temp;
    temp.makeFolder("real");
    temp.makeFolder("real/inner");
    ASSERT_EQ(symlink("real", temp.path("link").c_str()), 0);
    SafePlace place;
    EXPECT_TRUE(isLinkError(openSafePlace(temp.path("link/entry"), &place)));
    EXPECT_TRUE(isLinkError(openSafePlace(temp.path("link/inner/entry"), &place)));
    // The entry itself may be one.
    ASSERT_EQ(openSafePlace(temp.path("link"), &place), 0);
    EXPECT_TRUE(entryExists(place));
    FileDescriptor folder;
    EXPECT_TRUE(isLinkError(openSafeFolder(temp.path("link"), O_PATH, &folder)));
    EXPECT_TRUE(isLinkError(openSafeFolder(temp.path("link/inner"), O_PATH, &folder)));
    ASSERT_EQ(openSafeFolder(temp.path("real/inner"), O_RDONLY, &folder), 0);
    EXPECT_TRUE(leadsTo(folder, temp.path("real/inner")));
    ASSERT_EQ(openSafeFolder("/", O_PATH, &folder), 0);
    EXPECT_TRUE(leadsTo(folder, "/"));
}

TEST(SafeFolder, APathMayBeLongerThanASystemCallTakes) {
    TempFolder temp;
    std::string path = temp.path();
    FileDescriptor folder(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const std::string name(200, 'n');
    while (path.size() < 2 * PATH_MAX) {
        ASSERT_EQ(mkdirat(folder.get(), name.c_str(), 0777), 0);
        folder.reset(openat(folder.get(), name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        path += "/" + name;
    }
    ASSERT_EQ(mkdirat(folder.get(), "last", 0777), 0);
    SafePlace place;
    ASSERT_EQ(openSafePlace(path + "/last", &place), 0);
    EXPECT_TRUE(entryExists(place));
}

TEST(SafeFolder, ASiblingIsAnotherEntryThatStays) {
    TempFolder temp;
    temp.makeFolder("fr.lproj");
    temp.makeFolder("en.lproj");
    ASSERT_EQ(symlink("fr.lproj", temp.path("to-french").c_str()), 0);
    ASSERT_EQ(symlink("en.lproj", temp.path("to-english").c_str()), 0);
    ASSERT_EQ(symlink("absent", temp.path("dangling").c_str()), 0);
    SafePlace french;
    ASSERT_EQ(openSafePlace(temp.path("fr.lproj"), &french), 0);
    EXPECT_TRUE(hasSibling(french, "en.lproj"));
    EXPECT_TRUE(hasSibling(french, "to-english"));
    EXPECT_FALSE(hasSibling(french, "fr.lproj"));
    EXPECT_FALSE(hasSibling(french, "to-french"));
    EXPECT_FALSE(hasSibling(french, "dangling"));
    EXPECT_FALSE(hasSibling(french, "absent"));
}

TEST(SafeFolder, EveryErrorHasAText) {
    for (const int error :
         {ENOENT, EACCES, EPERM, ELOOP, ENOTDIR, EISDIR, EINVAL, EBUSY, EXDEV, EROFS, ENOTEMPTY, ESTALE, ENOSPC, EIO}) {
        EXPECT_FALSE(removalErrorText(error).empty());
        EXPECT_FALSE(removalErrorText(error).ends_with('.'));
    }
    EXPECT_EQ(removalErrorText(EACCES), "permission denied");
}

}  // namespace
}  // namespace kavaro
