#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "client/Measurement.h"
#include "client/TreeAssembler.h"
#include "platform/BusValue.h"

namespace kavaro {

// Follows one job through its notifications, from the Started one of its own path; what comes before that is of another
// job and ignored. Bytes that make no sense end the job with a failure and leave what was measured until then, and so
// does another client that starts a job of its own. One thread.
class NotificationReader {
  public:
    explicit NotificationReader(std::string path) : _path(std::move(path)) {}

    // A notification as the bus delivers it: object and userInfo. Of another object it is ignored.
    void read(std::string_view name, const std::vector<BusValue>& arguments);
    // The same, taken apart. `data` is null for notifications without.
    void read(std::string_view name, ByteView data);
    void readUnread(std::vector<std::string> folders, const std::vector<std::string>& reasons);

    bool hasEnded() const { return _completed || _stopped || !_failure.empty(); }
    bool isCompleted() const { return _completed; }  // and nothing is missing
    bool isStopped() const { return _stopped; }
    bool isReplaced() const { return _replaced; }  // by another client's job
    bool hasStarted() const { return _assembler.hasStarted(); }
    const std::string& failure() const { return _failure; }
    const TreeAssembler& assembler() const { return _assembler; }
    // Puts tree and unread folders into the measurement.
    void finish(Measurement& measurement);

  private:
    bool readStarted(ByteView data);
    bool readCompleted(ByteView data);
    void fail(const std::string& reason);
    void failUnreadable(std::string_view name);

    const std::string _path;
    TreeAssembler _assembler;
    std::vector<UnreadFolder> _unread;
    std::string _failure;
    bool _completed = false;
    bool _stopped = false;
    bool _replaced = false;
};

}  // namespace kavaro
