#include <fcntl.h>
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "client/commandline/CommandRun.h"
#include "client/commandline/FakeTree.h"
#include "platform/Catalog.h"
#include "platform/Resources.h"

namespace kavaro {
namespace {

// A command line over a folder that exists, measured as the small tree. The clock stands at 2023-11-14 22:13:20 UTC.
struct FindRun : CommandRun {
    FindRun() {
        setResourcesFolder(KAVARO_APP_DIR "/Resources");
        environment.set("TZ", "UTC");
        environment.set("XDG_CONFIG_HOME", folder.path());
        environment.set("NO_COLOR", "1");
        measureAs(smallTree);
    }
    // Paths found, without the folder in front.
    std::string found(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "find");
        arguments.push_back(path);
        EXPECT_EQ(run(arguments), kExitDone) << error();
        std::string text = output();
        for (std::size_t at; (at = text.find(path)) != std::string::npos;) text.erase(at, path.size());
        return text;
    }
    TempFolder folder;
    ScopedEnvironment environment;
    std::string path = folder.makeFolder("data");
};

rapidjson::Document parsed(const std::string& text) {
    rapidjson::Document document;
    EXPECT_FALSE(document.Parse(text.c_str()).HasParseError()) << text;
    return document;
}

TEST(FindCommand, everythingWithoutAFilter) {
    FindRun run;
    EXPECT_EQ(run.found({}), "\n/list\n/写真\n/big\n/big/film\n/big/deep\n/big/deep/note\n/small\n");
    EXPECT_EQ(run.error(), "");
    EXPECT_EQ(run.measured, std::vector<std::string>{run.path});
}

TEST(FindCommand, bySize) {
    EXPECT_EQ(FindRun().found({"--size", "1 MB.."}), "\n/big\n/big/film\n");
    EXPECT_EQ(FindRun().found({"--size", "> 1 MB"}), "\n/big\n/big/film\n");
    EXPECT_EQ(FindRun().found({"--size", "1 KB..300 KB"}), "/list\n/写真\n/big/deep\n/big/deep/note\n");
    EXPECT_EQ(FindRun().found({"--size", "..0"}), "/small\n");
    EXPECT_EQ(FindRun().found({"--size", "Any Size", "--kind", "folder"}), "\n/big\n/big/deep\n/small\n");
}

TEST(FindCommand, byName) {
    EXPECT_EQ(FindRun().found({"--name", "I"}), "/list\n/big\n/big/film\n");
    EXPECT_EQ(FindRun().found({"--name", "list", "--exact"}), "/list\n");
    EXPECT_EQ(FindRun().found({"--name", "LIST", "--exact"}), "");
    EXPECT_EQ(FindRun().found({"--name", "真"}), "/写真\n");
    EXPECT_EQ(FindRun().found({"--name", "[x"}), "");
    EXPECT_EQ(FindRun().found({"--name", std::string(10000, 'i')}), "");
}

TEST(FindCommand, byDate) {
    FindRun run;
    run.measureAs([] {
        constexpr std::int64_t kMidnight = 1699920000;  // of the clock's day
        TuvRef<TuvDirNode> root = FakeTree::root("/data");
        FakeTree::addFile(*root, "now", 3, 1, 1, 1700000000);
        FakeTree::addFile(*root, "later", 4, 1, 1, 1700000001);
        FakeTree::addFile(*root, "yesterday", 5, 1, 1, kMidnight - 1);
        FakeTree::addFile(*root, "old", 6, 1, 1, kMidnight - 400 * 86400);
        FakeTree::resolve(*root);
        return root;
    });
    const auto found = [&](const char* title) {
        FindRun one;
        one.measure = run.measure;
        return one.found({"--kind", "file", "--modified", title});
    };
    EXPECT_EQ(found("Today"), "/now\n");
    EXPECT_EQ(found("Yesterday"), "/yesterday\n");
    EXPECT_EQ(found("Last Week"), "/yesterday\n");
    EXPECT_EQ(found("Before 1 Year"), "/old\n");
    EXPECT_EQ(found("AnyTime"), "/now\n/later\n/yesterday\n/old\n");
}

TEST(FindCommand, linksAreThoseOfTheDisk) {
    for (const auto& [kind, expected] :
         std::vector<std::pair<const char*, const char*>>{{"file", "/list\n/写真\n/big/film\n/big/deep/note\n"},
                                                          {"link", ""},
                                                          {"folder", "\n/big\n/big/deep\n/small\n"}})
        EXPECT_EQ(FindRun().found({"--kind", kind}), expected) << kind;
    FindRun link, file, json;
    for (FindRun* run : {&link, &file, &json}) ASSERT_EQ(symlink("nowhere", (run->path + "/写真").c_str()), 0);
    EXPECT_EQ(link.found({"--kind", "link"}), "/写真\n");
    EXPECT_EQ(file.found({"--kind", "file"}), "/list\n/big/film\n/big/deep/note\n");
    EXPECT_EQ(json.run({"find", "--json", "--name", "真", json.path}), kExitDone);
    EXPECT_STREQ(parsed(json.output())["found"][0]["kind"].GetString(), "link");
}

TEST(FindCommand, nullBytesAndRawNames) {
    FindRun run;
    run.measureAs([] {
        TuvRef<TuvDirNode> root = FakeTree::root("/data");
        FakeTree::addFile(*root, "a\nb\xff", 3, 1, 1);
        FakeTree::resolve(*root);
        return root;
    });
    EXPECT_EQ(run.found({"-0", "--name", "B\xff"}), std::string("/a\nb\xff\0", 6));
    FindRun lines;
    lines.measure = run.measure;
    EXPECT_EQ(lines.found({"--name", "b"}), "/a\nb\xff\n");
}

TEST(FindCommand, aTableOnATerminal) {
    FindRun run;
    run.context.outputIsTerminal = true;
    EXPECT_EQ(run.found({"--size", "1 KB.."}),
              "    5.3 MB  2024-02-29 12:34  /\n"
              "  300.0 KB  2024-02-29 12:34  /list\n"
              "    2.0 KB  2024-02-29 12:36  /写真\n"
              "    5.0 MB  2024-02-29 12:35  /big/\n"
              "    5.0 MB  2024-02-29 12:34  /big/film\n"
              "    1.0 KB  2024-02-29 12:34  /big/deep/\n"
              "    1.0 KB  2024-02-29 12:33  /big/deep/note\n"
              "\n7 entries found\n");
    FindRun none;
    none.context.outputIsTerminal = true;
    EXPECT_EQ(none.found({"--name", "zzz"}), "0 entries found\n");
    FindRun raw;
    raw.context.outputIsTerminal = true;
    EXPECT_EQ(raw.found({"--null", "--name", "list"}), std::string("/list\0", 6));
}

TEST(FindCommand, json) {
    FindRun run;
    EXPECT_EQ(run.run({"find", "--json", "--name", "i", run.path}), kExitDone);
    const rapidjson::Document document = parsed(run.output());
    EXPECT_EQ(document["path"].GetString(), run.path);
    EXPECT_DOUBLE_EQ(document["seconds"].GetDouble(), 1.235);
    EXPECT_FALSE(document.HasMember("partial") || document.HasMember("unread"));
    ASSERT_EQ(document["found"].Size(), 3u);
    const auto& folder = document["found"][1];
    EXPECT_EQ(folder["path"].GetString(), run.path + "/big");
    EXPECT_STREQ(folder["kind"].GetString(), "folder");
    EXPECT_EQ(folder["inode"].GetInt(), 10);
    EXPECT_EQ(folder["physicalSize"].GetInt(), 5243904);
    EXPECT_EQ(folder["logicalSize"].GetInt(), 5243000);
    EXPECT_STREQ(folder["modified"].GetString(), "2024-02-29T12:35:56Z");
    FindRun two;
    EXPECT_EQ(two.run({"find", "--json", two.path, "/nowhere", "/"}), kExitFailed);
    ASSERT_EQ(parsed(two.output()).Size(), 2u);
    EXPECT_STREQ(parsed(two.output())[1]["found"][1]["path"].GetString(), "/list");
}

TEST(FindCommand, severalFolders) {
    FindRun run;
    run.folder.makeFolder("data/a");
    EXPECT_EQ(run.run({"find", "--name", "list", run.path, run.path + "/none", run.path + "/a/"}), kExitFailed);
    EXPECT_EQ(run.output(), run.path + "/list\n" + run.path + "/a/list\n");
    EXPECT_EQ(run.error(), "kavaro: " + run.path + "/none: no such folder. Check the spelling.\n");
}

TEST(FindCommand, optionsReachTheSource) {
    FindRun run;
    EXPECT_EQ(run.run({"find", run.path, "--bus", "system", "--verbose", "--same-file-system"}), kExitDone);
    ASSERT_EQ(run.remotes.size(), 1u);
    EXPECT_EQ(run.remotes[0].bus, "system");
    EXPECT_TRUE(run.remotes[0].verbose && run.remotes[0].sameFileSystem);
    FindRun embedded;
    EXPECT_EQ(embedded.run({"find", "--embedded", embedded.path}), kExitDone);
    EXPECT_EQ(embedded.embedded, 1);
}

TEST(FindCommand, wrongValuesSayWhatIsRightBeforeMeasuring) {
    const auto wrong = [](const std::vector<std::string>& options) {
        FindRun run;
        std::vector<std::string> arguments = {"find", run.path};
        arguments.insert(arguments.end(), options.begin(), options.end());
        EXPECT_EQ(run.run(arguments), kExitWrongUsage);
        EXPECT_EQ(run.output(), "");
        EXPECT_TRUE(run.measured.empty());
        return run.error();
    };
    EXPECT_EQ(wrong({"--kind", "pipe"}),
              "kavaro: --kind: \"pipe\" is not file, folder or link. See \"kavaro find --help\".\n");
    EXPECT_NE(wrong({"--size", "Huge"}).find("\"(100 MB ... 1 GB)\""), std::string::npos);
    EXPECT_NE(wrong({"--modified", "Last Fortnight"})
                  .find("--modified: \"Last Fortnight\" is not one of \"AnyTime\", \"Today\", \"Yesterday\""),
              std::string::npos);
    EXPECT_NE(wrong({"--exact"}).find("--name"), std::string::npos);
    EXPECT_NE(wrong({"--json", "-0"}).find("--help"), std::string::npos);
    EXPECT_NE(wrong({"--size", "1..", "--size", "2.."}).find("--help"), std::string::npos);
    FindRun none;
    EXPECT_EQ(none.run({"find", "--name", "x"}), kExitWrongUsage);
    EXPECT_NE(none.error().find("no folder given"), std::string::npos);
}

TEST(FindCommand, listsItsRanges) {
    FindRun run;
    EXPECT_EQ(run.run({"find", "--list-ranges"}), kExitDone);
    EXPECT_NE(run.output().find("  (10 KB ... 100 KB)\n"), std::string::npos);
    EXPECT_NE(run.output().find("  Before 10 Years\n"), std::string::npos);
    EXPECT_TRUE(run.measured.empty());
}

TEST(FindCommand, whatCouldNotBeReadIsSaidOnStandardError) {
    const auto withUnread = [](Measurement& measurement) {
        measurement.unread = {{"/data/locked", kReasonPermission},
                              {"/data/\xff", kReasonPermission},
                              {"/data/proc", kReasonPseudoFileSystem}};
    };
    FindRun run;
    run.measureAs(smallTree, withUnread);
    EXPECT_EQ(run.found({"--name", "list"}), "/list\n");
    EXPECT_EQ(run.error(), "kavaro: " + run.path +
                               ": 2 folders could not be read, 1 folder was left out; what they hold is not looked at. "
                               "--errors lists them.\n");
    FindRun listed;
    listed.measureAs(smallTree, withUnread);
    EXPECT_EQ(listed.found({"--name", "list", "--errors"}), "/list\n");
    EXPECT_NE(listed.error().find("looked at.\n  /data/locked: permission\n  /data/\\xff: permission\n"),
              std::string::npos)
        << listed.error();
    FindRun json;
    json.measureAs(smallTree, withUnread);
    EXPECT_EQ(json.run({"find", "--json", json.path}), kExitDone);
    EXPECT_EQ(parsed(json.output())["unread"].Size(), 3u);
    EXPECT_TRUE(parsed(json.output())["lowerBound"].GetBool());
    EXPECT_EQ(json.error(), "");
}

TEST(FindCommand, interruptedShowsWhatThereIs) {
    const auto interrupt = [](Measurement& measurement) { measurement.interrupted = true; };
    FindRun run, json;
    run.measureAs(smallTree, interrupt);
    EXPECT_EQ(run.run({"find", "--name", "list", run.path, "/"}), kExitInterrupted);
    EXPECT_EQ(run.output(), run.path + "/list\n");
    EXPECT_EQ(run.error(), "kavaro: " + run.path + ": interrupted. What was measured until then follows.\n");
    EXPECT_EQ(run.measured.size(), 1u);
    json.measureAs(smallTree, interrupt);
    EXPECT_EQ(json.run({"find", "--json", json.path}), kExitInterrupted);
    EXPECT_TRUE(parsed(json.output())["partial"].GetBool());
}

TEST(FindCommand, aFullDiskIsAnError) {
    FindRun run;
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    run.context.output = full;
    EXPECT_EQ(run.run({"find", run.path}), kExitFailed);
    EXPECT_NE(run.error().find("standard output: cannot be written"), std::string::npos);
    close(full);
}

}  // namespace
}  // namespace kavaro
