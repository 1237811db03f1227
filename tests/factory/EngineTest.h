#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "FakeCatalog.h"
#include "LogCapture.h"
#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "factory/FakeClock.h"
#include "factory/GatedCatalog.h"
#include "factory/PostedNotifications.h"
#include "factory/TuvNodeFactory.h"
#include "platform/RunLoop.h"

namespace kavaro {

// A test of the engine on a disk in memory (or on `disk`), with a clock that does not wait. There is one engine in a
// process and it never ends, so every test needs a process of its own, which ctest gives it.
class EngineTest : public testing::Test {
  protected:
    static constexpr double kPatience = 120;  // seconds until a test is taken to hang

    void SetUp() override {
        ASSERT_FALSE(TuvNodeFactory::hasSharedInstance())
            << "each test of the engine needs a process of its own: run them with ctest";
        useCatalog(fake);
    }
    void TearDown() override {
        if (!TuvNodeFactory::hasSharedInstance()) return;
        // Leaves the threads waiting for work.
        catalog->openAll();
        posted.onPost = nullptr;
        clock.go();
        engine()->stopSizing();
        ScanSession::setCatalogFactory({});
    }

    // The one engine, made by the first call. Its switches for debug and trace follow the log's level at that moment.
    TuvNodeFactory* engine(bool local = true) {
        if (!TuvNodeFactory::hasSharedInstance()) {
            TuvNodeFactory::setSurroundings({&clock, durations, &posted, workspace});
            TuvNodeFactory::sharedInstance()->setLocalWorker(local);
        }
        return TuvNodeFactory::sharedInstance();
    }
    void useCatalog(std::shared_ptr<Catalog> disk) {
        catalog = std::make_shared<GatedCatalog>(std::move(disk));
        ScanSession::setCatalogFactory([this](const std::string&) { return catalog; });
    }
    bool runUntil(const std::function<bool()>& done) { return RunLoop::main().runUntil(done, kPatience); }
    bool runUntilPosted(std::string_view name, int times = 1) {
        return runUntil([&, times] { return posted.count(name) >= times; });
    }
    // Runs one job to its end; false when it does not come to one.
    bool measure(const std::string& path) {
        const int before = posted.count("Completed");
        engine()->startWorkingAtPath(path);
        return runUntilPosted("Completed", before + 1);
    }
    // Runs the loop until no folder waits to be sized. The last one may not have been handed over by then.
    void waitUntilStackIsEmpty() {
        while (engine()->currentlyWorking()) RunLoop::main().runUntil([] { return false; }, 0.001);
    }

    // The engine's threads outlive the test: what they use is never destroyed.
    template <class T>
    static T& lasting() {
        static T& instance = *new T;
        return instance;
    }

    FakeClock& clock = lasting<FakeClock>();
    PostedNotifications& posted = lasting<PostedNotifications>();
    TuvNodeFactory::Durations durations{.setUpPause = 0};
    std::shared_ptr<FakeCatalog> fake = std::make_shared<FakeCatalog>();
    std::shared_ptr<GatedCatalog> catalog;
    Workspace* workspace = &Workspace::shared();
    TempFolder home;  // the user's, with his settings

  private:
    ScopedEnvironment _environment{"HOME", home.path()};
    ScopedEnvironment _settings{"XDG_CONFIG_HOME", home.path()};
};

}  // namespace kavaro
