#include "support/Backtrace.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/Environment.h"
#include "platform/Text.h"

namespace kavaro {
namespace {

__attribute__((noinline)) std::string atDepth(int depth) {
    std::string text = depth > 0 ? atDepth(depth - 1) : backtrace();
    asm volatile("" ::: "memory");  // keeps the call from becoming a jump
    return text;
}

long calls(const std::string& text) {
    return std::count(text.begin(), text.end(), ',') + 1;
}

TEST(Backtrace, IsOneLineThatNamesTheProgram) {
    const std::string text = backtrace();
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_NE(text.find("+0x"), std::string::npos) << text;
    EXPECT_NE(text.find(lastPathComponent(executablePath()) + "+0x"), std::string::npos) << text;
}

TEST(Backtrace, NamesWhatLibrariesExport) {
    EXPECT_NE(backtrace().find("__libc_start_main"), std::string::npos) << backtrace();
}

TEST(Backtrace, GrowsWithTheStackUpToItsLimit) {
    const long shallow = calls(atDepth(0));
    EXPECT_EQ(calls(atDepth(5)), shallow + 5);
    EXPECT_EQ(calls(atDepth(500)), 64);
}

}  // namespace
}  // namespace kavaro
