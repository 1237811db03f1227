// `languages --remove` and `nibs --remove` on a tree that is on the disk and in the measurement alike.
#include <gmock/gmock.h>
#include <unistd.h>

#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "client/commandline/FakeCleanup.h"
#include "client/commandline/FakeTree.h"
#include "platform/Removal.h"

namespace kavaro {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class CleanupRemoval : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) _environment.set(name, "en_US.UTF-8");
        for (const char* name : {"LANGUAGE", "NO_COLOR"}) _environment.unset(name);
        temp.makeFolder("One.app");
        for (const char* name : {"en", "fr", "French", "de", "xx", "Base"}) {
            const std::string folder = std::string("One.app/") + name + ".lproj";
            temp.makeFolder(folder);
            temp.write(folder + "/f", "x");
        }
        temp.makeFolder("One.app/de.lproj/en.lproj");
        temp.makeFolder("One.app/de.lproj/fr.lproj");
        temp.makeFolder("One.app/Main.nib");
        temp.write("One.app/Main.nib/info.nib", "x");
        temp.write("One.app/Main.nib/classes.nib", "x");
        run.measureAs([this] { return tree(); });
        server.work = [](const std::vector<std::string>& paths, CommandReply*) {
            for (const std::string& path : paths) removeItem(path, RemovalKind::tree);
        };
    }
    TuvRef<TuvDirNode> tree() {
        TuvRef<TuvDirNode> root = FakeTree::root("/apps");
        std::uint32_t inode = 10;
        TuvDirNode* app = FakeTree::addFolder(*root, "One.app", ++inode);
        for (const char* name : {"en", "fr", "French", "de", "xx", "Base"}) {
            TuvDirNode* folder = FakeTree::addFolder(*app, std::string(name) + ".lproj", ++inode);
            FakeTree::addFile(*folder, "f", ++inode, 1000, 4096);
            if (std::string_view(name) != "de") continue;
            FakeTree::addFolder(*folder, "en.lproj", ++inode);
            FakeTree::addFolder(*folder, "fr.lproj", ++inode);
        }
        TuvDirNode* nib = FakeTree::addFolder(*app, "Main.nib", ++inode);
        FakeTree::addFile(*nib, "info.nib", ++inode, 1000, 8192);
        FakeTree::addFile(*nib, "classes.nib", ++inode, 1000, 4096);
        FakeTree::resolve(*root);
        return root;
    }
    std::string app(const std::string& name) const { return temp.path("One.app/" + name); }

    TempFolder temp;
    CommandRun run;
    FakeCleanup server{run};

  private:
    ScopedEnvironment _environment;
};

TEST_F(CleanupRemoval, LanguagesGoByTheirName) {
    EXPECT_EQ(run.run({"languages", temp.path(), "--remove", "french", "--yes"}), kExitDone) << run.error();
    EXPECT_THAT(run.commands, Each("removeLocales"));
    EXPECT_THAT(server.paths, UnorderedElementsAre(app("fr.lproj"), app("French.lproj"), app("de.lproj/fr.lproj")));
    EXPECT_FALSE(isThere(app("fr.lproj")));
    EXPECT_TRUE(isThere(app("de.lproj")));
    EXPECT_THAT(run.output(), HasSubstr("To be removed for good:\n"));
    EXPECT_THAT(run.output(), HasSubstr("3 language folders, 8.0 KB that this frees\n"));
    EXPECT_THAT(run.output(), HasSubstr("\n3 language folders removed, 8.0 KB freed.\n"));
}

TEST_F(CleanupRemoval, AFolderOfALanguageNamesItToo) {
    EXPECT_EQ(run.run({"languages", temp.path(), "--yes", "--remove", "FR"}), kExitDone) << run.error();
    EXPECT_EQ(server.paths.size(), 3u) << "the whole language";
}

TEST_F(CleanupRemoval, AWholeNameOfAFolderMeansThoseFoldersAlone) {
    EXPECT_EQ(run.run({"languages", temp.path(), "--yes", "--remove", "French.lproj"}), kExitDone) << run.error();
    EXPECT_THAT(server.paths, ElementsAre(app("French.lproj")));
}

// Applications do not run without it.
TEST_F(CleanupRemoval, WhatLanguagesShareGoesByItsExactNameAlone) {
    for (const char* word : {"Base", "base", "BASE.lproj"}) {
        EXPECT_EQ(run.run({"languages", temp.path(), "--yes", "--remove", "German", word}), kExitFailed) << word;
        EXPECT_THAT(server.paths, IsEmpty());
    }
    for (const char* word : {"base", "BASE.lproj"})
        EXPECT_THAT(run.error(),
                    HasSubstr(std::string("kavaro: --remove ") + word + ": that is Base.lproj, which all"));
    EXPECT_TRUE(isThere(app("Base.lproj")));
    EXPECT_EQ(run.run({"languages", temp.path(), "--yes", "--remove", "Base.lproj"}), kExitDone) << run.error();
    EXPECT_THAT(server.paths, ElementsAre(app("Base.lproj")));
}

TEST_F(CleanupRemoval, WhatLiesInAFolderThatGoesGoesWithIt) {
    EXPECT_EQ(run.run({"languages", temp.path(), "--yes", "--remove", "German", "French"}), kExitDone) << run.error();
    EXPECT_THAT(server.paths, UnorderedElementsAre(app("fr.lproj"), app("French.lproj"), app("de.lproj")));
}

TEST_F(CleanupRemoval, TheFolderMayComeLast) {
    EXPECT_EQ(run.run({"languages", "--yes", "--remove", "German", temp.path()}), kExitDone) << run.error();
    EXPECT_THAT(server.paths, ElementsAre(app("de.lproj")));
    EXPECT_EQ(run.run({"languages", "--yes", "--remove", temp.path()}), kExitWrongUsage);
    EXPECT_THAT(run.error(), HasSubstr("--remove: no language given"));
}

TEST_F(CleanupRemoval, ALanguageThatCannotGoEndsIt) {
    EXPECT_EQ(run.run({"languages", temp.path(), "--yes", "--remove", "French", "English"}), kExitFailed);
    EXPECT_THAT(server.paths, IsEmpty());
    EXPECT_THAT(run.error(), HasSubstr("--remove English: no such language could go there. These could go: French, "
                                       "German, Xx.\n"));
}

TEST_F(CleanupRemoval, LinksToTheFolderAreResolved) {
    ASSERT_EQ(symlink(".", temp.path("link").c_str()), 0);
    EXPECT_EQ(run.run({"languages", temp.path("link"), "--yes", "--remove", "German"}), kExitDone) << run.error();
    EXPECT_THAT(run.measured, ElementsAre(temp.path())) << "before anything is measured";
    EXPECT_THAT(server.paths, ElementsAre(app("de.lproj")));
    EXPECT_FALSE(isThere(app("de.lproj")));
}

TEST_F(CleanupRemoval, FoldersThatOverlapCountOnce) {
    EXPECT_EQ(run.run({"languages", temp.path(), temp.path(), "--yes", "--remove", "German"}), kExitDone);
    EXPECT_THAT(server.paths, ElementsAre(app("de.lproj")));
}

TEST_F(CleanupRemoval, NibsGo) {
    EXPECT_EQ(run.run({"nibs", temp.path(), "--remove", "--dry-run"}), kExitDone);
    EXPECT_THAT(server.paths, IsEmpty());
    EXPECT_THAT(run.output(), HasSubstr("2 nib files, 12.0 KB that this frees\n"));
    EXPECT_EQ(run.run({"nibs", temp.path(), "--remove"}), kExitWrongUsage);
    EXPECT_THAT(server.paths, IsEmpty());
    EXPECT_EQ(run.run({"nibs", temp.path(), "--remove", "--yes"}), kExitDone);
    EXPECT_THAT(run.commands, Each("removeNibs"));
    EXPECT_THAT(server.paths, ElementsAre(app("Main.nib/classes.nib"), app("Main.nib/info.nib")));
    EXPECT_THAT(run.output(), HasSubstr("\n2 nib files removed, 12.0 KB freed.\n"));
}

// The server says nothing: what is still there is looked at.
TEST_F(CleanupRemoval, WhatStaysIsSaidWithItsReason) {
    server.work = [this](const std::vector<std::string>&, CommandReply*) { unlink(app("Main.nib/info.nib").c_str()); };
    EXPECT_EQ(run.run({"nibs", temp.path(), "--remove", "--yes"}), kExitFailed);
    EXPECT_THAT(run.error(), HasSubstr("kavaro: " + app("Main.nib/classes.nib") + ": the server left it; its log"));
    EXPECT_THAT(run.output(), HasSubstr("\n1 nib file removed, 8.0 KB freed.\n"));

    server.work = {};
    ASSERT_EQ(rename(app("en.lproj").c_str(), app("moved").c_str()), 0);
    EXPECT_EQ(run.run({"languages", temp.path(), "--yes", "--remove", "German"}), kExitFailed);
    EXPECT_THAT(run.error(), HasSubstr(app("de.lproj") + ": no English language folder stays beside it"));
    EXPECT_THAT(run.output(), HasSubstr("\n0 language folders removed, 0 bytes freed.\n"));
}

TEST_F(CleanupRemoval, NothingToRemoveIsFine) {
    run.measureAs([] {
        auto root = FakeTree::root("/apps");
        FakeTree::resolve(*root);
        return root;
    });
    EXPECT_EQ(run.run({"nibs", temp.path(), "--remove", "--yes"}), kExitDone);
    EXPECT_EQ(run.output(), "There is nothing to remove.\n");
    EXPECT_EQ(run.run({"languages", temp.path(), "--remove", "French", "--yes"}), kExitFailed);
    EXPECT_THAT(run.error(), HasSubstr("no such language could go there. None could go."));
}

TEST_F(CleanupRemoval, AFolderThatWasNotMeasuredToItsEndStays) {
    run.measureAs([this] { return tree(); },
                  [](Measurement& measurement) { measurement.failure = measurement.path + ": the server went away."; });
    EXPECT_EQ(run.run({"nibs", temp.path(), "--remove", "--yes"}), kExitFailed);
    EXPECT_THAT(server.paths, IsEmpty());
}

TEST_F(CleanupRemoval, OptionsThatDoNotGoTogetherAreRefused) {
    EXPECT_EQ(run.run({"languages", temp.path(), "--yes"}), kExitWrongUsage);
    EXPECT_EQ(run.run({"nibs", temp.path(), "--dry-run"}), kExitWrongUsage);
    EXPECT_EQ(run.run({"nibs", temp.path(), "--remove", "--json"}), kExitWrongUsage);
    EXPECT_EQ(run.run({"languages", temp.path(), "--remove", "French", "--summary"}), kExitWrongUsage);
    EXPECT_THAT(run.measured, IsEmpty());
}

}  // namespace
}  // namespace kavaro
