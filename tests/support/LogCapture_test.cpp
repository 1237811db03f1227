#include "LogCapture.h"

#include <gtest/gtest.h>

#include <thread>

namespace kavaro {
namespace {

constinit LogComponent kFirst{"First"};
constinit LogComponent kSecond{"Second"};

TEST(LogCapture, KeepsEveryPartOfALine) {
    LogCapture log;
    TuvLog::info(kFirst, "loadNodes", "%d nodes in %9.3f ms", 3, 1.5);
    TuvLog::error(nullptr, nullptr, "no way");
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].level, LogLevel::info);
    EXPECT_EQ(log.lines()[0].component, "First");
    EXPECT_EQ(log.lines()[0].selector, "loadNodes");
    EXPECT_EQ(log.lines()[0].text, "3 nodes in     1.500 ms");
    EXPECT_EQ(log.lines()[1].level, LogLevel::error);
    EXPECT_EQ(log.lines()[1].component, "");
    EXPECT_EQ(log.lines()[1].selector, "");
    EXPECT_TRUE(log.contains("no way"));
    EXPECT_FALSE(log.contains("No way"));
    EXPECT_EQ(log.count("n"), 2);
    EXPECT_EQ(log.count(LogLevel::error, "n"), 1);
    log.clear();
    EXPECT_TRUE(log.texts().empty());
}

TEST(LogCapture, SetsTheLevelAndPutsItBack) {
    {
        LogCapture log(LogLevel::trace);
        TuvLog::trace(kSecond, nullptr, "fine");
        EXPECT_EQ(log.texts(), std::vector<std::string>{"fine"});
    }
    EXPECT_EQ(TuvLog::configuredLevel(nullptr), LogLevel::info);
}

TEST(LogCapture, TakesLinesOfOtherThreads) {
    LogCapture log;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int line = 0; line < 500; ++line) TuvLog::info(kFirst, nullptr, "line");
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(log.count("line"), 2000);
}

}  // namespace
}  // namespace kavaro
