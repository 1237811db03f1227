#include "platform/Trash.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <set>

#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "platform/CatalogListing.h"

namespace kavaro {
namespace {

using testing::HasSubstr;

constexpr double kNow = 1795226553;  // 2026-11-21 02:02:33 UTC

mode_t modeOf(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 ? info.st_mode : 0;
}

std::string contentOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    if (DIR* stream = opendir(folder.c_str())) {
        while (const dirent* entry = readdir(stream))
            if (std::string_view(entry->d_name) != "." && std::string_view(entry->d_name) != "..")
                names.emplace_back(entry->d_name);
        closedir(stream);
    }
    std::sort(names.begin(), names.end());
    return names;
}

class TrashTest : public testing::Test {
  protected:
    void SetUp() override { tzset(); }
    TempFolder temp;
    const std::string home = temp.makeFolder("home");
    const std::string trashFolder = home + "/.local/share/Trash";
    ScopedEnvironment _home{"HOME", home};
    ScopedEnvironment _data{"XDG_DATA_HOME", ""};
    ScopedEnvironment _zone{"TZ", "CET-1CEST,M3.5.0,M10.5.0/3"};
    Trash trash{[] { return kNow; }};

    std::string reasonOf(const std::string& path) {
        const Trash::Result result = trash.move(path);
        return result.ok() ? "moved" : result.reason;
    }
};

TEST_F(TrashTest, TheEntryAndWhereItWasAreKept) {
    const std::string file = temp.write("a file.txt", "content");
    const Trash::Result result = trash.move(file);
    ASSERT_TRUE(result.ok()) << result.reason;
    EXPECT_EQ(result.trashFolder, trashFolder);
    EXPECT_EQ(result.name, "a file.txt");
    EXPECT_FALSE(isThere(file));
    EXPECT_EQ(contentOf(trashFolder + "/files/a file.txt"), "content");
    EXPECT_EQ(contentOf(trashFolder + "/info/a file.txt.trashinfo"),
              "[Trash Info]\nPath=" + temp.path() + "/a%20file.txt\nDeletionDate=2026-11-21T03:02:33\n");
    for (const char* folder : {"", "/files", "/info"})
        EXPECT_EQ(modeOf(trashFolder + folder), S_IFDIR | 0700u) << folder;
    EXPECT_EQ(modeOf(trashFolder + "/info/a file.txt.trashinfo"), S_IFREG | 0600u);
}

TEST_F(TrashTest, TheUsersDataFolderMayBeElsewhere) {
    ScopedEnvironment data("XDG_DATA_HOME", temp.path("data"));
    const Trash::Result result = trash.move(temp.write("file", ""));
    ASSERT_TRUE(result.ok()) << result.reason;
    EXPECT_EQ(result.trashFolder, temp.path("data/Trash"));
    EXPECT_FALSE(isThere(trashFolder));
}

TEST_F(TrashTest, FoldersAndLinksGoAsTheyAre) {
    temp.makeFolder("folder");
    temp.write("folder/inner", "x");
    ASSERT_EQ(symlink("folder", temp.path("link").c_str()), 0);
    ASSERT_EQ(symlink("absent", temp.path("dangling").c_str()), 0);
    EXPECT_TRUE(trash.move(temp.path("link/")).ok());
    EXPECT_TRUE(trash.move(temp.path("dangling")).ok());
    EXPECT_TRUE(isThere(temp.path("folder/inner")));
    EXPECT_TRUE(S_ISLNK(modeOf(trashFolder + "/files/link")));
    EXPECT_TRUE(trash.move(temp.path("folder")).ok());
    EXPECT_EQ(contentOf(trashFolder + "/files/folder/inner"), "x");
}

TEST_F(TrashTest, AnyByteMayStandInAName) {
    std::string name;
    for (int byte = 1; byte < 256; ++byte)
        if (byte != '/') name += static_cast<char>(byte);
    name.resize(240);
    temp.write(name, "all");
    ASSERT_TRUE(trash.move(temp.path(name)).ok());
    EXPECT_EQ(contentOf(trashFolder + "/files/" + name), "all");
    const std::string info = contentOf(trashFolder + "/info/" + name + ".trashinfo");
    EXPECT_THAT(info, HasSubstr("/%01%02%03%04%05%06%07%08%09%0A%0B"));
    EXPECT_THAT(info, HasSubstr("%20%21%22%23%24%25%26%27%28%29%2A%2B%2C-.0123456789%3A%3B%3C%3D%3E%3F%40ABC"));
    EXPECT_THAT(info, HasSubstr("XYZ%5B%5C%5D%5E_%60abc"));
    EXPECT_THAT(info, HasSubstr("xyz%7B%7C%7D~%7F%80%81"));
    EXPECT_EQ(std::count(info.begin(), info.end(), '\n'), 3);
}

TEST_F(TrashTest, EqualNamesAreNumbered) {
    for (int round = 1; round <= 4; ++round) {
        ASSERT_TRUE(trash.move(temp.write("a.txt", std::to_string(round))).ok());
        ASSERT_TRUE(trash.move(temp.makeFolder("folder")).ok());
    }
    EXPECT_EQ(namesIn(trashFolder + "/files"),
              (std::vector<std::string>{"a.2.txt", "a.3.txt", "a.4.txt", "a.txt", "folder", "folder.2", "folder.3",
                                        "folder.4"}));
    EXPECT_EQ(contentOf(trashFolder + "/files/a.3.txt"), "3");
    EXPECT_EQ(namesIn(trashFolder + "/info").size(), 8u);
    // Another one that knows nothing of these.
    Trash fresh;
    EXPECT_EQ(fresh.move(temp.write("a.txt", "")).name, "a.5.txt");
}

TEST_F(TrashTest, ManyEqualNamesCostFewTries) {
    for (int number = 0; number < 3000; ++number) ASSERT_TRUE(trash.move(temp.write("same", "")).ok());
    Trash fresh;
    ASSERT_TRUE(fresh.move(temp.write("same", "")).ok());
    EXPECT_EQ(namesIn(trashFolder + "/files").size(), 3001u);
}

TEST_F(TrashTest, NothingInTheTrashIsReplaced) {
    ASSERT_TRUE(trash.move(temp.write("other", "")).ok());
    // Somebody left one half of an entry, or the other.
    close(open((trashFolder + "/files/a").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    close(open((trashFolder + "/info/a.2.trashinfo").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    const Trash::Result result = trash.move(temp.write("a", "new"));
    EXPECT_EQ(result.name, "a.3");
    EXPECT_EQ(contentOf(trashFolder + "/files/a"), "");
    EXPECT_EQ(contentOf(trashFolder + "/files/a.3"), "new");
    EXPECT_FALSE(isThere(trashFolder + "/info/a.trashinfo"));
}

TEST_F(TrashTest, LongNamesAreCutBetweenCharacters) {
    std::string umlauts;
    for (int number = 0; number < 125; ++number) umlauts += "ä";
    const std::string name = umlauts + ".txt";  // 254 bytes, 264 with the ending
    const Trash::Result result = trash.move(temp.write(name, ""));
    ASSERT_TRUE(result.ok()) << result.reason;
    EXPECT_EQ(result.name, umlauts.substr(0, 240) + ".txt");
    EXPECT_EQ(trash.move(temp.write(name, "")).name, umlauts.substr(0, 238) + ".2.txt");
    EXPECT_EQ(TrashFolder::numberedName(std::string(255, 'x'), 1).size(), TrashFolder::kLongestName);
    EXPECT_EQ(TrashFolder::numberedName(std::string(255, '\x80'), 12).size(), TrashFolder::kLongestName);
    EXPECT_EQ(TrashFolder::numberedName(".hidden", 2), ".hidden.2");
    EXPECT_EQ(TrashFolder::numberedName("a.tar.gz", 3), "a.tar.3.gz");
    EXPECT_EQ(TrashFolder::numberedName("a.b", 1), "a.b");
    EXPECT_EQ(TrashFolder::numberedName("end.", 2), "end.2.");
}

TEST_F(TrashTest, WhatCannotBeMovedStaysAndLeavesNoTrace) {
    temp.write("file", "");
    EXPECT_EQ(reasonOf(temp.path("absent")), "it does not exist any more");
    EXPECT_EQ(reasonOf(temp.path("file/below")), removalErrorText(ENOTDIR));
    EXPECT_EQ(reasonOf("/"), removalErrorText(EINVAL));
    EXPECT_EQ(reasonOf("relative"), removalErrorText(EINVAL));
    EXPECT_EQ(reasonOf(temp.path("home/../file")), removalErrorText(EINVAL));
    EXPECT_TRUE(isThere(temp.path("file")));
    EXPECT_FALSE(isThere(trashFolder));
    // What the Trash lies in cannot go into it.
    EXPECT_EQ(reasonOf(home), "the Trash itself is in it");
    EXPECT_EQ(namesIn(trashFolder + "/info"), std::vector<std::string>());
}

TEST_F(TrashTest, WhatIsInTheTrashStaysThere) {
    ASSERT_TRUE(trash.move(temp.makeFolder("folder")).ok());
    close(open((trashFolder + "/files/folder/inner").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    for (const char* name : {"", "/files", "/info/folder.trashinfo", "/files/folder", "/files/folder/inner"})
        EXPECT_EQ(reasonOf(trashFolder + name), "it is in the Trash already") << name;
    EXPECT_TRUE(isThere(trashFolder + "/files/folder/inner"));
    EXPECT_EQ(reasonOf(temp.makeFolder("home/.local/share/Trash2")), "moved");
}

// As an ordinary user among files of others.
TEST_F(TrashTest, WithoutPermissionItIsRefused) {
    ASSERT_EQ(chmod(temp.path().c_str(), 0755), 0);
    temp.makeFolder("shut");
    temp.write("shut/file", "");
    temp.makeFolder("sticky");
    temp.write("sticky/file", "");
    ASSERT_EQ(chmod(temp.path("sticky").c_str(), 01777), 0);
    ASSERT_EQ(chmod(temp.path("shut").c_str(), 0555), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(home.c_str(), 65534, 65534), 0);
    }
    const std::string text = inChild(true, [&]() -> std::string {
        Findings findings;
        const std::string shut = reasonOf(temp.path("shut/file"));
        findings.expect(shut == "permission denied", shut);
        const std::string sticky = reasonOf(temp.path("sticky/file"));
        const std::string expected = isThere(temp.path("sticky/file")) ? "permission denied" : "moved";
        findings.expect(sticky == expected, sticky);
        findings.expect(namesIn(trashFolder + "/info").size() == namesIn(trashFolder + "/files").size(),
                        "an info file is left over");
        return findings.text();
    });
    EXPECT_EQ(text, "");
    EXPECT_TRUE(isThere(temp.path("shut/file")));
    ASSERT_EQ(chmod(temp.path("shut").c_str(), 0755), 0);
}

// And only where it goes there because the user's own one, on the same volume, is of no use.
TEST(Trash, APlaceWhereNobodyLooksIsTold) {
    TempFolder temp;
    const ScopedEnvironment data("XDG_DATA_HOME", temp.path("data"));
    temp.makeFolder("away");
    EXPECT_FALSE(trashDetour(temp.path("away")));
    ASSERT_EQ(rename(temp.path("data/Trash").c_str(), temp.path("data/old").c_str()), 0);
    temp.write("data/Trash", "");
    const std::optional<TrashDetour> detour = trashDetour(temp.path("away"));
    ASSERT_TRUE(detour);
    EXPECT_EQ(detour->userTrash, temp.path("data/Trash"));
    EXPECT_EQ(detour->reason, "Not a directory");
    EXPECT_THAT(detour->trashFolder, HasSubstr("/.Trash"));
    EXPECT_TRUE(detour->trashFolder.ends_with("Trash-" + std::to_string(geteuid())) ||
                detour->trashFolder.ends_with("Trash/" + std::to_string(geteuid())))
        << detour->trashFolder;
    EXPECT_FALSE(trashDetour("/proc")) << "another volume";
}

TEST(Trash, DatesAreLocal) {
    const ScopedEnvironment zone("TZ", "UTC0");
    tzset();
    EXPECT_EQ(Trash::dateText(kNow), "2026-11-21T02:02:33");
    EXPECT_EQ(Trash::dateText(0.999), "1970-01-01T00:00:00");
    EXPECT_EQ(Trash::dateText(-1), "1969-12-31T23:59:59");
}

}  // namespace
}  // namespace kavaro
