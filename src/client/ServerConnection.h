#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/ServerLog.h"
#include "platform/Bus.h"
#include "platform/ChildProcess.h"
#include "platform/Text.h"

namespace kavaro {

// The client's place on a bus, and the server it talks to. Uses the given bus; where that is the session bus and there
// is none, or another client already holds the client name, it starts a bus of its own, so that two clients do not
// disturb each other. So it does for a server with arguments where one runs already, which would not heed them; on any
// other bus that is a failure. What it started ends with this process, whatever ends it. Main thread.
class ServerConnection {
  public:
    struct Options {
        bool hasOwnBus = false;                    // whatever `bus` says
        std::string bus = "session";               // "session", "system" or an address
        std::string serverProgram;                 // absolute path; empty: "kavarod" beside this program
        std::vector<std::string> serverArguments;  // "-key", "value", ...
        bool serverLogToStandardError = false;     // otherwise to a file in the state folder
        double answerSeconds = 10;                 // that a server has to say that it is there
    };
    using Interrupted = std::function<bool()>;
    // Null with a text for people when there is no way to a bus.
    static std::unique_ptr<ServerConnection> open(const Options& options, std::string* failure);
    ~ServerConnection();

    Bus& bus() { return *_bus; }
    bool isBusClosed() const { return _bus->isClosed(); }

    // Finds the server or starts one, and waits until it answers. False with a text for people, which is empty when
    // the wait was interrupted.
    bool ensureServer(const Interrupted& interrupted, std::string* failure);
    // Waits until the server has given its name back and its process is gone. One that this client started does not
    // outlive the wait.
    bool waitForServerEnd(double seconds, const Interrupted& interrupted);
    const std::string& server() const { return _server; }  // unique name, empty when there is none
    bool startedServer() const { return _serverProcess != nullptr; }
    // Ends the server that this client started without a word. For one that has done nothing.
    void dropServer();
    // The same in the middle of its work, and waits until it is gone. False when this client did not start it.
    bool killServer();
    int serverPid() const;  // 0 when this client did not start it
    // How the server that this client started ended, for people; empty while it runs or when it is not known.
    std::string serverEnd();
    // Where its log can be read, for people; empty when there is none. Only a log that was asked for is kept.
    std::string serverLogPath() { return printable(_serverLog.keep()); }

    void callAsync(std::string_view member, const std::vector<BusValue>& arguments, double seconds,
                   Bus::ReplyHandler handler);

  private:
    explicit ServerConnection(const Options& options) : _options(options) {}
    bool join(const std::string& kind, bool* nameTaken, std::string* failure);
    void leave();
    bool hasServerWithoutOurArguments();
    bool startPrivateBus(std::string* address, std::string* failure);
    bool findServer(const Interrupted& interrupted);
    bool startServer(const Interrupted& interrupted, std::string* failure);
    bool checkServer(const Interrupted& interrupted, std::string* failure);
    bool callAndWait(std::string_view destination, std::string_view path, std::string_view interface,
                     std::string_view member, const std::vector<BusValue>& arguments, const Interrupted& interrupted,
                     BusReply* reply);
    void endServerProcess();

    const Options _options;
    std::unique_ptr<ChildProcess> _busDaemon;  // before _bus: ends after it
    std::unique_ptr<ChildProcess> _serverProcess;
    std::unique_ptr<Bus> _bus;
    std::string _busAddress;  // what the server is told
    std::string _server;
    ServerLog _serverLog;
};

}  // namespace kavaro
