#include "client/Slimming.h"

#include <gmock/gmock.h>

namespace kavaro {
namespace {

using testing::ElementsAre;

// Answers commands by a function, and keeps how many files each was about.
class AnsweringSource : public MeasurementSource {
  public:
    Measurement measure(const std::string&, const Callbacks&) override { return {}; }
    CommandReply command(std::string_view member, const std::vector<BusValue>& arguments,
                         const std::function<bool()>& interrupted) override {
        members.emplace_back(member);
        counts.push_back(arguments.at(0).asDictionaries().value().size());
        return answer(arguments.at(0), interrupted);
    }
    std::function<CommandReply(const BusValue&, const std::function<bool()>&)> answer;
    std::vector<std::string> members;
    std::vector<std::size_t> counts;
};

class SlimmingTest : public testing::Test {
  protected:
    SlimmingTest() {
        callbacks.interrupted = [this] {
            ++asked;
            return isInterrupted;
        };
        callbacks.progress = [this](std::size_t done) { progress.push_back(done); };
        source.answer = [](const BusValue& argument, const std::function<bool()>&) {
            LipoTables tables;
            for (const LipoQuestion& file : lipoQuestionsIn(argument).value_or(std::vector<LipoQuestion>())) {
                EXPECT_EQ(file.filePath, "/f" + std::to_string(file.inode));
                if (file.inode % 2 == 0) continue;
                const PropertyList entry = PropertyList::Dictionary{{"architecture", "ppc"}, {"size", "7"}};
                tables[file.inode] = PropertyList::Dictionary{{"ppc", entry}};
            }
            CommandReply reply;
            reply.values = {busValueOf(tables)};
            return reply;
        };
    }
    static std::vector<LipoQuestion> questions(std::uint32_t count) {
        std::vector<LipoQuestion> files;
        for (std::uint32_t i = 0; i < count; ++i) files.push_back({i, "/f" + std::to_string(i)});
        return files;
    }
    static CommandReply failing(const char* failure) {
        CommandReply reply;
        reply.failure = failure;
        return reply;
    }

    AnsweringSource source;
    SlimmingCallbacks callbacks;
    std::vector<std::size_t> progress;
    bool isInterrupted = false;
    int asked = 0;
};

TEST_F(SlimmingTest, TablesComeInPortions) {
    const SlimmingOutcome outcome = askArchitectures(source, questions(1100), callbacks);
    EXPECT_TRUE(outcome.ok()) << outcome.failure;
    EXPECT_EQ(outcome.tables.size(), 550u);
    EXPECT_EQ(*outcome.tables.at(1099).get("ppc")->get("size")->string(), "7");
    EXPECT_EQ(outcome.sent, 1100u);
    EXPECT_THAT(source.counts, ElementsAre(500, 500, 100));
    EXPECT_THAT(source.members, testing::Each("lipoNodesInfo"));
    EXPECT_THAT(progress, ElementsAre(500, 1000, 1100));
}

TEST_F(SlimmingTest, NothingIsAskedForNothing) {
    EXPECT_TRUE(askArchitectures(source, {}, callbacks).ok());
    EXPECT_TRUE(removeArchitectures(source, {}, callbacks).ok());
    EXPECT_TRUE(source.members.empty());
}

TEST_F(SlimmingTest, FilesAreRewrittenInPortions) {
    std::vector<LipoRemoval> sent;
    source.answer = [&](const BusValue& argument, const std::function<bool()>&) {
        for (const LipoRemoval& file : lipoRemovalsIn(argument).value_or(std::vector<LipoRemoval>()))
            sent.push_back(file);
        return CommandReply();
    };
    std::vector<LipoRemoval> files;
    for (int i = 0; i < 25; ++i) files.push_back({"/f" + std::to_string(i), {"ppc", "ppc64"}});
    const SlimmingOutcome outcome = removeArchitectures(source, files, callbacks);
    EXPECT_TRUE(outcome.ok()) << outcome.failure;
    EXPECT_EQ(sent, files);
    EXPECT_THAT(source.counts, ElementsAre(10, 10, 5));
    EXPECT_THAT(source.members, testing::Each("lipoNodes"));
    EXPECT_THAT(progress, ElementsAre(10, 20, 25));
}

TEST_F(SlimmingTest, AFailureEndsIt) {
    source.answer = [&](const BusValue&, const std::function<bool()>&) { return failing("it is gone."); };
    const SlimmingOutcome outcome = askArchitectures(source, questions(1100), callbacks);
    EXPECT_EQ(outcome.failure, "it is gone.");
    EXPECT_EQ(outcome.sent, 500u);
    EXPECT_EQ(source.counts.size(), 1u);
    EXPECT_TRUE(progress.empty());
}

TEST_F(SlimmingTest, AnswersThatMakeNoSense) {
    for (const std::vector<BusValue>& values :
         {std::vector<BusValue>(), std::vector<BusValue>{BusValue::string("yes")}}) {
        source.answer = [&](const BusValue&, const std::function<bool()>&) {
            CommandReply reply;
            reply.values = values;
            return reply;
        };
        EXPECT_EQ(askArchitectures(source, questions(1), callbacks).failure,
                  "the server's answer makes no sense. It may be another version of kavarod.");
    }
}

TEST_F(SlimmingTest, QuestionsCanBeInterrupted) {
    source.answer = [&](const BusValue&, const std::function<bool()>& interrupted) {
        isInterrupted = true;
        CommandReply reply;
        reply.interrupted = interrupted();
        return reply;
    };
    const SlimmingOutcome outcome = askArchitectures(source, questions(1100), callbacks);
    EXPECT_TRUE(outcome.interrupted);
    EXPECT_EQ(source.counts.size(), 1u);
}

// What is being rewritten is waited for.
TEST_F(SlimmingTest, RemovalsEndBetweenCalls) {
    source.answer = [&](const BusValue&, const std::function<bool()>& interrupted) {
        isInterrupted = true;
        asked = 0;
        EXPECT_FALSE(interrupted());
        EXPECT_EQ(asked, 1) << "the second signal must get its chance";
        return CommandReply();
    };
    const SlimmingOutcome outcome =
        removeArchitectures(source, std::vector<LipoRemoval>(25, {"/f", {"ppc"}}), callbacks);
    EXPECT_TRUE(outcome.interrupted);
    EXPECT_EQ(outcome.sent, 10u);
    EXPECT_THAT(source.counts, ElementsAre(10));
}

}  // namespace
}  // namespace kavaro
