#include <fcntl.h>
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sys/stat.h>

#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "client/commandline/CommandRun.h"
#include "client/commandline/FakeTree.h"
#include "platform/Catalog.h"

namespace kavaro {
namespace {

constexpr const char* kTotal = ": 5.3 MB on disk, 5.3 MB logical, 4 files and 3 folders, 1.23 s\n";

// A command line over a folder that exists, measured as the small tree.
struct SizeRun : CommandRun {
    SizeRun() { measureAs(smallTree); }
    TempFolder folder;
    std::string path = folder.path();
};

TEST(SizeCommand, showsTheTable) {
    SizeRun run;
    EXPECT_EQ(run.run({"size", run.path}), kExitDone);
    const std::string output = run.output();
    EXPECT_EQ(output.substr(0, output.find('\n') + 1), run.path + kTotal);
    EXPECT_NE(output.find("big/\n"), std::string::npos);
    EXPECT_EQ(run.error(), "");
    EXPECT_EQ(run.measured, std::vector<std::string>{run.path});
    ASSERT_EQ(run.remotes.size(), 1U);
    EXPECT_EQ(run.remotes[0].bus, "session");
    EXPECT_FALSE(run.remotes[0].verbose || run.remotes[0].sameFileSystem);
    EXPECT_EQ(run.embedded, 0);
}

TEST(SizeCommand, optionsReachTheSource) {
    SizeRun run;
    EXPECT_EQ(run.run({"size", run.path, "--bus", "system", "--verbose", "--same-file-system"}), kExitDone);
    ASSERT_EQ(run.remotes.size(), 1U);
    EXPECT_EQ(run.remotes[0].bus, "system");
    EXPECT_TRUE(run.remotes[0].verbose && run.remotes[0].sameFileSystem);
}

TEST(SizeCommand, embedded) {
    SizeRun run;
    EXPECT_EQ(run.run({"size", run.path, "--embedded"}), kExitDone);
    EXPECT_EQ(run.embedded, 1);
    EXPECT_TRUE(run.remotes.empty());
}

TEST(SizeCommand, severalFoldersOneAfterAnother) {
    SizeRun run;
    run.folder.makeFolder("a");
    EXPECT_EQ(run.run({"size", "--depth", "0", run.path, run.path + "/a"}), kExitDone);
    EXPECT_EQ(run.measured, (std::vector<std::string>{run.path, run.path + "/a"}));
    EXPECT_EQ(run.output(), run.path + kTotal + "\n" + run.path + "/a" + kTotal);
}

TEST(SizeCommand, oneBadFolderLeavesTheOthers) {
    SizeRun run;
    EXPECT_EQ(run.run({"size", "--depth", "0", "", run.path + "/none", run.path}), kExitFailed);
    EXPECT_EQ(run.measured, std::vector<std::string>{run.path});
    EXPECT_EQ(run.output(), run.path + kTotal);
    EXPECT_EQ(run.error(),
              "kavaro: the path is empty. Name a folder, for example \".\" for the current one.\n"
              "kavaro: " +
                  run.path + "/none: no such folder. Check the spelling.\n");
}

TEST(SizeCommand, wrongUsage) {
    SizeRun run;
    EXPECT_EQ(run.run({"size", run.path, "--sort", "x"}), kExitWrongUsage);
    EXPECT_EQ(run.error(), "kavaro: --sort: \"x\" is not size, name, date or count. See \"kavaro size --help\".\n");
    EXPECT_EQ(run.output(), "");
    EXPECT_TRUE(run.measured.empty());
}

TEST(SizeCommand, jsonOfOneFolderIsAnObject) {
    SizeRun run;
    EXPECT_EQ(run.run({"size", "--json", run.path}), kExitDone);
    rapidjson::Document document;
    ASSERT_FALSE(document.Parse(run.output().c_str()).HasParseError());
    EXPECT_EQ(document["path"].GetString(), run.path);
    EXPECT_EQ(document["files"].GetInt(), 4);
    EXPECT_DOUBLE_EQ(document["seconds"].GetDouble(), 1.235);
    EXPECT_EQ(run.output().back(), '\n');
}

TEST(SizeCommand, jsonOfSeveralFoldersIsAnArray) {
    SizeRun run;
    EXPECT_EQ(run.run({"size", "--json", run.path, "/nowhere", "/"}), kExitFailed);
    rapidjson::Document document;
    ASSERT_FALSE(document.Parse(run.output().c_str()).HasParseError()) << run.output();
    ASSERT_EQ(document.Size(), 2U);
    EXPECT_STREQ(document[1]["path"].GetString(), "/");
}

TEST(SizeCommand, tableShows20EntriesAndJsonAll) {
    SizeRun run;
    run.measureAs([] {
        TuvRef<TuvDirNode> root = FakeTree::root("/many");
        for (std::uint32_t i = 0; i < 50; ++i) FakeTree::addFile(*root, "f" + std::to_string(i), 10 + i, 100, 4096);
        FakeTree::resolve(*root);
        return root;
    });
    EXPECT_EQ(run.run({"size", run.path}), kExitDone);
    EXPECT_NE(run.output().find("30 more\n"), std::string::npos);
    SizeRun json;
    json.measure = run.measure;
    EXPECT_EQ(json.run({"size", "--json", json.path}), kExitDone);
    rapidjson::Document document;
    document.Parse(json.output().c_str());
    EXPECT_EQ(document["children"].Size(), 50U);
}

TEST(SizeCommand, exportToAFile) {
    SizeRun run;
    const std::string file = run.folder.write("out.json", std::string(100000, 'x'));
    EXPECT_EQ(run.run({"size", "--export", "ncdu", file, run.path}), kExitDone);
    EXPECT_EQ(run.output(), "");
    const std::string written = run.folder.read("out.json");
    EXPECT_EQ(written.substr(0, 5), "[1,2,");
    EXPECT_EQ(written.substr(written.size() - 4), "]]]\n");
}

TEST(SizeCommand, exportToStandardOutput) {
    SizeRun run;
    EXPECT_EQ(run.run({"size", "--export", "ncdu", run.path}), kExitDone);
    EXPECT_EQ(run.output().substr(0, 5), "[1,2,");
}

TEST(SizeCommand, exportFailsBeforeItMeasures) {
    SizeRun run;
    EXPECT_EQ(run.run({"size", "--export", "ncdu", run.path, run.path}), kExitFailed);
    EXPECT_EQ(run.error(),
              "kavaro: " + run.path + ": is a folder. --export ncdu takes the name of a file, then one folder.\n");
    EXPECT_TRUE(run.measured.empty());
}

TEST(SizeCommand, anExportThatMeasuredNothingKeepsTheFile) {
    SizeRun run;
    const std::string file = run.folder.write("out.json", "old");
    run.measure = [](const std::string& path, const MeasurementSource::Callbacks&) {
        Measurement measurement;
        measurement.path = path;
        measurement.failure = path + ": no bus. Start one.";
        return measurement;
    };
    EXPECT_EQ(run.run({"size", "--export", "ncdu", file, run.path}), kExitFailed);
    EXPECT_EQ(run.folder.read("out.json"), "old");
    EXPECT_EQ(run.error(), "kavaro: " + run.path + ": no bus. Start one.\n");
    const std::string none = run.folder.path("new.json");
    EXPECT_EQ(run.run({"size", "--export", "ncdu", none, run.path}), kExitFailed);
    EXPECT_NE(access(none.c_str(), F_OK), 0) << "an empty file is no export";
}

TEST(SizeCommand, aFailureKeepsWhatWasMeasured) {
    SizeRun run;
    run.measureAs(smallTree, [](Measurement& measurement) { measurement.failure = "the server is gone. Try again."; });
    EXPECT_EQ(run.run({"size", "--depth", "0", run.path}), kExitFailed);
    EXPECT_EQ(run.error(), "kavaro: the server is gone. Try again.\n");
    EXPECT_NE(run.output().find("1.23 s (partial)\n"), std::string::npos);
}

TEST(SizeCommand, interruptedShowsTheRestAndStops) {
    SizeRun run;
    run.measure = [&](const std::string& path, const MeasurementSource::Callbacks& callbacks) {
        EXPECT_FALSE(callbacks.interrupted());
        EXPECT_TRUE(run.leavesAtOnce.empty());
        run.signals = 1;
        EXPECT_TRUE(callbacks.interrupted());
        EXPECT_EQ(run.leavesAtOnce, std::vector<bool>{true});  // the second one
        Measurement measurement;
        measurement.path = path;
        measurement.root = smallTree();
        measurement.interrupted = true;
        return measurement;
    };
    EXPECT_EQ(run.run({"size", "--depth", "0", run.path, "/"}), kExitInterrupted);
    EXPECT_EQ(run.measured, std::vector<std::string>{run.path});
    EXPECT_EQ(run.error(), "kavaro: " + run.path + ": interrupted. What was measured until then follows.\n");
    EXPECT_NE(run.output().find("(partial)\n"), std::string::npos);
}

TEST(SizeCommand, aSignalWhileWritingLeavesAtOnce) {
    SizeRun run;
    EXPECT_EQ(run.run({"size", run.path}), kExitDone);
    EXPECT_EQ(run.leavesAtOnce, (std::vector<bool>{true, false}));
}

TEST(SizeCommand, fullDisk) {
    SizeRun run;
    run.context.output = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(run.context.output, 0);
    EXPECT_EQ(run.run({"size", run.path}), kExitFailed);
    close(run.context.output);
    EXPECT_EQ(run.error(),
              "kavaro: standard output: cannot be written: No space left on device. "
              "Make room there or write to another place.\n");
}

TEST(SizeCommand, fullDiskOfAnExport) {
    SizeRun run;
    EXPECT_EQ(run.run({"size", "--export", "ncdu", "/dev/full", run.path}), kExitFailed);
    EXPECT_EQ(run.error().rfind("kavaro: /dev/full: cannot be written: No space left on device.", 0), 0U);
}

TEST(SizeCommand, aReaderThatLeftIsNoError) {
    SizeRun run;
    signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    run.context.output = ends[1];
    EXPECT_EQ(run.run({"size", run.path, run.path}), kExitDone);
    close(ends[1]);
    EXPECT_EQ(run.error(), "");
    EXPECT_EQ(run.measured.size(), 1U);  // nobody would read the second one
}

TEST(SizeCommand, coloursOnTerminalsOnly) {
    ScopedEnvironment environment("COLORTERM", "");
    environment.set("TERM", "xterm");
    environment.unset("NO_COLOR");
    const auto isColored = [](bool isTerminal, const std::vector<std::string>& more) {
        SizeRun run;
        run.context.outputIsTerminal = isTerminal;
        std::vector<std::string> arguments = {"size", run.path};
        arguments.insert(arguments.end(), more.begin(), more.end());
        EXPECT_EQ(run.run(arguments), kExitDone);
        return run.output().find("\x1b[38;5;") != std::string::npos;
    };
    EXPECT_FALSE(isColored(false, {}));
    EXPECT_TRUE(isColored(true, {}));
    EXPECT_TRUE(isColored(false, {"--color", "always"}));
    EXPECT_FALSE(isColored(true, {"--color", "never"}));
    environment.set("NO_COLOR", "1");
    EXPECT_FALSE(isColored(true, {}));
    EXPECT_TRUE(isColored(true, {"--color", "always"}));
    environment.unset("NO_COLOR");
    environment.set("TERM", "dumb");
    EXPECT_FALSE(isColored(true, {}));
}

TEST(SizeCommand, widthOfTheTerminal) {
    SizeRun run;
    run.context.outputIsTerminal = true;
    run.columns = 50;
    EXPECT_EQ(run.run({"size", run.path, "--color", "never"}), kExitDone);
    EXPECT_EQ(run.output().find("FOLDERS"), std::string::npos);  // no room
    SizeRun unknown;
    unknown.context.outputIsTerminal = true;
    unknown.columns = 0;
    EXPECT_EQ(unknown.run({"size", unknown.path, "--color", "never"}), kExitDone);
    EXPECT_NE(unknown.output().find("FOLDERS"), std::string::npos);
}

TEST(SizeCommand, liveLineIsForTerminals) {
    for (const bool isTerminal : {false, true}) {
        SizeRun run;
        run.context.errorIsTerminal = isTerminal;
        const CommandRun::Measure finish = run.measure;
        run.measure = [&](const std::string& path, const MeasurementSource::Callbacks& callbacks) {
            MeasurementProgress progress;
            progress.folders = 7;
            callbacks.progress(progress);
            return finish(path, callbacks);
        };
        EXPECT_EQ(run.run({"size", run.path}), kExitDone);
        EXPECT_EQ(run.error(), isTerminal ? "\r\x1b[K7 folders, 0 bytes, 0 folders/s\r\x1b[K" : "");
    }
}

TEST(SizeCommand, statisticsForBenchmarks) {
    SizeRun run;
    run.measureAs(smallTree, [](Measurement& measurement) {
        measurement.serverSeconds = 0.25;
        measurement.serverIdleMemory = 1000;
        measurement.serverPeakMemory = 2000;
    });
    EXPECT_EQ(run.run({"size", "--json", "--statistics", run.path}), kExitDone);
    rapidjson::Document document;
    ASSERT_FALSE(document.Parse(run.output().c_str()).HasParseError());
    EXPECT_DOUBLE_EQ(document["statistics"]["engineSeconds"].GetDouble(), 0.25);
    EXPECT_EQ(document["statistics"]["serverIdleMemory"].GetInt(), 1000);
    EXPECT_EQ(document["statistics"]["serverPeakMemory"].GetInt(), 2000);
    EXPECT_GT(document["statistics"]["clientPeakMemory"].GetUint64(), 1000000U);
}

}  // namespace
}  // namespace kavaro
