#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "TempFolder.h"

namespace kavaro {

// A message bus of the test's own: a dbus-daemon with the limits of a session bus, its socket in a folder of its own.
// It ends with this object, or with the thread that made it.
class PrivateBus {
  public:
    PrivateBus() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            ADD_FAILURE() << "pipe: errno " << errno;
            return;
        }
        const std::string listen = "--address=unix:path=" + _folder.path("bus");
        const std::string print = "--print-address=" + std::to_string(ends[1]);
        const pid_t parent = getpid();
        _pid = fork();
        if (_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent) _exit(1);
            fcntl(ends[1], F_SETFD, 0);
            execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog", listen.c_str(),
                   print.c_str(), nullptr);
            _exit(127);
        }
        close(ends[1]);
        readAddress(ends[0]);
        close(ends[0]);
        if (_address.empty()) ADD_FAILURE() << "dbus-daemon does not start";
    }
    ~PrivateBus() { end(); }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& address() const { return _address; }
    // Ends the bus as a crash would and waits until it is gone.
    void end() {
        if (_pid <= 0) return;
        kill(_pid, SIGKILL);
        while (waitpid(_pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        _pid = -1;
    }
    // While suspended it reads nothing.
    void suspend() { kill(_pid, SIGSTOP); }
    void resume() { kill(_pid, SIGCONT); }

  private:
    void readAddress(int fd) {
        char byte = 0;
        while (true) {
            ssize_t count = read(fd, &byte, 1);
            if (count < 0 && errno == EINTR) continue;
            if (count != 1 || byte == '\n') return;
            _address += byte;
        }
    }

    TempFolder _folder;
    std::string _address;
    pid_t _pid = -1;
};

}  // namespace kavaro
