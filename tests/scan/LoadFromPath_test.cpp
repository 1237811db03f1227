#include <sys/stat.h>

#include "scan/ScanTest.h"

namespace kavaro {
namespace {

class LoadFromPathTest : public ScanTest {};

TEST_F(LoadFromPathTest, AFolderHasNoSizes) {
    disk->addFolder("/some/folder", 12);
    auto node = TuvDirNode::loadFromPath("/some/folder");
    ASSERT_TRUE(node);
    EXPECT_EQ(node->retainCount(), 1u);
    EXPECT_EQ(node->flags(), TuvNode::kFolder);
    EXPECT_NE(dynamic_cast<TuvDirNode*>(node.get()), nullptr);
    EXPECT_EQ(node->fileName(), "/some/folder");
    EXPECT_EQ(node->inode(), 12u);
    EXPECT_EQ(node->logicalSize(), 0u);
    EXPECT_EQ(node->physicalSize(), 0u);
    EXPECT_EQ(node->contentModDate(), 1000000000 + 2082844800.0);
    EXPECT_EQ(node->parent(), nullptr);
}

TEST_F(LoadFromPathTest, SizesOfFilesAreRoundedUpToBlocks) {
    const struct {
        std::uint64_t size, blocks;
    } kCases[] = {{0, 0}, {1, 1}, {4095, 1}, {4096, 1}, {4097, 2}, {std::uint64_t{1} << 40, std::uint64_t{1} << 28}};
    for (const auto& one : kCases) {
        disk->addFile("/file", 11, one.size, 7);  // what it takes on the disk does not count
        auto node = TuvDirNode::loadFromPath("/file");
        ASSERT_TRUE(node);
        EXPECT_EQ(node->flags(), TuvNode::kFile | TuvNode::kResolved);
        EXPECT_EQ(node->logicalSize(), one.size);
        EXPECT_EQ(node->physicalSize(), one.blocks * 4096);
    }
}

TEST_F(LoadFromPathTest, WhatIsNotThereIsNull) {
    ModelLogs logs;
    EXPECT_FALSE(TuvDirNode::loadFromPath("/gone"));
    EXPECT_EQ(textsOf(logs, LogLevel::error),
              Texts{"Could not stat(/gone), it is possible the path has been removed."});
}

TEST_F(LoadFromPathTest, ThePathAtDebugLevel) {
    disk->addFolder("/folder", 12);
    ModelLogs logs(LogLevel::debug);
    TuvDirNode::loadFromPath("/folder");
    TuvDirNode::loadFromPath("/gone");
    EXPECT_EQ(textsOf(logs, LogLevel::debug), (Texts{"/folder", "/gone"}));
}

TEST_F(LoadFromPathTest, OnTheRealDisk) {
    ScanSession::setCatalogFactory({});
    TempFolder temp;
    const std::string file = temp.write("file", "x");
    struct stat info {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    auto node = TuvDirNode::loadFromPath(file);
    ASSERT_TRUE(node);
    EXPECT_EQ(node->logicalSize(), 1u);
    EXPECT_EQ(node->physicalSize(), static_cast<std::uint64_t>(info.st_blksize));
    EXPECT_EQ(node->modDate(), static_cast<double>(info.st_mtime));  // whole seconds
    auto folder = TuvDirNode::loadFromPath(temp.path());
    ASSERT_TRUE(folder && folder->isDirectory());
    auto* root = static_cast<TuvDirNode*>(folder.get());
    EXPECT_TRUE(root->loadNodes());
    ASSERT_EQ(namesOf(root->files()), Texts{"file"});
    EXPECT_EQ(root->files()->nodeAtIndex(0)->inode(), node->inode());
    EXPECT_EQ(root->files()->nodeAtIndex(0)->physicalSize(), static_cast<std::uint64_t>(info.st_blocks) * 512);
}

}  // namespace
}  // namespace kavaro
