#include "platform/FileIcon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TempFolder.h"
#include "platform/FolderFiles.h"

namespace kavaro {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> namesFor(const std::string& path) {
    const FileIconResult result = iconForFile(path);
    EXPECT_EQ(result.error, "") << path;
    return result.icon.names;
}

TEST(FileIcon, byTheNameOfAFile) {
    TempFolder folder;
    EXPECT_EQ(namesFor(folder.write("photo.JPG", "no picture"))[0], "image-jpeg");
    EXPECT_THAT(namesFor(folder.path("photo.JPG")), Contains("image-x-generic"));
    EXPECT_THAT(namesFor(folder.write("paper.pdf", "")), Contains("x-office-document"));
    EXPECT_FALSE(namesFor(folder.write("something", "")).empty());
    EXPECT_EQ(namesFor(folder.write("\xff\xfe.png", ""))[0], "image-png");
}

TEST(FileIcon, ofWhatIsNotThere) {
    EXPECT_EQ(namesFor("/nowhere/at/all.png")[0], "image-png");
    EXPECT_FALSE(namesFor("/nowhere/" + std::string(10000, 'x')).empty());
}

TEST(FileIcon, byTheKindOfEverythingElse) {
    TempFolder folder;
    EXPECT_EQ(namesFor(folder.makeFolder("folder.png"))[0], "inode-directory");
    ASSERT_EQ(symlink("folder.png", folder.path("link.png").c_str()), 0);
    EXPECT_EQ(namesFor(folder.path("link.png"))[0], "inode-symlink");
    ASSERT_EQ(mkfifo(folder.path("pipe.png").c_str(), 0600), 0);
    EXPECT_EQ(namesFor(folder.path("pipe.png"))[0], "inode-fifo");
    EXPECT_EQ(namesFor("/dev/null")[0], "inode-chardevice");
}

TEST(FileIcon, noPathIsAnError) {
    EXPECT_NE(iconForFile("").error, "");
}

TEST(FolderFiles, sortedWithTheirPathsBelow) {
    TempFolder folder;
    folder.makeFolder("Middle");
    folder.makeFolder("empty");
    folder.write("b", "");
    folder.write("Z", "");
    folder.write("Middle/x", "");
    folder.write("\xff", "");
    ASSERT_EQ(symlink("Middle", folder.path("a link").c_str()), 0);
    EXPECT_THAT(filesBelow(folder.path()), ElementsAre("Middle/x", "Z", "a link", "b", "\xff"));
    EXPECT_THAT(filesBelow(folder.path() + "/"), ElementsAre("Middle/x", "Z", "a link", "b", "\xff"));
}

TEST(FolderFiles, noneWhereThereIsNoFolder) {
    TempFolder folder;
    folder.write("file", "");
    EXPECT_THAT(filesBelow(folder.path("file")), IsEmpty());
    EXPECT_THAT(filesBelow(folder.path("missing")), IsEmpty());
    EXPECT_THAT(filesBelow(""), IsEmpty());
}

}  // namespace
}  // namespace kavaro
