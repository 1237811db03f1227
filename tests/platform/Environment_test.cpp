#include "platform/Environment.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "ScopedEnvironment.h"
#include "TempFolder.h"

namespace kavaro {
namespace {

TEST(Environment, KnowsItsExecutable) {
    std::string path = executablePath();
    ASSERT_TRUE(path.starts_with("/")) << path;
    struct stat named {
    }, running{};
    ASSERT_EQ(stat(path.c_str(), &named), 0);
    ASSERT_EQ(stat("/proc/self/exe", &running), 0);
    EXPECT_EQ(named.st_ino, running.st_ino);
}

TEST(Environment, HomeIsTheVariableOrTheUserDatabase) {
    ScopedEnvironment environment("HOME", "/some/home");
    EXPECT_EQ(homeFolder(), "/some/home");
    const passwd* entry = getpwuid(getuid());
    std::string known = entry ? entry->pw_dir : "";
    environment.set("HOME", "");
    EXPECT_EQ(homeFolder(), known);
    environment.unset("HOME");
    EXPECT_EQ(homeFolder(), known);
}

TEST(Environment, StateFolderFollowsTheVariables) {
    ScopedEnvironment environment("HOME", "/some/home");
    environment.set("XDG_STATE_HOME", "/state");
    EXPECT_EQ(stateFolder(), "/state/kavaro");
    environment.set("XDG_STATE_HOME", "relative");
    EXPECT_EQ(stateFolder(), "/some/home/.local/state/kavaro");
    environment.unset("XDG_STATE_HOME");
    EXPECT_EQ(stateFolder(), "/some/home/.local/state/kavaro");
}

TEST(Environment, UnsetVariableIsEmpty) {
    ScopedEnvironment environment("KAVARO_TEST_VALUE", "x");
    EXPECT_EQ(environmentVariable("KAVARO_TEST_VALUE"), "x");
    environment.unset("KAVARO_TEST_VALUE");
    EXPECT_EQ(environmentVariable("KAVARO_TEST_VALUE"), "");
}

TEST(Environment, TellsATerminalAndItsWidth) {
    int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    ASSERT_GE(null, 0);
    EXPECT_FALSE(isTerminal(null));
    EXPECT_EQ(terminalColumns(null), 0);
    EXPECT_FALSE(isTerminal(-1));
    EXPECT_EQ(terminalColumns(-1), 0);
    close(null);

    int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master), 0);
    ASSERT_EQ(unlockpt(master), 0);
    int terminal = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    EXPECT_TRUE(isTerminal(terminal));
    EXPECT_EQ(terminalColumns(terminal), 80);
    winsize size{};
    size.ws_row = 24;
    size.ws_col = 132;
    ASSERT_EQ(ioctl(terminal, TIOCSWINSZ, &size), 0);
    EXPECT_EQ(terminalColumns(terminal), 132);
    close(terminal);
    close(master);
}

TEST(Environment, MeasuresMemory) {
    std::uint64_t before = currentMemoryOfProcess(0);
    EXPECT_GT(before, 100u * 1024);
    constexpr std::size_t kAdded = 64u << 20;
    {
        std::vector<char> memory(kAdded, 1);
        EXPECT_GE(currentMemoryOfProcess(0), before + kAdded / 2) << memory[5];
    }
    EXPECT_GE(peakMemoryOfProcess(0), before + kAdded / 2);
    EXPECT_GE(peakMemoryOfProcess(getpid()), before + kAdded / 2);
    EXPECT_EQ(peakMemoryOfProcess(-1), 0u);
}

TEST(Environment, TellsThePathOfAnOpenFolder) {
    TempFolder folder;
    folder.makeFolder("a");
    const int fd = open(folder.path("a").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(pathOfDescriptor(fd), folder.path("a"));
    ASSERT_EQ(rename(folder.path("a").c_str(), folder.path("b (deleted)").c_str()), 0);
    EXPECT_EQ(pathOfDescriptor(fd), folder.path("b (deleted)"));
    ASSERT_EQ(rename(folder.path("b (deleted)").c_str(), folder.path("c\n\xff").c_str()), 0);
    EXPECT_EQ(pathOfDescriptor(fd), folder.path("c\n\xff"));
    ASSERT_EQ(rmdir(folder.path("c\n\xff").c_str()), 0);
    EXPECT_EQ(pathOfDescriptor(fd), folder.path("c\n\xff"));
    close(fd);
    EXPECT_EQ(pathOfDescriptor(fd), "");
    EXPECT_EQ(pathOfDescriptor(-1), "");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(pathOfDescriptor(ends[0]), "");
    close(ends[0]);
    close(ends[1]);
}

TEST(Environment, NamesErrors) {
    EXPECT_EQ(errorText(ENOENT), "No such file or directory");
    EXPECT_EQ(errorText(EACCES), "Permission denied");
    EXPECT_EQ(errorText(99999), "error 99999");
}

}  // namespace
}  // namespace kavaro
