#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "ScopedEnvironment.h"
#include "cleanup/Bundles.h"
#include "client/commandline/CommandRun.h"
#include "client/commandline/FakeTree.h"
#include "platform/Catalog.h"
#include "platform/Resources.h"

namespace kavaro {
namespace {

// Two applications: one with both naming styles, one without English, and a language folder within another one.
//   One.app:  en (1 file of 100/4096), fr (2 files), French (1), de (1 and de/nl.lproj with 1, and en.lproj beside)
//   Two.app:  it (1)
TuvRef<TuvDirNode> applications() {
    TuvRef<TuvDirNode> root = FakeTree::root("/apps");
    std::uint32_t inode = 10;
    const auto language = [&](TuvDirNode& parent, const char* name, int files) {
        TuvDirNode* folder = FakeTree::addFolder(parent, name, ++inode);
        for (; files > 0; --files) {
            ++inode;
            FakeTree::addFile(*folder, "f" + std::to_string(inode), inode, 1000, 4096);
        }
        return folder;
    };
    TuvDirNode* one = FakeTree::addFolder(*root, "One.app", ++inode);
    language(*one, "en.lproj", 1);
    language(*one, "fr.lproj", 2);
    language(*one, "French.lproj", 1);
    TuvDirNode* german = language(*one, "de.lproj", 1);
    language(*german, "en.lproj", 1);
    language(*german, "nl.lproj", 1);
    language(*FakeTree::addFolder(*root, "Two.app", ++inode), "it.lproj", 1);
    FakeTree::resolve(*root);
    return root;
}

struct CleanupRun : CommandRun {
    CleanupRun() {
        setResourcesFolder(KAVARO_APP_DIR "/Resources");
        for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) environment.set(name, "en_US.UTF-8");
        for (const char* name : {"LANGUAGE", "NO_COLOR", "COLORTERM"}) environment.unset(name);
        environment.set("TERM", "xterm-256color");
        measureAs(applications);
    }
    rapidjson::Document json() const {
        rapidjson::Document document;
        EXPECT_FALSE(document.Parse(output().c_str()).HasParseError()) << output();
        return document;
    }
    TempFolder folder;
    std::string path = folder.path();
    ScopedEnvironment environment;
};

TEST(LanguagesCommand, showsLanguagesWithTheirFolders) {
    CleanupRun run;
    EXPECT_EQ(run.run({"languages", run.path}), kExitDone);
    const std::string one = run.path + "/One.app/";
    EXPECT_EQ(run.output(), run.path +
                                ": 3 languages in 4 folders could go: 24.0 KB on disk, 5.9 KB logical\n"
                                "\n"
                                "ON DISK     LOGICAL  LANGUAGE\n"
                                " 4.0 KB  1000 bytes  Dutch (Netherlands), 1 folder\n"
                                " 4.0 KB  1000 bytes    " +
                                one +
                                "de.lproj/nl.lproj/\n"
                                "12.0 KB      2.9 KB  French (France), 2 folders\n"
                                " 8.0 KB      2.0 KB    " +
                                one +
                                "fr.lproj/\n"
                                " 4.0 KB  1000 bytes    " +
                                one +
                                "French.lproj/\n"
                                "12.0 KB      2.9 KB  German (Germany), 1 folder\n"
                                "12.0 KB      2.9 KB    " +
                                one + "de.lproj/\n");
    EXPECT_EQ(run.error(), "");
    ASSERT_EQ(run.remotes.size(), 1u);
}

TEST(LanguagesCommand, theSummaryHasTheLanguagesAlone) {
    CleanupRun run;
    EXPECT_EQ(run.run({"languages", "--summary", run.path}), kExitDone);
    const std::string output = run.output();
    EXPECT_NE(output.find("French (France), 2 folders\n"), std::string::npos) << output;
    EXPECT_EQ(output.find(".lproj"), std::string::npos) << output;
}

TEST(LanguagesCommand, json) {
    CleanupRun run;
    EXPECT_EQ(run.run({"languages", "--json", run.path}), kExitDone);
    const rapidjson::Document document = run.json();
    EXPECT_EQ(document["path"].GetString(), run.path);
    EXPECT_EQ(document["folders"].GetInt(), 4);
    // What lies in Dutch lies in German too: it counts once.
    EXPECT_EQ(document["physicalSize"].GetInt(), 6 * 4096);
    EXPECT_EQ(document["logicalSize"].GetInt(), 6000);
    EXPECT_EQ(document["files"].GetInt(), 6);
    EXPECT_DOUBLE_EQ(document["seconds"].GetDouble(), 1.235);
    const auto& languages = document["languages"];
    ASSERT_EQ(languages.Size(), 3u);
    const char* const names[] = {"Dutch", "French", "German"};
    const char* const flags[] = {"Netherlands", "France", "Germany"};
    const int files[] = {1, 3, 3};
    for (rapidjson::SizeType i = 0; i < 3; ++i) {
        EXPECT_STREQ(languages[i]["language"].GetString(), names[i]);
        EXPECT_STREQ(languages[i]["flag"].GetString(), flags[i]);
        EXPECT_EQ(languages[i]["files"].GetInt(), files[i]);
        EXPECT_EQ(languages[i]["physicalSize"].GetInt(), files[i] * 4096);
        EXPECT_EQ(languages[i]["folders"].GetUint(), languages[i]["entries"].Size());
    }
    const auto& folder = languages[1]["entries"][0];
    EXPECT_EQ(folder["path"].GetString(), run.path + "/One.app/fr.lproj");
    EXPECT_EQ(folder["files"].GetInt(), 2);
    EXPECT_EQ(folder["logicalSize"].GetInt(), 2000);
    EXPECT_STREQ(folder["modified"].GetString(), "2024-02-29T12:34:56Z");
    EXPECT_TRUE(folder["inode"].IsUint());
    EXPECT_FALSE(document.HasMember("partial") || document.HasMember("unread"));
}

TEST(LanguagesCommand, jsonSummary) {
    CleanupRun run;
    EXPECT_EQ(run.run({"languages", "--json", "--summary", run.path}), kExitDone);
    const rapidjson::Document document = run.json();
    EXPECT_EQ(document["languages"][1]["folders"].GetInt(), 2);
    EXPECT_FALSE(document["languages"][1].HasMember("entries"));
}

TEST(LanguagesCommand, severalFoldersMakeAnArray) {
    CleanupRun run;
    const std::string other = run.folder.makeFolder("other");
    EXPECT_EQ(run.run({"languages", "--json", run.path, run.path + "/none", other}), kExitFailed);
    const rapidjson::Document document = run.json();
    ASSERT_EQ(document.Size(), 2u);
    EXPECT_EQ(document[1]["path"].GetString(), other);
    EXPECT_EQ(run.error(), "kavaro: " + run.path + "/none: no such folder. Check the spelling.\n");
}

TEST(LanguagesCommand, nothingToOffer) {
    CleanupRun run;
    run.measureAs([] { return FakeTree::root("/empty"); });
    EXPECT_EQ(run.run({"languages", run.path}), kExitDone);
    EXPECT_EQ(run.output(), run.path + ": no language folders that could go\n");
    CleanupRun json;
    json.measureAs([] { return FakeTree::root("/empty"); });
    EXPECT_EQ(json.run({"languages", "--json", json.path}), kExitDone);
    EXPECT_EQ(json.json()["languages"].Size(), 0u);
    EXPECT_EQ(json.json()["physicalSize"].GetInt(), 0);
}

// No flag and no UTF-8: neither output breaks.
TEST(LanguagesCommand, namesThatAreNotUTF8) {
    const auto odd = [] {
        TuvRef<TuvDirNode> root = FakeTree::root("/apps");
        TuvDirNode* app = FakeTree::addFolder(*root, "A\x1b[31m.app", 3);
        FakeTree::addFolder(*app, "en.lproj", 4);
        FakeTree::addFolder(*app, "\xff\n.lproj", 5);
        FakeTree::resolve(*root);
        return root;
    };
    CleanupRun run;
    run.measureAs(odd);
    EXPECT_EQ(run.run({"languages", run.path}), kExitDone);
    const std::string output = run.output();
    EXPECT_NE(output.find("  \\xff\\n, 1 folder\n"), std::string::npos) << output;
    EXPECT_NE(output.find("/A\\x1b[31m.app/\\xff\\n.lproj/\n"), std::string::npos) << output;
    CleanupRun json;
    json.measureAs(odd);
    EXPECT_EQ(json.run({"languages", "--json", json.path}), kExitDone);
    const rapidjson::Document document = json.json();
    const auto& language = document["languages"][0];
    EXPECT_STREQ(language["language"].GetString(), "\xef\xbf\xbd\n");
    EXPECT_STREQ(language["languageRaw"].GetString(), "/wo=");
    EXPECT_TRUE(language["flag"].IsNull());
    EXPECT_TRUE(language["entries"][0].HasMember("pathRaw"));
}

TEST(LanguagesCommand, coloursOnATerminalOrWhenAskedFor) {
    CleanupRun piped, terminal, always, never;
    piped.run({"languages", piped.path});
    EXPECT_EQ(piped.output().find('\x1b'), std::string::npos);
    terminal.context.outputIsTerminal = true;
    terminal.run({"languages", terminal.path});
    EXPECT_NE(terminal.output().find('\x1b'), std::string::npos);
    always.run({"nibs", "--color", "always", always.path});
    never.context.outputIsTerminal = true;
    never.run({"languages", "--color", "never", never.path});
    EXPECT_EQ(never.output().find('\x1b'), std::string::npos);
}

TEST(LanguagesCommand, whatCouldNotBeReadIsSaid) {
    const auto unread = [](Measurement& measurement) {
        measurement.unread = {
            {"/apps/a", kReasonPermission}, {"/apps/\x1b", kReasonPermission}, {"/proc", kReasonPseudoFileSystem}};
        measurement.partial = true;
    };
    CleanupRun run;
    run.measureAs(applications, unread);
    EXPECT_EQ(run.run({"languages", run.path}), kExitDone);
    EXPECT_EQ(run.error(), "kavaro: " + run.path +
                               ": 2 folders could not be read, 1 folder was left out; what they hold is not looked at. "
                               "--errors lists them.\n");
    EXPECT_NE(run.output().find(" logical (partial)\n"), std::string::npos);
    CleanupRun listed;
    listed.measureAs(applications, unread);
    EXPECT_EQ(listed.run({"nibs", "--errors", listed.path}), kExitDone);
    EXPECT_NE(listed.error().find("\n  /apps/a: permission\n  /apps/\\x1b: permission\n  /proc: pseudo file system\n"),
              std::string::npos)
        << listed.error();
    CleanupRun json;
    json.measureAs(applications, unread);
    EXPECT_EQ(json.run({"languages", "--json", json.path}), kExitDone);
    EXPECT_EQ(json.error(), "");
    EXPECT_EQ(json.json()["unread"].Size(), 3u);
    EXPECT_TRUE(json.json()["partial"].GetBool());
}

TEST(LanguagesCommand, withoutFlagsThereAreNoCountries) {
    CleanupRun run;
    TempFolder empty;
    setResourcesFolder(empty.path());
    EXPECT_EQ(run.run({"languages", "--json", run.path}), kExitDone);
    const auto document = run.json();
    EXPECT_FALSE(document["languages"].Empty());
    for (const auto& language : document["languages"].GetArray()) EXPECT_TRUE(language["flag"].IsNull());
}

// A tree that lies on the disk, for the signature files that are read there.
struct NibsRun : CleanupRun {
    NibsRun() {
        bundles.nib("A.app/Contents/Main.nib");
        bundles.nib("B.app/Contents/Main.nib");
        bundles.file("B.app/Contents/CodeResources", Bundles::seal({"Main.nib/info.nib"}).toXML());
        path = bundles.path();
        measureAs([this] { return bundles.tree(); });
    }
    Bundles bundles;
};

TEST(NibsCommand, showsTheFiles) {
    NibsRun run;
    EXPECT_EQ(run.run({"nibs", run.path}), kExitDone);
    const std::string output = run.output();
    EXPECT_EQ(output.substr(0, output.find(" on disk")).find(run.path + ": 5 nib files could go: "), 0u) << output;
    std::size_t at = 0;
    for (const char* file : {"A.app/Contents/Main.nib/classes.nib", "A.app/Contents/Main.nib/designable.nib",
                             "A.app/Contents/Main.nib/info.nib", "B.app/Contents/Main.nib/classes.nib",
                             "B.app/Contents/Main.nib/designable.nib"}) {
        const std::size_t found = output.find("  " + run.path + "/" + file + "\n", at);
        ASSERT_NE(found, std::string::npos) << file << "\n" << output;
        at = found;
    }
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 3 + 5);
}

TEST(NibsCommand, json) {
    NibsRun run;
    EXPECT_EQ(run.run({"nibs", "--json", run.path}), kExitDone);
    const rapidjson::Document document = run.json();
    ASSERT_EQ(document["nibs"].Size(), 5u);
    EXPECT_EQ(document["nibs"][0]["path"].GetString(), run.path + "/A.app/Contents/Main.nib/classes.nib");
    EXPECT_EQ(document["nibs"][0]["logicalSize"].GetInt(), 7);
    EXPECT_EQ(document["logicalSize"].GetInt(), 35);
    EXPECT_EQ(document["files"].GetInt(), 5);
    EXPECT_FALSE(document.HasMember("folders") || document["nibs"][0].HasMember("files"));
}

TEST(NibsCommand, nothingToOffer) {
    CleanupRun run;
    EXPECT_EQ(run.run({"nibs", run.path}), kExitDone);
    EXPECT_EQ(run.output(), run.path + ": no nib files that could go\n");
}

}  // namespace
}  // namespace kavaro
