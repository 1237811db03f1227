#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "cleanup/Bundles.h"
#include "model/ModelTest.h"
#include "model/TuvDirNode.h"

namespace kavaro {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::vector<std::string> lipoFilesOf(const Bundles& bundles) {
    return bundles.relative(*bundles.tree()->lipoFiles());
}

TEST(LipoFiles, ProgramsOfApplications) {
    Bundles bundles;
    for (const char* path :
         {"A.app/Contents/MacOS/A", "A.app/Contents/MacOS/helper", "A.app/Contents/MacOS/CodeResources",
          "A.app/Contents/MacOS/deeper/tool", "A.app/Contents/Resources/A", "A.app/MacOS/A", "A.APP/Contents/MacOS/A",
          "A/Contents/MacOS/A", "A.app/contents/MacOS/A", "A.app/Contents/macos/A", "app/Contents/MacOS/A",
          "B.old.app/Contents/MacOS/B"})
        bundles.file(path);
    EXPECT_THAT(lipoFilesOf(bundles), UnorderedElementsAre("A.app/Contents/MacOS/A", "A.app/Contents/MacOS/helper",
                                                           "B.old.app/Contents/MacOS/B"));
}

TEST(LipoFiles, Frameworks) {
    Bundles bundles;
    for (const char* path :
         {"F.framework/Versions/A/F", "F.framework/Versions/B/F", "F.framework/Versions/A/CodeResources",
          "F.framework/Versions/F", "F.framework/Versions/A/Headers/F.h", "F.framework/Versions/.svn/entries",
          "F.framework/Versions/CVS/Root", "F.framework/Versions/MacOS/F", "F.Framework/Versions/A/F",
          "F.framework/versions/A/F", "G.bundle/Versions/A/G"})
        bundles.file(path);
    EXPECT_THAT(lipoFilesOf(bundles), UnorderedElementsAre("F.framework/Versions/A/F", "F.framework/Versions/B/F"));
}

// The rule of applications holds for that name alone; a version may be named otherwise as it likes.
TEST(LipoFiles, FrameworksWithinApplications) {
    Bundles bundles;
    bundles.file("A.app/Contents/Frameworks/F.framework/Versions/Current one/F");
    bundles.file("A.app/Contents/MacOS/A");
    EXPECT_THAT(
        lipoFilesOf(bundles),
        UnorderedElementsAre("A.app/Contents/MacOS/A", "A.app/Contents/Frameworks/F.framework/Versions/Current one/F"));
}

TEST(LipoFiles, NamesAboveTheTreeCount) {
    Bundles bundles;
    bundles.file("A.app/Contents/MacOS/A");
    for (const char* root : {"A.app", "A.app/Contents", "A.app/Contents/MacOS"}) {
        TuvRef<TuvNode> node = TuvDirNode::loadFromPath(bundles.path(root));
        ASSERT_TRUE(node);
        auto* folder = static_cast<TuvDirNode*>(node.get());
        for (FolderWalk walk(folder); TuvDirNode* each = walk.next();) each->loadNodes();
        EXPECT_THAT(bundles.relative(*folder->lipoFiles()), ElementsAre("A.app/Contents/MacOS/A")) << root;
    }
}

TEST(LipoFiles, AreTheScannedNodes) {
    Bundles bundles;
    bundles.file("A.app/Contents/MacOS/A");
    const auto tree = bundles.tree();
    ModelLogs logs;
    const auto files = tree->lipoFiles();
    ASSERT_EQ(files->count(), 1);
    EXPECT_NE(files->nodeAtIndex(0)->parent(), nullptr);
    EXPECT_EQ(files->nodeAtIndex(0)->retainCount(), 2u);
    ASSERT_EQ(logs.lines().size(), 2u);
    EXPECT_EQ(logs.lines()[0], "TuvDirNode lipoFiles: " + bundles.path());
    EXPECT_TRUE(std::regex_match(logs.lines()[1], std::regex("TuvDirNode lipoFiles: 1 files, filtered files, in "
                                                             " *[0-9.]+ ms")))
        << logs.lines()[1];
    EXPECT_THAT(bundles.relative(*newFolder(1, "/empty")->lipoFiles()), IsEmpty());
}

}  // namespace
}  // namespace kavaro
