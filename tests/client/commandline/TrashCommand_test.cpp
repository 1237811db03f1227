#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TempFolder.h"
#include "client/commandline/CleanupRun.h"
#include "client/commandline/FakeCleanup.h"

namespace kavaro {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class TrashCommand : public testing::Test {
  protected:
    void SetUp() override {
        run.measure = [](const std::string& path, const MeasurementSource::Callbacks&) {
            Measurement measurement;
            measurement.path = path;
            measurement.root = make<TuvDirNode>();
            measurement.root->setFileName(path);
            measurement.root->setPhysicalSize(3 << 20);
            return measurement;
        };
        server.work = [this](const std::vector<std::string>& paths, CommandReply*) {
            for (const std::string& path : paths) rename(path.c_str(), trash.path(std::to_string(++moved)).c_str());
        };
    }
    void useTerminal() { run.context.canAsk = true; }

    CommandRun run;
    FakeCleanup server{run};
    TempFolder temp, trash;
    int moved = 0;
};

TEST_F(TrashCommand, ShowsMovesAndReports) {
    const std::string file = temp.write("file", std::string(5000, 'x'));
    const std::string folder = temp.makeFolder("folder");
    EXPECT_EQ(run.run({"trash", "--yes", file, folder}), kExitDone) << run.error();
    EXPECT_EQ(run.output(),
              "To be moved to the Trash:\n"
              "     8.0 KB  " +
                  file +
                  "\n"
                  "     3.0 MB  " +
                  folder +
                  "/\n"
                  "2 entries, 3.0 MB that are free once the Trash is emptied\n"
                  "2 entries moved to the Trash.\n");
    EXPECT_EQ(run.error(), "");
    EXPECT_THAT(run.measured, ElementsAre(folder)) << "folders alone";
    EXPECT_THAT(run.commands, Each("moveToTrash"));
    EXPECT_THAT(server.paths, ElementsAre(file, folder));
}

TEST_F(TrashCommand, ADryRunOnlyShows) {
    const std::string file = temp.write("file", "");
    EXPECT_EQ(run.run({"trash", "--dry-run", file}), kExitDone);
    EXPECT_THAT(run.output(), HasSubstr(file));
    EXPECT_THAT(run.error(), HasSubstr("dry run"));
    EXPECT_THAT(server.paths, IsEmpty());
}

TEST_F(TrashCommand, AsksOnATerminalAndNeedsYesElsewhere) {
    const std::string file = temp.write("file", "");
    EXPECT_EQ(run.run({"trash", file}), kExitWrongUsage);
    EXPECT_THAT(server.paths, IsEmpty());
    useTerminal();
    run.typed = "n";
    EXPECT_EQ(run.run({"trash", file}), kExitFailed);
    EXPECT_THAT(server.paths, IsEmpty());
    run.typed = "y";
    EXPECT_EQ(run.run({"trash", file}), kExitDone);
    EXPECT_THAT(server.paths, ElementsAre(file));
    EXPECT_THAT(run.error(), HasSubstr("Move this to the Trash? [y/N] "));
}

TEST_F(TrashCommand, LinksOnTheWayAreResolvedAndTheEntryIsNot) {
    temp.makeFolder("real");
    temp.write("real/file", "");
    ASSERT_EQ(symlink("real", temp.path("way").c_str()), 0);
    ASSERT_EQ(symlink("file", temp.path("real/link").c_str()), 0);
    EXPECT_EQ(run.run({"trash", "--yes", temp.path("way/file"), temp.path("way/../way/link"), temp.path("way/")}),
              kExitDone)
        << run.error();
    EXPECT_THAT(server.paths, ElementsAre(temp.path("real/link"), temp.path("way"), temp.path("real/file")))
        << "links first: what they lead to may go too";
    EXPECT_THAT(run.measured, IsEmpty());
}

TEST_F(TrashCommand, EachEntryGoesOnceAndWithItsFolder) {
    const std::string folder = temp.makeFolder("folder");
    temp.write("folder/inner", "");
    const std::string beside = temp.write("folder2", "");
    EXPECT_EQ(
        run.run({"trash", "--yes", temp.path("folder/inner"), folder, folder + "/", beside, temp.path("./folder2")}),
        kExitDone);
    EXPECT_THAT(server.paths, ElementsAre(folder, beside));
}

TEST_F(TrashCommand, WhatIsNoEntryIsSaidAndTheRestGoes) {
    const std::string file = temp.write("file", "");
    EXPECT_EQ(run.run({"trash", "--yes", temp.path("absent"), "/", ".", temp.path(".."), "", file}), kExitFailed);
    EXPECT_THAT(server.paths, ElementsAre(file));
    EXPECT_THAT(run.error(), HasSubstr(temp.path("absent") + ": no such file or folder."));
    EXPECT_THAT(run.error(), HasSubstr("/: does not name an entry of a folder."));
    EXPECT_THAT(run.error(), HasSubstr("kavaro: the path is empty."));
    EXPECT_EQ(run.run({"trash", "--yes", temp.path("absent")}), kExitFailed);
    EXPECT_THAT(server.paths, ElementsAre(file));
}

TEST_F(TrashCommand, HardLinksFreeNothing) {
    const std::string file = temp.write("file", std::string(5000, 'x'));
    ASSERT_EQ(link(file.c_str(), temp.path("second").c_str()), 0);
    EXPECT_EQ(run.run({"trash", "--yes", file}), kExitDone);
    EXPECT_THAT(run.output(), HasSubstr("1 entry, 0 bytes that are free"));
}

TEST_F(TrashCommand, FailuresComeWithPathAndReason) {
    const std::string odd = temp.write("odd\n\xff", "");
    const std::string other = temp.write("other", "");
    temp.makeFolder(".Trash-0");
    const std::string inTrash = temp.write(".Trash-0/file", "");
    server.work = [&](const std::vector<std::string>&, CommandReply* reply) {
        reply->failures.push_back({odd, "Could not move this file to Trash (permission denied)"});
        reply->failures.push_back({temp.path("vanished"), "not asked for"});
    };
    EXPECT_EQ(run.run({"trash", "--yes", odd, other, inTrash}), kExitFailed);
    EXPECT_THAT(run.error(), HasSubstr("kavaro: " + temp.path("odd\\n\\xff") +
                                       ": Could not move this file to Trash (permission denied).\n"));
    EXPECT_THAT(run.error(), HasSubstr(other + ": the server left it; its log says why (--verbose shows it).\n"));
    EXPECT_THAT(run.error(), HasSubstr(inTrash + ": it is in a Trash already, as \".Trash\" in its path says.\n"));
    EXPECT_THAT(run.output(), HasSubstr("\n0 entries moved to the Trash.\n"));
}

TEST_F(TrashCommand, WhatWentMeanwhileIsSaidInPlainWords) {
    const std::string file = temp.write("file", "");
    server.work = [&](const std::vector<std::string>&, CommandReply* reply) {
        unlink(file.c_str());
        reply->failures.push_back({file, "Could not load node form path"});
    };
    EXPECT_EQ(run.run({"trash", "--yes", file}), kExitFailed);
    EXPECT_EQ(run.error(), "kavaro: " + file + ": it is no longer there.\n");
}

TEST_F(TrashCommand, AServerThatGoesAwayIsSaid) {
    const std::string first = temp.write("first", "");
    const std::string second = temp.write("second", "");
    const std::string third = temp.write("third", "");
    server.work = [&](const std::vector<std::string>&, CommandReply* reply) {
        unlink(first.c_str());
        reply->failures.push_back({second, "Could not move this file to Trash"});
        reply->failure = "the server went away.";
    };
    EXPECT_EQ(run.run({"trash", "--yes", first, second, third}), kExitFailed);
    EXPECT_THAT(run.error(), HasSubstr("kavaro: " + second + ": Could not move this file to Trash.\n"));
    EXPECT_THAT(run.error(), HasSubstr("kavaro: the server went away.\nkavaro: 1 entry still there.\n"));
    EXPECT_THAT(run.output(), HasSubstr("\n1 entry moved to the Trash.\n"));
}

TEST_F(TrashCommand, PathsGoInPortionsByTheTimeTheyTake) {
    std::vector<std::string> arguments{"trash", "--yes"};
    for (int number = 0; number < 1623; ++number) arguments.push_back(temp.write("f" + std::to_string(number), ""));
    server.work = {};
    run.run(arguments);
    EXPECT_THAT(server.portions, ElementsAre(1u, 2u, 4u, 8u, 16u, 32u, 64u, 128u, 256u, 500u, 500u, 112u));
    server.portions.clear();
    server.work = [this](const std::vector<std::string>&, CommandReply*) {
        const double seconds[] = {0.05, 0.05, 0.2, 0.4, 0.4, 9, 0.05};
        if (server.portions.size() <= std::size(seconds)) run.clock.now += seconds[server.portions.size() - 1];
        if (server.portions.size() == 8) run.signals = 1;
    };
    EXPECT_EQ(run.run(arguments), kExitInterrupted);
    EXPECT_THAT(server.portions, ElementsAre(1u, 2u, 4u, 4u, 2u, 1u, 1u, 2u));
}

TEST_F(TrashCommand, AnInterruptionTakesEffectBetweenPortions) {
    std::vector<std::string> arguments{"trash", "--yes"};
    for (int number = 0; number < 10; ++number) arguments.push_back(temp.write("f" + std::to_string(number), ""));
    server.work = [this](const std::vector<std::string>& paths, CommandReply*) {
        for (const std::string& path : paths) unlink(path.c_str());
        if (server.portions.size() == 2) run.signals = 1;
    };
    EXPECT_EQ(run.run(arguments), kExitInterrupted);
    EXPECT_THAT(server.portions, ElementsAre(1u, 2u));
    EXPECT_EQ(run.endedServers, 0);
    EXPECT_THAT(run.error(), HasSubstr("kavaro: interrupted, 7 entries left.\n"));
    EXPECT_THAT(run.output(), HasSubstr("\n3 entries moved to the Trash.\n"));
}

TEST_F(TrashCommand, ASecondInterruptionEndsTheServer) {
    for (const bool isOurs : {true, false}) {
        const std::string first = temp.write("first", ""), second = temp.write("second", "");
        run.signals = 0;
        run.isServerOurs = isOurs;
        run.leavesAtSignal = 2;
        server.work = [&](const std::vector<std::string>&, CommandReply*) {
            unlink(first.c_str());
            run.signals = 2;
        };
        EXPECT_EQ(run.run({"trash", "--yes", first, second}), kExitInterrupted);
        EXPECT_EQ(run.leavesAtSignal, 3);
        EXPECT_EQ(run.endedServers, 1);
        EXPECT_THAT(run.error(), HasSubstr(std::string("kavaro: interrupted, 1 entry left. The server ") +
                                           (isOurs ? "was ended.\n" : "is shared, and finishes what it is at.\n")));
    }
    server.work = nullptr;
    run.leavesAtSignal = 2;
    run.signals = 0;
    run.run({"trash", "--yes", "--embedded", temp.write("first", "")});
    EXPECT_EQ(run.leavesAtSignal, 2) << "nothing goes on when this process has ended";
}

// By bytes of paths too; one that is longer than that goes alone.
TEST(CleanupPortion, IsBounded) {
    std::vector<CleanupItem> items;
    for (const std::size_t length : {2u << 20, 600u << 10, 600u << 10}) items.push_back({std::string(length, 'x')});
    EXPECT_EQ(cleanupPortion(items, 0, 500), 1u);
    EXPECT_EQ(cleanupPortion(items, 1, 500), 1u);
    EXPECT_EQ(cleanupPortion(items, 2, 500), 1u);
    EXPECT_EQ(cleanupPortion(items, 3, 500), 0u);
    for (CleanupItem& item : items) item.path = "x";
    EXPECT_EQ(cleanupPortion(items, 0, 2), 2u);
    EXPECT_EQ(cleanupPortion(items, 1, 500), 2u);
}

TEST_F(TrashCommand, AFolderThatCannotBeMeasuredStays) {
    run.measure = [](const std::string& path, const MeasurementSource::Callbacks&) {
        Measurement measurement;
        measurement.failure = path + ": the server went away.";
        return measurement;
    };
    EXPECT_EQ(run.run({"trash", "--yes", temp.makeFolder("folder")}), kExitFailed);
    EXPECT_THAT(server.paths, IsEmpty());
}

TEST_F(TrashCommand, ManyFoldersAreMeasuredHere) {
    const std::string one = temp.makeFolder("one"), two = temp.makeFolder("two");
    run.context.errorIsTerminal = true;
    EXPECT_EQ(run.run({"trash", "--yes", "--bus", "system", one, two}), kExitDone);
    EXPECT_EQ(run.run({"trash", "--yes", temp.makeFolder("one")}), kExitDone);
    EXPECT_EQ(run.quick, 0) << "a shared server may read more, and one job is one job";
    temp.makeFolder("one");
    temp.makeFolder("two");
    EXPECT_EQ(run.run({"trash", "--yes", one, two}), kExitDone) << run.error();
    EXPECT_EQ(run.quick, 1);
    EXPECT_EQ(run.measured.size(), 5u);
    EXPECT_THAT(run.commands, Each("moveToTrash"));
    EXPECT_FALSE(run.remotes.empty()) << "the commands go to the server";
    EXPECT_THAT(run.output(), HasSubstr("2 entries, 6.0 MB that are free"));
}

TEST_F(TrashCommand, LongPlansAreCutOnATerminalAlone) {
    std::vector<std::string> arguments{"trash", "--yes"};
    for (int number = 0; number < 60; ++number) arguments.push_back(temp.write("f" + std::to_string(number), ""));
    std::vector<std::string> dry = arguments;
    dry[1] = "--dry-run";
    run.context.outputIsTerminal = true;
    EXPECT_EQ(run.run(dry), kExitDone);
    EXPECT_THAT(run.output(), HasSubstr("  and 10 entries more\n60 entries, "));
    EXPECT_THAT(run.output(), Not(HasSubstr("/f55")));
    run.context.outputIsTerminal = false;
    EXPECT_EQ(run.run(arguments), kExitDone);
    EXPECT_THAT(run.output(), HasSubstr("/f55"));
    EXPECT_EQ(server.paths.size(), 60u);
}

TEST_F(TrashCommand, OptionsReachTheServer) {
    const std::string file = temp.write("--odd", "");
    EXPECT_EQ(run.run({"trash", "--yes", "--bus", "system", "--verbose", "--", file}), kExitDone) << run.error();
    ASSERT_EQ(run.remotes.size(), 1u);
    EXPECT_EQ(run.remotes[0].bus, "system");
    EXPECT_TRUE(run.remotes[0].verbose);
    EXPECT_EQ(run.run({"trash", "--yes", "--embedded", temp.write("file", "")}), kExitDone);
    EXPECT_EQ(run.embedded, 1);
    EXPECT_EQ(run.run({"trash", "--yes"}), kExitWrongUsage);
    EXPECT_THAT(run.error(), HasSubstr("no path given"));
}

}  // namespace
}  // namespace kavaro
