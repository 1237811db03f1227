#include "client/commandline/EmbeddedCommands.h"

#include <gtest/gtest.h>

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
