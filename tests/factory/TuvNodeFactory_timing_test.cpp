// The engine's pauses and the lines of its debug and trace levels.
#include <gmock/gmock.h>

#include "factory/EngineTest.h"

namespace kavaro {
namespace {

using testing::Each;
using testing::ElementsAre;

class TuvNodeFactoryTiming : public EngineTest {
  protected:
    // Three folders, the root among them.
    void measureTree() {
        fake->addFolder("/r", 2);
        fake->addFolder("/r/a", 3);
        fake->addFolder("/r/b", 4);
        ASSERT_TRUE(measure("/r"));
    }
    static constexpr double kInterval = 0.15f;  // the interval is a float
};

TEST_F(TuvNodeFactoryTiming, theWorkerDoesNotPause) {
    LogCapture log;
    measureTree();
    EXPECT_THAT(clock.sleepsOf(FakeClock::kWorkerThread), ElementsAre());
    EXPECT_THAT(clock.sleepsOf(FakeClock::kNotificationThread), Each(kInterval));
    EXPECT_EQ(log.count(LogLevel::debug, ""), 0);
}

// One pause for each pass, ahead of it.
TEST_F(TuvNodeFactoryTiming, takesTheIntervalThatIsSet) {
    LogCapture log;
    clock.hold();
    engine();
    clock.waitUntilHeld();
    engine()->setNotificationInterval(0.25f);
    EXPECT_EQ(engine()->notificationInterval(), 0.25f);
    clock.pass();
    fake->addFolder("/r", 2);
    fake->addFolder("/r/a", 3);
    engine()->startWorkingAtPath("/r");
    ASSERT_TRUE(runUntilPosted("Resolved"));
    clock.waitUntilHeld();
    EXPECT_THAT(clock.sleepsOf(FakeClock::kNotificationThread), ElementsAre(kInterval, 0.25));
}

TEST_F(TuvNodeFactoryTiming, debugMakesPausesLonger) {
    LogCapture log(LogLevel::debug);
    durations.setUpPause = 1;
    measureTree();
    EXPECT_FLOAT_EQ(engine()->notificationInterval(), 0.5f);
    EXPECT_THAT(clock.sleepsOf(FakeClock::kNotificationThread), Each(0.5));
    EXPECT_THAT(clock.sleepsOf(FakeClock::kWorkerThread), ElementsAre(0.01, 0.01, 0.01));
    int starting = 0;
    for (const LogCapture::Line& line : log.lines())
        starting += line.level == LogLevel::debug && line.component == "TuvNodeFactory" && line.text == "starting ...";
    EXPECT_EQ(starting, 2) << "one for each thread";
    const int batches = posted.count("Resolved");
    int bytes = 0;
    for (const LogCapture::Line& line : log.lines())
        bytes += line.level == LogLevel::debug && line.component == "TuvNodeFactory" && line.text.ends_with(" bytes");
    EXPECT_EQ(bytes, batches);
    EXPECT_EQ(log.count(LogLevel::trace, ""), 0);
    engine()->stopSizing();
    EXPECT_EQ(log.count(LogLevel::debug, "stopping ..."), 1);
}

TEST_F(TuvNodeFactoryTiming, traceMakesThemLongerStill) {
    LogCapture log(LogLevel::trace);
    clock.hold(FakeClock::kWorkerThread);
    fake->addFolder("/r", 2);
    fake->addFolder("/r/a", 3);
    fake->addFolder("/r/b", 4);
    engine()->startWorkingAtPath("/r");
    clock.waitUntilHeld(FakeClock::kWorkerThread);
    for (int step = 2; step <= 4; ++step) {
        clock.pass(FakeClock::kWorkerThread);
        clock.waitUntilHeld(FakeClock::kWorkerThread);
    }
    // The root pushes its subfolders and is not resolved; then a, b and the root are. A pause after every step.
    EXPECT_THAT(clock.sleepsOf(FakeClock::kWorkerThread), ElementsAre(0.25, 0.01, 0.25, 0.01, 0.25, 0.01, 0.25));
    ASSERT_TRUE(runUntilPosted("Completed"));
    const std::vector<double> pauses = clock.sleepsOf(FakeClock::kNotificationThread);
    ASSERT_GE(pauses.size(), 2u);
    for (std::size_t i = 0; i < pauses.size(); ++i) EXPECT_EQ(pauses[i], i % 2 ? 1.75 : 0.5);
    EXPECT_EQ(log.count(LogLevel::trace, "[/r] working ..."), 2);
    EXPECT_EQ(log.count(LogLevel::trace, "[/r/a] working ..."), 1);
    EXPECT_EQ(log.count(LogLevel::trace, "[/r/b] working ..."), 1);
}

}  // namespace
}  // namespace kavaro
