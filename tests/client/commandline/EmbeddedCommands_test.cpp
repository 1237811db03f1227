#include "client/commandline/EmbeddedCommands.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "ScopedEnvironment.h"
#include "TempFolder.h"

namespace kavaro {
namespace {

bool never() {
    return false;
}

TEST(EmbeddedCommands, GiveWhatTheServerGives) {
    TempFolder temp;
    temp.write("file", "content");
    const CommandReply reply = runEmbeddedCommand("hasFileSytemChanged", {BusValue::path(temp.path())}, never);
    ASSERT_TRUE(reply.ok()) << reply.failure;
    ASSERT_EQ(reply.values.size(), 1u);
    const auto node = reply.values[0].asData();
    ASSERT_TRUE(node);
    const std::string bytes(reinterpret_cast<const char*>(node->view().data()), node->view().size());
    EXPECT_NE(bytes.find("file"), std::string::npos);
}

TEST(EmbeddedCommands, MovesToTheTrashTellWhatFailed) {
    TempFolder temp;
    const ScopedEnvironment home("HOME", temp.makeFolder("home"));
    const ScopedEnvironment data("XDG_DATA_HOME", temp.path("data"));
    const std::string file = temp.write("odd \n\xff", "");
    const std::string absent = temp.path("absent");
    const CommandReply reply = runEmbeddedCommand("moveToTrash", {BusValue::paths({file, absent})}, never);
    EXPECT_TRUE(reply.ok()) << reply.failure;
    ASSERT_EQ(reply.failures.size(), 1u);
    EXPECT_EQ(reply.failures[0].path, absent);
    EXPECT_EQ(reply.failures[0].reason, "Could not load node form path");
    EXPECT_EQ(access(file.c_str(), F_OK), -1);
    EXPECT_EQ(access(temp.path("data/Trash/files/odd \n\xff").c_str(), F_OK), 0);
}

TEST(EmbeddedCommands, RemovalsRemove) {
    TempFolder temp;
    for (const char* name : {"en.lproj", "fr.lproj"}) temp.makeFolder(name);
    const std::string nib = temp.write("info.nib", "");
    EXPECT_TRUE(runEmbeddedCommand("removeLocales", {BusValue::paths({temp.path("fr.lproj")})}, never).ok());
    EXPECT_TRUE(runEmbeddedCommand("removeNibs", {BusValue::paths({nib})}, never).ok());
    EXPECT_EQ(access(temp.path("fr.lproj").c_str(), F_OK), -1);
    EXPECT_EQ(access(nib.c_str(), F_OK), -1);
    EXPECT_EQ(access(temp.path("en.lproj").c_str(), F_OK), 0);
}

TEST(EmbeddedCommands, SayWhatTheyDoNotKnow) {
    const CommandReply reply = runEmbeddedCommand("fly", {}, never);
    EXPECT_EQ(reply.failure, "the engine in this process has no command fly.");
    EXPECT_FALSE(reply.ok());
}

TEST(EmbeddedCommands, ASignalMeanwhileIsTold) {
    TempFolder temp;
    const CommandReply reply =
        runEmbeddedCommand("hasFileSytemChanged", {BusValue::path(temp.path())}, [] { return true; });
    EXPECT_TRUE(reply.interrupted);
    EXPECT_FALSE(reply.values.empty());
}

}  // namespace
}  // namespace kavaro
