#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "factory/TuvKavaroProxy.h"
#include "factory/TuvNodeFactory.h"
#include "platform/Clock.h"
#include "platform/RunLoop.h"
#include "server/CallAuthority.h"

namespace kavaro {

// The object that clients reach. Registers itself under the server's name, so that there is one server a bus, runs the
// main loop, watches by a timer whether a client is still there, and ends the process's work when the client is gone
// or a job has completed: one job, one server. Main thread.
class TuvNodeFactoryServer : public TuvKavaroProxy {
  public:
    // Seconds. Handed in, so that tests do not wait for them.
    struct Durations {
        double liveness = 360;
        double shutdownDelay = 0.1;
        double runSlice = 5.0;
    };
    struct Surroundings {
        Clock* clock = &Clock::system();
        Durations durations;
        TuvNodeFactory::Durations factoryDurations;
        std::string busKind = "session";  // what the default connection was opened as
    };
    // Takes effect for the next server that is made.
    static void setSurroundings(const Surroundings& surroundings);

    // The one server, made on the first call; null when another one answers or the name cannot be registered.
    static TuvNodeFactoryServer* sharedInstance();
    static bool isServerRunning();
    ~TuvNodeFactoryServer() override;

    bool configureServer();
    // Returns when the server has been shut down or a signal was caught.
    void runServer();
    // Returns at once. The server begins to go `shutdownDelay` later and waits as long again for what is under way.
    void shutdownServer(const std::string& sender) override;

    std::string_view localName() const override;
    std::string_view remoteName() const override;

    int timerCount() const { return _timerCount; }
    // The timer's number, for checking what a stale one does.
    RunLoop::TimerID timer() const { return _timer; }
    void _checkForUpdatesByTimer(RunLoop::TimerID timer);

  protected:
    std::string_view localPath() const override;
    std::string_view localIntrospection() const override;
    void receiveCall(const BusCall& call, const Bus::Answer& answer) override;
    BusReply handleCall(const BusCall& call) override;
    std::string_view remotePath() const override;
    std::string_view remoteInterface() const override;

  private:
    explicit TuvNodeFactoryServer(const Surroundings& surroundings);
    void _scheduleTimer();
    void _completedNode(const BusSignal& notification);
    void _shutdownServer(const std::string& sender);
    void leaveBus();

    // Remote commands (TuvNodeFactoryServer_commands.cpp).
    BusReply startWorkingAtPath(const BusCall& call);
    BusReply startWorkingAtPathParentInodes(const BusCall& call);
    BusReply prioritizeNodeWithInodePath(const BusCall& call);
    BusReply hasFileSytemChanged(const BusCall& call);
    BusReply stopSizing(const BusCall& call);
    BusReply moveToTrash(const BusCall& call);
    BusReply removeLocales(const BusCall& call);
    BusReply removeNibs(const BusCall& call);
    BusReply lipoNodesInfo(const BusCall& call);
    BusReply lipoNodes(const BusCall& call);
    BusReply fileDuplicatesHeader(const BusCall& call);
    BusReply shutdownServerCall(const BusCall& call);
    TuvNodeFactory* factory();

    const Surroundings _surroundings;
    std::unique_ptr<BusDistributedCenter> _distributedCenter;
    std::unique_ptr<CallAuthority> _authority;
    std::uint64_t _subscription = 0;
    bool _configureServer = false;
    RunLoop::TimerID _timer = 0;
    int _timerCount = 0;  // timers scheduled since the start, never reset
    bool _stopServer = false;
};

}  // namespace kavaro
