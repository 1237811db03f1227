#include "platform/ChildProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "ScopedEnvironment.h"
#include "TempFolder.h"

namespace kavaro {
namespace {

constexpr double kEnough = 60;  // seconds; nothing here takes as long

ChildProcess::Options shell(const std::string& script) {
    ChildProcess::Options options;
    options.arguments = {"/bin/sh", "-c", script};
    options.readStandardOutput = true;
    return options;
}

std::unique_ptr<ChildProcess> startWell(const ChildProcess::Options& options) {
    std::string error;
    std::unique_ptr<ChildProcess> child = ChildProcess::start(options, &error);
    EXPECT_TRUE(child) << error;
    return child;
}

// Waits for children that earlier tests of the same process left.
void reapOthers() {
    while (waitpid(-1, nullptr, 0) > 0) {
    }
}

bool hasChildren() {
    return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

TEST(ChildProcess, ReadsLines) {
    auto child = startWell(shell("printf 'one\\n\\ntwo\\nrest'"));
    ASSERT_TRUE(child);
    EXPECT_EQ(child->readLine(kEnough), "one");
    EXPECT_EQ(child->readLine(kEnough), "");
    EXPECT_EQ(child->readLine(kEnough), "two");
    EXPECT_EQ(child->readLine(kEnough), "rest");
    EXPECT_EQ(child->readLine(kEnough), std::nullopt);
    EXPECT_EQ(child->readLine(kEnough), std::nullopt);
}

TEST(ChildProcess, WaitsNoLongerThanAskedFor) {
    auto child = startWell(shell("printf part; exec sleep 1000"));
    ASSERT_TRUE(child);
    EXPECT_EQ(child->readLine(0.01), std::nullopt);
    EXPECT_EQ(child->readLine(0), std::nullopt);
    EXPECT_FALSE(child->waitForEnd(0.01));
    EXPECT_FALSE(child->hasEnded());
    child->kill();
    EXPECT_TRUE(child->waitForEnd(kEnough));
    EXPECT_EQ(child->readLine(kEnough), "part");
}

TEST(ChildProcess, TellsHowItEnded) {
    std::string how;
    auto child = startWell(shell("exit 3"));
    EXPECT_TRUE(child->waitForEnd(kEnough));
    EXPECT_TRUE(child->hasEnded(&how));
    EXPECT_EQ(how, "exit status 3");
    child->terminate();  // of no consequence any more
    child->kill();
    child = startWell(shell("exec sleep 1000"));
    EXPECT_FALSE(child->hasEnded(&how));
    child->terminate();
    EXPECT_TRUE(child->waitForEnd(kEnough));
    EXPECT_TRUE(child->hasEnded(&how));
    EXPECT_EQ(how, "signal 15");
    child = startWell(shell("exec sleep 1000"));
    child->kill();
    EXPECT_TRUE(child->waitForEnd(kEnough));
    EXPECT_TRUE(child->hasEnded(&how));
    EXPECT_EQ(how, "signal 9");
}

TEST(ChildProcess, SaysWhyItCannotStart) {
    reapOthers();
    TempFolder folder;
    auto reason = [](const std::string& program) {
        ChildProcess::Options options;
        options.arguments = {program};
        std::string error;
        EXPECT_FALSE(ChildProcess::start(options, &error)) << program;
        return error;
    };
    std::string plain = folder.write("plain", "#!/bin/sh\n");
    EXPECT_EQ(reason(plain), plain + ": Permission denied");
    std::string senseless = folder.write("senseless", "no program");
    ASSERT_EQ(chmod(senseless.c_str(), 0755), 0);
    EXPECT_EQ(reason(senseless), senseless + ": Exec format error");
    EXPECT_EQ(reason("/nowhere/at all"), "/nowhere/at all: No such file or directory");
    EXPECT_EQ(reason(folder.path()), folder.path() + ": Permission denied");
    std::string error;
    EXPECT_FALSE(ChildProcess::start({}, &error));
    EXPECT_NE(error, "");
    ChildProcess::Options options = shell("true");
    options.standardErrorPath = folder.path("absent/log");
    EXPECT_FALSE(ChildProcess::start(options, &error));
    EXPECT_EQ(error, folder.path("absent/log") + ": No such file or directory");
    EXPECT_FALSE(hasChildren());  // none of them left a zombie
}

TEST(ChildProcess, SetsTheEnvironmentOnTopOfOurs) {
    ScopedEnvironment environment("KAVARO_TEST_OURS", "ours");
    environment.set("KAVARO_TEST_BOTH", "ours");
    ChildProcess::Options options = shell("echo $KAVARO_TEST_OURS $KAVARO_TEST_BOTH $KAVARO_TEST_NEW");
    options.environment = {{"KAVARO_TEST_BOTH", "changed"}, {"KAVARO_TEST_NEW", "new"}};
    EXPECT_EQ(startWell(options)->readLine(kEnough), "ours changed new");
}

TEST(ChildProcess, PassesArgumentsAsTheyAre) {
    ChildProcess::Options options;
    options.arguments = {"/usr/bin/printf", "[%s]", "", "two words", "$HOME", "bad\xff"};
    options.readStandardOutput = true;
    EXPECT_EQ(startWell(options)->readLine(kEnough), "[][two words][$HOME][bad\xff]");
}

TEST(ChildProcess, WritesStandardErrorToAFile) {
    TempFolder folder;
    folder.write("old", "something long that was there before");
    ChildProcess::Options options = shell("echo message >&2");
    for (const char* name : {"old", "new"}) {
        options.standardErrorPath = folder.path(name);
        EXPECT_TRUE(startWell(options)->waitForEnd(kEnough));
        EXPECT_EQ(folder.read(name), "message\n");
    }
    struct stat info {};
    ASSERT_EQ(stat(folder.path("new").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST(ChildProcess, GivesNoDescriptorAway) {
    int leaking = open("/dev/null", O_RDONLY);  // not close-on-exec, on purpose
    ASSERT_GE(leaking, 3);
    int farther = fcntl(leaking, F_DUPFD, 50);
    ASSERT_GE(farther, 50);
    ChildProcess::Options options;
    options.arguments = {"/bin/sh", "-c", "echo /proc/$$/fd/*; readlink /proc/$$/fd/0 /proc/$$/fd/2"};
    options.readStandardOutput = true;
    auto child = startWell(options);
    std::string fds = child->readLine(kEnough).value_or("");
    std::string all;
    for (int fd = 0; fd <= 3; fd++) {  // 3 is the shell's own, the folder it lists
        all += (fd ? " " : "") + ("/proc/" + std::to_string(child->pid()) + "/fd/" + std::to_string(fd));
    }
    EXPECT_EQ(fds, all);
    EXPECT_EQ(child->readLine(kEnough), "/dev/null");
    EXPECT_EQ(child->readLine(kEnough), "/dev/null");
    close(leaking);
    close(farther);
}

TEST(ChildProcess, WorksWithoutStandardDescriptorsOfOurOwn) {
    int kept[3];
    for (int fd = 0; fd < 3; fd++) {
        kept[fd] = fcntl(fd, F_DUPFD_CLOEXEC, 10);
        ASSERT_GE(kept[fd], 10);
    }
    for (int fd = 0; fd < 3; fd++) close(fd);
    std::optional<std::string> line;
    if (auto child = ChildProcess::start(shell("echo out; echo err >&2; cat"), nullptr))
        line = child->readLine(kEnough);
    for (int fd = 0; fd < 3; fd++) {
        dup2(kept[fd], fd);
        close(kept[fd]);
    }
    EXPECT_EQ(line, "out");
}

TEST(ChildProcess, StartsWithNoSignalIgnoredOrBlocked) {
    struct sigaction ignore {
    }, previous{};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGUSR1, &ignore, &previous), 0);
    sigset_t blocked, mask;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &blocked, &mask), 0);
    ChildProcess::Options options;
    options.arguments = {"/bin/grep", "-E", "^Sig(Blk|Ign)", "/proc/self/status"};
    options.readStandardOutput = true;
    auto child = startWell(options);
    EXPECT_EQ(child->readLine(kEnough), "SigBlk:\t0000000000000000");
    EXPECT_EQ(child->readLine(kEnough), "SigIgn:\t0000000000000000");
    // And ours are as they were.
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, &mask, &now);
    EXPECT_TRUE(sigismember(&now, SIGTERM));
    EXPECT_FALSE(sigismember(&now, SIGINT));
    sigaction(SIGUSR1, &previous, nullptr);
}

TEST(ChildProcess, HasItsOwnProcessGroupWhenAsked) {
    ChildProcess::Options options = shell("echo ready; exec sleep 1000");
    auto own = startWell(options);
    options.ownProcessGroup = false;
    auto ours = startWell(options);
    EXPECT_EQ(getpgid(own->pid()), own->pid());
    EXPECT_EQ(getpgid(ours->pid()), getpgid(0));
    for (auto* child : {own.get(), ours.get()}) {
        child->kill();
        EXPECT_TRUE(child->waitForEnd(kEnough));
    }
}

TEST(ChildProcess, EndsWithTheProcessThatStartedIt) {
    // A process in between starts a child, tells its number and is killed. The orphan becomes ours.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    pid_t between = fork();
    ASSERT_GE(between, 0);
    if (between == 0) {
        auto child = ChildProcess::start(shell("exec sleep 1000"), nullptr);
        pid_t pid = child ? child->pid() : -1;
        if (write(ends[1], &pid, sizeof pid) != sizeof pid) _exit(1);
        while (true) pause();
    }
    pid_t orphan = -1;
    ASSERT_EQ(read(ends[0], &orphan, sizeof orphan), static_cast<ssize_t>(sizeof orphan));
    ASSERT_GT(orphan, 0);
    ASSERT_EQ(kill(between, SIGKILL), 0);
    int status = 0;
    EXPECT_EQ(waitpid(between, &status, 0), between);
    EXPECT_EQ(waitpid(orphan, &status, 0), orphan);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    close(ends[0]);
    close(ends[1]);
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST(ChildProcess, RunsAndReads) {
    reapOthers();
    EXPECT_EQ(runAndRead("/usr/bin/printf", {"%s-%s\\n", "a", "b"}), "a-b\n");
    EXPECT_EQ(runAndRead("/bin/sh", {"-c", "echo some; exit 7"}), "some\n");
    EXPECT_EQ(runAndRead("/bin/true", {}), "");
    EXPECT_EQ(runAndRead("/nowhere", {}), std::nullopt);
    EXPECT_EQ(runAndRead("/usr/bin/head", {"-c", "3000000", "/dev/zero"}), std::string(3000000, '\0'));
    // One that closes its output is waited for, too.
    EXPECT_EQ(runAndRead("/bin/sh", {"-c", "echo x; exec >&-; exit 0"}), "x\n");
    EXPECT_FALSE(hasChildren());
}

}  // namespace
}  // namespace kavaro
