#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kavaro {

// A program that this process started and that must not outlive it: the kernel sends it TERM when the starting thread
// ends, whatever ended it. Made, watched and destroyed on the main thread, which lives as long as the process.
// Destroying the object leaves the child running until then, its standard output closed.
// The child has no descriptor of ours but 0 to 2, standard input is /dev/null, and all signals are as for a new login.
class ChildProcess {
  public:
    struct Options {
        std::vector<std::string> arguments;                            // [0] is the program's absolute path
        std::vector<std::pair<std::string, std::string>> environment;  // set on top of ours
        std::string standardErrorPath;    // file that takes standard error (created for us alone, truncated);
                                          // empty: /dev/null; "-": ours
        bool readStandardOutput = false;  // makes readLine() work; otherwise standard output is /dev/null
        bool ownProcessGroup = true;      // a Ctrl-C at the terminal does not reach the child
    };
    // Null with the reason ("path: reason") when the program cannot be started. Returns when it runs.
    static std::unique_ptr<ChildProcess> start(const Options& options, std::string* error);
    ~ChildProcess();

    pid_t pid() const { return _pid; }
    // Reads one line of standard output, without its end, waiting at most `seconds`. What stands after the last line
    // end is a line, too. Nothing when the time is over or all is read.
    std::optional<std::string> readLine(double seconds);
    // True once the child has ended; then status text such as "exit status 1" or "signal 9" is in `how`.
    bool hasEnded(std::string* how = nullptr);
    void terminate();  // TERM to this one process
    void kill();       // KILL to this one process
    // Waits at most `seconds` for the end.
    bool waitForEnd(double seconds);

  private:
    friend std::optional<std::string> runAndRead(const std::string&, const std::vector<std::string>&);
    ChildProcess() = default;
    bool readMore(double seconds);  // false at the end and when the time is over

    pid_t _pid = -1;
    int _output = -1;
    std::string _pending;
    bool _ended = false;
    int _status = 0;
};

// Runs a program by absolute path without a shell and gives everything it wrote to standard output, whatever its exit
// status; nothing when it could not be started. Waits for its end. From any thread.
std::optional<std::string> runAndRead(const std::string& path, const std::vector<std::string>& arguments);

}  // namespace kavaro
