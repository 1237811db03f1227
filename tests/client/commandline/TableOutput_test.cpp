#include "client/commandline/TableOutput.h"

#include <gtest/gtest.h>

#include <sstream>

#include "client/commandline/CommandRun.h"
#include "client/commandline/FakeTree.h"
#include "platform/Catalog.h"
#include "platform/TextDisplay.h"

namespace kavaro {
namespace {

std::string tableOf(const Measurement& measurement, const TableOptions& options) {
    WrittenBytes bytes;
    {
        Output output(bytes.fd());
        writeTable(output, measurement, options);
    }
    return bytes.text();
}

Measurement smallMeasurement() {
    Measurement measurement;
    measurement.path = "/data";
    measurement.root = smallTree();
    measurement.seconds = 0.5;
    return measurement;
}

void expectLinesFit(const std::string& table, std::size_t columns) {
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(displayWidth(line), columns) << line;
}

TEST(TableOutput, at40Columns) {
    TableOptions options;
    options.columns = 40;
    EXPECT_EQ("\n" + tableOf(smallMeasurement(), options), R"(
/data: 5.3 MB on disk, 5.3 MB logical,
  4 files and 3 folders, 0.50 s

 SHARE         ON DISK   LOGICAL  NAME
 94.4% ████▊    5.0 MB    5.0 MB  big/
  5.5% ▎      300.0 KB  299.8 KB  list
  0.0%          2.0 KB    1.5 KB  写真
  0.0%         0 bytes   0 bytes  small/
)");
}

TEST(TableOutput, at80Columns) {
    TableOptions options;
    options.columns = 80;
    EXPECT_EQ("\n" + tableOf(smallMeasurement(), options), R"(
/data: 5.3 MB on disk, 5.3 MB logical, 4 files and 3 folders, 0.50 s

 SHARE                            ON DISK   LOGICAL  FILES  FOLDERS  NAME
 94.4% ██████████████████████▋     5.0 MB    5.0 MB      2        1  big/
  5.5% █▍                        300.0 KB  299.8 KB      -        -  list
  0.0%                             2.0 KB    1.5 KB      -        -  写真
  0.0%                            0 bytes   0 bytes      0        0  small/
)");
}

TEST(TableOutput, at120Columns) {
    TableOptions options;
    options.columns = 120;
    options.view.depth = 3;
    EXPECT_EQ("\n" + tableOf(smallMeasurement(), options), R"(
/data: 5.3 MB on disk, 5.3 MB logical, 4 files and 3 folders, 0.50 s

 SHARE                            ON DISK     LOGICAL  FILES  FOLDERS  NAME
 94.4% ██████████████████████▋     5.0 MB      5.0 MB      2        1  big/
 94.4% ██████████████████████▋     5.0 MB      5.0 MB      -        -    film
  0.0%                             1.0 KB  1000 bytes      1        0    deep/
  0.0%                             1.0 KB  1000 bytes      -        -      note
  5.5% █▍                        300.0 KB    299.8 KB      -        -  list
  0.0%                             2.0 KB      1.5 KB      -        -  写真
  0.0%                            0 bytes     0 bytes      0        0  small/
)");
}

TEST(TableOutput, restOfTheEntriesInOneLine) {
    TableOptions options;
    options.columns = 80;
    options.view.top = 1;
    EXPECT_EQ("\n" + tableOf(smallMeasurement(), options), R"(
/data: 5.3 MB on disk, 5.3 MB logical, 4 files and 3 folders, 0.50 s

 SHARE                            ON DISK   LOGICAL  FILES  FOLDERS  NAME
 94.4% ██████████████████████▋     5.0 MB    5.0 MB      2        1  big/
  5.6% █▍                        302.0 KB  301.3 KB      2        1  3 more
)");
}

TEST(TableOutput, logicalSizes) {
    TableOptions options;
    options.columns = 80;
    options.view.apparent = true;
    EXPECT_EQ("\n" + tableOf(smallMeasurement(), options), R"(
/data: 5.3 MB logical, 5.3 MB on disk, 4 files and 3 folders, 0.50 s

 SHARE                            ON DISK   LOGICAL  FILES  FOLDERS  NAME
 94.4% ██████████████████████▋     5.0 MB    5.0 MB      2        1  big/
  5.5% █▍                        300.0 KB  299.8 KB      -        -  list
  0.0%                             2.0 KB    1.5 KB      -        -  写真
  0.0%                            0 bytes   0 bytes      0        0  small/
)");
}

TEST(TableOutput, depthZeroIsTheTotalAlone) {
    TableOptions options;
    options.view.depth = 0;
    EXPECT_EQ(tableOf(smallMeasurement(), options),
              "/data: 5.3 MB on disk, 5.3 MB logical, 4 files and 3 folders, 0.50 s\n");
}

TEST(TableOutput, emptyFolder) {
    Measurement measurement = smallMeasurement();
    measurement.root = FakeTree::root("/data");
    measurement.root->setIsResolved(true);
    EXPECT_EQ(tableOf(measurement, {}),
              "/data: 0 bytes on disk, 0 bytes logical, zero files and zero folders, 0.50 s\n");
}

TEST(TableOutput, oneOfEach) {
    Measurement measurement = smallMeasurement();
    measurement.root = FakeTree::root("/data");
    FakeTree::addFile(*FakeTree::addFolder(*measurement.root, "d", 3), "f", 4, 1, 0);
    FakeTree::resolve(*measurement.root);
    TableOptions options;
    options.view.depth = 0;
    EXPECT_EQ(tableOf(measurement, options), "/data: 0 bytes on disk, 1 byte logical, 1 file and 1 folder, 0.50 s\n");
}

TEST(TableOutput, missingFoldersMakeALowerBound) {
    Measurement measurement = smallMeasurement();
    measurement.unread = {
        {"/data/big/a", kReasonPermission}, {"/data/b\n", kReasonReadError}, {"/data/proc", kReasonPseudoFileSystem}};
    TableOptions options;
    options.view.depth = 0;
    EXPECT_EQ(tableOf(measurement, options),
              "/data: ≥ 5.3 MB on disk, ≥ 5.3 MB logical, 4 files and 3 folders, 0.50 s\n\n"
              "2 folders could not be read, 1 was left out; the total is a lower bound (--errors lists them)\n");
    options.listErrors = true;
    EXPECT_EQ(tableOf(measurement, options),
              "/data: ≥ 5.3 MB on disk, ≥ 5.3 MB logical, 4 files and 3 folders, 0.50 s\n\n"
              "2 folders could not be read, 1 was left out; the total is a lower bound\n"
              "  /data/big/a: permission\n"
              "  /data/b\\n: read error\n"
              "  /data/proc: pseudo file system\n");
    measurement.unread.resize(1);
    EXPECT_NE(tableOf(measurement, options).find("\n1 folder could not be read; the total"), std::string::npos);
    measurement.unread = {{"/data/m", kReasonOtherFileSystem}, {"/data/n", kReasonBackupFolder}};
    EXPECT_NE(tableOf(measurement, options).find("\n2 folders were left out; the total"), std::string::npos);
}

TEST(TableOutput, partialResultsSaySo) {
    Measurement measurement = smallMeasurement();
    measurement.root->folderWithFileName("big")->setIsResolved(false, true);
    measurement.partial = true;
    TableOptions options;
    options.columns = 80;
    const std::string table = tableOf(measurement, options);
    EXPECT_EQ(table.substr(0, table.find('\n')),
              "/data: 5.3 MB on disk, 5.3 MB logical, 4 files and 3 folders, 0.50 s (partial)");
    EXPECT_NE(table.find("big/ (partial)\n"), std::string::npos);
    EXPECT_EQ(table.find("small/ (partial)"), std::string::npos);
}

TEST(TableOutput, whatIsNotMeasuredIsRed) {
    Measurement measurement = smallMeasurement();
    measurement.root->folderWithFileName("big")->setIsResolved(false, true);
    measurement.partial = true;
    TableOptions options;
    options.columns = 80;
    options.color = ColorDepth::full;
    const std::string kRed = "\x1b[38;2;255;0;0m";
    const std::string table = tableOf(measurement, options);
    EXPECT_NE(table.find("/data: " + kRed + "5.3 MB\x1b[0m on disk"), std::string::npos) << table;
    const std::string big = table.substr(table.find("94.4%"), table.find("big/") - table.find("94.4%"));
    EXPECT_EQ(big.find("\x1b[38;2;99;1;159m"), std::string::npos);  // the colour of megabytes
    EXPECT_NE(big.find(kRed), std::string::npos);
    EXPECT_EQ(table.find(kRed, table.find("big/")), std::string::npos);
}

TEST(TableOutput, foldersWithoutFiles) {
    Measurement measurement = smallMeasurement();
    measurement.root = FakeTree::root("/data");
    FakeTree::addFolder(*measurement.root, "d", 3);
    FakeTree::resolve(*measurement.root);
    TableOptions options;
    options.view.depth = 0;
    EXPECT_EQ(tableOf(measurement, options), "/data: 0 bytes on disk, 0 bytes logical, and 1 folder, 0.50 s\n");
}

TEST(TableOutput, noLineIsWiderThanTheTerminal) {
    Measurement measurement = smallMeasurement();
    measurement.path = "/" + std::string(300, 'x') + "/写真";
    FakeTree::addFile(*measurement.root, std::string(255, 'y'), 20, 1ULL << 50, 1ULL << 50);
    FakeTree::addFile(*measurement.root, "写真写真写真写真写真写真写真写真写真写真", 21, 12345678, 1ULL << 40);
    FakeTree::addFile(*measurement.root, "bad\xFF\n\x1b[31m name", 22, 1, 4096);
    FakeTree::resolve(*measurement.root);
    measurement.partial = true;
    measurement.unread = {{"/x", kReasonPermission}};
    for (int columns = 1; columns <= 200; ++columns) {
        TableOptions options;
        options.columns = columns;
        options.view.depth = columns % 4;
        const std::string table = tableOf(measurement, options);
        expectLinesFit(table, static_cast<std::size_t>(std::max(columns, TableOptions::kNarrowest)));
        EXPECT_EQ(table.find('\x1b'), std::string::npos);
    }
}

TEST(TableOutput, deepIndentLeavesRoomForNames) {
    Measurement measurement = smallMeasurement();
    measurement.root = FakeTree::chain(500);
    TableOptions options;
    options.columns = 60;
    options.view.depth = 1000;
    const std::string table = tableOf(measurement, options);
    expectLinesFit(table, 60);
    EXPECT_NE(table.find(" file\n"), std::string::npos);
}

TEST(TableOutput, sizesInTheirColours) {
    TableOptions options;
    options.color = ColorDepth::full;
    const std::string table = tableOf(smallMeasurement(), options);
    EXPECT_NE(table.find("\x1b[38;2;99;1;159m5.3 MB\x1b[0m on disk"), std::string::npos);  // above 1 MB
    EXPECT_NE(table.find("\x1b[38;2;69;103;89m"), std::string::npos);                      // above 1 KB
    EXPECT_NE(table.find("\x1b[38;2;55;91;76m"), std::string::npos);                       // the rest
    options.color = ColorDepth::none;
    EXPECT_EQ(tableOf(smallMeasurement(), options).find('\x1b'), std::string::npos);
}

}  // namespace
}  // namespace kavaro
