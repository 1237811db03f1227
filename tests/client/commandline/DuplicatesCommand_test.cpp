#include <gmock/gmock.h>
#include <rapidjson/document.h>
#include <sys/stat.h>
#include <unistd.h>

#include "LogCapture.h"
#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "cleanup/HashRecordMessage.h"
#include "client/commandline/CommandRun.h"
#include "client/commandline/FakeTree.h"
#include "platform/MD5.h"

namespace kavaro {
namespace {

using testing::HasSubstr;

// A folder with a few files of the same content, and a server that is this process.
class DuplicatesCommandTest : public testing::Test {
  protected:
    DuplicatesCommandTest() {
        run.measureAs([this] { return tree(); },
                      [this](Measurement& measurement) {
                          if (change) change(measurement);
                      });
        run.command = [this](std::string_view, const std::vector<BusValue>& arguments,
                             const std::function<bool()>& interrupted) { return digest(arguments, interrupted); };
        folder.write("a", std::string(5000, 'x'));
        folder.write("b", std::string(5000, 'x'));
        folder.write("c", std::string(5000, 'y'));
        folder.write("d", std::string(9000, 'z'));
    }
    TuvRef<TuvDirNode> tree() const {
        TuvRef<TuvDirNode> root = FakeTree::root(folder.path());
        std::uint32_t inode = 10;
        for (const std::string& name : names) {
            struct stat info {};
            EXPECT_EQ(lstat(folder.path(name).c_str(), &info), 0);
            FakeTree::addFile(*root, name, inode++, static_cast<std::uint64_t>(info.st_size), 8192);
        }
        FakeTree::resolve(*root);
        return root;
    }
    CommandReply digest(const std::vector<BusValue>& arguments, const std::function<bool()>& interrupted) {
        const auto asked = readHashRecordArguments(arguments);
        const auto records = TuvNodeMD5Hash::deserialize_TuvObjectArray(asked->header, asked->data.view());
        TuvNodeMD5Hash::loadMD5Hash(records.get());
        digested += records->count();
        MD5HashHeader header;
        ByteBuffer bytes;
        TuvNodeMD5Hash::serialize_TuvObjectArray(records.get(), &header, bytes);
        CommandReply reply;
        reply.values.push_back(hashRecordAnswer(bytes.view(), header));
        reply.interrupted = interrupted();
        return reply;
    }
    std::string at(std::string_view name) const { return folder.path(name); }

    TempFolder folder, cache;
    ScopedEnvironment place{"XDG_CACHE_HOME", cache.path()};
    LogCapture log;
    CommandRun run;
    std::vector<std::string> names = {"a", "b", "c", "d"};
    std::function<void(Measurement&)> change;
    int digested = 0;
};

TEST_F(DuplicatesCommandTest, ShowsGroupsAndWhatTheyWaste) {
    EXPECT_EQ(run.run({"duplicates", folder.path()}), kExitDone) << run.error();
    EXPECT_EQ(run.output(), "2 files of 4.9 KB, 8.0 KB wasted\n  " + at("a") + "\n  " + at("b") +
                                "\n\n1 group of 2 files, 8.0 KB wasted\n");
    EXPECT_EQ(run.error(), "");
    EXPECT_EQ(digested, 2) << "the third of that size begins otherwise";
}

TEST_F(DuplicatesCommandTest, MarksHardLinks) {
    ASSERT_EQ(link(at("a").c_str(), at("a2").c_str()), 0);
    ASSERT_EQ(link(at("b").c_str(), cache.path("elsewhere").c_str()), 0);
    names.push_back("a2");
    EXPECT_EQ(run.run({"duplicates", folder.path()}), kExitDone) << run.error();
    EXPECT_EQ(run.output(), "3 files of 4.9 KB, 8.0 KB wasted\n  " + at("a") + "\n  " + at("a2") + "  (hard link of " +
                                at("a") + ")\n  " + at("b") +
                                "  (it has names elsewhere)\n\n1 group of 3 files, 8.0 KB wasted\n");
}

TEST_F(DuplicatesCommandTest, SaysWhenThereIsNothing) {
    EXPECT_EQ(run.run({"duplicates", "--min-size", "6 KB", folder.path()}), kExitDone) << run.error();
    EXPECT_EQ(run.output(), "no duplicates among 1 file\n");
    EXPECT_EQ(digested, 0);
    EXPECT_TRUE(run.commands.empty()) << "no server was needed";
}

TEST_F(DuplicatesCommandTest, WritesPathsAsFdupesDoes) {
    names.insert(names.end(), {"e\nf\xff", "g"});
    folder.write("e\nf\xff", "1");
    folder.write("g", "1");
    EXPECT_EQ(run.run({"duplicates", "--fdupes", folder.path()}), kExitDone) << run.error();
    EXPECT_THAT(run.output(), HasSubstr(at("a") + "\n" + at("b") + "\n\n"));
    EXPECT_THAT(run.output(), HasSubstr(at("e\nf\xff") + "\n" + at("g") + "\n\n"));
    EXPECT_EQ(run.output().size(), 2 * (folder.path().size() + 3) + 1 + 2 * folder.path().size() + 9 + 1);
}

TEST_F(DuplicatesCommandTest, HardLinksAreNotAmongThePathsForPrograms) {
    ASSERT_EQ(link(at("a").c_str(), at("a2").c_str()), 0);
    ASSERT_EQ(link(at("d").c_str(), at("d2").c_str()), 0);
    names.insert(names.end(), {"a2", "d2"});
    EXPECT_EQ(run.run({"duplicates", "--fdupes", folder.path()}), kExitDone) << run.error();
    EXPECT_EQ(run.output(), at("a") + "\n" + at("b") + "\n\n");
}

TEST_F(DuplicatesCommandTest, WritesJson) {
    ASSERT_EQ(link(at("a").c_str(), at("a2").c_str()), 0);
    names.push_back("a2");
    EXPECT_EQ(run.run({"duplicates", "--json", folder.path()}), kExitDone) << run.error();
    rapidjson::Document document;
    document.Parse(run.output().c_str());
    ASSERT_FALSE(document.HasParseError()) << run.output();
    EXPECT_EQ(document["folders"][0]["path"].GetString(), folder.path());
    EXPECT_EQ(document["files"].GetInt(), 3);
    EXPECT_EQ(document["waste"].GetInt(), 8192);
    EXPECT_FALSE(document.HasMember("partial"));
    EXPECT_FALSE(document.HasMember("undigested"));
    ASSERT_EQ(document["groups"].Size(), 1u);
    const auto& group = document["groups"][0];
    EXPECT_EQ(group["size"].GetInt(), 5000);
    EXPECT_EQ(group["md5"].GetString(), md5Text(md5Of(bytesOf(std::string(5000, 'x')))));
    ASSERT_EQ(group["files"].Size(), 3u);
    EXPECT_EQ(group["files"][0]["path"].GetString(), at("a"));
    EXPECT_EQ(group["files"][0]["inode"].GetInt(), 10);
    EXPECT_EQ(group["files"][0]["physicalSize"].GetInt(), 8192);
    EXPECT_STREQ(group["files"][0]["modified"].GetString(), "2024-02-29T12:34:56Z");
    EXPECT_FALSE(group["files"][0].HasMember("hardLinkOf"));
    EXPECT_EQ(group["files"][1]["hardLinkOf"].GetInt(), 0);
}

TEST_F(DuplicatesCommandTest, FilesWithoutADigestAreTold) {
    run.command = [this](std::string_view, const std::vector<BusValue>& arguments, const std::function<bool()>& stop) {
        EXPECT_EQ(unlink(at("a").c_str()), 0);
        return digest(arguments, stop);
    };
    change = [](Measurement& measurement) { measurement.unread.push_back({"/locked", "permission"}); };
    EXPECT_EQ(run.run({"duplicates", "--errors", folder.path()}), kExitDone);
    EXPECT_EQ(run.output(), "no duplicates among 4 files\n");
    EXPECT_EQ(run.error(),
              "kavaro: 1 file could not be read, 1 folder could not be read; there may be more duplicates.\n  " +
                  at("a") + ": No such file or directory\n  /locked: permission\n");
}

TEST_F(DuplicatesCommandTest, AServerThatFailsIsTold) {
    run.command = [](std::string_view, const std::vector<BusValue>&, const std::function<bool()>&) {
        CommandReply reply;
        reply.failure = "the server went away. Run the command again.";
        return reply;
    };
    EXPECT_EQ(run.run({"duplicates", folder.path()}), kExitFailed);
    EXPECT_EQ(run.error(), "kavaro: the server went away. Run the command again.\n");
    EXPECT_EQ(run.output(), "no duplicates found (partial): of 4 files, 2 were not compared\n");
}

TEST_F(DuplicatesCommandTest, AnInterruptionWhileReading) {
    for (int number = 0; number < 1001; ++number) names.push_back("n" + std::to_string(number));  // two calls
    for (std::size_t i = 4; i < names.size(); ++i) folder.write(names[i], "n");
    run.command = [this](std::string_view, const std::vector<BusValue>& arguments, const std::function<bool()>& stop) {
        run.signals = digested > 0 ? 1 : 0;
        return digest(arguments, stop);
    };
    EXPECT_EQ(run.run({"duplicates", folder.path()}), kExitInterrupted);
    EXPECT_EQ(run.output(), "");
    EXPECT_EQ(run.error(), "kavaro: interrupted. What was read until then is known to the next search.\n");
}

TEST_F(DuplicatesCommandTest, AnInterruptionThatKeepsNothingDoesNotSaySo) {
    run.command = [this](std::string_view, const std::vector<BusValue>&, const std::function<bool()>&) {
        run.signals = 1;
        CommandReply reply;
        reply.interrupted = true;
        return reply;
    };
    EXPECT_EQ(run.run({"duplicates", folder.path()}), kExitInterrupted);
    EXPECT_EQ(run.error(), "kavaro: interrupted.\n");
}

TEST_F(DuplicatesCommandTest, AnInterruptionWhileMeasuring) {
    change = [](Measurement& measurement) { measurement.interrupted = true; };
    EXPECT_EQ(run.run({"duplicates", folder.path(), "/"}), kExitInterrupted);
    EXPECT_EQ(run.output(), "");
    EXPECT_EQ(run.error(), "kavaro: " + folder.path() + ": interrupted.\n");
    EXPECT_EQ(run.measured.size(), 1u);
    EXPECT_TRUE(run.commands.empty());
}

TEST_F(DuplicatesCommandTest, AFolderThatIsMissingDoesNotKeepTheOthers) {
    const std::string missing = at("missing");
    EXPECT_EQ(run.run({"duplicates", missing, folder.path()}), kExitFailed);
    EXPECT_THAT(run.output(), HasSubstr("1 group of 2 files"));
    EXPECT_THAT(run.error(), HasSubstr("kavaro: " + missing + ": "));
    EXPECT_EQ(run.run({"duplicates", missing}), kExitFailed);
}

TEST_F(DuplicatesCommandTest, ADamagedCacheIsNoError) {
    cache.makeFolder("kavaro");
    cache.write("kavaro/digests", "Kavaro digests 1\nnonsense");
    EXPECT_EQ(run.run({"duplicates", folder.path()}), kExitDone);
    EXPECT_THAT(run.output(), HasSubstr("1 group of 2 files"));
    EXPECT_EQ(run.error(), "");
}

TEST_F(DuplicatesCommandTest, UnusualCallsAreWrongUsage) {
    EXPECT_EQ(run.run({"duplicates"}), kExitWrongUsage);
    EXPECT_EQ(run.run({"duplicates", "--min-size", "much", folder.path()}), kExitWrongUsage);
    EXPECT_EQ(run.run({"duplicates", "--json", "--fdupes", folder.path()}), kExitWrongUsage);
    EXPECT_EQ(run.output(), "");
    EXPECT_THAT(run.error(), HasSubstr("no folder given"));
    EXPECT_THAT(run.error(), HasSubstr("\"much\" is no size such as 4096, 10 MB or 1.5 GB"));
}

TEST_F(DuplicatesCommandTest, OptionsReachTheSource) {
    EXPECT_EQ(run.run({"duplicates", "--bus", "unix:path=/x", "--same-file-system", folder.path()}), kExitDone);
    ASSERT_EQ(run.remotes.size(), 1u);
    EXPECT_EQ(run.remotes[0].bus, "unix:path=/x");
    EXPECT_TRUE(run.remotes[0].sameFileSystem);
    EXPECT_EQ(run.run({"duplicates", "--embedded", folder.path()}), kExitDone);
    EXPECT_EQ(run.embedded, 1);
}

}  // namespace
}  // namespace kavaro
