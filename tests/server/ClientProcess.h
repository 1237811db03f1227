#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/Bus.h"
#include "platform/RunLoop.h"
#include "support/ProtocolNames.h"

namespace kavaro {

// A client on the bus, in a process of its own: the server's question waits for the answer without running the loop.
// Made while this process has no other thread. Ends with this object, or with the thread that made it.
class ClientProcess {
  public:
    explicit ClientProcess(const std::string& address) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            ADD_FAILURE() << "pipe: errno " << errno;
            return;
        }
        const pid_t parent = getpid();
        _pid = fork();
        if (_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent) _exit(1);
            serve(address, ends[1]);
            _exit(0);
        }
        close(ends[1]);
        char byte = 0;
        while (read(ends[0], &byte, 1) < 0 && errno == EINTR) {
        }
        close(ends[0]);
        if (byte != 'r') ADD_FAILURE() << "the client does not start";
    }
    ~ClientProcess() { end(); }
    ClientProcess(const ClientProcess&) = delete;
    ClientProcess& operator=(const ClientProcess&) = delete;

    void end() {
        if (_pid <= 0) return;
        kill(_pid, SIGKILL);
        while (waitpid(_pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        _pid = -1;
    }

  private:
    static void serve(const std::string& address, int ready) {
        BusError error;
        const auto bus = Bus::open(address, &error);
        const auto answer = [](const BusCall&) {
            return BusReply{{BusValue::dictionary({{"version", BusValue::string("1")}})}, {}};
        };
        if (!bus ||
            !bus->publish(bus::kClientPath,
                          "<node><interface name='org.kavaro.Kavaro.Client'><method name='versionInfo'>"
                          "<arg type='a{sv}' direction='out'/></method></interface></node>",
                          answer, &error) ||
            !bus->requestName(bus::kClientName, &error))
            return;
        if (write(ready, "r", 1) == 1) RunLoop::main().runUntil([] { return false; }, 1e6);
    }

    pid_t _pid = -1;
};

}  // namespace kavaro
