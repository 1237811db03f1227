#include "ModelTest.h"

namespace kavaro {
namespace {

using Lines = std::vector<std::string>;

// The mark belongs to the process: each of these runs in one of its own.
class TuvNodeLogDeathTest : public testing::Test {
  protected:
    TuvNodeLogDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

Lines poolLines(ModelLogs& logs) {
    Lines found;
    for (const LogCapture::Line& line : logs->lines())
        if (line.text.find("instances in the pool") != std::string::npos) {
            EXPECT_EQ(line.level, LogLevel::info);
            EXPECT_EQ(line.component, "TuvNode");
            found.push_back(line.text.substr(0, line.text.find(' ')));
        }
    return found;
}

[[noreturn]] void expectInChild(const Lines& actual, const Lines& expected) {
    EXPECT_EQ(actual, expected);
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST_F(TuvNodeLogDeathTest, MarksGoUpAndDownByTens) {
    const auto body = [] {
        ModelLogs logs(LogLevel::trace);
        auto pool = make<TuvObjectArray>();
        for (int i = 0; i < 105; ++i) pool->adoptObject(newFile(1).leak());  // 10, 100
        while (pool->count() > 5) pool->removeLastObject();                  // 100, 10
        while (pool->count() < 12) pool->adoptObject(newFile(1).leak());     // 10
        while (pool->count() > 0) pool->removeLastObject();                  // 10
        expectInChild(poolLines(logs), Lines{"10", "100", "100", "10", "10", "10"});
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(TuvNodeLogDeathTest, HundredThousandsHaveALineOfTheirOwn) {
    const auto body = [] {
        ModelLogs logs(LogLevel::trace);
        auto pool = make<TuvObjectArray>(200100);
        for (int i = 0; i < 200050; ++i) pool->adoptObject(new TuvNode);
        expectInChild(poolLines(logs), Lines{"10", "100", "1000", "10000", "100000", "200000"});
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(TuvNodeLogDeathTest, NothingOfTheSortWithoutTrace) {
    const auto body = [] {
        ModelLogs logs(LogLevel::debug);
        auto pool = make<TuvObjectArray>();
        for (int i = 0; i < 1000; ++i) pool->adoptObject(newFile(1).leak());
        pool = nullptr;
        expectInChild(logs->texts(), Lines{});
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST(TuvNodeLogTest, TheEndOfANodeAtTraceLevel) {
    ModelLogs logs(LogLevel::trace);
    auto file = newFile(1, "name");
    auto nameless = make<TuvNode>();
    logs->clear();
    file = nullptr;
    nameless = nullptr;
    EXPECT_EQ(logs.lines(),
              (Lines{"TuvNode ~TuvNode: [0] [     1] name", "TuvNode ~TuvNode: [0] [     0] No File Name !!!"}));
    EXPECT_EQ(logs->count(LogLevel::trace, "["), 2);
}

TEST(TuvNodeLogTest, TheEndOfAFolderAtTraceLevel) {
    ModelLogs logs(LogLevel::trace);
    auto folder = newFolder(1, "outer");
    addFile(folder.get(), newFile(2, "file"));
    addFolder(folder.get(), newFolder(3, "inner"));
    logs->clear();
    folder = nullptr;
    Lines lines;
    for (const std::string& line : logs.lines())
        if (line.rfind("TuvObjectArray", 0) != 0) lines.push_back(line);
    // A folder is gone before its subfolders are; its files go with it.
    EXPECT_EQ(lines, (Lines{"TuvDirNode ~TuvDirNode: [       3] outer 1 files, 1 folders",
                            "TuvNode ~TuvNode: [0] [     2] file", "TuvNode ~TuvNode: [0] [     1] outer",
                            "TuvDirNode ~TuvDirNode: [       1] inner 0 files, 0 folders",
                            "TuvNode ~TuvNode: [0] [     0] inner"}));
}

TEST(TuvNodeLogTest, NamesAndParentsAtTraceLevel) {
    ModelLogs logs(LogLevel::trace);
    auto node = make<TuvNode>();
    auto parent = make<TuvDirNode>();
    logs->clear();
    node->setFileName("one");
    node->setFileName(NodeText("two"));
    node->setParent(parent.get());
    node->setParent(nullptr);
    EXPECT_EQ(logs.lines(), (Lines{"TuvNode setFileName: one", "TuvNode setFileName: two",
                                   "TuvNode setParent: No File Name !!!", "TuvNode setParent: (null)"}));
    EXPECT_EQ(logs->count(LogLevel::trace, ""), 4);
}

TEST(TuvNodeLogTest, ParentChainAtDebugLevel) {
    ModelLogs logs(LogLevel::debug);
    newFile(1, "leaf")->parentChain(nullptr, true);
    EXPECT_EQ(logs.lines(), Lines{"TuvNode parentChain: leaf"});
    EXPECT_EQ(logs->count(LogLevel::debug, "leaf"), 1);
}

}  // namespace
}  // namespace kavaro
