#pragma once

#include <string>

namespace kavaro {

// The log of a server that this client starts: a file in the user's state folder that has no name until it is kept, so
// that nothing is left of it whatever ends the client. On a file system that knows no such files it has its name from
// the beginning. Main thread.
class ServerLog {
  public:
    // `startsNameless` false: as on a file system that knows no files without a name.
    explicit ServerLog(bool startsNameless = true) : _startsNameless(startsNameless) {}
    ServerLog(const ServerLog&) = delete;
    ServerLog& operator=(const ServerLog&) = delete;
    ~ServerLog();

    // A path by which this process can open it for the next server; empty where none can be made. A log that was kept
    // is left alone, the next server gets another.
    std::string open();
    // Gives it its name, kavarod.PID.log or kavarod.PID.NUMBER.log, and returns the path; empty without a log.
    std::string keep();

  private:
    void forget();

    const bool _startsNameless;
    std::string _path;
    int _number = 0;
    int _fd = -1;
    bool _hasName = false;
    bool _isKept = false;
};

}  // namespace kavaro
