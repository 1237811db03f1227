#include "format/FormatTest.h"
#include "format/IconResult.h"

namespace kavaro {
namespace {

using testing::Contains;

std::vector<std::string> namesOf(const TuvNode* node) {
    const std::optional<FileIcon> icon = TuvNodeFormatter::fileIcon(node);
    return icon ? icon->names : std::vector<std::string>{"(no icon)"};
}

TEST(TuvNodeFormatterIcons, ofFilesAndFoldersOnTheDisk) {
    TempFolder disk;
    disk.makeFolder("pictures.png");
    const auto root = newFolder(2, disk.path());
    EXPECT_THAT(namesOf(addFolder(root.get(), newFolder(3, "pictures.png"))), Contains("inode-directory"));
    EXPECT_THAT(namesOf(addFile(root.get(), newFile(4, "a.png"))), Contains("image-png"));
    EXPECT_THAT(namesOf(addFile(root.get(), newFile(5, "a.png"))), Contains("image-x-generic"));
}

TEST(TuvNodeFormatterIcons, slashesInNamesAreColonsOnTheDisk) {
    TempFolder disk;
    disk.makeFolder("a:b");
    const auto root = newFolder(2, disk.path());
    EXPECT_THAT(namesOf(addFile(root.get(), newFile(3, "a/b"))), Contains("inode-directory"));
}

TEST(TuvNodeFormatterIcons, noneWithoutNodeOrParent) {
    FormatLogs logs;
    EXPECT_FALSE(TuvNodeFormatter::fileIcon(nullptr));
    EXPECT_FALSE(TuvNodeFormatter::fileIcon(newFile(1, "a.png").get()));
    EXPECT_TRUE(logs.lines().empty());
}

TEST(TuvNodeFormatterIcons, whatTheSystemRefusesIsLogged) {
    FormatLogs logs;
    EXPECT_FALSE(iconOrLog({{}, "no such thing"}));
    const std::vector<std::string> lines = logs.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "error Exception: no such thing");
    EXPECT_TRUE(lines[1].starts_with("error (") && lines[1].ends_with(")") && lines[1].size() > 20) << lines[1];
    EXPECT_EQ(iconOrLog({FileIcon{{"folder"}}, ""}), FileIcon{{"folder"}});
}

}  // namespace
}  // namespace kavaro
