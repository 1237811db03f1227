#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/Environment.h"
#include "platform/Localization.h"
#include "platform/UserDefaults.h"
#include "server/RunMode.h"
#include "server/TuvNodeFactoryServer.h"
#include "support/TuvLog.h"

namespace kavaro {

namespace {

// Enough for what is on its way. What a slow bus or disk keeps from ending must not outlive its client.
constexpr unsigned kSecondsAfterSignal = 5;

// The bus: "-bus session" (default), "-bus system" or "-bus ADDRESS".
bool connect(std::string* kind) {
    *kind = UserDefaults::standard().stringForKey("bus").value_or("session");
    BusError error;
    std::shared_ptr<Bus> bus = Bus::open(*kind, &error);
    if (!bus) {
        TuvLog::error(nullptr, nullptr, "main() No connection to the bus \"%@\": %@", *kind, error.message);
        return false;
    }
    TuvKavaroProxy::setDefaultConnection(std::move(bus));
    return true;
}

void runServer() {
    RunLoop::main().catchTerminationSignals();
    RunLoop::leaveAfterSignal(kSecondsAfterSignal, 0);
    const bool isNormalProcess = runsAsNormalProcess();
    TuvLog::loadConfigFromPath(logConfigurationPath(executablePath()));
    chooseDataCollector();
    TuvLog::info(nullptr, nullptr, "main() Starting as %s ...",
                 isNormalProcess ? "normal process (not a daemon)" : "daemon");
    TuvLog::info(nullptr, nullptr, "main() *********************************************");
    TuvNodeFactoryServer::Surroundings surroundings;
    TuvNodeFactoryServer* server = nullptr;
    if (connect(&surroundings.busKind)) {
        TuvNodeFactoryServer::setSurroundings(surroundings);
        server = TuvNodeFactoryServer::sharedInstance();
    }
    if (!server) {
        TuvLog::info(nullptr, nullptr, "main() Could not create server instance.");
        return;
    }
    server->runServer();
}

}  // namespace

}  // namespace kavaro

int main(int count, char** arguments) {
    kavaro::UserDefaults::standard().setArguments({arguments + 1, arguments + count});
    kavaro::useUserLanguage();
    kavaro::runServer();
    // The engine's threads live as long as the process: nothing of it may be taken down under them.
    std::fflush(nullptr);
    _exit(0);
}
