#include <gmock/gmock.h>
#include <rapidjson/document.h>
#include <unistd.h>

#include "ScopedEnvironment.h"
#include "cleanup/Bundles.h"
#include "cleanup/LipoRequests.h"
#include "cleanup/TuvLipoNode.h"
#include "cleanup/UniversalFile.h"
#include "client/commandline/CommandRun.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// Applications on the disk, with a server that answers from there. The machine is of the Intel family.
struct SlimRun : CommandRun {
    SlimRun() {
        TuvLipoNode::setProcessorName("i386");
        for (const char* name : {"NO_COLOR", "COLORTERM"}) environment.unset(name);
        bundles.file("A.app/Contents/MacOS/A", universalFile(kFourSlices));
        bundles.file("B.app/Contents/MacOS/B", universalFile({kPPC7400, kX86_64, kARM64}));
        bundles.file("C.framework/Versions/A/C", universalFile({kX86_64, kARM64}));
        bundles.file("D.app/Contents/MacOS/D", "#!/bin/sh\n");
        bundles.file("other", universalFile(kFourSlices));
        measureAs([this] { return bundles.tree(); });
        command = [this](std::string_view member, const std::vector<BusValue>& arguments,
                         const std::function<bool()>& interrupted) {
            return serve(member, arguments.at(0), interrupted);
        };
    }
    ~SlimRun() { TuvLipoNode::setProcessorName(std::nullopt); }
    CommandReply serve(std::string_view member, const BusValue& argument, const std::function<bool()>&) {
        CommandReply reply;
        if (member == "lipoNodesInfo") {
            LipoTables tables;
            for (const LipoQuestion& file : lipoQuestionsIn(argument).value_or(std::vector<LipoQuestion>())) {
                PropertyList table = TuvLipoNode::lipoInfo(file.filePath);
                if (!table.dictionary()->empty()) tables[file.inode] = std::move(table);
            }
            reply.values.push_back(busValueOf(tables));
        } else {
            EXPECT_EQ(member, "lipoNodes");
            for (const LipoRemoval& file : lipoRemovalsIn(argument).value_or(std::vector<LipoRemoval>()))
                TuvLipoNode::lipoNode(file.filePath, file.archTypes);
        }
        return reply;
    }
    rapidjson::Document json() const {
        rapidjson::Document document;
        EXPECT_FALSE(document.Parse(output().c_str()).HasParseError()) << output();
        return document;
    }
    std::string content(const std::string& name) const {
        std::string bytes;
        if (std::FILE* file = std::fopen(bundles.path(name).c_str(), "rb")) {
            for (int byte; (byte = std::fgetc(file)) != EOF;) bytes += static_cast<char>(byte);
            std::fclose(file);
        }
        return bytes;
    }
    bool isUnchanged() const {
        return content("A.app/Contents/MacOS/A") == universalFile(kFourSlices) &&
               content("B.app/Contents/MacOS/B") == universalFile({kPPC7400, kX86_64, kARM64});
    }
    Bundles bundles;
    std::string path = bundles.path();
    ScopedEnvironment environment;
};

TEST(SlimCommand, listsWhatCouldGo) {
    SlimRun run;
    EXPECT_EQ(run.run({"slim", run.path}), kExitDone);
    EXPECT_EQ(run.output(), run.path +
                                ": code for PowerPC in 2 programs could go: 4.9 KB\n"
                                "\n"
                                " FREED  CODE          PROGRAM\n"
                                "2.9 KB  ppc, ppc7400  " +
                                run.path +
                                "/A.app/Contents/MacOS/A\n"
                                "2.0 KB  ppc7400       " +
                                run.path +
                                "/B.app/Contents/MacOS/B\n"
                                "\n"
                                "Besides, 2 programs hold arm64 (9.8 KB). --arch NAME lets it go.\n");
    EXPECT_EQ(run.error(), "");
    EXPECT_THAT(run.commands, ElementsAre("lipoNodesInfo"));
    EXPECT_TRUE(run.isUnchanged());
}

TEST(SlimCommand, architecturesByName) {
    SlimRun run;
    EXPECT_EQ(run.run({"slim", "--arch", "arm64", "--arch", "ppc", run.path}), kExitDone);
    EXPECT_THAT(run.output(), HasSubstr(": code in 3 programs could go: 10.7 KB\n"));
    EXPECT_THAT(run.output(), HasSubstr("1000 bytes  ppc    " + run.path + "/A.app/Contents/MacOS/A\n"));
    EXPECT_THAT(run.output(), Not(HasSubstr("Besides")));
    SlimRun none;
    EXPECT_EQ(none.run({"slim", none.path, "--arch", "x86_64"}), kExitDone);
    EXPECT_EQ(none.output(), none.path + ": no code that could go\n") << "this machine runs it";
}

TEST(SlimCommand, whereTheProcessorIsNotKnownNothingGoesByItself) {
    SlimRun run;
    TuvLipoNode::setProcessorName("aarch64");
    EXPECT_EQ(run.run({"slim", run.path}), kExitDone);
    EXPECT_THAT(run.output(), HasSubstr(": no code that could go\n3 programs hold arm64, i386, ppc, ppc7400, x86_64"));
    SlimRun named;
    TuvLipoNode::setProcessorName("aarch64");
    EXPECT_EQ(named.run({"slim", "--arch", "ppc", "--apply", "--yes", named.path}), kExitDone);
    EXPECT_EQ(named.content("A.app/Contents/MacOS/A"), universalFile({kPPC7400, kI386, kX86_64}));
}

TEST(SlimCommand, json) {
    SlimRun run;
    EXPECT_EQ(run.run({"slim", "--json", run.path}), kExitDone);
    const rapidjson::Document document = run.json();
    EXPECT_EQ(document["path"].GetString(), run.path);
    EXPECT_EQ(document["freed"].GetInt(), 5000);
    EXPECT_DOUBLE_EQ(document["seconds"].GetDouble(), 1.235);
    const auto& programs = document["programs"];
    ASSERT_EQ(programs.Size(), 3u);
    EXPECT_EQ(programs[1]["path"].GetString(), run.path + "/B.app/Contents/MacOS/B");
    EXPECT_EQ(programs[1]["freed"].GetInt(), 2000);
    EXPECT_EQ(programs[1]["logicalSize"].GetUint(), universalFile({kPPC7400, kX86_64, kARM64}).size());
    EXPECT_TRUE(programs[1]["inode"].IsUint());
    const auto& architectures = programs[1]["architectures"];
    ASSERT_EQ(architectures.Size(), 2u);
    EXPECT_STREQ(architectures[0]["architecture"].GetString(), "ppc7400");
    EXPECT_EQ(architectures[0]["size"].GetInt(), 2000);
    EXPECT_TRUE(architectures[0]["goes"].GetBool());
    EXPECT_STREQ(architectures[1]["architecture"].GetString(), "arm64");
    EXPECT_FALSE(architectures[1]["goes"].GetBool());
    EXPECT_EQ(programs[2]["freed"].GetInt(), 0);
    EXPECT_FALSE(document.HasMember("partial"));
    SlimRun several;
    EXPECT_EQ(several.run({"slim", "--json", several.path, several.path + "/A.app"}), kExitDone);
    EXPECT_EQ(several.json().Size(), 2u);
    EXPECT_EQ(several.commands.size(), 1u) << "all files are asked for at once";
}

TEST(SlimCommand, nothingToAskFor) {
    SlimRun run;
    TempFolder empty;
    run.measureAs([&] { return Bundles().tree(); });
    EXPECT_EQ(run.run({"slim", empty.path()}), kExitDone);
    EXPECT_EQ(run.output(), empty.path() + ": no code that could go\n");
    EXPECT_TRUE(run.commands.empty());
}

TEST(SlimCommand, namesAreNoLinesOfTheirOwn) {
    SlimRun run;
    run.bundles.file("E\n\xff.app/Contents/MacOS/E", universalFile(kFourSlices));
    EXPECT_EQ(run.run({"slim", run.path}), kExitDone);
    EXPECT_THAT(run.output(), HasSubstr(run.path + "/E\\n\\xff.app/Contents/MacOS/E\n"));
}

TEST(SlimCommand, appliesAfterAYes) {
    SlimRun run;
    run.context.canAsk = true;
    run.typed = "y";
    EXPECT_EQ(run.run({"slim", "--apply", run.path}), kExitDone);
    EXPECT_THAT(run.error(), HasSubstr("Rewrite 2 programs without this code, which frees 4.9 KB? [y/N] "));
    EXPECT_THAT(run.output(), HasSubstr("2.0 KB  ppc7400       " + run.path + "/B.app/Contents/MacOS/B\n"));
    EXPECT_TRUE(run.output().ends_with("\n2 programs rewritten, 4.9 KB freed.\n")) << run.output();
    EXPECT_EQ(run.content("A.app/Contents/MacOS/A"), universalFile({kI386, kX86_64}));
    EXPECT_EQ(run.content("B.app/Contents/MacOS/B"), universalFile({kX86_64, kARM64}));
    EXPECT_EQ(run.content("other"), universalFile(kFourSlices));
    EXPECT_THAT(run.commands, ElementsAre("lipoNodesInfo", "lipoNodes", "lipoNodesInfo"));
}

TEST(SlimCommand, changesNothingWithoutAYes) {
    const auto changesNothing = [](std::vector<std::string> arguments, int exitCode, bool canAsk, const char* said) {
        SlimRun run;
        run.context.canAsk = canAsk;
        run.typed = "no";
        arguments.push_back(run.path);
        EXPECT_EQ(run.run(arguments), exitCode);
        EXPECT_THAT(run.output(), HasSubstr(": code for PowerPC in 2 programs could go: 4.9 KB\n"));
        EXPECT_THAT(run.error(), HasSubstr(said));
        EXPECT_TRUE(run.isUnchanged());
        EXPECT_THAT(run.commands, ElementsAre("lipoNodesInfo"));
    };
    changesNothing({"slim", "--apply"}, kExitFailed, true, "nothing was changed");
    changesNothing({"slim", "--apply"}, kExitWrongUsage, false, "--yes");
    changesNothing({"slim", "--apply", "--dry-run"}, kExitDone, true, "dry run");
    changesNothing({"slim", "--apply", "--dry-run", "--yes"}, kExitDone, false, "dry run");
    SlimRun none;
    none.measureAs([] { return Bundles().tree(); });
    EXPECT_EQ(none.run({"slim", "--apply", none.path}), kExitDone) << "nobody is asked about nothing";
}

TEST(SlimCommand, everyFailureIsTold) {
    SlimRun run;
    const std::string linked = run.path + "/A.app/Contents/MacOS/A";
    ASSERT_EQ(link(linked.c_str(), run.bundles.path("second").c_str()), 0);
    EXPECT_EQ(run.run({"slim", "--apply", "--yes", run.path}), kExitFailed);
    EXPECT_EQ(run.error(),
              "kavaro: " + linked + ": it has 2 names (hard links), and the others would keep the old content.\n");
    EXPECT_TRUE(run.output().ends_with("\n1 program rewritten, 2.0 KB freed.\n")) << run.output();
    EXPECT_EQ(run.content("A.app/Contents/MacOS/A"), universalFile(kFourSlices));
}

TEST(SlimCommand, aFileThatIsGone) {
    SlimRun run;
    const auto serve = run.command;
    run.command = [&](std::string_view member, const std::vector<BusValue>& arguments,
                      const std::function<bool()>& interrupted) {
        if (member == "lipoNodes") unlink((run.path + "/A.app/Contents/MacOS/A").c_str());
        return serve(member, arguments, interrupted);
    };
    EXPECT_EQ(run.run({"slim", "--apply", "--yes", run.path}), kExitFailed);
    EXPECT_THAT(run.error(), HasSubstr("/A: it does not exist any more.\n"));
    EXPECT_TRUE(run.output().ends_with("\n1 program rewritten, 2.0 KB freed.\n"));
}

// Another user's server may do what this one may not look into.
TEST(SlimCommand, aServerThatDoesNothing) {
    SlimRun run;
    const auto serve = run.command;
    run.command = [&](std::string_view member, const std::vector<BusValue>& arguments,
                      const std::function<bool()>& interrupted) {
        return member == "lipoNodes" ? CommandReply() : serve(member, arguments, interrupted);
    };
    EXPECT_EQ(run.run({"slim", "--apply", "--yes", "--bus", "system", run.path}), kExitFailed);
    EXPECT_THAT(run.error(), HasSubstr("/A: the server left it as it was; its log says why (--verbose shows it).\n"));
    EXPECT_TRUE(run.output().ends_with("\n0 programs rewritten, 0 bytes freed.\n"));
}

TEST(SlimCommand, aServerThatRefusesOrGoes) {
    for (const std::string failing : {"lipoNodesInfo", "lipoNodes"}) {
        SlimRun run;
        const auto serve = run.command;
        run.command = [&](std::string_view member, const std::vector<BusValue>& arguments,
                          const std::function<bool()>& interrupted) {
            CommandReply reply;
            reply.failure = "the server went away.";
            return member == failing ? reply : serve(member, arguments, interrupted);
        };
        EXPECT_EQ(run.run({"slim", "--apply", "--yes", run.path}), kExitFailed);
        EXPECT_THAT(run.error(), HasSubstr("kavaro: the server went away.\n"));
        EXPECT_TRUE(run.isUnchanged());
    }
}

TEST(SlimCommand, aServerThatGoesInTheMiddle) {
    SlimRun run;
    const auto serve = run.command;
    run.command = [&](std::string_view member, const std::vector<BusValue>& arguments,
                      const std::function<bool()>& interrupted) {
        if (member != "lipoNodes") return serve(member, arguments, interrupted);
        auto files = lipoRemovalsIn(arguments.at(0)).value();
        EXPECT_EQ(files.size(), 2u);
        files.pop_back();
        CommandReply reply = serve(member, {busValueOf(files)}, interrupted);
        reply.failure = "the server went away.";
        return reply;
    };
    EXPECT_EQ(run.run({"slim", "--apply", "--yes", run.path}), kExitFailed);
    EXPECT_EQ(run.error(), "kavaro: the server went away.\nkavaro: 1 program not tried.\n");
    EXPECT_THAT(run.output(), HasSubstr("\n1 program rewritten, "));
}

TEST(SlimCommand, interruptedWhileItAsks) {
    SlimRun run;
    run.command = [&](std::string_view, const std::vector<BusValue>&, const std::function<bool()>& interrupted) {
        run.signals = 1;
        CommandReply reply;
        reply.interrupted = interrupted();
        return reply;
    };
    EXPECT_EQ(run.run({"slim", run.path}), kExitInterrupted);
    EXPECT_EQ(run.error(), "kavaro: interrupted.\n");
    EXPECT_EQ(run.output(), "");
}

TEST(SlimCommand, interruptedWhileItRewrites) {
    SlimRun run;
    for (int i = 0; i < 12; ++i)
        run.bundles.file("more" + std::to_string(i) + ".app/Contents/MacOS/m", universalFile(kFourSlices));
    const auto serve = run.command;
    run.command = [&](std::string_view member, const std::vector<BusValue>& arguments,
                      const std::function<bool()>& interrupted) {
        if (member == "lipoNodes") run.signals = 1;
        return serve(member, arguments, interrupted);
    };
    EXPECT_EQ(run.run({"slim", "--apply", "--yes", run.path}), kExitInterrupted);
    EXPECT_EQ(run.error(), "kavaro: interrupted, 4 programs not tried.\n");
    EXPECT_THAT(run.output(), HasSubstr("\n10 programs rewritten, "));
}

// The server follows no link; where the folder was named by one, the real path is sent.
TEST(SlimCommand, aFolderNamedByALink) {
    SlimRun run;
    TempFolder other;
    const std::string link = other.path("way");
    ASSERT_EQ(symlink(run.path.c_str(), link.c_str()), 0);
    EXPECT_EQ(run.run({"slim", "--apply", "--yes", link, run.path}), kExitDone) << run.error();
    EXPECT_EQ(run.measured, (std::vector<std::string>{run.path, run.path})) << "before anything is measured";
    EXPECT_THAT(run.output(), HasSubstr("\n2 programs rewritten, 4.9 KB freed.\n"));
    EXPECT_FALSE(run.isUnchanged());
}

TEST(SlimCommand, whatWasNotMeasuredWholeIsNotChanged) {
    SlimRun run;
    EXPECT_EQ(run.run({"slim", "--apply", "--yes", run.path, run.path + "/none"}), kExitFailed);
    EXPECT_THAT(run.error(), HasSubstr("kavaro: nothing was changed.\n"));
    EXPECT_TRUE(run.isUnchanged());
}

TEST(SlimCommand, outputThatNobodySees) {
    SlimRun run;
    const int closed = run.context.output;
    run.context.output = -1;
    EXPECT_EQ(run.run({"slim", "--apply", "--yes", run.path}), kExitFailed);
    run.context.output = closed;
    EXPECT_THAT(run.error(), HasSubstr("cannot be shown, so nothing was changed.\n"));
    EXPECT_TRUE(run.isUnchanged());
}

}  // namespace
}  // namespace kavaro
