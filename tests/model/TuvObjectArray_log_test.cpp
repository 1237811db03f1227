#include "ModelTest.h"

namespace kavaro {
namespace {

using Lines = std::vector<std::string>;

TuvRef<TuvObjectArray> threeFiles() {
    auto array = make<TuvObjectArray>();
    for (std::uint32_t id : {1, 2, 3}) array->adoptObject(newFile(id, "n" + std::to_string(id)).leak());
    return array;
}

TEST(TuvObjectArrayLogTest, InsertionsAtDebugLevel) {
    ModelLogs logs(LogLevel::debug);
    auto array = threeFiles();
    array->insertObjectAtIndex(newFile(4, "four").get(), 1);
    array->insertObjectAtIndex(newFile(5, "five").get(), 4);  // an addition: no line
    array->insertObjectsAtIndex(threeFiles().get(), 0);
    array->addObjectsFromArray(threeFiles().get());
    const std::string insert = "TuvObjectArray insertObjectsAtIndex: ";
    const std::string add = "TuvObjectArray addObjectsFromArray: ";
    EXPECT_EQ(logs.lines(),
              (Lines{"TuvObjectArray insertObjectAtIndex: four, index 1, count 3", insert + "n1, index 0, count 5",
                     insert + "n2, index 1, count 5", insert + "n3, index 2, count 5", add + "n1, index 0, count 8",
                     add + "n2, index 1, count 9", add + "n3, index 2, count 10"}));
}

TEST(TuvObjectArrayLogTest, OrderedInsertLogsAsTheInsertItUses) {
    ModelLogs logs(LogLevel::debug);
    auto array = threeFiles();
    array->addObjectBinary(newFile(9, "nine").get());
    EXPECT_EQ(logs.lines(), Lines{});
    array->addObjectBinary(newFile(2, "two").get());
    EXPECT_EQ(logs.lines(), Lines{"TuvObjectArray insertObjectAtIndex: two, index 2, count 4"});
}

TEST(TuvObjectArrayLogTest, RemovalsAndReplacementsAtDebugLevel) {
    ModelLogs logs(LogLevel::debug);
    auto array = threeFiles();
    array->removeObjectAtIndex(2);
    array->removeObjectAtIndex(2);  // out of range
    array->removeObject(newFile(2).get());
    array->removeObject(newFile(7).get());
    array->replaceObjectAtIndex(0, newFile(8).get());
    array->replaceObjectAtIndex(1, newFile(8).get());  // out of range
    array->replaceObjectAtIndex(0, array->objectAtIndex(0));
    array->replaceObject(newFile(8).get());
    EXPECT_EQ(logs.lines(),
              (Lines{"TuvObjectArray removeObjectAtIndex: n3, index 2", "TuvObjectArray removeObject: n2, index 1",
                     "TuvObjectArray removeObjectAtIndex: n2, index 1", "TuvObjectArray replaceObjectAtIndex: 0",
                     "TuvObjectArray replaceObjectAtIndex: 0"}));
    EXPECT_EQ(logs->count(LogLevel::debug, ""), 5);
}

TEST(TuvObjectArrayLogTest, RemovalsInOnePassLogAsSingleOnesDo) {
    ModelLogs logs(LogLevel::debug);
    auto array = threeFiles();
    array->removeObjectsAtIndexes({0, 2});
    const std::string remove = "TuvObjectArray removeObjectAtIndex: ";
    EXPECT_EQ(logs.lines(), (Lines{remove + "n1, index 0", remove + "n3, index 1"}));
    logs->clear();
    auto folder = newFolder(1, "/folder");
    addFile(folder.get(), newFile(2, "file"));
    addFolder(folder.get(), newFolder(3, "inner"));
    auto list = make<TuvObjectArray>();
    for (std::uint32_t inode : {2, 3}) list->adoptObject(newFile(inode, "asked").leak());
    folder->removeChildNodesRecursive(list.get());
    EXPECT_EQ(logs.lines(), (Lines{remove + "/folder/file, index 0", remove + "/folder/inner, index 0",
                                   remove + "asked, index 0", remove + "asked, index 0"}));
    EXPECT_EQ(logs->count(LogLevel::debug, "index"), 4);
}

TEST(TuvObjectArrayLogTest, NothingAtInfoLevelForSmallArrays) {
    ModelLogs logs;
    auto array = threeFiles();
    array->insertObjectAtIndex(newFile(4).get(), 0);
    array->insertObjectsAtIndex(threeFiles().get(), 0);
    array->addObjectsFromArray(threeFiles().get());
    array->removeObject(newFile(4).get());
    array->replaceObjectAtIndex(0, newFile(5).get());
    array->setSize(16384);
    make<TuvObjectArray>()->rebuildTree();
    array = nullptr;
    EXPECT_EQ(logs.lines(), Lines{});
}

TEST(TuvObjectArrayLogTest, AnEmptyArrayToInsertIsAnError) {
    ModelLogs logs;
    auto array = threeFiles();
    const int size = array->size();
    array->insertObjectsAtIndex(make<TuvObjectArray>().get(), 0);
    EXPECT_EQ(logs.lines(), Lines{"TuvObjectArray insertObjectsAtIndex: Empty array argument"});
    EXPECT_EQ(logs->count(LogLevel::error, "Empty"), 1);
    EXPECT_EQ(array->count(), 3);
    EXPECT_EQ(array->size(), size);
}

TEST(TuvObjectArrayLogTest, BigSizesAtInfoLevel) {
    ModelLogs logs;
    auto array = make<TuvObjectArray>();
    array->setSize(16384);
    array->setSize(16385);
    array->setSize(16385);
    array->setSize(20000);
    array->setSize(17000);
    array->setSize(3);
    const std::string setSize = "TuvObjectArray setSize: ";
    EXPECT_EQ(logs.lines(), (Lines{setSize + "oldSize 16384, newSize 16385", setSize + "oldSize 16385, newSize 20000",
                                   setSize + "oldSize 20000, newSize 17000"}));
    EXPECT_EQ(logs->count(LogLevel::info, "oldSize"), 3);
}

TEST(TuvObjectArrayLogTest, GrowthAtTraceLevelTwiceAboveAThousand) {
    ModelLogs logs(LogLevel::trace);
    auto array = make<TuvObjectArray>(1024);
    array->extendSize(99);
    array->extendSize(0);
    const std::string extend = "TuvObjectArray extendSize: extending by ";
    EXPECT_EQ(logs.lines(), (Lines{extend + "256 current size 1024", extend + "512 current size 1280",
                                   extend + "512 current size 1280"}));
    EXPECT_EQ(logs->count(LogLevel::trace, "extending"), 3);
}

TEST(TuvObjectArrayLogTest, TheEndOfBigArraysAtInfoLevel) {
    ModelLogs logs;
    auto file = newFile(1);
    for (int count : {8192, 8193}) {
        auto array = make<TuvObjectArray>(count);
        for (int i = 0; i < count; ++i) array->addObject(file.get());
    }
    EXPECT_EQ(logs.lines(), Lines{"TuvObjectArray ~TuvObjectArray: 8193 count"});
}

TEST(TuvObjectArrayLogTest, TheEndOfAnyArrayAtTraceLevel) {
    ModelLogs logs(LogLevel::trace);
    make<TuvObjectArray>();
    EXPECT_EQ(logs.lines(), Lines{"TuvObjectArray ~TuvObjectArray: "});
    EXPECT_EQ(logs->count(LogLevel::trace, ""), 1);
}

TEST(TuvObjectArrayLogTest, ListsIdentifiers) {
    ModelLogs logs;
    debug(threeFiles().get());
    const std::string prefix = "TuvObjectArray debug: ";
    EXPECT_EQ(logs.lines(), (Lines{prefix + "3 items", prefix + "1", prefix + "2", prefix + "3"}));
}

TEST(TuvObjectArrayLogTest, TimesOfLists) {
    ModelLogs logs(LogLevel::debug);
    auto array = threeFiles();
    array->filePaths();
    array->fileURLs();
    auto folders = make<TuvObjectArray>();
    folders->rebuildTree();
    folders->rebuildTreeBackWards();
    const Lines lines = logs.lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].substr(0, lines[0].find("in")), "TuvObjectArray filePaths: 3 nodes, ");
    EXPECT_EQ(lines[1].substr(0, lines[1].find("in")), "TuvObjectArray fileURLs: 3 nodes, ");
    EXPECT_EQ(lines[2].rfind("TuvObjectArray rebuildTree: 0 initial nodes, 0 current in ", 0), 0u);
    EXPECT_EQ(lines[3].rfind("TuvObjectArray rebuildTreeBackWards: 0 initial nodes, 0 current in ", 0), 0u);
    for (const std::string& line : lines) {
        // %9.3f: nine wide, three behind the point
        const std::size_t start = line.rfind("in ") + 3;
        ASSERT_EQ(line.size() - start, 9u + 3u) << line;
        EXPECT_EQ(line[start + 5], '.') << line;
        EXPECT_EQ(line.substr(line.size() - 3), " ms");
    }
    EXPECT_EQ(logs->count(LogLevel::info, "nodes, in"), 2);
    EXPECT_EQ(logs->count(LogLevel::debug, "initial nodes"), 2);
}

}  // namespace
}  // namespace kavaro
