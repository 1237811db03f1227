#include "client/ServerLog.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "ScopedEnvironment.h"
#include "TempFolder.h"

namespace kavaro {
namespace {

// Logs without a name at first, and with one from the beginning.
class ServerLogTest : public testing::TestWithParam<bool> {
  protected:
    static void append(const std::string& path, const std::string& text) {
        std::ofstream file(path, std::ios::app);
        file << text;
        EXPECT_TRUE(file.good()) << path;
    }
    std::string nameOf(const std::string& suffix = {}) const {
        return "kavaro/kavarod." + std::to_string(getpid()) + suffix + ".log";
    }
    std::size_t files() const {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(_folder.path("kavaro"))) count += entry.exists();
        return count;
    }

    TempFolder _folder;
    ScopedEnvironment _state{"XDG_STATE_HOME", _folder.path()};
};

TEST_P(ServerLogTest, LeavesNothingBehind) {
    {
        ServerLog log(GetParam());
        append(log.open(), "first");
        EXPECT_EQ(files(), GetParam() ? 0u : 1u);
        append(log.open(), "second");  // for the next server
    }
    EXPECT_EQ(files(), 0u);
}

TEST_P(ServerLogTest, IsKeptWhenItIsAskedFor) {
    {
        ServerLog log(GetParam());
        append(log.open(), "first");
        EXPECT_EQ(log.keep(), _folder.path(nameOf()));
        append(log.open(), "second");
        EXPECT_EQ(log.keep(), _folder.path(nameOf(".2")));
        append(log.open(), "third");
    }
    EXPECT_EQ(_folder.read(nameOf()), "first");
    EXPECT_EQ(_folder.read(nameOf(".2")), "second");
    EXPECT_EQ(files(), 2u);
}

TEST_P(ServerLogTest, WritesThroughNoLinkThatStandsThere) {
    _folder.makeFolder("kavaro");
    const std::string others = _folder.write("others", "untouched");
    ASSERT_EQ(symlink(others.c_str(), _folder.path(nameOf()).c_str()), 0);
    ServerLog log(GetParam());
    append(log.open(), "ours");
    EXPECT_EQ(_folder.read("others"), "untouched");
    EXPECT_EQ(log.keep(), _folder.path(nameOf()));
    EXPECT_EQ(_folder.read(nameOf()), "ours");
    EXPECT_EQ(_folder.read("others"), "untouched");
}

TEST_P(ServerLogTest, ThereIsNoneWithoutAPlace) {
    _state.set("XDG_STATE_HOME", _folder.write("file", ""));
    ServerLog log(GetParam());
    EXPECT_EQ(log.open(), "");
    EXPECT_EQ(log.keep(), "");
}

INSTANTIATE_TEST_SUITE_P(Logs, ServerLogTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& way) { return way.param ? "nameless" : "named"; });

}  // namespace
}  // namespace kavaro
