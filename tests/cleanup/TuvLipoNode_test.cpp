#include "cleanup/TuvLipoNode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "LogCapture.h"
#include "TempFolder.h"
#include "cleanup/LipoLog.h"
#include "cleanup/LipoTool.h"
#include "cleanup/UniversalFile.h"
#include "model/ModelTest.h"
#include "support/BuiltInTools.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> namesIn(const PropertyList& table) {
    std::vector<std::string> names;
    for (const auto& [name, entry] : *table.dictionary()) names.push_back(name);
    return names;
}

PropertyList entryOf(const std::string& name, const std::string& size) {
    return PropertyList::Dictionary{{"architecture", name}, {"size", size}};
}

// What the tool of the next test answers, and what it was asked.
std::string answer;
std::vector<std::vector<std::string>> asked;
std::string answeringTool(const std::vector<std::string>& arguments) {
    asked.push_back(arguments);
    return answer;
}

class TuvLipoNodeTest : public testing::Test {
  protected:
    TuvLipoNodeTest() {
        tuvLipoNodeLog.forget();
        TuvLipoNode::setProcessorName("i386\n");
        registerLipoTool();
        asked.clear();
    }
    ~TuvLipoNodeTest() override {
        registerBuiltInTool(kLipoPath, lipoTool);
        TuvLipoNode::setProcessorName(std::nullopt);
        tuvLipoNodeLog.forget();
    }
    void use(BuiltInTool tool) { registerBuiltInTool(kLipoPath, tool); }
    // "level text" of the class's own lines.
    std::vector<std::string> lines() const {
        static constexpr const char* kLevels[] = {"trace", "debug", "info", "error", "off"};
        std::vector<std::string> lines;
        for (const LogCapture::Line& line : log.lines())
            if (line.component == "TuvLipoNode")
                lines.push_back(std::string(kLevels[static_cast<int>(line.level)]) + " " + line.text);
        return lines;
    }

    TempFolder folder;
    LogCapture log{LogLevel::trace};
};

TuvRef<TuvLipoNode> nodeWithTable(std::string_view path,
                                  const std::vector<std::pair<std::string, std::string>>& sizes) {
    auto file = newFile(7, path);
    auto node = make<TuvLipoNode>(file.get());
    PropertyList table = PropertyList::Dictionary();
    for (const auto& [name, size] : sizes) table.set(name, entryOf(name, size));
    node->setLipoInfo(table);
    return node;
}

TEST_F(TuvLipoNodeTest, NamesOfFamilies) {
    EXPECT_EQ(TuvLipoNode::architectureNameForIndex(0), "PowerPC");
    EXPECT_EQ(TuvLipoNode::architectureNameForIndex(1), "Intel");
    EXPECT_EQ(TuvLipoNode::anArchitectureNameForIndex(0), "a PowerPC");
    EXPECT_EQ(TuvLipoNode::anArchitectureNameForIndex(1), "an Intel");
    for (const int other : {2, 3, -1, 100}) {
        EXPECT_EQ(TuvLipoNode::architectureNameForIndex(other), "Unknown");
        EXPECT_EQ(TuvLipoNode::anArchitectureNameForIndex(other), "Unknown");
    }
}

TEST_F(TuvLipoNodeTest, FamiliesByName) {
    for (const char* name : {"ppc", "ppc64", "ppc7400", "PPC970", "PowerPC", "powerpc"}) {
        EXPECT_TRUE(TuvLipoNode::isProcessorArchitectureOfType(name, 0)) << name;
        EXPECT_FALSE(TuvLipoNode::isProcessorArchitectureOfType(name, 1)) << name;
    }
    for (const char* name : {"i386", "x86_64", "x86_64h", "i486SX", "86"}) {
        EXPECT_TRUE(TuvLipoNode::isProcessorArchitectureOfType(name, 1)) << name;
        EXPECT_FALSE(TuvLipoNode::isProcessorArchitectureOfType(name, 0)) << name;
    }
    for (const char* name : {"arm64", "", "pp c", "ppc", "x86_64"}) {
        EXPECT_FALSE(TuvLipoNode::isProcessorArchitectureOfType(name, 2)) << name;
        EXPECT_FALSE(TuvLipoNode::isProcessorArchitectureOfType(name, -1)) << name;
    }
    EXPECT_FALSE(TuvLipoNode::isProcessorArchitectureOfType("arm64", 0));
    EXPECT_FALSE(TuvLipoNode::isProcessorArchitectureOfType("arm64", 1));
}

TEST_F(TuvLipoNodeTest, TheMachinesFamilyIsAskedForOnce) {
    EXPECT_EQ(TuvLipoNode::processorArchitecture(), 1);
    EXPECT_EQ(TuvLipoNode::processorArchitecture(), 1);
    EXPECT_EQ(TuvLipoNode::processorArchitectureToRemove(), 0);
    EXPECT_THAT(lines(), ElementsAre("info /usr/bin/uname -p returned [i386\n]", "info [i386] [1]", "info [Intel]"));
}

TEST_F(TuvLipoNodeTest, FamiliesOfOtherMachines) {
    const std::pair<const char*, int> machines[] = {
        {"powerpc\n", 0}, {"\"PPC64LE\";\n", 0}, {"  (x86_64)\n", 1}, {"i686", 1}, {"ppc86", 0}};
    for (const auto& [name, family] : machines) {
        TuvLipoNode::setProcessorName(name);
        EXPECT_EQ(TuvLipoNode::processorArchitecture(), family) << name;
        EXPECT_EQ(TuvLipoNode::processorArchitectureToRemove(), 1 - family) << name;
    }
}

TEST_F(TuvLipoNodeTest, AnUnknownMachineIsAskedAgain) {
    TuvLipoNode::setProcessorName("aarch64\n");
    EXPECT_EQ(TuvLipoNode::processorArchitecture(), -1);
    EXPECT_EQ(TuvLipoNode::processorArchitectureToRemove(), -1);
    EXPECT_THAT(
        lines(),
        ElementsAre("info /usr/bin/uname -p returned [aarch64\n]", "error No idea what architecture this is !!!",
                    "info [aarch64] [-1]", "info [Unknown]", "info /usr/bin/uname -p returned [aarch64\n]",
                    "error No idea what architecture this is !!!", "info [aarch64] [-1]", "info [Unknown]"));
}

// The kernel's name of the machine stands in for a program that does not know it.
TEST_F(TuvLipoNodeTest, WhereTheProgramKnowsNothing) {
#if defined(__x86_64__) || defined(__i386__)
    constexpr int kFamily = 1;
#elif defined(__powerpc__)
    constexpr int kFamily = 0;
#else
    constexpr int kFamily = -1;
#endif
    for (const char* text : {"unknown\n", "", "\n"}) {
        TuvLipoNode::setProcessorName(text);
        EXPECT_EQ(TuvLipoNode::processorArchitecture(), kFamily) << text;
    }
    TuvLipoNode::setProcessorName(std::nullopt);
    EXPECT_EQ(TuvLipoNode::processorArchitecture(), kFamily) << "as this system answers";
}

TEST_F(TuvLipoNodeTest, IsMadeOfAScannedNode) {
    auto root = newFolder(1, "/root");
    auto made = newFile(2, "file", 100, 4096);
    made->setContentModDate(3e9);
    made->setFlags(made->flags() | TuvNode::kResolved);
    const TuvNode* scanned = addFile(root.get(), std::move(made));
    const auto node = make<TuvLipoNode>(const_cast<TuvNode*>(scanned));
    EXPECT_EQ(node->flags(), scanned->flags());
    EXPECT_EQ(node->inode(), 2u);
    EXPECT_EQ(node->contentModDate(), 3e9);
    EXPECT_EQ(node->logicalSize(), 100u);
    EXPECT_EQ(node->physicalSize(), 4096u);
    EXPECT_EQ(node->fileName(), "file");
    EXPECT_EQ(node->parent(), nullptr);
    root = nullptr;
    EXPECT_EQ(node->filePath(), "/root/file");
    EXPECT_TRUE(node->lipoInfo().isNull());
    EXPECT_EQ(node->lipoSize(), 0u);
}

TEST_F(TuvLipoNodeTest, LogsItsLife) {
    { const auto node = nodeWithTable("/a/file", {}); }
    EXPECT_THAT(lines(), ElementsAre("trace file=/a/file", "trace file=/a/file"));
}

TEST_F(TuvLipoNodeTest, SizesAreSums) {
    const auto one = nodeWithTable("/1", {{"ppc", "1000"}, {"ppc7400", "2000"}});
    const auto two = nodeWithTable("/2", {{"arm64", "5000000000"}, {"odd", "12 bytes"}, {"none", "many"}});
    EXPECT_EQ(one->lipoSize(), 3000u);
    EXPECT_EQ(two->lipoSize(), 5000000012u);
    auto both = make<TuvObjectArray>();
    both->addObject(one.get());
    both->addObject(two.get());
    EXPECT_EQ(TuvLipoNode::lipoSize(both.get()), 5000003012u);
}

TEST_F(TuvLipoNodeTest, RequestsForRemovalHoldOneFamily) {
    const auto node =
        nodeWithTable("/f", {{"ppc", "1"}, {"i386", "2"}, {"arm64", "3"}, {"ppc64", "4"}, {"x86_64", "5"}});
    log.clear();
    const PropertyList request = node->serializeForRemoval(0);
    EXPECT_EQ(*request.get("filePath")->string(), "/f");
    EXPECT_EQ(*request.get("archTypes"), PropertyList(PropertyList::Array{"ppc", "ppc64"}));
    EXPECT_EQ(request.dictionary()->size(), 2u);
    EXPECT_THAT(lines(), ElementsAre("debug [/f] [ppc, i386, arm64, ppc64, x86_64]"));
    EXPECT_EQ(*node->serializeForRemoval(1).get("archTypes"), PropertyList(PropertyList::Array{"i386", "x86_64"}));
    EXPECT_EQ(*node->serializeForRemoval(-1).get("archTypes"), PropertyList(PropertyList::Array()));
    EXPECT_EQ(*node->serializeForRemoval(2).get("archTypes"), PropertyList(PropertyList::Array()));
}

TEST_F(TuvLipoNodeTest, TheTableOfAFileLessTheMachinesOwn) {
    const std::string path = folder.write("tool", universalFile(kFourSlices));
    log.clear();
    const PropertyList table = TuvLipoNode::lipoInfo(path);
    PropertyList wanted = PropertyList::Dictionary();
    wanted.set("ppc", entryOf("ppc", "1000"));
    wanted.set("ppc7400", entryOf("ppc7400", "2000"));
    EXPECT_EQ(table, wanted);
    const std::vector<std::string> said = lines();
    ASSERT_EQ(said.size(), 11u);
    EXPECT_EQ(said[3].rfind("trace [" + path + "] [Fat header in: " + path + "\n", 0), 0u) << said[3];
    EXPECT_EQ(said[4], "trace architecture [ppc]");
    EXPECT_EQ(said[7], "trace architecture [x86_64]");
    EXPECT_EQ(said[8].rfind("trace [" + path + "] [{", 0), 0u) << said[8];
    EXPECT_EQ(said[9], "debug [" + path + "] [ppc, ppc7400, i386, x86_64]");
    EXPECT_EQ(said[10], "debug [" + path + "] [ppc, ppc7400]");
    TuvLipoNode::setProcessorName("powerpc");
    EXPECT_THAT(namesIn(TuvLipoNode::lipoInfo(path)), ElementsAre("i386", "x86_64"));
    TuvLipoNode::setProcessorName("aarch64");
    EXPECT_THAT(namesIn(TuvLipoNode::lipoInfo(path)), ElementsAre("ppc", "ppc7400", "i386", "x86_64"));
}

TEST_F(TuvLipoNodeTest, FilesWithoutATable) {
    EXPECT_THAT(namesIn(TuvLipoNode::lipoInfo(folder.path("none"))), IsEmpty());
    EXPECT_THAT(namesIn(TuvLipoNode::lipoInfo(folder.path())), IsEmpty());
    EXPECT_THAT(namesIn(TuvLipoNode::lipoInfo(folder.write("text", "architecture ppc\nsize 3\n"))), IsEmpty());
    EXPECT_THAT(namesIn(TuvLipoNode::lipoInfo(folder.write("cut", universalFile({kPPC}).substr(0, 5000)))), IsEmpty());
}

TEST_F(TuvLipoNodeTest, SomeNamesAreIgnored) {
    use(answeringTool);
    answer = "architecture ppc\n    size 3\n";
    EXPECT_TRUE(TuvLipoNode::shouldIgnoreLipoInfo("/a/TSLicense"));
    EXPECT_FALSE(TuvLipoNode::shouldIgnoreLipoInfo("/a/tslicense"));
    EXPECT_FALSE(TuvLipoNode::shouldIgnoreLipoInfo("/TSLicense/a"));
    EXPECT_THAT(namesIn(TuvLipoNode::lipoInfo("/x/TSLicense")), IsEmpty());
    EXPECT_THAT(asked, IsEmpty());
    EXPECT_THAT(lines(), ElementsAre("info [/a/TSLicense] will be ignored as it causes problems.",
                                     "info [/x/TSLicense] will be ignored as it causes problems."));
    EXPECT_THAT(namesIn(TuvLipoNode::lipoInfo("/x/other")), ElementsAre("ppc"));
    EXPECT_THAT(asked, ElementsAre(ElementsAre("-detailed_info", "/x/other")));
}

TEST_F(TuvLipoNodeTest, ReadsTheAnswerOfAnyTool) {
    use(answeringTool);
    const auto tableOf = [](const char* text) {
        answer = text;
        return TuvLipoNode::lipoInfo("/f");
    };
    EXPECT_THAT(namesIn(tableOf("")), IsEmpty());
    EXPECT_THAT(namesIn(tableOf("input file /f is not a fat file\nNon-fat file: /f is architecture: ppc\n")),
                IsEmpty());
    EXPECT_THAT(namesIn(tableOf(" architecture ppc\nsize 1\n")), IsEmpty()) << "it begins with a blank";
    EXPECT_EQ(tableOf("architecture ppc\n\t size 12 \n"),
              PropertyList(PropertyList::Dictionary{{"ppc", entryOf("ppc", "12")}}));
    EXPECT_EQ(tableOf("architecture ppc\nsize 12"),
              PropertyList(PropertyList::Dictionary{{"ppc", entryOf("ppc", "12")}}))
        << "no line end at the end";
    EXPECT_THAT(namesIn(tableOf("architecture ppc\n    offset 4096\n")), IsEmpty()) << "no size";
    EXPECT_EQ(tableOf("architecture ppc\narchitecture ppc64\n  size 9\n"),
              PropertyList(PropertyList::Dictionary{{"ppc", entryOf("ppc", "9")}}))
        << "the next size is its own";
    EXPECT_EQ(tableOf("architecture ppc\nsize 1\narchitecture arm\nsize 2\narchitecture ppc\nsize 3\n"),
              PropertyList(PropertyList::Dictionary{{"ppc", entryOf("ppc", "3")}, {"arm", entryOf("arm", "2")}}))
        << "a later entry replaces an earlier one";
    EXPECT_EQ(tableOf("architecture\nsize\narchitecture ppc\nsize 4\n"),
              PropertyList(PropertyList::Dictionary{{"", entryOf("", "")}, {"ppc", entryOf("ppc", "4")}}));
}

TEST_F(TuvLipoNodeTest, SystemFoldersAreLeftOutOnIntel) {
    const auto filtered = [this](const char* machine) {
        TuvLipoNode::setProcessorName(machine);
        auto nodes = make<TuvObjectArray>();
        for (const char* path : {"/System/Library/a", "/Applications/b", "/x/System/LibraryOld/c", "/system/library/d"})
            nodes->adoptObject(nodeWithTable(path, {}).leak());
        TuvLipoNode::processorArchitecture();
        log.clear();
        TuvLipoNode::filterSystemFolders(nodes.get());
        std::vector<std::string> paths;
        for (int i = 0; i < nodes->count(); ++i) paths.emplace_back(nodes->nodeAtIndex(i)->filePath());
        return paths;
    };
    EXPECT_THAT(filtered("i386"), ElementsAre("/Applications/b", "/system/library/d"));
    std::vector<std::string> said = lines();
    std::erase_if(said, [](const std::string& line) { return line.rfind("trace", 0) == 0; });
    EXPECT_THAT(said, ElementsAre("info 4", "info Exclude: /System/Library/a", "info Exclude: /x/System/LibraryOld/c",
                                  "info Excluded 2, 2 left"));
    EXPECT_EQ(filtered("powerpc").size(), 4u);
    EXPECT_EQ(filtered("aarch64").size(), 4u);
    log.clear();
    TuvLipoNode::filterSystemFolders(nullptr);
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(TuvLipoNodeTest, LinesStandUnderTheOperations) {
    use(answeringTool);
    answer = "architecture ppc\n size 5\n";
    auto nodes = make<TuvObjectArray>();
    {
        auto node = nodeWithTable("/a/f", {{"ppc", "5"}});
        node->serializeForRemoval(TuvLipoNode::kPowerPC);
        nodes->addObject(node.get());
    }
    TuvLipoNode::shouldIgnoreLipoInfo("/a/TSLicense");
    TuvLipoNode::lipoInfo("/a/f");
    TuvLipoNode::filterSystemFolders(nodes.get());
    nodes = nullptr;
    std::vector<std::string> selectors;
    for (const LogCapture::Line& line : log.lines())
        if (line.component == "TuvLipoNode" && (selectors.empty() || selectors.back() != line.selector))
            selectors.push_back(line.selector);
    EXPECT_THAT(selectors, ElementsAre("initWithNode:", "serializeForRemoval:", "shouldIgnoreLipoInfo:",
                                       "processorArchitecture", "lipoInfo:", "filterSystemFolders:", "~TuvLipoNode"));
}

}  // namespace
}  // namespace kavaro
