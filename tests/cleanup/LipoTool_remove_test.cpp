#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "LogCapture.h"
#include "TempFolder.h"
#include "cleanup/LipoTool.h"
#include "cleanup/UniversalFile.h"
#include "platform/FileDescriptor.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

class LipoRemoveTest : public testing::Test {
  protected:
    static std::string remove(const std::string& path, const std::vector<std::string>& names) {
        std::vector<std::string> arguments = {path};
        for (const std::string& name : names) arguments.insert(arguments.end(), {"-remove", name});
        arguments.insert(arguments.end(), {"-output", path});
        return lipoTool(arguments);
    }
    std::string write(const std::string& bytes) const { return folder.write("tool", bytes); }
    // The file stays as it is, the reason is in the answer and in the log, and nothing else is in the folder.
    void expectRefusal(const std::vector<std::string>& names, const std::string& reason) {
        const std::string path = folder.path("tool");
        const std::string before = folder.read("tool");
        const std::vector<std::string> entries = entriesOf(folder.path());
        EXPECT_EQ(lipoObstacle(path, names), reason);
        log.clear();
        EXPECT_EQ(remove(path, names), "lipo: " + path + ": " + reason + "\n");
        EXPECT_EQ(log.count(LogLevel::error, "\"" + path + "\": " + reason), 1);
        EXPECT_EQ(folder.read("tool"), before);
        EXPECT_EQ(entriesOf(folder.path()), entries);
    }
    static std::vector<std::string> entriesOf(const std::string& path) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path)) names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    TempFolder folder;
    LogCapture log;
};

TEST_F(LipoRemoveTest, LeavesTheOthersAtTheirAlignment) {
    for (const bool isWide : {false, true}) {
        const std::string path = write(universalFile({kPPC, kI386, kPPC7400, kARM64}, isWide));
        EXPECT_EQ(lipoObstacle(path, {"ppc", "ppc7400"}), "");
        EXPECT_EQ(remove(path, {"ppc", "ppc7400"}), "");
        EXPECT_EQ(folder.read("tool"), universalFile({kI386, kARM64}, isWide));
        EXPECT_EQ(log.count(LogLevel::error, ""), 0);
        EXPECT_THAT(entriesOf(folder.path()), ElementsAre("tool"));
    }
}

TEST_F(LipoRemoveTest, OneThatIsLeftIsStillUniversal) {
    const std::string path = write(universalFile(kFourSlices));
    EXPECT_EQ(remove(path, {"x86_64", "ppc", "ppc7400"}), "");
    EXPECT_EQ(folder.read("tool"), universalFile({kI386}));
}

TEST_F(LipoRemoveTest, UnknownArchitecturesGoByTheirNumbers) {
    const std::string path = write(universalFile({{99, 3, "?"}, kI386}));
    EXPECT_EQ(remove(path, {"(cputype (99) cpusubtype (3))"}), "");
    EXPECT_EQ(folder.read("tool"), universalFile({kI386}));
}

TEST_F(LipoRemoveTest, CapabilitiesStay) {
    const std::string path = write(universalFile({kPPC, kX86_64}));
    EXPECT_EQ(remove(path, {"ppc"}), "");
    EXPECT_EQ(folder.read("tool"), universalFile({kX86_64}));
}

TEST_F(LipoRemoveTest, LargeSlices) {
    MadeSlice large = kI386;
    for (int i = 0; i < 700'000; ++i) large.content += std::to_string(i);
    const std::string path = write(universalFile({kPPC, large}));
    EXPECT_EQ(remove(path, {"ppc"}), "");
    EXPECT_EQ(folder.read("tool"), universalFile({large}));
}

TEST_F(LipoRemoveTest, Refusals) {
    write(universalFile({kPPC, kI386}));
    expectRefusal({"ppc", "i386"}, "no architecture would be left");
    expectRefusal({"ppc", "arm64"}, "it does not hold the architecture arm64");
    expectRefusal({"PPC"}, "it does not hold the architecture PPC");
    write("#!/bin/sh\n");
    expectRefusal({"ppc"}, "it is no universal file");
    write("");
    expectRefusal({"ppc"}, "it is no universal file");
    write(universalFile({kPPC, kI386}).substr(0, 9000));
    expectRefusal({"ppc"}, "architecture i386 goes beyond the end of the file");
    write(std::string("\xca\xfe\xba\xbe\0\0\0\x34\0\x1d\x0a", 11));
    expectRefusal({"ppc"}, "its table would have 52 entries: it is a Java class, or damaged");
}

// An archive behind the code, or an entry that the table does not count, must not be lost.
TEST_F(LipoRemoveTest, BytesThatNoArchitectureOwns) {
    const char* const reason = "it holds bytes that belong to no architecture, and they would be lost";
    const std::string file = universalFile({kPPC, kI386});
    write(file + "appended");
    expectRefusal({"ppc"}, reason);
    std::string hidden = file;
    hidden.replace(48, 20, std::string("\1\0\0\x0c\0\0\0\0\0\0\x20\0\0\0\x0b\xb8\0\0\0\x0c", 20));
    write(hidden);
    expectRefusal({"ppc"}, reason);
    std::string between = file;
    between[8000] = 1;
    write(between);
    expectRefusal({"ppc"}, reason);
    write(file + std::string(3 << 20, '\0'));
    expectRefusal({"ppc"}, reason);
    const std::string path = write(file + std::string(1000, '\0'));
    EXPECT_EQ(remove(path, {"ppc"}), "") << "zeros behind the code are no loss";
    EXPECT_EQ(folder.read("tool"), universalFile({kI386}));
}

TEST_F(LipoRemoveTest, HardLinks) {
    const std::string path = write(universalFile({kPPC, kI386}));
    ASSERT_EQ(link(path.c_str(), folder.path("other name").c_str()), 0);
    expectRefusal({"ppc"}, "it has 2 names (hard links), and the others would keep the old content");
    ASSERT_EQ(unlink(folder.path("other name").c_str()), 0);
    EXPECT_EQ(remove(path, {"ppc"}), "");
}

TEST_F(LipoRemoveTest, OpenForWriting) {
    const std::string path = write(universalFile({kPPC, kI386}));
    const char* const reason = "another program has it open for writing";
    FileDescriptor writer(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    expectRefusal({"ppc"}, reason);
    writer.reset(open(path.c_str(), O_RDWR | O_CLOEXEC));
    void* mapped = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, writer.get(), 0);
    ASSERT_NE(mapped, MAP_FAILED);
    writer.reset();
    expectRefusal({"ppc"}, reason);
    munmap(mapped, 4096);
    const FileDescriptor reader(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(remove(path, {"ppc"}), "") << "who reads it may go on with the old content";
    EXPECT_EQ(lseek(reader.get(), 0, SEEK_END), 8192 + 3000);
}

TEST_F(LipoRemoveTest, Links) {
    const std::string file = folder.write("file", universalFile({kPPC, kI386}));
    ASSERT_EQ(symlink("file", folder.path("tool").c_str()), 0);
    expectRefusal({"ppc"}, "it is a link, which is not followed");
    const std::string real = folder.makeFolder("real");
    folder.write("real/tool", universalFile({kPPC, kI386}));
    ASSERT_EQ(symlink("real", folder.path("way").c_str()), 0);
    const std::string answer = remove(folder.path("way/tool"), {"ppc"});
    EXPECT_THAT(answer, testing::HasSubstr("link, which is not followed"));
    EXPECT_EQ(folder.read("real/tool"), universalFile({kPPC, kI386}));
}

// Without room for the new file the old one stays.
TEST_F(LipoRemoveTest, ALimitOfFileSizes) {
    write(universalFile({kPPC, kI386, kX86_64}));
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{9000, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const std::string path = folder.path("tool");
    const std::string answer = remove(path, {"ppc"});
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(answer, "lipo: " + path + ": the new file cannot be written: File too large\n");
    EXPECT_EQ(folder.read("tool"), universalFile({kPPC, kI386, kX86_64}));
    EXPECT_THAT(entriesOf(folder.path()), ElementsAre("tool"));
}

TEST_F(LipoRemoveTest, NamesOfAllSorts) {
    const std::string name = "a \"b\"\n'c' \xff\xfe";
    const std::string path = folder.write(name, universalFile({kPPC, kI386}));
    EXPECT_EQ(remove(path, {"ppc"}), "");
    EXPECT_EQ(folder.read(name), universalFile({kI386}));
    const std::string longest(255, 'n');
    const std::string longPath = folder.write(longest, universalFile({kPPC, kI386}));
    EXPECT_EQ(remove(longPath, {"ppc"}), "");
    EXPECT_EQ(folder.read(longest), universalFile({kI386}));
    EXPECT_THAT(entriesOf(folder.path()), UnorderedElementsAre(name, longest));
}

}  // namespace
}  // namespace kavaro
