#include "platform/UserDefaults.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "ScopedEnvironment.h"
#include "TempFolder.h"

namespace kavaro {
namespace {

using Dictionary = PropertyList::Dictionary;

TEST(UserDefaults, PathFollowsTheVariables) {
    ScopedEnvironment environment("HOME", "/some/home");
    environment.set("XDG_CONFIG_HOME", "/config");
    EXPECT_EQ(UserDefaults::pathOfDomain("a.b"), "/config/a.b.plist");
    environment.set("XDG_CONFIG_HOME", "relative");
    EXPECT_EQ(UserDefaults::pathOfDomain("a.b"), "/some/home/.config/a.b.plist");
    environment.unset("XDG_CONFIG_HOME");
    EXPECT_EQ(UserDefaults::pathOfDomain("a.b"), "/some/home/.config/a.b.plist");
    EXPECT_EQ(UserDefaults::pathOfDomain(""), "");
    EXPECT_EQ(UserDefaults::pathOfDomain("../a"), "");
}

TEST(UserDefaults, StandardResolvesItsPathAtTheFirstUse) {
    TempFolder folder;
    ScopedEnvironment environment("XDG_CONFIG_HOME", folder.path());
    EXPECT_EQ(UserDefaults::standard().setObject("key", "value"), "");
    EXPECT_NE(folder.read("org.kavaro.Kavaro.plist").find("<string>value</string>"), std::string::npos);
    EXPECT_EQ(UserDefaults::standard().stringForKey("key"), "value");
}

TEST(UserDefaults, WritesAndReads) {
    TempFolder folder;
    std::string path = folder.path("a/b/domain.plist");
    UserDefaults defaults(path);
    EXPECT_EQ(defaults.all(), PropertyList(Dictionary{}));
    EXPECT_EQ(defaults.objectForKey("text"), std::nullopt);
    EXPECT_EQ(defaults.setObject("text", "a value"), "");
    EXPECT_EQ(defaults.setObject("number", 12), "");
    EXPECT_EQ(defaults.setObject("text", "another"), "");
    UserDefaults other(path);
    EXPECT_EQ(other.all(), PropertyList(Dictionary{{"text", "another"}, {"number", 12}}));
    EXPECT_EQ(other.removeObject("text"), "");
    EXPECT_EQ(other.removeObject("absent"), "");
    EXPECT_EQ(other.setObject("number", PropertyList()), "");
    EXPECT_EQ(UserDefaults(path).all(), PropertyList(Dictionary{}));
}

TEST(UserDefaults, OnlyTheUserMayReadWhatItWrites) {
    TempFolder folder;
    mode_t mask = umask(0);
    UserDefaults defaults(folder.path("new/domain.plist"));
    EXPECT_EQ(defaults.setObject("key", 1), "");
    umask(mask);
    struct stat info {};
    ASSERT_EQ(stat(folder.path("new").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    ASSERT_EQ(stat(folder.path("new/domain.plist").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    int entries = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path("new"))) entries++;
    EXPECT_EQ(entries, 1);  // no temporary file is left
}

TEST(UserDefaults, ConvertsValues) {
    TempFolder folder;
    UserDefaults defaults(folder.path("domain.plist"));
    for (auto& [key, value] :
         Dictionary{{"yes", true}, {"n", 42}, {"real", 0.5}, {"text", "17"}, {"list", PropertyList::Array{1}}}) {
        EXPECT_EQ(defaults.setObject(key, value), "");
    }
    EXPECT_EQ(defaults.stringForKey("yes"), "1");
    EXPECT_EQ(defaults.stringForKey("n"), "42");
    EXPECT_EQ(defaults.stringForKey("real"), "0.5");
    EXPECT_EQ(defaults.stringForKey("text"), "17");
    EXPECT_EQ(defaults.stringForKey("list"), std::nullopt);
    EXPECT_EQ(defaults.integerForKey("text"), 17);
    EXPECT_EQ(defaults.integerForKey("list"), 0);
    EXPECT_EQ(defaults.integerForKey("absent"), 0);
    EXPECT_TRUE(defaults.boolForKey("yes"));
    EXPECT_FALSE(defaults.boolForKey("absent"));
}

TEST(UserDefaults, ArgumentsWinOverTheFile) {
    TempFolder folder;
    UserDefaults defaults(folder.path("domain.plist"));
    EXPECT_EQ(defaults.setObject("bus", "file"), "");
    defaults.setArguments(
        {"-bus", "system", "stray", "-number", "-5", "--long", "x", "-flag", "-bus", "last", "-dash", "-", "-end"});
    EXPECT_EQ(defaults.stringForKey("bus"), "last");
    EXPECT_EQ(defaults.integerForKey("number"), -5);
    EXPECT_EQ(defaults.stringForKey("dash"), "-");
    for (const char* key : {"flag", "end", "long", "-long", "stray", ""}) {
        EXPECT_EQ(defaults.objectForKey(key), std::nullopt) << key;
    }
    EXPECT_EQ(defaults.all(), PropertyList(Dictionary{{"bus", "file"}}));
    EXPECT_EQ(defaults.setObject("bus", "changed"), "");
    EXPECT_EQ(defaults.stringForKey("bus"), "last");
    defaults.setArguments({});
    EXPECT_EQ(defaults.stringForKey("bus"), "changed");
}

TEST(UserDefaults, SeesTheChangesOfOthers) {
    TempFolder folder;
    std::string path = folder.path("domain.plist");
    UserDefaults one(path), other(path);
    for (int round = 0; round < 100; round++) {
        // Always the same size, in the same moment.
        ASSERT_EQ(one.setObject("value", 100 + round), "");
        ASSERT_EQ(other.integerForKey("value"), 100 + round);
    }
    folder.write("domain.plist", "<plist><dict><key>value</key><integer>7</integer></dict></plist>");
    EXPECT_EQ(one.integerForKey("value"), 7);
    ASSERT_EQ(unlink(path.c_str()), 0);
    EXPECT_EQ(one.objectForKey("value"), std::nullopt);
}

TEST(UserDefaults, WritersDoNotUndoEachOther) {
    TempFolder folder;
    std::string path = folder.path("domain.plist");
    std::vector<std::thread> threads;
    for (int writer = 0; writer < 4; writer++) {
        threads.emplace_back([&, writer] {
            UserDefaults own(path);  // as another process would
            for (int key = 0; key < 10; key++) {
                EXPECT_EQ(own.setObject(std::to_string(writer) + "." + std::to_string(key), key), "");
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(UserDefaults(path).all().dictionary()->size(), 40u);
}

TEST(UserDefaults, LeavesAMalformedFileAlone) {
    TempFolder folder;
    std::string path = folder.path("domain.plist");
    UserDefaults defaults(path);
    for (const char* content : {"<plist><dict>", "", "key = value;"}) {
        folder.write("domain.plist", content);
        EXPECT_EQ(defaults.all(), PropertyList(Dictionary{}));
        EXPECT_EQ(defaults.setObject("key", 1), path + ": not a property list");
        EXPECT_EQ(defaults.removeObject("key"), path + ": not a property list");
        EXPECT_EQ(defaults.problem(), path + ": not a property list");
        EXPECT_EQ(folder.read("domain.plist"), content);
    }
    folder.write("domain.plist", "<plist><array/></plist>");
    EXPECT_EQ(defaults.setObject("key", 1), path + ": the root of the property list is not a dictionary");
    // Put right, it is used again.
    folder.write("domain.plist", "<plist><dict/></plist>");
    EXPECT_EQ(defaults.problem(), "");
    EXPECT_EQ(defaults.setObject("key", 1), "");
    EXPECT_EQ(defaults.integerForKey("key"), 1);
}

TEST(UserDefaults, SaysWhyItCannotWrite) {
    TempFolder folder;
    folder.write("file", "");
    EXPECT_EQ(UserDefaults(folder.path("file/domain.plist")).setObject("k", 1),
              folder.path("file") + ": Not a directory");
    folder.makeFolder("folder.plist");
    UserDefaults isFolder(folder.path("folder.plist"));
    EXPECT_EQ(isFolder.objectForKey("k"), std::nullopt);
    EXPECT_EQ(isFolder.setObject("k", 1), folder.path("folder.plist") + ": Is a directory");
    ASSERT_EQ(mkfifo(folder.path("pipe.plist").c_str(), 0600), 0);
    UserDefaults isPipe(folder.path("pipe.plist"));  // and does not wait for a writer
    EXPECT_EQ(isPipe.setObject("k", 1), folder.path("pipe.plist") + ": Invalid argument");
    EXPECT_NE(UserDefaults("").setObject("k", 1), "");
    UserDefaults full("/proc/domain.plist");
    std::string error = full.setObject("k", 1);
    EXPECT_TRUE(error.starts_with("/proc/domain.plist: ")) << error;
    UserDefaults defaults(folder.path("domain.plist"));
    EXPECT_EQ(defaults.setObject("good", 1), "");
    PropertyList deep = 1;
    for (int level = 0; level < PropertyList::kDeepest; level++) deep = PropertyList::Array{deep};
    EXPECT_EQ(defaults.setObject("deep", deep), folder.path("domain.plist") + ": the value is nested too deeply");
    EXPECT_EQ(defaults.all(), PropertyList(Dictionary{{"good", 1}}));
}

TEST(UserDefaults, FollowsALinkWhenItWrites) {
    TempFolder folder;
    folder.makeFolder("real");
    folder.write("real/settings", "<plist><dict/></plist>");
    ASSERT_EQ(symlink("real/settings", folder.path("domain.plist").c_str()), 0);
    UserDefaults defaults(folder.path("domain.plist"));
    EXPECT_EQ(defaults.setObject("key", 5), "");
    EXPECT_EQ(defaults.integerForKey("key"), 5);
    struct stat info {};
    ASSERT_EQ(lstat(folder.path("domain.plist").c_str(), &info), 0);
    EXPECT_TRUE(S_ISLNK(info.st_mode));
    EXPECT_NE(folder.read("real/settings").find("<integer>5</integer>"), std::string::npos);
}

TEST(UserDefaults, KeepsAnyText) {
    TempFolder folder;
    std::string path = folder.path("domain.plist");
    UserDefaults defaults(path);
    for (const char* text : {"", " <&> ", "\u00e9\U0001F600", "bad\xff", "two\nlines"}) {
        EXPECT_EQ(defaults.setObject("key", text), "");
        EXPECT_EQ(UserDefaults(path).stringForKey("key"), text);
    }
    EXPECT_EQ(defaults.setObject("<k&>", "v"), "");
    EXPECT_EQ(UserDefaults(path).stringForKey("<k&>"), "v");
}

}  // namespace
}  // namespace kavaro
