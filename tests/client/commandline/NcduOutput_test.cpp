#include "client/commandline/NcduOutput.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>

#include "TempFolder.h"
#include "client/commandline/CommandRun.h"
#include "client/commandline/FakeTree.h"
#include "platform/Catalog.h"
#include "support/Version.h"

extern char** environ;

namespace kavaro {
namespace {

std::string ncduOf(const Measurement& measurement) {
    WrittenBytes bytes;
    {
        Output output(bytes.fd());
        writeNcdu(output, measurement, 1700000000.9);
    }
    return bytes.text();
}

Measurement smallMeasurement() {
    Measurement measurement;
    measurement.path = "/data";
    measurement.root = smallTree();
    return measurement;
}

// Reads the export with the real program and gives its own export of what it read: empty when it refused.
std::string throughNcdu(const std::string& exported) {
    TempFolder folder;
    const std::string file = folder.write("in.json", exported);
    const std::string result = folder.path("out.json");
    const char* arguments[] = {"ncdu", "-0", "-f", file.c_str(), "-o", result.c_str(), nullptr};
    pid_t pid = 0;
    if (posix_spawnp(&pid, "ncdu", nullptr, nullptr, const_cast<char**>(arguments), environ) != 0) {
        ADD_FAILURE() << "ncdu cannot be started: is the package installed?";
        return {};
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return status == 0 ? folder.read("out.json") : std::string();
}

const std::string kHead =
    std::string(R"([1,2,{"progname":"kavaro","progver":")") + KAVARO_VERSION + R"(","timestamp":1700000000},)";

TEST(NcduOutput, everyByte) {
    EXPECT_EQ(ncduOf(smallMeasurement()),
              kHead + R"([{"name":"/data","ino":2},)"
                      R"({"name":"list","asize":307000,"dsize":307200,"ino":15},)"
                      R"({"name":"写真","asize":1500,"dsize":2048,"ino":16},)"
                      R"([{"name":"big","ino":10},{"name":"film","asize":5242000,"dsize":5242880,"ino":11},)"
                      R"([{"name":"deep","ino":12},{"name":"note","asize":1000,"dsize":1024,"ino":13}]],)"
                      R"([{"name":"small","ino":14}]]])"
                      "\n");
}

TEST(NcduOutput, ncduAcceptsIt) {
    const std::string read = throughNcdu(ncduOf(smallMeasurement()));
    EXPECT_NE(read.find(R"("name":"/data")"), std::string::npos) << read;
    EXPECT_NE(read.find(R"({"name":"film","asize":5242000,"dsize":5242880})"), std::string::npos) << read;
    EXPECT_NE(read.find(R"("name":"note")"), std::string::npos) << read;
    EXPECT_NE(read.find(R"("name":"small")"), std::string::npos) << read;
}

TEST(NcduOutput, bytesOfNamesAreKept) {
    Measurement measurement = smallMeasurement();
    const std::string odd = "a\xFF\xE9\"\\\n\x01 \x7F";
    FakeTree::addFile(*measurement.root, odd, 30, 1, 512);
    const std::string exported = ncduOf(measurement);
    EXPECT_NE(exported.find("a\xFF\xE9\\\"\\\\\\n\\u0001 \\u007F\""), std::string::npos) << exported;
    EXPECT_NE(throughNcdu(exported).find("a\xFF\xE9\\\"\\\\\\n\\u0001 \\u007"), std::string::npos);
}

TEST(NcduOutput, zeroSizesAndForeignIDsAreLeftOut) {
    Measurement measurement = smallMeasurement();
    measurement.root = FakeTree::root("/data", 0);
    FakeTree::addFile(*measurement.root, "empty", NodeIdentity::kFirstDerived, 0, 0);
    FakeTree::addFile(*measurement.root, "hole", NodeIdentity::kFirstDerived - 1, 100, 0);
    EXPECT_EQ(ncduOf(measurement),
              kHead + R"([{"name":"/data"},{"name":"empty"},{"name":"hole","asize":100,"ino":1073741823}]])"
                      "\n");
}

TEST(NcduOutput, unreadFoldersAreMarked) {
    Measurement measurement = smallMeasurement();
    FakeTree::addFolder(*measurement.root, "mount", 20);
    FakeTree::addFolder(*measurement.root, "proc", 21);
    FakeTree::addFolder(*measurement.root, "gone", 22);
    measurement.unread = {{"/data/mount", kReasonOtherFileSystem},
                          {"/data/proc", kReasonPseudoFileSystem},
                          {"/data/gone", kReasonVanished},
                          {"/data/big/deep", kReasonPermission},
                          {"/data/big", kReasonBackupFolder}};
    const std::string exported = ncduOf(measurement);
    EXPECT_NE(exported.find(R"(,{"name":"mount","ino":20,"excluded":"otherfs"})"), std::string::npos) << exported;
    EXPECT_NE(exported.find(R"(,{"name":"proc","ino":21,"excluded":"kernfs"})"), std::string::npos);
    EXPECT_NE(exported.find(R"([{"name":"gone","ino":22,"read_error":true}])"), std::string::npos);
    EXPECT_NE(exported.find(R"([{"name":"deep","ino":12,"read_error":true},)"), std::string::npos);
    EXPECT_NE(exported.find(R"([{"name":"big","ino":10,"excluded":"pattern"},)"), std::string::npos);
    const std::string read = throughNcdu(exported);
    EXPECT_NE(read.find(R"("name":"proc","excluded":"kernfs")"), std::string::npos) << read;
    EXPECT_NE(read.find(R"("name":"deep","read_error":true)"), std::string::npos) << read;
}

TEST(NcduOutput, unreadFoldersOfTheRoot) {
    Measurement measurement = smallMeasurement();
    measurement.path = "/";
    measurement.unread = {{"/small", kReasonPermission}, {"/", kReasonReadError}};
    const std::string exported = ncduOf(measurement);
    EXPECT_NE(exported.find(R"([{"name":"small","ino":14,"read_error":true}])"), std::string::npos) << exported;
    EXPECT_NE(exported.find(R"([{"name":"/","ino":2,"read_error":true},)"), std::string::npos);
}

TEST(NcduOutput, anExcludedRootIsStillAFolder) {
    Measurement measurement = smallMeasurement();
    measurement.path = "/proc";
    measurement.root = FakeTree::root("/proc");
    measurement.unread = {{"/proc", kReasonPseudoFileSystem}};
    const std::string exported = ncduOf(measurement);
    EXPECT_NE(exported.find(R"([{"name":"/proc","ino":2,"excluded":"kernfs"}]])"), std::string::npos) << exported;
    EXPECT_NE(throughNcdu(exported), "");
}

TEST(NcduOutput, aTreeOf100000Levels) {
    Measurement measurement = smallMeasurement();
    measurement.root = FakeTree::chain(100000);
    measurement.unread = {{"/elsewhere", kReasonPermission}};
    const std::string exported = ncduOf(measurement);
    EXPECT_NE(exported.find(R"("name":"file")"), std::string::npos);
    EXPECT_EQ(std::count(exported.begin(), exported.end(), '['), 100002);
    EXPECT_EQ(std::count(exported.begin(), exported.end(), ']'), 100002);
}

}  // namespace
}  // namespace kavaro
