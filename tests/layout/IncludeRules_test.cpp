#include "layout/IncludeRules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "TempFolder.h"

namespace kavaro::layout {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> names(std::string_view text) {
    std::vector<std::string> result;
    for (const Include& include : includesIn(text)) result.push_back(include.name);
    return result;
}

TEST(IncludeParser, readsBothFormsWithTheirLines) {
    EXPECT_THAT(includesIn("#pragma once\n#include <string>\n\n#include \"platform/Bus.h\"\n"),
                ElementsAre(Include{"string", false, 2}, Include{"platform/Bus.h", true, 4}));
}

TEST(IncludeParser, acceptsAnySpacing) {
    EXPECT_THAT(names("  #  include<vector>\n\t#include\t\"a/b.h\" // why\n#include <no/newline.h>"),
                ElementsAre("vector", "a/b.h", "no/newline.h"));
}

TEST(IncludeParser, seesThroughConditionals) {
    EXPECT_THAT(names("#if 0\n#include <glib.h>\n#endif\n"), ElementsAre("glib.h"));
}

TEST(IncludeParser, leavesCommentsOut) {
    EXPECT_THAT(names("// #include <a>\n/* #include <b>\n#include <c>\n*/ #include <d>\n"), ElementsAre("d"));
}

TEST(IncludeParser, aCommentMarkInALiteralStartsNoComment) {
    EXPECT_THAT(names("auto a = \"/*\"; char b = '\"'; auto c = \"\\\"/*\";\n#include <e>\n"), ElementsAre("e"));
}

TEST(IncludeParser, otherDirectivesAndBrokenOnesAreNone) {
    EXPECT_THAT(names("#define include <a>\n#include\n#include <open\n#include MACRO\n"), IsEmpty());
}

TEST(Rooms, aPathLeadsToItsRoom) {
    EXPECT_EQ(roomOf("model/serialization/Reader.cpp"), "model");
    EXPECT_EQ(roomOf("client/Measurement.h"), "client");
    EXPECT_EQ(roomOf("client/commandline/Size.cpp"), "client/commandline");
    EXPECT_EQ(roomOf("client/main.cpp"), "client/commandline");
    EXPECT_EQ(roomOf("server/main.cpp"), "server");
    EXPECT_EQ(roomOf("stray.h"), "");
    EXPECT_FALSE(isRoom(""));
    EXPECT_FALSE(isRoom("misc"));
}

TEST(Rooms, importsRunOneWay) {
    const std::vector<std::string> chain = {"platform", "support", "model", "scan", "cleanup", "factory", "server"};
    for (size_t from = 0; from < chain.size(); ++from) {
        for (size_t to = 0; to < chain.size(); ++to) {
            EXPECT_EQ(mayInclude(chain[from], chain[to]), to <= from) << chain[from] << " -> " << chain[to];
        }
    }
}

TEST(Rooms, ofTheFourMiddleRoomsOnlyCleanupKnowsOthers) {
    const std::vector<std::string> middle = {"fsevents", "cleanup", "filters", "format"};
    for (const std::string& from : middle) {
        EXPECT_TRUE(mayInclude(from, "scan"));
        EXPECT_TRUE(mayInclude("factory", from));
        for (const std::string& to : middle) {
            const bool chosenByName = from == "cleanup" && (to == "filters" || to == "format");
            EXPECT_EQ(mayInclude(from, to), from == to || chosenByName) << from << " -> " << to;
        }
    }
}

TEST(Rooms, theClientNeverReachesTheServersSide) {
    for (const char* room : {"scan", "fsevents", "factory", "server", "client/commandline"}) {
        EXPECT_FALSE(mayInclude("client", room)) << room;
    }
    for (const char* room : {"platform", "support", "model", "filters", "format", "cleanup"}) {
        EXPECT_TRUE(mayInclude("client", room)) << room;
    }
    EXPECT_TRUE(mayInclude("client/commandline", "client"));
    EXPECT_TRUE(mayInclude("client/commandline", "factory"));
    EXPECT_TRUE(mayInclude("client/commandline", "fsevents"));
    EXPECT_FALSE(mayInclude("client/commandline", "scan"));
    EXPECT_FALSE(mayInclude("client/commandline", "server"));
    EXPECT_FALSE(mayInclude("server", "client"));
}

TEST(SystemHeaders, librariesBelongToTheirRooms) {
    for (const char* header : {"glib.h", "gio/gio.h", "unicode/uchar.h", "plist/plist.h", "linux/magic.h",
                               "sys/inotify.h", "sys/vfs.h", "sys/syscall.h", "never/heard/of.h"}) {
        EXPECT_TRUE(mayIncludeSystemHeader("platform", header)) << header;
        for (const char* room : {"support", "model", "server", "client", "client/commandline"}) {
            EXPECT_FALSE(mayIncludeSystemHeader(room, header)) << room << " " << header;
        }
    }
    EXPECT_TRUE(mayIncludeSystemHeader("support", "spdlog/logger.h"));
    EXPECT_TRUE(mayIncludeSystemHeader("support", "fmt/format.h"));
    EXPECT_FALSE(mayIncludeSystemHeader("model", "fmt/format.h"));
    EXPECT_TRUE(mayIncludeSystemHeader("client/commandline", "CLI/CLI.hpp"));
    EXPECT_TRUE(mayIncludeSystemHeader("client/commandline", "rapidjson/writer.h"));
    EXPECT_FALSE(mayIncludeSystemHeader("client", "rapidjson/writer.h"));
    EXPECT_FALSE(mayIncludeSystemHeader("platform", "CLI/CLI.hpp"));
}

TEST(SystemHeaders, theLanguagesAndTheCLibrarysAreFree) {
    for (const char* header : {"string", "filesystem", "unistd.h", "sys/stat.h", "signal.h"}) {
        EXPECT_TRUE(mayIncludeSystemHeader("model", header)) << header;
    }
}

TEST(IncludeFaults, nameThePlaceAndTheReason) {
    TempFolder folder;
    const std::filesystem::path source = folder.path();
    for (const char* room : {"model", "factory"}) {
        std::filesystem::create_directory(source / room);
        std::ofstream(source / room / "Here.h");
    }
    const auto faults = [&](const std::string& path, const char* text) { return includeFaults(source, path, text); };

    EXPECT_THAT(faults("factory/A.cpp", "#include \"model/Here.h\"\n#include <string>\n"), IsEmpty());
    EXPECT_THAT(faults("model/A.cpp", "\n#include \"factory/Here.h\"\n"),
                ElementsAre("model/A.cpp:2: model may not include \"factory/Here.h\""));
    EXPECT_THAT(faults("model/A.cpp", "#include <gio/gio.h>\n"),
                ElementsAre("model/A.cpp:1: model may not include <gio/gio.h>"));
    EXPECT_THAT(faults("model/A.cpp", "#include \"Here.h\"\n"), ElementsAre(HasSubstr("no path from src/")));
    EXPECT_THAT(faults("model/A.cpp", "#include \"../model/Here.h\"\n"), ElementsAre(HasSubstr("no path from src/")));
    EXPECT_THAT(faults("misc/A.cpp", ""), ElementsAre("misc/A.cpp: lies in no room"));
}

}  // namespace
}  // namespace kavaro::layout
