#include "format/FormatTest.h"
#include "support/Units.h"

namespace kavaro {
namespace {

using F = TuvNodeFormatter;

TuvRef<TuvDirNode> folderWith(int files, int folders) {
    TuvRef<TuvDirNode> folder = newFolder(2);
    for (int i = 0; i < files; ++i) addFile(folder.get(), newFile(100 + static_cast<std::uint32_t>(i)));
    for (int i = 0; i < folders; ++i) {
        addFolder(folder.get(), newFolder(1000 + static_cast<std::uint32_t>(i)))->setIsResolved(true);
    }
    folder->setIsResolved(true);
    return folder;
}

std::string countOf(int files, int folders) {
    return F::filesAndFoldersCount(folderWith(files, folders).get());
}

TEST(TuvNodeFormatterSizes, digitsInGroupsOfThree) {
    EXPECT_EQ(F::byteSizeFormatter(0), "0");
    EXPECT_EQ(F::byteSizeFormatter(7), "7");
    EXPECT_EQ(F::byteSizeFormatter(999), "999");
    EXPECT_EQ(F::byteSizeFormatter(1000), "1,000");
    EXPECT_EQ(F::byteSizeFormatter(123456), "123,456");
    EXPECT_EQ(F::byteSizeFormatter(1234567), "1,234,567");
    EXPECT_EQ(F::byteSizeFormatter(~0ULL), "18,446,744,073,709,551,615");
}

TEST(TuvNodeFormatterSizes, oneFormatterForTheProcess) {
    EXPECT_EQ(&F::byteSizeFormatter(), &F::byteSizeFormatter());
    EXPECT_EQ(F::byteSizeFormatter().stringFromNumber(4096), "4,096");
}

TEST(TuvNodeFormatterSizes, theSameForEveryUser) {
    UserOf german("de_DE.UTF-8");
    EXPECT_EQ(F::byteSizeFormatter(1234567), "1,234,567");
    EXPECT_EQ(F::physicalSizeInKB(newFile(1, "f", 0, 1536).get()), "1.5 KB");
}

TEST(TuvNodeFormatterSizes, sizesOfAFile) {
    const auto file = newFile(1, "f", 1234, 1536 * Tuv_KB);
    EXPECT_EQ(F::logicalSizeInBytes(file.get()), "1,234");
    EXPECT_EQ(F::physicalSizeInBytes(file.get()), "1,572,864");
    EXPECT_EQ(F::logicalSizeInKB(file.get()), "1.2 KB");
    EXPECT_EQ(F::physicalSizeInKB(file.get()), "1.5 MB");
    EXPECT_EQ(F::byteSizeAndFilesAndFoldersCount(file.get()), "1,572,864 bytes");
    EXPECT_EQ(F::filesAndFoldersCount(file.get()), "");
}

TEST(TuvNodeFormatterSizes, whatIsNotMeasured) {
    FormatLogs logs(LogLevel::debug);
    const auto folder = newFolder(4711);
    folder->setPhysicalSize(100);
    folder->setLogicalSize(100);
    for (const TuvNode* node : {static_cast<const TuvNode*>(folder.get()), static_cast<const TuvNode*>(nullptr)}) {
        EXPECT_EQ(F::logicalSizeInBytes(node), "0");
        EXPECT_EQ(F::physicalSizeInBytes(node), "0");
        EXPECT_EQ(F::logicalSizeInKB(node), "0");
        EXPECT_EQ(F::physicalSizeInKB(node), "0");
        EXPECT_EQ(F::byteSizeAndFilesAndFoldersCount(node), "measuring ... ");
    }
    EXPECT_EQ(logs.lines(), std::vector<std::string>{"debug 4711l"});
    EXPECT_EQ(F::filesAndFoldersCount(nullptr), "");
}

TEST(TuvNodeFormatterSizes, countsOfAFolder) {
    EXPECT_EQ(countOf(0, 0), "zero files and zero folders");
    EXPECT_EQ(countOf(1, 0), "1 file");
    EXPECT_EQ(countOf(2, 0), "2 files");
    EXPECT_EQ(countOf(0, 1), " and 1 folder");
    EXPECT_EQ(countOf(0, 3), " and 3 folders");
    EXPECT_EQ(countOf(1, 1), "1 file and 1 folder");
    EXPECT_EQ(countOf(12, 2), "12 files and 2 folders");
    EXPECT_EQ(F::filesAndFoldersCount(1234567, 1000), "1234567 files and 1000 folders");
}

TEST(TuvNodeFormatterSizes, countsGoDownTheTree) {
    const auto root = newFolder(2);
    TuvDirNode* inner = addFolder(root.get(), newFolder(3));
    addFile(inner, newFile(4));
    addFile(inner, newFile(5));
    addFile(root.get(), newFile(6));
    EXPECT_EQ(F::filesAndFoldersCount(root.get()), "3 files and 1 folder");
}

TEST(TuvNodeFormatterSizes, bytesAndCountsOfAFolder) {
    const auto folder = newFolder(2);
    addFile(folder.get(), newFile(3, "f", 10, 5 * Tuv_MB));
    addFile(folder.get(), newFile(4, "g", 10, 4096));
    folder->setIsResolved(true);
    EXPECT_EQ(F::byteSizeAndFilesAndFoldersCount(folder.get()), "5,246,976 bytes in 2 files");
    EXPECT_EQ(F::byteSizeAndFilesAndFoldersCount(folderWith(0, 0).get()), "0 bytes in zero files and zero folders");
    EXPECT_EQ(F::byteSizeAndFilesAndFoldersCount(folderWith(0, 2).get()), "0 bytes in  and 2 folders");
}

}  // namespace
}  // namespace kavaro
