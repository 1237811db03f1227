#include "platform/FileAttributes.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TempFolder.h"

namespace kavaro {
namespace {

double dateOf(const PropertyList& attributes, const char* key) {
    const PropertyList* value = attributes.get(key);
    const auto* date = value ? value->as<PropertyList::Date>() : nullptr;
    if (!date) ADD_FAILURE() << key << " is missing in " << attributes.description();
    return date ? date->secondsSince1970 : 0;
}

void setModified(const std::string& path, time_t seconds, long nanoseconds = 0) {
    const timespec times[2] = {{0, UTIME_OMIT}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path << " " << errno;
}

TEST(FileAttributes, FilesAndFoldersHaveTheDateOfTheirLastChange) {
    TempFolder temp;
    const std::string file = temp.write("file", "text");
    const std::string folder = temp.makeFolder("folder");
    setModified(file, 1000000000, 250000000);
    setModified(folder, -86400, 500000000);
    EXPECT_EQ(dateOf(fileAttributesAtPath(file, false), kFileModificationDate), 1000000000.25);
    EXPECT_EQ(dateOf(fileAttributesAtPath(folder, false), kFileModificationDate), -86399.5);
}

TEST(FileAttributes, TheBirthTimeIsTheCreationDateWhereThereIsOne) {
    TempFolder temp;
    const std::string file = temp.write("file", "text");
    struct statx record {};
    ASSERT_EQ(statx(AT_FDCWD, file.c_str(), 0, STATX_BTIME, &record), 0);
    setModified(file, 1000000000);
    const PropertyList attributes = fileAttributesAtPath(file, false);
    if ((record.stx_mask & STATX_BTIME) == 0) {
        EXPECT_EQ(attributes.get(kFileCreationDate), nullptr);
        return;
    }
    const double born = dateOf(attributes, kFileCreationDate);
    EXPECT_GE(born, static_cast<double>(record.stx_btime.tv_sec));
    EXPECT_LT(born, static_cast<double>(record.stx_btime.tv_sec) + 1);
    EXPECT_GT(born, dateOf(attributes, kFileModificationDate));
}

TEST(FileAttributes, AFileSystemWithoutBirthTimesHasNoCreationDate) {
    const PropertyList attributes = fileAttributesAtPath("/proc/self/stat", false);
    EXPECT_EQ(attributes.get(kFileCreationDate), nullptr) << attributes.description();
    EXPECT_GT(dateOf(attributes, kFileModificationDate), 0);
}

TEST(FileAttributes, AFinalLinkIsLookedAtItselfOrTraversed) {
    TempFolder temp;
    setModified(temp.write("file", ""), 1000000000);
    const std::string link = temp.path("link");
    ASSERT_EQ(symlink("file", link.c_str()), 0);
    setModified(link, 1100000000);
    EXPECT_EQ(dateOf(fileAttributesAtPath(link, false), kFileModificationDate), 1100000000);
    EXPECT_EQ(dateOf(fileAttributesAtPath(link, true), kFileModificationDate), 1000000000);
    const std::string dangling = temp.path("dangling");
    ASSERT_EQ(symlink("absent", dangling.c_str()), 0);
    EXPECT_FALSE(fileAttributesAtPath(dangling, false).isNull());
    EXPECT_TRUE(fileAttributesAtPath(dangling, true).isNull());
}

TEST(FileAttributes, WhatIsNotThereHasNone) {
    TempFolder temp;
    temp.write("file", "");
    const std::pair<std::string, int> places[] = {{temp.path("absent"), ENOENT},
                                                  {temp.path("file/below"), ENOTDIR},
                                                  {"", ENOENT},
                                                  {temp.path("file") + std::string("\0x", 2), ENOENT}};
    for (const auto& [path, expected] : places) {
        int error = -1;
        EXPECT_TRUE(fileAttributesAtPath(path, false, &error).isNull()) << path;
        EXPECT_EQ(error, expected) << path;
    }
    int error = -1;
    fileAttributesAtPath(temp.path("file"), false, &error);
    EXPECT_EQ(error, 0);
}

TEST(FileAttributes, APathMayBeLongerThanASystemCallTakes) {
    TempFolder temp;
    const std::string name(200, 'n');
    std::string path = temp.path();
    int folder = open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    while (path.size() < PATH_MAX + 1000) {
        ASSERT_EQ(mkdirat(folder, name.c_str(), 0777), 0);
        const int next = openat(folder, name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        close(folder);
        folder = next;
        path += "/" + name;
    }
    const int file = openat(folder, "file", O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
    const timespec times[2] = {{0, UTIME_OMIT}, {1000000000, 0}};
    ASSERT_EQ(futimens(file, times), 0);
    close(file);
    ASSERT_EQ(symlinkat("file", folder, "link"), 0);
    close(folder);
    EXPECT_EQ(dateOf(fileAttributesAtPath(path + "/file", false), kFileModificationDate), 1000000000);
    EXPECT_EQ(dateOf(fileAttributesAtPath(path + "/link", true), kFileModificationDate), 1000000000);
    EXPECT_GT(dateOf(fileAttributesAtPath(path + "/link", false), kFileModificationDate), 1000000000);
    int error = 0;
    EXPECT_TRUE(fileAttributesAtPath(path + "/absent", false, &error).isNull());
    EXPECT_EQ(error, ENOENT);
}

std::int64_t numberOf(const PropertyList& attributes, const char* key) {
    const PropertyList* value = attributes.get(key);
    if (!value || !value->as<std::int64_t>()) ADD_FAILURE() << key << " is missing in " << attributes.description();
    return value ? value->intValue() : -1;
}

std::string textOf(const PropertyList& attributes, const char* key) {
    const PropertyList* value = attributes.get(key);
    return value && value->string() ? *value->string() : "none";
}

TEST(FileAttributes, AllOfThemSayWhatAndWhoseItIs) {
    TempFolder temp;
    const std::string file = temp.write("file", "text");
    ASSERT_EQ(chmod(file.c_str(), 04640), 0);
    ASSERT_EQ(::link(file.c_str(), temp.path("second").c_str()), 0);
    struct stat info {};
    ASSERT_EQ(stat(file.c_str(), &info), 0);
    const PropertyList attributes = allFileAttributesAtPath(file, false);
    EXPECT_EQ(textOf(attributes, kFileType), "NSFileTypeRegular");
    EXPECT_EQ(numberOf(attributes, kFileSize), 4);
    EXPECT_EQ(numberOf(attributes, kFilePosixPermissions), 04640);
    EXPECT_EQ(numberOf(attributes, kFileReferenceCount), 2);
    EXPECT_EQ(numberOf(attributes, kFileSystemFileNumber), static_cast<std::int64_t>(info.st_ino));
    EXPECT_EQ(numberOf(attributes, kFileOwnerAccountID), geteuid());
    EXPECT_EQ(numberOf(attributes, kFileGroupOwnerAccountID), info.st_gid);
    if (geteuid() == 0) {
        EXPECT_EQ(textOf(attributes, kFileOwnerAccountName), "root");
    }
    EXPECT_GT(dateOf(attributes, kFileModificationDate), 1e9);

    ASSERT_EQ(symlink("absent", temp.path("link").c_str()), 0);
    EXPECT_EQ(textOf(allFileAttributesAtPath(temp.path("link"), false), kFileType), "NSFileTypeSymbolicLink");
    EXPECT_EQ(textOf(allFileAttributesAtPath(temp.path(), false), kFileType), "NSFileTypeDirectory");
    EXPECT_EQ(textOf(allFileAttributesAtPath("/dev/null", false), kFileType), "NSFileTypeCharacterSpecial");
    EXPECT_TRUE(allFileAttributesAtPath(temp.path("absent"), false).isNull());
}

TEST(FileAttributes, AnOwnerWithoutAnAccountHasNoName) {
    TempFolder temp;
    const std::string file = temp.write("file", "");
    constexpr uid_t kNobodys = 3999999997;
    if (chown(file.c_str(), kNobodys, kNobodys) != 0) GTEST_SKIP() << "root alone gives files away";
    const PropertyList attributes = allFileAttributesAtPath(file, false);
    EXPECT_EQ(numberOf(attributes, kFileOwnerAccountID), kNobodys);
    EXPECT_EQ(attributes.get(kFileOwnerAccountName), nullptr);
    EXPECT_EQ(attributes.get(kFileGroupOwnerAccountName), nullptr);
}

// A dictionary that was kept as binary property list says the same afterwards: nothing looks changed by that.
TEST(FileAttributes, DatesSurviveTheBinaryForm) {
    TempFolder temp;
    const std::string file = temp.write("file", "");
    setModified(file, 1732182000, 123456789);
    const PropertyList attributes = fileAttributesAtPath(file, false);
    const std::string bytes = attributes.toBinary();
    const auto read = PropertyList::fromBytes({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    ASSERT_TRUE(read);
    EXPECT_GE(dateOf(*read, kFileModificationDate), dateOf(attributes, kFileModificationDate) - 1e-6);
}

}  // namespace
}  // namespace kavaro
