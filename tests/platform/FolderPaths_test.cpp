// Folders by their handles. To open a handle needs administrator rights; what is kept does not.
#include "platform/FolderPaths.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>

#include "TempFolder.h"

namespace kavaro {
namespace {

std::string handleOf(const std::string& path) {
    constexpr std::size_t kHead = offsetof(file_handle, f_handle);
    alignas(file_handle) char space[kHead + MAX_HANDLE_SZ] = {};
    auto* handle = static_cast<file_handle*>(static_cast<void*>(space));
    handle->handle_bytes = MAX_HANDLE_SZ;
    int mount = 0;
    EXPECT_EQ(name_to_handle_at(AT_FDCWD, path.c_str(), handle, &mount, 0), 0) << path;
    return {space, kHead + handle->handle_bytes};
}

dev_t deviceOf(const std::string& path) {
    struct stat info {};
    EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
    return info.st_dev;
}

int openDescriptors() {
    int count = 0;
    for (int fd = 0; fd < 256; ++fd) count += fcntl(fd, F_GETFD) != -1;
    return count;
}

TEST(FolderPaths, areAskedForOnceAndKept) {
    const TempFolder temp;
    const std::string folder = temp.makeFolder("b\xFF\n (deleted)");
    const std::string handle = handleOf(folder);
    FolderPaths paths(temp.path(), deviceOf(temp.path()));
    EXPECT_EQ(paths.keptPathOf(handle), nullptr);
    const int before = openDescriptors();
    const std::string* path = paths.pathOf(handle);
    if (geteuid() != 0) {
        EXPECT_EQ(path, nullptr);
        return;
    }
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(*path, folder);
    EXPECT_EQ(openDescriptors(), before + 1);
    paths.closeVolume();
    EXPECT_EQ(openDescriptors(), before);
    // Kept as it was, until somebody says that folders have moved.
    const std::string moved = temp.path("moved");
    ASSERT_EQ(std::rename(folder.c_str(), moved.c_str()), 0);
    EXPECT_EQ(*paths.pathOf(handle), folder);
    paths.forgetAll();
    EXPECT_EQ(*paths.pathOf(handle), moved);
    ASSERT_EQ(rmdir(moved.c_str()), 0);
    EXPECT_EQ(*paths.pathOf(handle), moved);
    paths.forgetAll();
    EXPECT_EQ(paths.pathOf(handle), nullptr);
    EXPECT_EQ(*paths.keptPathOf(handle), "");
}

TEST(FolderPaths, anotherVolumeInItsPlaceIsNotAsked) {
    const TempFolder temp;
    FolderPaths paths(temp.path(), deviceOf(temp.path()) + 1);
    EXPECT_EQ(paths.pathOf(handleOf(temp.path())), nullptr);
}

TEST(FolderPaths, areLimitedInLengthAndNumber) {
    const TempFolder temp;
    FolderPaths paths(temp.path(), deviceOf(temp.path()));
    const std::string longest(FolderPaths::kLongestPath, 'x');
    EXPECT_EQ(*paths.remember("a", longest), longest);
    EXPECT_EQ(*paths.pathOf("a"), longest);
    EXPECT_EQ(*paths.remember("a", longest + "x"), "");
    EXPECT_EQ(paths.pathOf("a"), nullptr);
    std::size_t kept = 0;
    for (std::size_t i = 0; i <= FolderPaths::kMostFolders; ++i) paths.remember(std::to_string(i), "/folder");
    for (std::size_t i = 0; i <= FolderPaths::kMostFolders; ++i) kept += paths.keptPathOf(std::to_string(i)) != nullptr;
    EXPECT_GT(kept, 0u);
    EXPECT_LE(kept, FolderPaths::kMostFolders);
}

}  // namespace
}  // namespace kavaro
