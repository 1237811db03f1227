#include "platform/HandleInodes.h"

#include <gtest/gtest.h>

#include <set>

namespace kavaro {
namespace {

std::string handle(std::size_t number) {
    return std::string("\4\0\0\0\1\0\0\0", 8) + std::string({char(number), char(number >> 8), char(number >> 16), 0});
}

TEST(HandleInodes, whatWasRememberedComesBack) {
    HandleInodes inodes;
    inodes.remember(handle(1), 11);
    inodes.remember(handle(2), 22);
    inodes.remember(handle(1), 0x1100000000);
    EXPECT_EQ(inodes.inodeOf(handle(1)), 0x1100000000u);
    EXPECT_EQ(inodes.inodeOf(handle(2)), 22u);
}

TEST(HandleInodes, othersHaveNumbersOfTheirOwn) {
    HandleInodes inodes, others;
    std::set<std::uint32_t> numbers;
    for (std::size_t number = 0; number < 1000; ++number) {
        EXPECT_EQ(inodes.inodeOf(handle(number)), others.inodeOf(handle(number)));
        numbers.insert(static_cast<std::uint32_t>(inodes.inodeOf(handle(number))));
    }
    EXPECT_EQ(numbers.size(), 1000u);
    EXPECT_EQ(numbers.count(0), 0u);
}

TEST(HandleInodes, theLastOnesAreKept) {
    HandleInodes inodes;
    const std::size_t most = HandleInodes::kMostHandles;
    for (std::size_t number = 1; number <= 3 * most; ++number) inodes.remember(handle(number), number);
    for (std::size_t number = 2 * most + 1; number <= 3 * most; ++number)
        ASSERT_EQ(inodes.inodeOf(handle(number)), number);
    for (std::size_t number = 1; number <= most; ++number) ASSERT_NE(inodes.inodeOf(handle(number)), number);
}

}  // namespace
}  // namespace kavaro
