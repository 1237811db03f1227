#include "cleanup/LipoTool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "LogCapture.h"
#include "TempFolder.h"
#include "cleanup/UniversalFile.h"
#include "support/BuiltInTools.h"

namespace kavaro {
namespace {

using testing::HasSubstr;
using testing::Not;

class LipoToolTest : public testing::Test {
  protected:
    static std::string detailed(const std::string& path) { return lipoTool({"-detailed_info", path}); }

    TempFolder folder;
    LogCapture log;
};

TEST_F(LipoToolTest, DetailedInfo) {
    const std::string path = folder.write("tool", universalFile({kPPC7400, kX86_64}));
    EXPECT_EQ(detailed(path), "Fat header in: " + path +
                                  "\n"
                                  "fat_magic 0xcafebabe\n"
                                  "nfat_arch 2\n"
                                  "architecture ppc7400\n"
                                  "    cputype CPU_TYPE_POWERPC\n"
                                  "    cpusubtype CPU_SUBTYPE_POWERPC_7400\n"
                                  "    capabilities 0x0\n"
                                  "    offset 4096\n"
                                  "    size 2000\n"
                                  "    align 2^12 (4096)\n"
                                  "architecture x86_64\n"
                                  "    cputype CPU_TYPE_X86_64\n"
                                  "    cpusubtype CPU_SUBTYPE_X86_64_ALL\n"
                                  "    capabilities CPU_SUBTYPE_LIB64\n"
                                  "    offset 8192\n"
                                  "    size 4000\n"
                                  "    align 2^12 (4096)\n");
}

TEST_F(LipoToolTest, DetailedInfoOfTheWideForm) {
    const std::string path = folder.write("tool", universalFile({kARM64, {99, 3, "?", 0}}, true));
    EXPECT_EQ(detailed(path), "Fat header in: " + path +
                                  "\n"
                                  "fat_magic 0xcafebabf\n"
                                  "nfat_arch 2\n"
                                  "architecture arm64\n"
                                  "    cputype CPU_TYPE_ARM64\n"
                                  "    cpusubtype CPU_SUBTYPE_ARM64_ALL\n"
                                  "    capabilities 0x0\n"
                                  "    offset 16384\n"
                                  "    size 5000\n"
                                  "    align 2^14 (16384)\n"
                                  "architecture (cputype (99) cpusubtype (3))\n"
                                  "    cputype (99)\n"
                                  "    cpusubtype (3)\n"
                                  "    capabilities 0x0\n"
                                  "    offset 21384\n"
                                  "    size 1\n"
                                  "    align 2^0 (1)\n");
}

TEST_F(LipoToolTest, SeveralFiles) {
    const std::string thin = folder.write("thin", std::string("\xcf\xfa\xed\xfe\7\0\0\1\3\0\0\0more", 16));
    const std::string text = folder.write("text", "#!/bin/sh\necho hello\n");
    EXPECT_EQ(lipoTool({"-detailed_info", thin, text}),
              "input file " + thin + " is not a fat file\nNon-fat file: " + thin +
                  " is architecture: x86_64\nlipo: " + text + ": can't figure out the architecture type\n");
}

TEST_F(LipoToolTest, WhatCannotBeRead) {
    const std::string path = folder.path("none");
    EXPECT_EQ(detailed(path), "lipo: " + path + ": cannot be read: No such file or directory\n");
    EXPECT_EQ(detailed(folder.path()), "lipo: " + folder.path() + ": is no file\n");
    const std::string pipe = folder.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(detailed(pipe), "lipo: " + pipe + ": is no file\n");
    const std::string file = folder.write("file", universalFile(kFourSlices));
    const std::string link = folder.path("link");
    ASSERT_EQ(symlink(file.c_str(), link.c_str()), 0);
    EXPECT_EQ(detailed(link), "lipo: " + link + ": is a link, which is not followed\n");
    EXPECT_EQ(detailed(folder.write("empty", "")),
              "lipo: " + folder.path("empty") + ": can't figure out the architecture type\n");
    if (geteuid() == 0) return;  // may read everything
    ASSERT_EQ(chmod(file.c_str(), 0), 0);
    EXPECT_EQ(detailed(file), "lipo: " + file + ": cannot be read: Permission denied\n");
}

TEST_F(LipoToolTest, AJavaClassHasNoArchitectures) {
    const std::string path = folder.write("A.class", std::string("\xca\xfe\xba\xbe\0\0\0\x34\0\x1d\x0a", 11));
    EXPECT_EQ(detailed(path), "lipo: " + path + ": its table would have 52 entries: it is a Java class, or damaged\n");
}

// A name that looks like a part of the answer stays on the line it is on.
TEST_F(LipoToolTest, AnyNameIsOneLine) {
    const std::string path = folder.write("a\narchitecture ppc\n    size 7\n\xff", universalFile({kX86_64}));
    const std::string text = detailed(path);
    EXPECT_THAT(text, HasSubstr("Fat header in: " + folder.path("a\\narchitecture ppc\\n    size 7\\n\\xff") + "\n"));
    EXPECT_THAT(text, Not(HasSubstr("\narchitecture ppc\n")));
    EXPECT_THAT(text, HasSubstr("\narchitecture x86_64\n"));
    EXPECT_THAT(detailed(folder.path("gone\narchitecture ppc\nsize 1")), Not(HasSubstr("\narchitecture")));
}

TEST_F(LipoToolTest, WrongUsage) {
    EXPECT_EQ(lipoTool({}), "lipo: either -detailed_info or -remove is needed\n");
    EXPECT_EQ(lipoTool({"-detailed_info"}), "lipo: no input file\n");
    EXPECT_EQ(lipoTool({"-create", "/a"}), "lipo: unknown flag: -create\n");
    EXPECT_EQ(lipoTool({"/a", "-remove"}), "lipo: -remove needs a value\n");
    const char* const needs = "lipo: -remove needs one input file and -output with the same one\n";
    EXPECT_EQ(lipoTool({"/a", "-remove", "ppc"}), needs);
    EXPECT_EQ(lipoTool({"/a", "-remove", "ppc", "-output", "/b"}), needs);
    EXPECT_EQ(lipoTool({"/a", "/b", "-remove", "ppc", "-output", "/a"}), needs);
    EXPECT_EQ(lipoTool({"/a", "-detailed_info", "-remove", "ppc", "-output", "/a"}),
              "lipo: either -detailed_info or -remove is needed\n");
}

TEST_F(LipoToolTest, IsRegistered) {
    registerLipoTool();
    EXPECT_EQ(builtInTool(kLipoPath), lipoTool);
    // Once: what took its place stays.
    const BuiltInTool other = [](const std::vector<std::string>&) { return std::string("other"); };
    registerBuiltInTool(kLipoPath, other);
    registerLipoTool();
    EXPECT_EQ(builtInTool(kLipoPath), other);
    registerBuiltInTool(kLipoPath, lipoTool);
}

}  // namespace
}  // namespace kavaro
