#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Bus.h"
#include "platform/ChildProcess.h"

namespace kavaro {

// The client's place on a bus, and the server it talks to. Uses the given bus; where that is the session bus and there
// is none, or another client already holds the client name, it starts a bus of its own, so that two clients do not
// disturb each other. What it started ends with this process, whatever ends it. Main thread.
class ServerConnection {
  public:
    struct Options {
        std::string bus = "session";               // "session", "system" or an address
        std::string serverProgram;                 // absolute path; empty: "kavarod" beside this program
        std::vector<std::string> serverArguments;  // "-key", "value", ...
        bool serverLogToStandardError = false;     // otherwise to a file in the state folder
    };
    // Null with a text for people when there is no way to a bus.
    static std::unique_ptr<ServerConnection> open(const Options& options, std::string* failure);
    ~ServerConnection();

    Bus& bus() { return *_bus; }
    bool isBusClosed() const { return _bus->isClosed(); }

    // Finds the server or starts one, and waits until it has its name. False with a text for people.
    bool ensureServer(std::string* failure);
    // Finds a server that runs already. False when there is none.
    bool findServer();
    // Waits until the last server has given its name back, at most `seconds`.
    bool waitForServerEnd(double seconds);
    bool isServerGone() const { return _server.empty(); }
    const std::string& server() const { return _server; }  // unique name, empty when there is none
    int serverPid() const;                                 // 0 when this client did not start it
    // How the server that this client started ended, for people; empty while it runs or when it is not known.
    std::string serverEnd();
    const std::string& serverLogPath() const { return _serverLogPath; }

    BusReply call(std::string_view member, const std::vector<BusValue>& arguments, double seconds);
    void callAsync(std::string_view member, const std::vector<BusValue>& arguments, Bus::ReplyHandler handler);

  private:
    explicit ServerConnection(const Options& options) : _options(options) {}
    bool join(const std::string& kind, bool* nameTaken, std::string* failure);
    bool startPrivateBus(std::string* address, std::string* failure);
    bool startServer(std::string* failure);
    bool publishClient(std::string* failure);

    const Options _options;
    std::unique_ptr<ChildProcess> _busDaemon;  // before _bus: ends after it
    std::unique_ptr<ChildProcess> _serverProcess;
    std::unique_ptr<Bus> _bus;
    std::string _busAddress;  // what the server is told
    std::string _server;
    std::string _serverLogPath;
};

}  // namespace kavaro
