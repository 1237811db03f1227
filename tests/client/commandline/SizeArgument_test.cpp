#include "client/commandline/SizeArgument.h"

#include <gtest/gtest.h>

namespace kavaro {
namespace {

TEST(SizeArgument, IsANumberWithOrWithoutAUnit) {
    EXPECT_EQ(readSize("0"), 0u);
    EXPECT_EQ(readSize("4096"), 4096u);
    EXPECT_EQ(readSize("7 bytes"), 7u);
    EXPECT_EQ(readSize("7b"), 7u);
    EXPECT_EQ(readSize("10 KB"), 10240u);
    EXPECT_EQ(readSize("10k"), 10240u);
    EXPECT_EQ(readSize(" 1 mB "), 1048576u);
    EXPECT_EQ(readSize("1.5g"), 1610612736u);
    EXPECT_EQ(readSize("2TB"), 2199023255552u);
    EXPECT_EQ(readSize("0.1"), 0u);
    EXPECT_EQ(readSize("0.1k"), 102u);
    EXPECT_EQ(readSize("18446744073709551615"), 18446744073709551615u);
}

TEST(SizeArgument, OtherTextsAreNone) {
    for (const char* text : {"", " ", "x", "-1", "+1", ".5", "1.", "1..2", "1 2", "1 XB", "KB", "1 KBx", "1e3", "0x10",
                             "18446744073709551616", "99999999999999999999999", "16777216 TB", "inf", "1,5 KB"})
        EXPECT_EQ(readSize(text), std::nullopt) << text;
}

}  // namespace
}  // namespace kavaro
