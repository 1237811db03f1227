#include "support/StringHelpers.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits>

#include "TempFolder.h"
#include "platform/Catalog.h"
#include "support/Units.h"

namespace kavaro {
namespace {

TEST(Units, AreBinaryMultiples) {
    EXPECT_EQ(Tuv_KB, 1024u);
    EXPECT_EQ(Tuv_MB, 1048576u);
    EXPECT_EQ(Tuv_GB, 1073741824u);
    EXPECT_EQ(Tuv_TB, 1099511627776u);
    EXPECT_EQ(Tuv_debugDepth, 1048576);
    static_assert(sizeof Tuv_KB == 8 && Tuv_KB - Tuv_TB > 0, "unsigned, 64 bits");
}

TEST(CompactString, Bytes) {
    EXPECT_EQ(compactStringFromSize(0), "0 bytes");
    EXPECT_EQ(compactStringFromSize(1), "1 byte");
    EXPECT_EQ(compactStringFromSize(2), "2 bytes");
    EXPECT_EQ(compactStringFromSize(512), "512 bytes");
    EXPECT_EQ(compactStringFromSize(1023), "1023 bytes");
}

TEST(CompactString, UnitsWithOneDecimal) {
    EXPECT_EQ(compactStringFromSize(Tuv_KB), "1.0 KB");
    EXPECT_EQ(compactStringFromSize(1536), "1.5 KB");
    EXPECT_EQ(compactStringFromSize(12 * Tuv_KB), "12.0 KB");
    EXPECT_EQ(compactStringFromSize(Tuv_MB), "1.0 MB");
    EXPECT_EQ(compactStringFromSize(1468006), "1.4 MB");
    EXPECT_EQ(compactStringFromSize(Tuv_GB), "1.0 GB");
    EXPECT_EQ(compactStringFromSize(Tuv_TB), "1.0 TB");
    EXPECT_EQ(compactStringFromSize(2048 * Tuv_TB), "2048.0 TB");
    EXPECT_EQ(compactStringFromSize(std::numeric_limits<std::uint64_t>::max()), "16777216.0 TB");
}

TEST(CompactString, RoundsHalfUp) {
    EXPECT_EQ(compactStringFromSize(Tuv_KB + 51), "1.0 KB");
    EXPECT_EQ(compactStringFromSize(Tuv_KB + 52), "1.1 KB");
    EXPECT_EQ(compactStringFromSize(10 * Tuv_MB + Tuv_MB / 4), "10.3 MB");
    EXPECT_EQ(compactStringFromSize(2 * Tuv_GB - 1), "2.0 GB");
}

TEST(CompactString, RollsOverToTheNextUnit) {
    const std::uint64_t units[] = {1, Tuv_KB, Tuv_MB, Tuv_GB, Tuv_TB};
    const char* const names[] = {"bytes", "KB", "MB", "GB", "TB"};
    for (int i = 1; i < 4; ++i) {
        const std::uint64_t last = 1023 * units[i] + units[i] * 95 / 100;  // rounds to 1023.9 or 1024.0
        EXPECT_EQ(compactStringFromSize(units[i + 1] - 1), std::string("1.0 ") + names[i + 1]);
        EXPECT_EQ(compactStringFromSize(last - 1), std::string("1023.9 ") + names[i]);
        EXPECT_EQ(compactStringFromSize(last + 1), std::string("1.0 ") + names[i + 1]);
    }
}

TEST(CompactString, NeverShows1024OfAUnitThatHasANext) {
    for (std::uint64_t bytes = 1; bytes < 1024 * Tuv_TB / 1000 * 999; bytes += bytes / 997 + 1)
        ASSERT_EQ(compactStringFromSize(bytes).find("1024."), std::string::npos) << bytes;
}

TEST(Trim, WhiteSpace) {
    EXPECT_EQ(trimWhiteSpace(""), "");
    EXPECT_EQ(trimWhiteSpace(" \t\r\n\v\f"), "");
    EXPECT_EQ(trimWhiteSpace("text"), "text");
    EXPECT_EQ(trimWhiteSpace("\n two words \r\n"), "two words");
    EXPECT_EQ(trimWhiteSpace(" \"quoted\" "), "\"quoted\"");
    EXPECT_EQ(trimWhiteSpace("\xc2\xa0 \xff "), "\xc2\xa0 \xff") << "bytes above ASCII stay";
    EXPECT_EQ(trimWhiteSpace(std::string_view(" \0 ", 3)), std::string(1, '\0'));
}

TEST(Trim, BadCharacters) {
    EXPECT_EQ(trimBadCharacters(""), "");
    EXPECT_EQ(trimBadCharacters("i386"), "i386");
    EXPECT_EQ(trimBadCharacters("x86_64\n"), "x86_64");
    EXPECT_EQ(trimBadCharacters("(\"path\"); "), "path");
    EXPECT_EQ(trimBadCharacters("`a b's`"), "a b's");
    EXPECT_EQ(trimBadCharacters("[ {(key): } ],"), "key");
    EXPECT_EQ(trimBadCharacters(std::string_view("\0\x01\x7f\x1fvalue\0", 10)), "value");
    EXPECT_EQ(trimBadCharacters("\"'`()[]{},;: \t\r\n"), "");
    EXPECT_EQ(trimBadCharacters("a;b"), "a;b");
    EXPECT_EQ(trimBadCharacters("-v1.0/<x>_#!?"), "-v1.0/<x>_#!?");
    EXPECT_EQ(trimBadCharacters("\xc3\xa9"), "\xc3\xa9");
}

TEST(PathFromFSRef, FollowsTheOpenFolder) {
    TempFolder folder;
    folder.makeFolder("a");
    FileReference reference;
    EXPECT_EQ(pathFromFSRef(reference), "");
    reference.fd = open(folder.path("a").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(reference.fd, 0);
    EXPECT_EQ(pathFromFSRef(reference), folder.path("a"));
    ASSERT_EQ(rename(folder.path("a").c_str(), folder.path("b").c_str()), 0);
    EXPECT_EQ(pathFromFSRef(reference), folder.path("b"));
}

TEST(PathFromFSRef, IsTheReverseOfTheCatalogsReference) {
    TempFolder folder;
    folder.makeFolder("line\nend \xff");
    FileReference reference;
    int error = 0;
    ASSERT_TRUE(Catalog::forRoot(folder.path(), {})->reference(folder.path("line\nend \xff"), &reference, &error));
    EXPECT_TRUE(reference.isDirectory);
    EXPECT_EQ(pathFromFSRef(reference), folder.path("line\nend \xff"));
}

TEST(GetFSRef, SaysWhetherAPathNamesAFolder) {
    TempFolder folder;
    folder.makeFolder("folder");
    folder.write("file \xff", "");
    FileReference reference;
    bool isDir = false;
    ASSERT_TRUE(getFSRef(folder.path("folder"), &reference, &isDir));
    EXPECT_TRUE(isDir);
    EXPECT_TRUE(reference.isDirectory);
    EXPECT_EQ(pathFromFSRef(reference), folder.path("folder"));
    ASSERT_TRUE(getFSRef(folder.path("file \xff"), &reference, &isDir));
    EXPECT_FALSE(isDir);
    EXPECT_EQ(pathFromFSRef(reference), folder.path("file \xff"));
    ASSERT_TRUE(getFSRef("/proc", &reference, &isDir));
    EXPECT_TRUE(isDir);
    EXPECT_EQ(pathFromFSRef(reference), "/proc");
}

TEST(GetFSRef, OfALinkNamesTheLink) {
    TempFolder folder;
    folder.makeFolder("folder");
    for (const char* target : {"folder", "nowhere"}) {
        const std::string link = folder.path(std::string("to ") + target);
        ASSERT_EQ(symlink(target, link.c_str()), 0);
        FileReference reference;
        bool isDir = true;
        ASSERT_TRUE(getFSRef(link, &reference, &isDir));
        EXPECT_FALSE(isDir);
        EXPECT_EQ(pathFromFSRef(reference), link);
    }
}

TEST(GetFSRef, LeavesTheResultsAloneWhenThereIsNoSuchEntry) {
    TempFolder folder;
    folder.write("file", "");
    FileReference reference;
    bool isDir = false;
    ASSERT_TRUE(getFSRef(folder.path(), &reference, &isDir));
    const int fd = reference.fd;
    isDir = false;
    for (const std::string& path :
         {std::string(), folder.path("missing"), folder.path("file/below"), folder.path() + '\0'}) {
        EXPECT_FALSE(getFSRef(path, &reference, &isDir));
        EXPECT_EQ(reference.fd, fd);
        EXPECT_FALSE(isDir);
    }
}

TEST(StringFromTask, GivesWhatTheToolWrote) {
    EXPECT_EQ(stringFromTask("/bin/echo", {"-n", "two words", "$HOME"}), "two words $HOME");
    EXPECT_EQ(stringFromTask("/bin/true", {}), "");
    EXPECT_EQ(stringFromTask("/bin/sh", {"-c", "echo out; echo error >&2; exit 3"}), "out\n");
}

TEST(StringFromTask, TakesMoreThanAPipeHolds) {
    const auto text = stringFromTask("/bin/sh", {"-c", "head -c 3000000 /dev/zero"});
    ASSERT_TRUE(text);
    EXPECT_EQ(*text, std::string(3000000, '\0'));
}

TEST(StringFromTask, NothingWhenTheToolCannotBeStarted) {
    TempFolder folder;
    EXPECT_EQ(stringFromTask(folder.path("missing"), {}), std::nullopt);
    EXPECT_EQ(stringFromTask(folder.path(), {}), std::nullopt);
    EXPECT_EQ(stringFromTask(folder.write("notExecutable", "#!/bin/sh\n"), {}), std::nullopt);
    EXPECT_EQ(stringFromTask("", {}), std::nullopt);
}

}  // namespace
}  // namespace kavaro
