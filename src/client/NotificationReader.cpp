#include "client/NotificationReader.h"

#include "platform/Text.h"
#include "support/ProtocolNames.h"

namespace kavaro {

void NotificationReader::read(std::string_view name, const std::vector<BusValue>& arguments) {
    if (hasEnded() || arguments.size() < 2 || arguments[0].asString() != std::string(kNotificationObject)) return;
    const BusValue& userInfo = arguments[1];
    if (name == KavaroUnreadFoldersNotification) {
        auto folders = userInfo.get(kFoldersKey).asPaths();
        auto reasons = userInfo.get(kReasonsKey).asStrings();
        if (folders && reasons && folders->size() == reasons->size()) return readUnread(std::move(*folders), *reasons);
        if (hasStarted()) failUnreadable(name);
        return;
    }
    const BusValue serialized = userInfo.get(kSerializedKey);
    const auto data = serialized.asData();
    if (hasStarted() && !serialized.isNull() && !data) return failUnreadable(name);
    read(name, data ? data->view() : ByteView());
}

void NotificationReader::read(std::string_view name, ByteView data) {
    if (hasEnded()) return;
    bool understood = true;
    if (name == TuvNodeFactoryStartedNotification) {
        understood = readStarted(data);
    } else if (!hasStarted()) {
        return;
    } else if (name == TuvNodeFactoryResolvedNotification) {
        understood = !data.empty() && _assembler.resolved(data);
    } else if (name == TuvNodeFactoryCompletedNotification) {
        understood = readCompleted(data);
    } else if (name == TuvNodeFactoryStoppedNotification) {
        _stopped = true;
    }
    if (!understood) failUnreadable(name);
}

bool NotificationReader::readStarted(ByteView data) {
    TuvRef<TuvDirNode> root = TuvDirNode::fromBytes(data);
    if (!root) return false;
    if (root->fileName() == _path) {
        _assembler.start(std::move(root));
        _unread.clear();
    } else if (hasStarted()) {
        _replaced = true;
        fail(
            "another client has started a job of its own on the server. What arrived before is kept; run the command "
            "again.");
    }
    return true;
}

bool NotificationReader::readCompleted(ByteView data) {
    if (!_assembler.completed(data)) return false;
    _completed = _assembler.isComplete();
    if (!_completed) fail("some of what the server sent is missing. What arrived is kept; run the command again.");
    return true;
}

void NotificationReader::readUnread(std::vector<std::string> folders, const std::vector<std::string>& reasons) {
    if (!hasStarted()) return;
    for (std::size_t i = 0; i < folders.size() && i < reasons.size(); ++i)
        _unread.push_back({std::move(folders[i]), reasons[i]});
}

void NotificationReader::fail(const std::string& reason) {
    if (_failure.empty()) _failure = printable(_path) + ": " + reason;
}

void NotificationReader::failUnreadable(std::string_view name) {
    fail("the server sent data that cannot be read (" + std::string(name) +
         "). What arrived before is kept; run the command again.");
}

void NotificationReader::finish(Measurement& measurement) {
    measurement.root = _assembler.takeTree();
    measurement.unread = std::move(_unread);
    measurement.partial = !_completed;
    if (measurement.failure.empty()) measurement.failure = _failure;
}

}  // namespace kavaro
