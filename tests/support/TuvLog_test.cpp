#include "support/TuvLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "TempFolder.h"
#include "platform/PropertyList.h"
#include "support/LogDestination.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constinit LogComponent kNode{"TuvNode"};
constinit LogComponent kFolder{"TuvDirNode"};
constinit LogComponent kFactory{"TuvNodeFactory"};

std::string propertyList(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + body + "</plist>\n";
}

std::string entry(const std::string& key, const std::string& value) {
    return "<key>" + key + "</key><string>" + value + "</string>";
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

class TuvLogTest : public testing::Test {
  protected:
    void SetUp() override { TearDown(); }
    void TearDown() override {
        TuvLog::loadConfigFromPath("");
        for (LogComponent* component : {&kNode, &kFolder, &kFactory}) component->forget();
    }
    void load(const std::string& dictionary) {
        TuvLog::loadConfigFromPath(_folder.write("TuvLog.plist", propertyList("<dict>" + dictionary + "</dict>")));
    }
    void loadFile(const std::string& more = "") { load(entry("file", _folder.path("log.txt")) + more); }
    TempFolder _folder;
};

void logAtEveryLevel(const LogComponent& component) {
    TuvLog::trace(component, nullptr, "trace");
    TuvLog::debug(component, nullptr, "debug");
    TuvLog::info(component, nullptr, "info");
    TuvLog::error(component, nullptr, "error");
}

TEST_F(TuvLogTest, WithoutAConfigurationEveryComponentIsAtInfo) {
    LogCapture log;
    logAtEveryLevel(kNode);
    EXPECT_THAT(log.texts(), ElementsAre("info", "error"));
    EXPECT_FALSE(TuvLog::debugLevel(kNode));
    EXPECT_FALSE(TuvLog::traceLevel(kNode));
    EXPECT_FALSE(TuvLog::debugLevel(nullptr));
}

TEST_F(TuvLogTest, LevelsPerComponent) {
    load(entry("level", "error") + "<key>components</key><dict>" + entry("TuvNode", "trace") +
         entry("TuvDirNode", "debug") + "</dict>");
    EXPECT_TRUE(TuvLog::debugLevel(kNode));
    EXPECT_TRUE(TuvLog::traceLevel(kNode));
    EXPECT_TRUE(TuvLog::debugLevel(kFolder));
    EXPECT_FALSE(TuvLog::traceLevel(kFolder));
    EXPECT_FALSE(TuvLog::debugLevel(kFactory));
    EXPECT_FALSE(TuvLog::debugLevel(nullptr));

    LogCapture log;
    logAtEveryLevel(kNode);
    EXPECT_THAT(log.texts(), ElementsAre("trace", "debug", "info", "error"));
    log.clear();
    logAtEveryLevel(kFolder);
    EXPECT_THAT(log.texts(), ElementsAre("debug", "info", "error"));
    log.clear();
    logAtEveryLevel(kFactory);
    TuvLog::info(nullptr, nullptr, "info");
    TuvLog::error(nullptr, nullptr, "error of the process entry");
    EXPECT_THAT(log.texts(), ElementsAre("error", "error of the process entry"));
}

TEST_F(TuvLogTest, OffSilencesAComponent) {
    load("<key>components</key><dict>" + entry("TuvNode", "off") + "</dict>");
    LogCapture log;
    logAtEveryLevel(kNode);
    EXPECT_THAT(log.texts(), IsEmpty());
    logAtEveryLevel(kFolder);
    EXPECT_THAT(log.texts(), ElementsAre("info", "error"));
}

TEST_F(TuvLogTest, AChangeReachesOnlyComponentsThatHaveNotBeenUsed) {
    LogCapture log;
    logAtEveryLevel(kNode);
    log.clear();
    load(entry("level", "trace"));
    EXPECT_TRUE(TuvLog::traceLevel(kNode)) << "the configuration itself has changed";
    EXPECT_FALSE(kNode.traceOn());
    EXPECT_FALSE(kNode.debugOn());
    logAtEveryLevel(kNode);
    EXPECT_THAT(log.texts(), ElementsAre("info", "error"));
    log.clear();
    logAtEveryLevel(kFolder);
    EXPECT_THAT(log.texts(), ElementsAre("trace", "debug", "info", "error"));
}

TEST_F(TuvLogTest, ASwitchThatIsAskedBeforeTheFirstLineLoadsTheLevel) {
    load(entry("level", "debug"));
    EXPECT_TRUE(kNode.debugOn());
    EXPECT_FALSE(kNode.traceOn());
    EXPECT_TRUE(kNode.infoOn());
    EXPECT_TRUE(kNode.errorOn());
    TuvLog::loadConfigFromPath("");
    EXPECT_TRUE(kNode.debugOn());
}

TEST_F(TuvLogTest, AConfigurationThatCannotBeReadLeavesInfo) {
    const std::string full = propertyList("<dict>" + entry("level", "trace") + "</dict>");
    const std::string paths[] = {
        "",
        _folder.path("missing"),
        _folder.path("missing/TuvLog.plist"),
        _folder.path(),
        _folder.write("empty", ""),
        _folder.write("noise", "level = trace;"),
        _folder.write("cut", full.substr(0, full.size() / 2)),
        _folder.write("array", propertyList("<array><string>trace</string></array>")),
        _folder.write("text", propertyList("<string>trace</string>")),
        _folder.write("huge", propertyList("<dict><!--" + std::string(2 << 20, ' ') + "--></dict>")),
        _folder.write("padded", full + std::string(1 << 20, '\n')),
        _folder.write("unknown", propertyList("<dict>" + entry("level", "loud") + "</dict>")),
        _folder.write("number", propertyList("<dict><key>level</key><integer>0</integer></dict>")),
        _folder.write("components", propertyList("<dict>" + entry("components", "trace") + "</dict>")),
    };
    for (const std::string& path : paths) {
        load(entry("level", "trace"));
        ASSERT_EQ(TuvLog::configuredLevel(kNode), LogLevel::trace);
        testing::internal::CaptureStderr();
        TuvLog::loadConfigFromPath(path);
        EXPECT_EQ(TuvLog::configuredLevel(kNode), LogLevel::info) << path;
        EXPECT_EQ(TuvLog::configuredLevel(nullptr), LogLevel::info) << path;
        TuvLog::info(nullptr, nullptr, "still there");
        EXPECT_THAT(linesOf(testing::internal::GetCapturedStderr()), ElementsAre(HasSubstr("still there"))) << path;
    }
}

TEST_F(TuvLogTest, TheShippedConfigurationSaysWhatHoldsWithoutOne) {
    const std::string path = std::string(KAVARO_SOURCE_DIR) + "/resources/TuvLog.plist";
    std::ifstream stream(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    const auto root = PropertyList::fromBytes(bytesOf(bytes));
    ASSERT_TRUE(root) << path;
    const LogDestination::File defaults;
    EXPECT_EQ(*root, PropertyList(PropertyList::Dictionary{{"level", "info"},
                                                           {"components", PropertyList::Dictionary{}},
                                                           {"file", ""},
                                                           {"maximumBytes", defaults.maximumBytes},
                                                           {"keptFiles", defaults.keptFiles}}));
    load(entry("level", "trace"));
    TuvLog::loadConfigFromPath(path);
    EXPECT_EQ(TuvLog::configuredLevel(kNode), LogLevel::info);
    testing::internal::CaptureStderr();
    TuvLog::info(nullptr, nullptr, "here");
    EXPECT_THAT(linesOf(testing::internal::GetCapturedStderr()), ElementsAre(HasSubstr("here")));
}

TEST_F(TuvLogTest, LayoutOfALine) {
    loadFile();
    TuvLog::info(kNode, "loadNodes", "%d nodes in %9.3f ms", 3, 1.5);
    TuvLog::error(kNode, nullptr, "no method");
    TuvLog::info(nullptr, "main", "no component");
    TuvLog::info(nullptr, nullptr, "text alone");
    TuvLog::info(nullptr, nullptr, "");
    const std::string head =
        "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} " + std::to_string(getpid()) + "\\.[0-9]+ ";
    EXPECT_THAT(
        linesOf(_folder.read("log.txt")),
        ElementsAre(MatchesRegex(head + "info  TuvNode loadNodes: 3 nodes in     1\\.500 ms"),
                    MatchesRegex(head + "error TuvNode: no method"), MatchesRegex(head + "info  main: no component"),
                    MatchesRegex(head + "info  text alone"), MatchesRegex(head + "info  ")));
}

TEST_F(TuvLogTest, ALineEndWithinATextDoesNotEndTheLine) {
    loadFile();
    TuvLog::info(kNode, nullptr, "\"%@\" vanished", std::string("two\nlines\r and \x1b[31mred"));
    const std::vector<std::string> lines = linesOf(_folder.read("log.txt"));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(lines[0], HasSubstr("two\\nlines"));
    EXPECT_EQ(lines[0].find('\r'), std::string::npos);
    EXPECT_EQ(lines[0].find('\x1b'), std::string::npos);
    LogCapture log;
    TuvLog::info(kNode, nullptr, "%@", std::string("two\nlines"));
    EXPECT_THAT(log.texts(), ElementsAre("two\nlines")) << "the observer sees the text as it is";
}

TEST_F(TuvLogTest, TheFileIsRotated) {
    loadFile("<key>maximumBytes</key><integer>1000</integer><key>keptFiles</key><integer>2</integer>");
    for (int i = 0; i < 100; ++i) TuvLog::info(nullptr, nullptr, "line %06d", i);
    int next = 100;
    for (const char* name : {"log.txt", "log.1.txt", "log.2.txt"}) {
        const std::string content = _folder.read(name);
        EXPECT_GT(content.size(), 0u) << name;
        EXPECT_LE(content.size(), 1000u) << name;
        const std::vector<std::string> lines = linesOf(content);
        for (auto line = lines.rbegin(); line != lines.rend(); ++line)
            EXPECT_THAT(*line, testing::EndsWith(formatted(" line %06d", --next))) << name;
    }
    struct stat info {};
    EXPECT_NE(stat(_folder.path("log.3.txt").c_str(), &info), 0);
}

TEST_F(TuvLogTest, TheFileGrowsOnAfterANewStart) {
    loadFile();
    TuvLog::info(nullptr, nullptr, "first");
    TuvLog::loadConfigFromPath("");
    loadFile();
    TuvLog::info(nullptr, nullptr, "second");
    EXPECT_THAT(linesOf(_folder.read("log.txt")), ElementsAre(HasSubstr("first"), HasSubstr("second")));
}

TEST_F(TuvLogTest, MissingFoldersAboveTheFileAreMade) {
    load(entry("file", _folder.path("a/b/log.txt")));
    TuvLog::info(nullptr, nullptr, "here");
    EXPECT_THAT(linesOf(_folder.read("a/b/log.txt")), ElementsAre(HasSubstr("here")));
}

TEST_F(TuvLogTest, WithNoOldFilesKeptTheFileStartsAnew) {
    loadFile("<key>maximumBytes</key><integer>1000</integer><key>keptFiles</key><integer>0</integer>");
    for (int i = 0; i < 100; ++i) TuvLog::info(nullptr, nullptr, "line %06d", i);
    EXPECT_LE(_folder.read("log.txt").size(), 1000u);
    EXPECT_THAT(linesOf(_folder.read("log.txt")).back(), testing::EndsWith("line 000099"));
    struct stat info {};
    EXPECT_NE(stat(_folder.path("log.1.txt").c_str(), &info), 0);
}

TEST_F(TuvLogTest, AFileThatCannotBeWrittenFallsBackToStandardErrorQuietly) {
    const std::string notAFolder = _folder.write("plain", "");
    for (const std::string& path : {notAFolder + "/log.txt", _folder.path(), std::string("/proc/kavaro/log.txt")}) {
        testing::internal::CaptureStderr();
        load(entry("file", path));
        TuvLog::info(kNode, nullptr, "here");
        EXPECT_THAT(linesOf(testing::internal::GetCapturedStderr()), ElementsAre(HasSubstr("here"))) << path;
    }
}

TEST_F(TuvLogTest, ADestinationThatFailsLaterIsQuiet) {
    loadFile();
    // Every further write fails: the device is full.
    ASSERT_EQ(symlink("/dev/full", _folder.path("full.txt").c_str()), 0);
    load(entry("file", _folder.path("full.txt")));
    testing::internal::CaptureStderr();
    for (int i = 0; i < 3; ++i) TuvLog::info(kNode, nullptr, "lost");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(TuvLogTest, TheObserverSeesEveryLineAndCanBeTakenAway) {
    loadFile();
    int seen = 0;
    TuvLog::setObserver([&](const TuvLog::Line& line) {
        ++seen;
        EXPECT_EQ(line.component, "TuvNode");
        EXPECT_EQ(line.selector, "loadNodes");
        EXPECT_EQ(line.text, "text");
        EXPECT_EQ(line.level, LogLevel::info);
    });
    TuvLog::info(kNode, "loadNodes", "text");
    TuvLog::setDestinationEnabled(false);
    TuvLog::info(kNode, "loadNodes", "text");
    TuvLog::setObserver({});
    TuvLog::info(kNode, "loadNodes", "text");
    TuvLog::setDestinationEnabled(true);
    TuvLog::info(kNode, "loadNodes", "text");
    EXPECT_EQ(seen, 2);
    EXPECT_EQ(linesOf(_folder.read("log.txt")).size(), 2u);
}

TEST_F(TuvLogTest, AnObserverMayLog) {
    std::vector<std::string> texts;
    TuvLog::setDestinationEnabled(false);
    TuvLog::setObserver([&](const TuvLog::Line& line) {
        texts.emplace_back(line.text);
        if (line.level == LogLevel::error) TuvLog::info(kNode, nullptr, "seen");
    });
    TuvLog::error(kNode, nullptr, "bad");
    TuvLog::setObserver({});
    TuvLog::setDestinationEnabled(true);
    EXPECT_THAT(texts, ElementsAre("bad", "seen"));
}

struct Counted {
    mutable int described = 0;
    std::string description() const {
        ++described;
        return "counted";
    }
};

TEST_F(TuvLogTest, ALineBelowTheLevelNeverFormatsItsArguments) {
    load("<key>components</key><dict>" + entry("TuvNode", "off") + "</dict>");
    LogCapture log;
    const Counted counted;
    TuvLog::trace(kFolder, nullptr, "%@", counted);
    TuvLog::debug(kFolder, nullptr, "%@", &counted);
    TuvLog::trace(nullptr, nullptr, "%@", counted);
    TuvLog::info(kNode, nullptr, "%@", counted);
    TuvLog::error(kNode, nullptr, "%@", counted);
    EXPECT_EQ(counted.described, 0);
    TuvLog::info(kFolder, nullptr, "%@", counted);
    EXPECT_EQ(counted.described, 1);
    EXPECT_THAT(log.texts(), ElementsAre("counted"));
}

// Lines of all lengths up to beyond what a pipe writes in one piece.
std::string payload(int thread, int line) {
    return std::string(static_cast<std::size_t>((line * 37 + thread) % 200 + (line % 500 == 0 ? 9000 : 0)),
                       static_cast<char>('a' + thread));
}

void expectWholeLines(const std::vector<std::string>& lines, int threads, int linesEach) {
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(threads * linesEach));
    std::map<int, int> next;
    for (const std::string& line : lines) {
        const std::size_t start = line.find("TuvNode run: ");
        ASSERT_NE(start, std::string::npos) << line;
        int thread = -1, number = -1;
        ASSERT_EQ(std::sscanf(line.c_str() + start, "TuvNode run: %d/%d ", &thread, &number), 2) << line;
        ASSERT_EQ(number, next[thread]++) << line;
        ASSERT_EQ(line.substr(start), formatted("TuvNode run: %d/%d <%@>", thread, number, payload(thread, number)));
    }
}

void logFromThreads(int count, int linesEach) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < count; ++thread)
        threads.emplace_back([=] {
            for (int line = 0; line < linesEach; ++line)
                TuvLog::info(kNode, "run", "%d/%d <%@>", thread, line, payload(thread, line));
        });
    for (std::thread& thread : threads) thread.join();
}

TEST_F(TuvLogTest, LinesOfManyThreadsAreWholeInAFile) {
    loadFile("<key>maximumBytes</key><integer>1000000000</integer>");
    logFromThreads(8, 2000);
    expectWholeLines(linesOf(_folder.read("log.txt")), 8, 2000);
}

TEST_F(TuvLogTest, LinesOfManyThreadsAreWholeOnStandardError) {
    testing::internal::CaptureStderr();
    logFromThreads(8, 200);
    expectWholeLines(linesOf(testing::internal::GetCapturedStderr()), 8, 200);
}

TEST_F(TuvLogTest, AConfigurationMayBeLoadedWhileOtherThreadsLog) {
    LogCapture log;
    std::thread writer([] {
        for (int line = 0; line < 2000; ++line) {
            kNode.forget();
            TuvLog::info(kNode, nullptr, "line");
        }
    });
    for (int i = 0; i < 50; ++i) load(entry("level", i % 2 ? "trace" : "info"));
    writer.join();
    EXPECT_EQ(log.count("line"), 2000);
}

}  // namespace
}  // namespace kavaro
