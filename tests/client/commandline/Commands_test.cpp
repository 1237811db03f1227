#include <fcntl.h>
#include <gtest/gtest.h>

#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "client/commandline/CommandRun.h"
#include "support/Version.h"

namespace kavaro {
namespace {

TEST(Commands, helpAndVersion) {
    CommandRun run;
    EXPECT_EQ(run.run({"--help"}), kExitDone);
    EXPECT_NE(run.output().find("Usage: kavaro [OPTIONS] COMMAND"), std::string::npos);
    CommandRun version;
    EXPECT_EQ(version.run({"--version"}), kExitDone);
    EXPECT_EQ(version.output(), std::string("kavaro ") + KAVARO_VERSION + "\n");
    EXPECT_EQ(version.error(), "");
}

TEST(Commands, noCommand) {
    CommandRun run;
    EXPECT_EQ(run.run({}), kExitWrongUsage);
    EXPECT_EQ(run.output(), "");
    EXPECT_EQ(run.error(), "kavaro: a command is missing. See \"kavaro --help\".\n");
}

TEST(Commands, generate) {
    CommandRun run;
    EXPECT_EQ(run.run({"--generate", "man"}), kExitDone);
    EXPECT_NE(run.output().find(".TH KAVARO 1"), std::string::npos);
    run.context.output = open("/dev/full", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(run.run({"--generate", "zsh"}), kExitFailed);
    close(run.context.output);
    EXPECT_EQ(run.error(), "kavaro: standard output: cannot be written: No space left on device.\n");
}

TEST(Commands, stop) {
    CommandRun run;
    run.answer.isRunning = true;
    EXPECT_EQ(run.run({"stop", "--bus", "system"}), kExitDone);
    EXPECT_EQ(run.output(), "The server was stopped.\n");
    EXPECT_EQ(run.stops, 1);
    EXPECT_EQ(run.remotes.at(0).bus, "system");
    CommandRun none;
    EXPECT_EQ(none.run({"stop"}), kExitDone);
    EXPECT_EQ(none.output(), "No server is running.\n");
    CommandRun failed;
    failed.answer.failure = "org.kavaro.Kavaro.server: does not answer. Try again.";
    EXPECT_EQ(failed.run({"stop"}), kExitFailed);
    EXPECT_EQ(failed.error(), "kavaro: org.kavaro.Kavaro.server: does not answer. Try again.\n");
}

TEST(Commands, version) {
    const std::string own = std::string("kavaro ") + KAVARO_VERSION + "\n";
    CommandRun run;
    run.answer.isRunning = true;
    run.answer.version = "1.2.3";
    EXPECT_EQ(run.run({"version"}), kExitDone);
    EXPECT_EQ(run.output(), own + "kavarod 1.2.3\n");
    CommandRun hostile;
    hostile.answer.isRunning = true;
    hostile.answer.version = "1\n\x1b]0;x\a";
    EXPECT_EQ(hostile.run({"version"}), kExitDone);
    EXPECT_EQ(hostile.output(), own + "kavarod 1\\n\\x1b]0;x\\x07\n");
    CommandRun none;
    EXPECT_EQ(none.run({"version"}), kExitDone);
    EXPECT_EQ(none.output(), own + "kavarod is not running\n");
    CommandRun failed;
    failed.answer.failure = "x: no.";
    EXPECT_EQ(failed.run({"version"}), kExitFailed);
    EXPECT_EQ(failed.output(), own);
    EXPECT_EQ(failed.error(), "kavaro: x: no.\n");
}

std::string outputOf(const std::vector<std::string>& arguments, int exitCode = kExitDone) {
    CommandRun run;
    EXPECT_EQ(run.run(arguments), exitCode) << run.error();
    return run.output() + run.error();
}

TEST(Commands, defaults) {
    TempFolder home;
    ScopedEnvironment environment("XDG_CONFIG_HOME", home.path());
    const std::string domain = "org.kavaro.Kavaro";
    EXPECT_EQ(outputOf({"defaults", "read"}), "");
    EXPECT_EQ(outputOf({"defaults", "write", domain, "a", "1"}), "");
    EXPECT_EQ(outputOf({"defaults", "write", domain, "b", "two words"}), "");
    EXPECT_NE(home.read(domain + ".plist").find("two words"), std::string::npos);
    EXPECT_EQ(outputOf({"defaults", "read"}), "a = 1\nb = two words\n");
    EXPECT_EQ(outputOf({"defaults", "read", domain, "b"}), "two words\n");
    EXPECT_EQ(outputOf({"defaults", "read", "org.other"}), "");
    EXPECT_EQ(outputOf({"defaults", "delete", domain, "b"}), "");
    EXPECT_EQ(outputOf({"defaults", "read", domain, "b"}, kExitFailed),
              "kavaro: org.kavaro.Kavaro: has no setting \"b\". "
              "\"kavaro defaults read org.kavaro.Kavaro\" shows all.\n");
    EXPECT_EQ(outputOf({"defaults", "read"}), "a = 1\n");
}

TEST(Commands, defaultsOfADamagedFile) {
    TempFolder home;
    ScopedEnvironment environment("XDG_CONFIG_HOME", home.path());
    const std::string file = home.write("org.x.plist", "damaged");
    const std::string expected =
        "kavaro: " + file + ": not a property list. Its settings do not count until it is mended or removed.\n";
    EXPECT_EQ(outputOf({"defaults", "read", "org.x"}, kExitFailed), expected);
    EXPECT_EQ(outputOf({"defaults", "read", "org.x", "a"}, kExitFailed), expected);
    outputOf({"defaults", "write", "org.x", "a", "1"}, kExitFailed);
    EXPECT_EQ(home.read("org.x.plist"), "damaged");
}

TEST(Commands, defaultsListsOneALine) {
    TempFolder home;
    ScopedEnvironment environment("XDG_CONFIG_HOME", home.path());
    EXPECT_EQ(outputOf({"defaults", "write", "org.x", "a\nb", "1\n\x1b[31m"}), "");
    EXPECT_EQ(outputOf({"defaults", "read", "org.x"}), "a\\nb = 1\\n\\x1b[31m\n");
    EXPECT_EQ(outputOf({"defaults", "read", "org.x", "a\nb"}), "1\n\x1b[31m\n");
}

TEST(Commands, defaultsThatCannotBeWritten) {
    TempFolder home;
    const std::string file = home.write("file", "");
    ScopedEnvironment environment("XDG_CONFIG_HOME", file + "/below");
    const std::string text = outputOf({"defaults", "write", "org.x", "a", "1"}, kExitFailed);
    EXPECT_EQ(text.rfind("kavaro: " + file, 0), 0U) << text;
}

}  // namespace
}  // namespace kavaro
