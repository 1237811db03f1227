// The listener on a device that is no device.
#include "fsevents/TuvFSEvents.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>

#include "LogCapture.h"
#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "fsevents/EventRecording.h"
#include "fsevents/Records.h"
#include "platform/Thread.h"
#include "platform/UserDefaults.h"

namespace kavaro {
namespace {

using testing::ElementsAre;

// Gives one portion a read, an empty one for a read that gives nothing, and is gone after the last.
class FakeDevice : public EventDevice {
  public:
    explicit FakeDevice(std::vector<std::string> portions) : _portions(std::move(portions)) {}
    int read(std::uint8_t* buffer, int length, double) override {
        EXPECT_EQ(length, 32000);
        if (_next == _portions.size()) return 0;
        const std::string& portion = _portions[_next++];
        std::memcpy(buffer, portion.data(), portion.size());
        return static_cast<int>(portion.size());
    }
    std::uint32_t device() const override { return kTestDevice; }
    bool isGone() const override { return _next == _portions.size(); }
    int overflows() const override { return 0; }

  private:
    const std::vector<std::string> _portions;
    std::size_t _next = 0;
};

// Passes no time. Lets the thread that sleeps for longer than a tenth of a second wait until `opened`.
class GateClock : public Clock {
  public:
    double monotonicSeconds() override { return 0; }
    double wallSeconds() override { return 0; }
    void sleep(double seconds) override {
        if (seconds == 15) niceOfResolver = getpriority(PRIO_PROCESS, 0);  // of the thread
        if (seconds > 1) opened.wait(false);
        if (seconds == 0.01) ++shortPauses;
    }
    std::atomic<bool> opened{false};
    std::atomic<int> shortPauses{0};
    std::atomic<int> niceOfResolver{100};
};

// Settings of nobody.
class ListenerTest : public testing::Test {
  protected:
    void SetUp() override {
        UserDefaults::standard().setArguments({});
        TuvFSEvent::setAcceptedDevice(TuvFSEvent::kFirstDevice);
    }

  private:
    TempFolder _folder;
    ScopedEnvironment _settings{"XDG_CONFIG_HOME", _folder.path()};
};

TuvFSEvents::Surroundings surroundingsWith(Clock& clock, std::vector<std::string> portions, std::string* volume) {
    TuvFSEvents::Surroundings surroundings;
    surroundings.clock = &clock;
    surroundings.openDevice = [portions, volume](const std::string& path, EventDevice::Problem*) {
        *volume = path;
        return std::make_unique<FakeDevice>(portions);
    };
    return surroundings;
}

TEST_F(ListenerTest, readsUntilTheVolumeIsGone) {
    LogCapture log;
    UserDefaults::standard().setArguments({"-fsEventsVolume", "/volume"});
    // The resolving thread does not end before the process, nor does what it uses.
    GateClock& clock = *new GateClock;
    std::string volume;
    auto& listener = *new TuvFSEvents(surroundingsWith(
        clock, {kernelRecord(0, place("/a", 1)), "", kernelRecord(1, place("/b", 2)), "\xFF"}, &volume));
    std::thread device([&] { listener._listenForFSEventsTH(); });
    std::thread([&] { listener._resolveFSEventsTH(); }).detach();
    device.join();
    EXPECT_EQ(volume, "/volume");
    EXPECT_EQ(TuvFSEvent::acceptedDevice(), kTestDevice);
    EXPECT_EQ(clock.shortPauses, 1);
    EXPECT_EQ(listener.isListening(), 0);
    std::vector<std::string> lines;
    for (const LogCapture::Line& line : log.lines())
        if (line.selector == "_listenForFSEventsTH:") lines.push_back(line.text);
    EXPECT_THAT(
        lines, ElementsAre("", "listening ....", "The volume /volume has been unmounted: its changes are not followed.",
                           "completed"));
    ConditionLock& lock = *listener.eventLock();
    lock.lock();
    EXPECT_EQ(lock.condition(), 1);
    EXPECT_EQ(listener.events().count(), 2);
    lock.unlock();
    listener._resolveFSEventsTH();  // one thread a listener: another returns at once
    EXPECT_EQ(listener.eventLock(), &lock);
}

TEST_F(ListenerTest, withoutRightsTheServerGoesOn) {
    LogCapture log;
    TuvFSEvents::Surroundings surroundings;
    surroundings.openDevice = [](const std::string& volume, EventDevice::Problem* problem) {
        EXPECT_EQ(volume, "/");
        *problem = {"Operation not permitted", false, true};
        return nullptr;
    };
    TuvFSEvents listener(surroundings);
    listener._listenForFSEventsTH();
    EXPECT_EQ(listener.isListening(), 0);
    EXPECT_THAT(log.texts(),
                ElementsAre("", "Operation not permitted", "This code needs to run as administrator ...", "completed"));
    EXPECT_EQ(log.count(LogLevel::error, ""), 2);
}

TEST_F(ListenerTest, theRealDeviceWithoutRights) {
    const uid_t before = geteuid();
    ASSERT_TRUE(before != 0 || seteuid(65534) == 0);
    LogCapture log;
    TuvFSEvents listener;
    listener._listenForFSEventsTH();
    EXPECT_EQ(seteuid(before), 0);
    EXPECT_EQ(listener.isListening(), 0);
    EXPECT_THAT(log.texts(),
                ElementsAre("", "Operation not permitted", "This code needs to run as administrator ...", "completed"));
}

TEST_F(ListenerTest, aVolumeThatIsNotThereIsNoQuestionOfRights) {
    LogCapture log;
    UserDefaults::standard().setArguments({"-fsEventsVolume", "/none at all"});
    TuvFSEvents listener;
    listener._listenForFSEventsTH();
    EXPECT_EQ(listener.isListening(), 0);
    EXPECT_THAT(log.texts(), ElementsAre("", "/none at all: No such file or directory", "completed"));
}

void waitFor(const std::function<bool()>& done) {
    while (!done()) std::this_thread::yield();
}

TEST_F(ListenerTest, theResolvingThreadComesFirst) {
    LogCapture log(LogLevel::debug);
    TuvFSEvents::Surroundings surroundings;
    GateClock& clock = *new GateClock;  // as above
    surroundings.clock = &clock;
    auto& listener = *new TuvFSEvents(surroundings);
    std::thread([&] { listener._resolveFSEventsTH(); }).detach();
    waitFor([&] { return clock.niceOfResolver != 100; });
    int raised = 0;
    std::thread([&] {
        raiseThreadPriority();
        raised = getpriority(PRIO_PROCESS, 0);
    }).join();
    EXPECT_EQ(clock.niceOfResolver, raised);
    listener._resolveFSEventsTH();  // says nothing
    ASSERT_EQ(log.lines().size(), 2u);
    const LogCapture::Line first = log.lines()[0];
    EXPECT_EQ(first.level, LogLevel::debug);
    EXPECT_EQ(first.component, "TuvFSEvents");
    EXPECT_EQ(first.selector, "_resolveFSEventsTH:");
    EXPECT_THAT(log.texts(), ElementsAre("starting ...", "will sleep 15 seconds ..."));
}

// A device that stays, with nothing to tell.
class QuietDevice : public EventDevice {
  public:
    int read(std::uint8_t*, int, double) override {
        std::this_thread::yield();
        return 0;
    }
    std::uint32_t device() const override { return kTestDevice; }
    bool isGone() const override { return false; }
    int overflows() const override { return 0; }
};

TEST_F(ListenerTest, listensOnce) {
    LogCapture log;
    TuvFSEvents::Surroundings surroundings;
    std::atomic<bool>& mayOpen = *new std::atomic<bool>(false);
    surroundings.openDevice = [&](const std::string&, EventDevice::Problem* problem) -> std::unique_ptr<EventDevice> {
        if (mayOpen) return std::make_unique<QuietDevice>();
        problem->text = "not yet";
        return nullptr;
    };
    TuvFSEvents::setSurroundings(surroundings);
    TuvFSEvents& listener = *TuvFSEvents::sharedFSEvents();
    EXPECT_EQ(TuvFSEvents::sharedFSEvents(), &listener);
    // A start that failed leaves the flag at 0, so the next one starts anew.
    TuvFSEvents::startFSEvents();
    waitFor([&] { return log.contains("completed"); });
    EXPECT_EQ(listener.isListening(), 0);
    mayOpen = true;
    TuvFSEvents::startFSEvents();
    waitFor([&] { return listener.isListening() == 1; });
    EXPECT_FALSE(log.contains("already listening"));
    TuvFSEvents::startFSEvents();
    EXPECT_EQ(log.count(LogLevel::error, "already listening"), 1);
}

TEST_F(ListenerTest, aStartForgetsWhatAnEarlierOneLeft) {
    LogCapture log;
    TuvFSEvents::Surroundings surroundings;
    GateClock& clock = *new GateClock;  // as above; the resolving thread does not get past its first pause
    surroundings.clock = &clock;
    surroundings.openDevice = [](const std::string&, EventDevice::Problem*) { return nullptr; };
    auto& listener = *new TuvFSEvents(surroundings);
    listener.listenForFileChanges();
    waitFor([&] { return listener.eventLock() && log.contains("completed"); });
    ConditionLock& lock = *listener.eventLock();
    TuvFSEvent::setAcceptedDevice(kTestDevice);
    for (const std::uint32_t inode : {1u, 2u}) {
        TuvRef<TuvFSEvent> event = make<TuvFSEvent>(TuvFSEvent::intType("CREATE_FILE"));
        event->setInode(inode);
        event->setDevice(kTestDevice);
        event->setFilePath("/a");
        listener.addEvent(std::move(event));
    }
    lock.lock();
    EXPECT_EQ(listener.events().count(), 2);
    EXPECT_EQ(lock.condition(), 1);
    lock.unlock();
    listener.listenForFileChanges();
    lock.lock();
    EXPECT_EQ(listener.events().count(), 0);
    EXPECT_EQ(lock.condition(), 0);
    lock.unlock();
    waitFor([&] { return log.count("completed") == 2; });
    EXPECT_EQ(listener.eventLock(), &lock);
}

TEST_F(ListenerTest, aReplayNeedsTheNameOfARecording) {
    LogCapture log;
    UserDefaults::standard().setArguments({"-listenFromLogFile", "YES"});
    TuvFSEvents listener;
    listener._listenForFSEventsFromFileTH();
    EXPECT_THAT(log.texts(),
                ElementsAre("The default listenFromLogFileName is missing: it names the recording that is to be "
                            "replayed.",
                            "completed"));
    EXPECT_EQ(log.count(LogLevel::error, "listenFromLogFileName"), 1);
}

TEST_F(ListenerTest, aRecordingTakesThePlaceOfTheDevice) {
    LogCapture log;
    TempFolder temp;
    const std::string event = "\"; type=\"CREATE_FILE\"; device=\"234881044\"; filePath=\"/a\";";
    const std::string batch = "\n  index=\"0\"; eventBatch=\"begin\"; batchCount=\"1\"; ";
    const std::string end = "\n  index=\"0\"; eventBatch=\"end\"; batchCount=\"1\"; ";
    const std::string file =
        temp.write("recording", batch + "\n  index=\"0\";   inode=\"1" + event + end + batch +
                                    "\n  index=\"0\";   inode=\"2" + event + end + std::string(kRecordingEnd));
    UserDefaults::standard().setArguments({"-listenFromLogFile", "YES", "-listenFromLogFileName", file});
    TuvFSEvents::Surroundings surroundings;
    GateClock& clock = *new GateClock;  // as above
    surroundings.clock = &clock;
    clock.opened = true;
    surroundings.openDevice = [](const std::string&, EventDevice::Problem*) {
        ADD_FAILURE() << "the device was opened";
        return nullptr;
    };
    auto& listener = *new TuvFSEvents(surroundings);
    listener.listenForFileChanges();
    waitFor([&] { return log.contains("completed"); });
    EXPECT_FALSE(log.contains("will sleep 15"));
    EXPECT_GE(log.count("will sleep 0 seconds ..."), 1);
    EXPECT_EQ(log.count("got 1 items (1 top level added) for batch with 1 items"), 2);
    EXPECT_EQ(log.count(LogLevel::info, "completed"), 1);
    EXPECT_EQ(listener.isListening(), 0);
}

}  // namespace
}  // namespace kavaro
