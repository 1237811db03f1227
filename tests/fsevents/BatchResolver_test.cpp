#include "fsevents/BatchResolver.h"

#include <thread>

#include "EventTest.h"
#include "LogCapture.h"

namespace kavaro {
namespace {

using testing::ElementsAre;

class BatchResolverTest : public testing::Test {
  protected:
    void add(TuvRef<TuvFSEvent> event) { TuvFSEvent::addEvent(event.leak(), &events, &lock); }
    void look(BatchResolver& resolver) {
        resolver.setLooks([this](const TuvObjectArray& batch) { taken.push_back(textsOf(batch)); },
                          [this](const TuvObjectArray& batch) { coalesced.push_back(textsOf(batch)); });
    }

    WaitingEvents events;
    ConditionLock lock{0};
    PauseClock clock;
    std::vector<std::vector<std::string>> taken;
    std::vector<std::vector<std::string>> coalesced;
};

TEST_F(BatchResolverTest, PausesThenTakesAll) {
    BatchResolver resolver(events, lock, clock, BatchResolver::kLive);
    look(resolver);
    add(newEvent("DELETE", 2, "/a"));
    clock.during = [this](double) { add(newEvent("DELETE", 1, "/a/b")); };  // during the pause
    EXPECT_TRUE(resolver.step());
    EXPECT_THAT(clock.sleeps(), ElementsAre(15.0));
    EXPECT_THAT(taken, ElementsAre(ElementsAre("DELETE 1 /a/b", "DELETE 2 /a")));
    EXPECT_THAT(coalesced, ElementsAre(ElementsAre("DELETE 2 /a")));
    EXPECT_EQ(events.count(), 0);
    EXPECT_EQ(lock.condition(), 0);
}

TEST_F(BatchResolverTest, AllPassesRun) {
    BatchResolver resolver(events, lock, clock, BatchResolver::kSimulation);
    look(resolver);
    add(newEvent("CREATE_DIR", 1, "/a"));
    add(newEvent("CREATE_FILE", 2, "/a/b"));
    add(newEvent("CREATE_FILE", 3, "/c"));
    add(newEvent("MODIFIED", 3, "/c"));
    add(newEvent("CREATE_FILE", 4, "/d"));
    add(newEvent("DELETE", 4, "/d"));
    EXPECT_TRUE(resolver.step());
    EXPECT_THAT(clock.sleeps(), ElementsAre(0.1));
    EXPECT_THAT(coalesced, ElementsAre(ElementsAre("CREATE_DIR 1 /a", "UPDATED 3 /c")));
}

TEST_F(BatchResolverTest, ACollectorCoalescesNothing) {
    CollectorMode collector;
    LogCapture capture;
    BatchResolver resolver(events, lock, clock, BatchResolver::kSimulation);
    look(resolver);
    add(newEvent("CREATE_FILE", 1, "/a"));
    add(newEvent("DELETE", 1, "/a"));
    EXPECT_TRUE(resolver.step());
    EXPECT_THAT(coalesced, ElementsAre(ElementsAre("CREATE_FILE 1 /a [DELETE 1 /a]")));
    EXPECT_FALSE(capture.contains("items"));
}

TEST_F(BatchResolverTest, WhatItSays) {
    LogCapture capture(LogLevel::trace);
    BatchResolver resolver(events, lock, clock, BatchResolver::kLive);
    add(newEvent("CREATE_FILE", 1, "/a"));
    capture.clear();
    EXPECT_TRUE(resolver.step());
    EXPECT_THAT(clock.sleeps(), ElementsAre(15.0, 0.25));
    std::vector<std::string> texts;
    int debugEvents = 0;
    for (const LogCapture::Line& line : capture.lines()) {
        if (line.component == "TuvFSEvents") texts.push_back(line.selector + " " + line.text);
        if (line.selector == "debugEvents" && line.text == "1 items") ++debugEvents;
    }
    EXPECT_THAT(texts, ElementsAre("_resolveFSEventsTH: will sleep 15 seconds ...",
                                   "_resolveFSEventsTH: 1 events -------------------------"));
    EXPECT_EQ(debugEvents, 2);
    EXPECT_EQ(capture.count(LogLevel::info, "1 items, 0 child items, in "), 1);
}

TEST_F(BatchResolverTest, ASimulationSaysNoPause) {
    LogCapture capture;
    BatchResolver resolver(events, lock, clock, BatchResolver::kSimulation);
    add(newEvent("CREATE_FILE", 1, "/a"));
    EXPECT_TRUE(resolver.step());
    EXPECT_EQ(capture.count("will sleep 0 seconds ..."), 1);
}

TEST_F(BatchResolverTest, SleepsOnTheLockUntilSomethingComes) {
    BatchResolver resolver(events, lock, clock, BatchResolver::kLive);
    look(resolver);
    std::thread thread([&] { resolver.run(); });
    while (lock.waitingThreads() == 0) std::this_thread::yield();
    EXPECT_EQ(clock.sleeps().size(), 1u);
    add(newEvent("CREATE_FILE", 1, "/a"));
    while (clock.sleeps().size() < 2 || lock.waitingThreads() == 0) std::this_thread::yield();
    resolver.end();
    thread.join();
    EXPECT_THAT(taken, ElementsAre(ElementsAre("CREATE_FILE 1 /a")));
    EXPECT_FALSE(resolver.step());
}

// Two threads and the lock between them: nothing is lost, nothing comes twice.
TEST_F(BatchResolverTest, EventsThatComeWhileBatchesAreHandled) {
    BatchResolver resolver(events, lock, clock, BatchResolver::kLive);
    int handled = 0;
    resolver.setLooks([&](const TuvObjectArray& batch) { handled += batch.count(); }, {});
    std::thread thread([&] { resolver.run(); });
    constexpr std::uint32_t kEvents = 20000;
    for (std::uint32_t inode = 0; inode < kEvents; ++inode) add(newEvent("CREATE_FILE", inode, "/a"));
    while (lock.condition() != 0 || lock.waitingThreads() == 0) std::this_thread::yield();
    resolver.end();
    thread.join();
    EXPECT_EQ(handled, static_cast<int>(kEvents));
}

}  // namespace
}  // namespace kavaro
