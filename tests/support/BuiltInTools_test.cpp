#include "support/BuiltInTools.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>
#include <vector>

#include "TempFolder.h"
#include "support/StringHelpers.h"

namespace kavaro {
namespace {

std::string joined(const std::vector<std::string>& arguments) {
    std::string text = "built in:";
    for (const std::string& argument : arguments) text += " [" + argument + "]";
    return text;
}

std::string other(const std::vector<std::string>&) {
    return "other";
}

TEST(BuiltInTools, AnswerWhereThereIsNoProgram) {
    TempFolder folder;
    const std::string path = folder.path("tool");
    EXPECT_EQ(builtInTool(path), nullptr);
    EXPECT_EQ(stringFromTask(path, {"a"}), std::nullopt);
    registerBuiltInTool(path, joined);
    EXPECT_EQ(builtInTool(path), joined);
    EXPECT_EQ(stringFromTask(path, {"-q", "two words", ""}), "built in: [-q] [two words] []");
    EXPECT_EQ(stringFromTask(folder.path("another"), {}), std::nullopt);
}

TEST(BuiltInTools, GiveWayToARealProgram) {
    TempFolder folder;
    const std::string path = folder.path("tool");
    registerBuiltInTool(path, joined);
    folder.write("tool", "#!/bin/sh\nprintf 'real: %s' \"$1\"\n");
    EXPECT_EQ(stringFromTask(path, {"x"}), "built in: [x]") << "it is not executable";
    ASSERT_EQ(chmod(path.c_str(), 0755), 0);
    EXPECT_EQ(stringFromTask(path, {"x"}), "real: x");
}

TEST(BuiltInTools, AFolderIsNoProgram) {
    TempFolder folder;
    const std::string path = folder.makeFolder("tool");
    registerBuiltInTool(path, joined);
    EXPECT_EQ(stringFromTask(path, {}), "built in:");
}

TEST(BuiltInTools, TheLastOneRegisteredCounts) {
    TempFolder folder;
    const std::string path = folder.path("tool");
    registerBuiltInTool(path, joined);
    registerBuiltInTool(path, other);
    EXPECT_EQ(stringFromTask(path, {}), "other");
}

TEST(BuiltInTools, AreRegisteredAndAskedForByManyThreads) {
    TempFolder folder;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&folder, i] {
            for (int round = 0; round < 500; ++round) {
                const std::string path = folder.path(std::to_string(round % 50));
                registerBuiltInTool(path, i % 2 ? joined : other);
                EXPECT_NE(builtInTool(path), nullptr);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace kavaro
