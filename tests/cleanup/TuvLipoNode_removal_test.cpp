#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "LogCapture.h"
#include "TempFolder.h"
#include "cleanup/LipoLog.h"
#include "cleanup/LipoTool.h"
#include "cleanup/TuvLipoNode.h"
#include "cleanup/UniversalFile.h"
#include "platform/FileDescriptor.h"
#include "support/BuiltInTools.h"

namespace kavaro {
namespace {

using testing::ElementsAre;

std::vector<std::string> asked;

// A tool that leaves the file to the user with all permissions, as the real one may.
std::string carelessTool(const std::vector<std::string>& arguments) {
    asked = arguments;
    chmod(arguments[0].c_str(), 0777);
    if (geteuid() == 0) {
        EXPECT_EQ(chown(arguments[0].c_str(), 0, 0), 0);
    }
    return "whatever it says";
}

std::string removingTool(const std::vector<std::string>& arguments) {
    unlink(arguments[0].c_str());
    return {};
}

// The file becomes another name of one that must not change.
std::string linkingTool(const std::vector<std::string>& arguments) {
    unlink(arguments[0].c_str());
    EXPECT_EQ(link((arguments[0] + " precious").c_str(), arguments[0].c_str()), 0);
    return {};
}

class LipoRemovalTest : public testing::Test {
  protected:
    LipoRemovalTest() {
        tuvLipoNodeLog.forget();
        registerLipoTool();
    }
    ~LipoRemovalTest() override {
        registerBuiltInTool(kLipoPath, lipoTool);
        tuvLipoNodeLog.forget();
    }
    std::vector<std::string> lines() const {
        static constexpr const char* kLevels[] = {"trace", "debug", "info", "error", "off"};
        std::vector<std::string> lines;
        for (const LogCapture::Line& line : log.lines())
            lines.push_back(std::string(kLevels[static_cast<int>(line.level)]) + " " + line.text);
        return lines;
    }
    static struct stat statusOf(const std::string& path) {
        struct stat info {};
        EXPECT_EQ(lstat(path.c_str(), &info), 0);
        return info;
    }

    TempFolder folder;
    LogCapture log{LogLevel::debug};
};

TEST_F(LipoRemovalTest, RemovesTheNamedOnes) {
    const std::string path = folder.write("tool", universalFile(kFourSlices));
    chmod(path.c_str(), 0751);
    const std::string oldSize = std::to_string(statusOf(path).st_size);
    TuvLipoNode::lipoNode(path, {"ppc7400", "ppc"});
    EXPECT_EQ(folder.read("tool"), universalFile({kI386, kX86_64}));
    EXPECT_EQ(statusOf(path).st_mode, S_IFREG | 0751u);
    EXPECT_THAT(lines(), ElementsAre("debug [" + path + "] \"ppc7400, ppc\"",
                                     "info Removed [ppc7400, ppc] from \"" + path + "\"",
                                     testing::MatchesRegex("info No changes in permissions \\[\\{ .*NSFileSize = " +
                                                           oldSize + "; .*\\}\\] to \".*\"")));
    EXPECT_THAT(lines().back(), testing::Not(testing::HasSubstr("NSFilePosixPermissions")));
}

TEST_F(LipoRemovalTest, LinesStandUnderTheOperation) {
    TuvLipoNode::lipoNode(folder.write("tool", universalFile(kFourSlices)), {"ppc"});
    for (const LogCapture::Line& line : log.lines()) {
        EXPECT_EQ(line.component, "TuvLipoNode") << line.text;
        EXPECT_EQ(line.selector, "lipoNode:archTypes:") << line.text;
    }
}

TEST_F(LipoRemovalTest, AnEmptyListIsRefused) {
    registerBuiltInTool(kLipoPath, carelessTool);
    asked.clear();
    const std::string path = folder.write("tool", universalFile(kFourSlices));
    TuvLipoNode::lipoNode(path, {});
    EXPECT_THAT(lines(),
                ElementsAre("debug [" + path + "] \"\"", "error No architecture to remove for \"" + path + "\""));
    EXPECT_TRUE(asked.empty());
    EXPECT_EQ(folder.read("tool"), universalFile(kFourSlices));
}

TEST_F(LipoRemovalTest, OwnerGroupAndModeAreAsBefore) {
    registerBuiltInTool(kLipoPath, carelessTool);
    const std::string path = folder.write("tool", "x");
    const bool isRoot = geteuid() == 0;
    if (isRoot) {
        ASSERT_EQ(chown(path.c_str(), 1234, 2345), 0);
    }
    ASSERT_EQ(chmod(path.c_str(), 04750), 0);
    const struct stat before = statusOf(path);
    TuvLipoNode::lipoNode(path, {"ppc"});
    EXPECT_THAT(asked, ElementsAre(path, "-remove", "ppc", "-output", path));
    const struct stat after = statusOf(path);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    const std::string changes = isRoot ? "{ NSFileOwnerAccountID = 1234; NSFilePosixPermissions = 2536; "
                                         "NSFileGroupOwnerAccountID = 2345; }"
                                       : "{ NSFilePosixPermissions = 2536; }";
    EXPECT_EQ(lines().back(), "info Did reset permissions to original [" + changes + "] to \"" + path + "\"");
}

TEST_F(LipoRemovalTest, EachArchitectureIsAnOptionOfTheTool) {
    registerBuiltInTool(kLipoPath, carelessTool);
    const std::string path = folder.write("tool", "x");
    TuvLipoNode::lipoNode(path, {"ppc", "ppc64", "arm"});
    EXPECT_THAT(asked, ElementsAre(path, "-remove", "ppc", "-remove", "ppc64", "-remove", "arm", "-output", path));
}

TEST_F(LipoRemovalTest, AFileThatIsGone) {
    const std::string path = folder.write("tool", universalFile(kFourSlices));
    registerBuiltInTool(kLipoPath, removingTool);
    TuvLipoNode::lipoNode(path, {"ppc"});
    EXPECT_EQ(lines().back().rfind("error Could not reset permissions to original [{ NSFileOwnerAccountID = ", 0), 0u);
    log.clear();
    TuvLipoNode::lipoNode(path, {"ppc"});
    EXPECT_EQ(lines().back(), "info No changes in permissions [{ }] to \"" + path + "\"");
}

// As root it would otherwise give away files of others.
TEST_F(LipoRemovalTest, NothingElseGetsTheAttributes) {
    const std::string precious = folder.write("tool precious", "x");
    ASSERT_EQ(chmod(precious.c_str(), 0600), 0);
    const std::string path = folder.write("tool", "x");
    ASSERT_EQ(chmod(path.c_str(), 0777), 0);
    registerBuiltInTool(kLipoPath, linkingTool);
    TuvLipoNode::lipoNode(path, {"ppc"});
    EXPECT_EQ(statusOf(precious).st_mode, S_IFREG | 0600u);
    EXPECT_EQ(lines().back(),
              "error Could not reset permissions to original [{ NSFilePosixPermissions = 511; }] to \"" + path + "\"");
}

// A folder on the way becomes a link to one outside, again and again: nothing there may change.
TEST_F(LipoRemovalTest, NoLinkIsFollowedThatComesMeanwhile) {
    folder.makeFolder("outside");
    folder.makeFolder("inside");
    const std::string outside = folder.write("outside/tool", universalFile(kFourSlices));
    const std::string path = folder.path("inside/tool");
    ASSERT_EQ(chmod(outside.c_str(), 0640), 0);
    const struct stat before = statusOf(outside);
    ASSERT_EQ(symlink("outside", folder.path("link").c_str()), 0);
    std::atomic<bool> ends{false};
    std::thread swapper([&] {
        const std::pair<const char*, const char*> moves[] = {
            {"inside", "aside"}, {"link", "inside"}, {"inside", "link"}, {"aside", "inside"}};
        while (!ends)
            for (const auto& [from, to] : moves) rename(folder.path(from).c_str(), folder.path(to).c_str());
    });
    int done = 0;
    for (int i = 0; i < 1000 && done < 20; ++i) {
        folder.write("fresh", universalFile(kFourSlices));
        // Wherever the folder is now. A file that went through a link would be outside.
        for (const char* name : {"inside", "aside"}) {
            const FileDescriptor place(open(folder.path(name).c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (place.isOpen()) renameat(AT_FDCWD, folder.path("fresh").c_str(), place.get(), "tool");
        }
        log.clear();
        TuvLipoNode::lipoNode(path, {"ppc", "ppc7400"});
        if (log.count(LogLevel::error, "") == 0) ++done;
    }
    ends = true;
    swapper.join();
    EXPECT_GT(done, 0);
    const struct stat after = statusOf(outside);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_ctim.tv_sec, before.st_ctim.tv_sec);
    EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
    EXPECT_EQ(folder.read("outside/tool"), universalFile(kFourSlices));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path("outside")), {}), 1);
}

// The line that tells of the removal comes whether or not it worked; the tool's own says why not.
TEST_F(LipoRemovalTest, AFailedRemovalLeavesTheFile) {
    const std::string path = folder.write("tool", universalFile({kPPC, kI386}));
    TuvLipoNode::lipoNode(path, {"ppc", "i386"});
    EXPECT_EQ(folder.read("tool"), universalFile({kPPC, kI386}));
    EXPECT_THAT(lines(), ElementsAre("debug [" + path + "] \"ppc, i386\"",
                                     "error \"" + path + "\": no architecture would be left",
                                     "info Removed [ppc, i386] from \"" + path + "\"",
                                     "info No changes in permissions [{ }] to \"" + path + "\""));
}

}  // namespace
}  // namespace kavaro
