#include "platform/SymbolicLink.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>

#include "TempFolder.h"

namespace kavaro {
namespace {

TEST(SymbolicLink, isTold) {
    TempFolder folder;
    const std::string file = folder.write("file", "x");
    for (const char* target : {"file", "nowhere", ".", "loop"}) {
        const std::string link = folder.path(std::string("to ") + target);
        ASSERT_EQ(symlink(target, link.c_str()), 0);
        EXPECT_TRUE(isSymbolicLink(link)) << target;
    }
    ASSERT_EQ(symlink("file", folder.path("\xff\n").c_str()), 0);
    EXPECT_TRUE(isSymbolicLink(folder.path("\xff\n")));
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    for (const std::string& other : {file, folder.path(), folder.path("pipe"), folder.path("missing"), std::string(),
                                     folder.path("to .") + "/file", folder.path("to file") + std::string("\0x", 2)})
        EXPECT_FALSE(isSymbolicLink(other)) << other;
}

TEST(SymbolicLink, isToldBeyondTheLongestPath) {
    TempFolder folder;
    const std::string name(200, 'd');
    std::string path = folder.path();
    int place = open(path.c_str(), O_RDONLY | O_DIRECTORY);
    while (path.size() < PATH_MAX + 500) {
        ASSERT_EQ(mkdirat(place, name.c_str(), 0700), 0);
        const int next = openat(place, name.c_str(), O_RDONLY | O_DIRECTORY);
        close(place);
        place = next;
        path += "/" + name;
    }
    ASSERT_EQ(symlinkat("nowhere", place, "link"), 0);
    close(openat(place, "file", O_CREAT | O_WRONLY, 0600));
    close(place);
    EXPECT_TRUE(isSymbolicLink(path + "/link"));
    EXPECT_FALSE(isSymbolicLink(path + "/file"));
    EXPECT_FALSE(isSymbolicLink(path + "/none"));
    EXPECT_FALSE(isSymbolicLink(path));
}

}  // namespace
}  // namespace kavaro
