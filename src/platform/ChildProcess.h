#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kavaro {

// A program that this process started and that must not outlive it: the kernel sends it TERM when the starting
// thread's process ends, whatever ended it. Made, watched and destroyed on the main thread. Destroying the object
// leaves the child running (until this process ends).
class ChildProcess {
  public:
    struct Options {
        std::vector<std::string> arguments;                            // [0] is the path of the program
        std::vector<std::pair<std::string, std::string>> environment;  // set on top of ours
        std::string standardErrorPath;    // file that takes standard error (created, truncated); empty: /dev/null;
                                          // "-": ours
        bool readStandardOutput = false;  // makes readLine() work; otherwise standard output is /dev/null
        bool ownProcessGroup = true;      // a Ctrl-C at the terminal does not reach the child
    };
    // Null with the reason ("path: reason") when the program cannot be started.
    static std::unique_ptr<ChildProcess> start(const Options& options, std::string* error);
    ~ChildProcess();

    pid_t pid() const { return _pid; }
    // Reads one line of standard output, waiting at most `seconds`.
    std::optional<std::string> readLine(double seconds);
    // True once the child has ended; then status text such as "exit status 1" or "signal 9" is in `how`.
    bool hasEnded(std::string* how = nullptr);
    void terminate();  // TERM to this one process
    void kill();       // KILL to this one process
    // Waits at most `seconds` for the end.
    bool waitForEnd(double seconds);

  private:
    ChildProcess() = default;
    pid_t _pid = -1;
    int _output = -1;
    std::string _pending;
    bool _ended = false;
    int _status = 0;
};

// Runs a program by absolute path without a shell and gives everything it wrote to standard output; nothing when it
// could not be started. Waits for its end.
std::optional<std::string> runAndRead(const std::string& path, const std::vector<std::string>& arguments);

}  // namespace kavaro
