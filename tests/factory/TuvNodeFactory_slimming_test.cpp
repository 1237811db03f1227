#include <gmock/gmock.h>

#include <algorithm>
#include <regex>

#include "cleanup/TuvLipoNode.h"
#include "cleanup/UniversalFile.h"
#include "factory/EngineTest.h"

namespace kavaro {
namespace {

using testing::ElementsAre;

class SlimmingTest : public EngineTest {
  protected:
    SlimmingTest() { TuvLipoNode::setProcessorName("i386"); }
    ~SlimmingTest() override { TuvLipoNode::setProcessorName(std::nullopt); }
    // The engine's own lines.
    std::vector<std::string> lines() const {
        std::vector<std::string> lines;
        for (const LogCapture::Line& line : log.lines())
            if (line.component == "TuvNodeFactory") lines.push_back(line.selector + " " + line.text);
        return lines;
    }

    TempFolder folder;
    LogCapture log;
};

std::vector<std::string> namesIn(const PropertyList& table) {
    std::vector<std::string> names;
    for (const auto& [name, entry] : *table.dictionary()) names.push_back(name);
    return names;
}

TEST_F(SlimmingTest, TablesOfTheFilesThatHaveOne) {
    const std::string universal = folder.write("a", universalFile(kFourSlices));
    const std::string arm = folder.write("b", universalFile({kX86_64, kARM64}));
    const std::string own = folder.write("c", universalFile({kX86_64}));
    TuvNodeFactory* factory = engine();
    log.clear();
    const LipoTables tables = factory->lipoNodesInfo(
        {{70, universal}, {80, own}, {90, folder.path("none")}, {4000000000, arm}, {91, folder.write("d", "text")}});
    ASSERT_EQ(tables.size(), 2u);
    EXPECT_THAT(namesIn(tables.at(70)), ElementsAre("ppc", "ppc7400"));
    EXPECT_EQ(*tables.at(70).get("ppc")->get("size")->string(), "1000");
    EXPECT_THAT(namesIn(tables.at(4000000000)), ElementsAre("arm64"));
    ASSERT_EQ(lines().size(), 2u);
    EXPECT_EQ(lines()[0], "lipoNodesInfo: 5 files, all files");
    EXPECT_TRUE(std::regex_match(lines()[1], std::regex("lipoNodesInfo: got lipo info on 5 Nodes in  *[0-9.]+ ms")))
        << lines()[1];
}

TEST_F(SlimmingTest, NothingIsAskedFor) {
    EXPECT_TRUE(engine()->lipoNodesInfo({}).empty());
    EXPECT_TRUE(log.contains("0 files, all files"));
    engine()->lipoNodes({});
    EXPECT_TRUE(log.contains("0 files, isLocal"));
}

TEST_F(SlimmingTest, FilesAreRewrittenInOrder) {
    const std::string first = folder.write("a", universalFile(kFourSlices));
    const std::string second = folder.write("b", universalFile({kX86_64, kARM64}));
    TuvNodeFactory* factory = engine(false);
    log.clear();
    factory->lipoNodes({{first, {"ppc", "ppc7400"}}, {folder.path("none"), {"ppc"}}, {first, {}}, {second, {"arm64"}}});
    EXPECT_EQ(folder.read("a"), universalFile({kI386, kX86_64}));
    EXPECT_EQ(folder.read("b"), universalFile({kX86_64}));
    EXPECT_THAT(lines(), ElementsAre("lipoNodes: 4 files, isRemote"));
    EXPECT_EQ(log.count(LogLevel::error, "No architecture to remove for \"" + first + "\""), 1);
    EXPECT_EQ(log.count(LogLevel::error, "it does not exist any more"), 1);
    std::vector<std::string> removed;
    for (const LogCapture::Line& line : log.lines())
        if (line.text.starts_with("Removed [")) removed.push_back(line.text);
    EXPECT_THAT(removed, ElementsAre("Removed [ppc, ppc7400] from \"" + first + "\"",
                                     "Removed [ppc] from \"" + folder.path("none") + "\"",
                                     "Removed [arm64] from \"" + second + "\""));
    EXPECT_EQ(log.count(LogLevel::info, "4 files, isRemote"), 1);
}

// The worker stands in the middle of a folder, with its stack locked: nothing of it is needed for what cleans up.
TEST_F(SlimmingTest, CleaningUpMayRunWhileAJobDoes) {
    const std::string path = folder.write("a", universalFile(kFourSlices));
    fake->addFolder("/r", 2);
    fake->addFolder("/r/a", 3);
    catalog->gate("/r/a");
    engine(false)->startWorkingAtPath("/r");
    catalog->waitUntilReached("/r/a");
    EXPECT_EQ(engine()->lipoNodesInfo({{1, path}}).size(), 1u);
    engine()->lipoNodes({{path, {"ppc"}}});
    engine()->removeNibs({path});
    EXPECT_EQ(log.count(LogLevel::info, "Removed " + path), 1);
    engine()->removeLocales({path});
    EXPECT_EQ(log.count(LogLevel::error, "Could not find " + path + " !!!"), 1);
    engine()->moveToTrash({path});
    EXPECT_EQ(posted.count("TrashFile"), 1);
    catalog->openAll();
    EXPECT_TRUE(runUntilPosted("Completed"));
}

TEST_F(SlimmingTest, ManyFilesInOneCall) {
    const std::string path = folder.write("a", universalFile({kPPC, kX86_64}));
    std::vector<LipoQuestion> files;
    for (std::uint32_t i = 0; i < 100'000; ++i) files.push_back({i, i % 1000 ? folder.path("none") : path});
    EXPECT_EQ(engine()->lipoNodesInfo(files).size(), 100u);
}

}  // namespace
}  // namespace kavaro
