#include "client/commandline/Confirmation.h"

#include <gtest/gtest.h>

#include "client/commandline/CommandRun.h"

namespace kavaro {
namespace {

class Confirmation : public testing::Test {
  protected:
    void useTerminal() { run.context.canAsk = true; }
    // -1 for consent.
    int ask() { return askToGoAhead(options, run.context, "Do it?").value_or(-1); }

    CommandRun run;
    ConfirmOptions options;
};

TEST_F(Confirmation, IsGivenByAWord) {
    useTerminal();
    for (const char* word : {"y", "Y", "yes", "YES", " yes \t"}) {
        run.typed = word;
        EXPECT_EQ(ask(), -1) << word;
    }
    for (const char* word : {"", "n", "no", "yy", "yes please", "j"}) {
        run.typed = word;
        EXPECT_EQ(ask(), kExitFailed) << word;
    }
    EXPECT_EQ(run.asked, 11);
    EXPECT_NE(run.error().find("Do it? [y/N] "), std::string::npos);
    EXPECT_NE(run.error().find("kavaro: nothing was changed.\n"), std::string::npos);
}

TEST_F(Confirmation, WhatWasTypedBeforeTheQuestionIsNoAnswer) {
    useTerminal();
    ask();
    EXPECT_EQ(run.askedBeforeBegin, std::vector<int>{0});
}

TEST_F(Confirmation, TheEndOfInputIsNo) {
    useTerminal();
    EXPECT_EQ(ask(), kExitFailed);
    EXPECT_EQ(run.error(), "Do it? [y/N] \nkavaro: nothing was changed.\n");
}

// A signal during the question ends the process: nothing has been done.
TEST_F(Confirmation, ASignalEndsTheQuestion) {
    useTerminal();
    ask();
    EXPECT_EQ(run.leavesAtOnce, (std::vector<bool>{true, false}));
}

TEST_F(Confirmation, WithYesNobodyIsAsked) {
    options.yes = true;
    EXPECT_EQ(ask(), -1);
    useTerminal();
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(run.asked, 0);
    EXPECT_EQ(run.error(), "");
}

TEST_F(Confirmation, WithoutATerminalItIsWrongUsage) {
    EXPECT_EQ(ask(), kExitWrongUsage);
    EXPECT_EQ(run.asked, 0);
    EXPECT_NE(run.error().find("Give --yes to go ahead"), std::string::npos);
}

TEST_F(Confirmation, ADryRunIsNeverConsent) {
    options.dryRun = true;
    options.yes = true;
    useTerminal();
    EXPECT_EQ(ask(), kExitDone);
    EXPECT_EQ(run.asked, 0);
    EXPECT_EQ(run.error(), "kavaro: this was a dry run, nothing was changed.\n");
}

}  // namespace
}  // namespace kavaro
