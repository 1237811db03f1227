#include "client/NotificationReader.h"

#include "platform/Text.h"
#include "support/ProtocolNames.h"

namespace kavaro {

void NotificationReader::read(std::string_view name, const std::vector<BusValue>& arguments) {
    if (arguments.size() < 2 || arguments[0].asString() != std::string(kNotificationObject)) return;
    const BusValue& userInfo = arguments[1];
    if (name == KavaroUnreadFoldersNotification) {
        auto folders = userInfo.get(kFoldersKey).asPaths();
        auto reasons = userInfo.get(kReasonsKey).asStrings();
        if (folders && reasons && folders->size() == reasons->size()) return readUnread(std::move(*folders), *reasons);
        return fail(name);
    }
    const BusValue serialized = userInfo.get(kSerializedKey);
    const auto data = serialized.asData();
    if (!serialized.isNull() && !data) return fail(name);
    read(name, data ? data->view() : ByteView());
}

void NotificationReader::read(std::string_view name, ByteView data) {
    if (hasEnded()) return;
    bool understood = true;
    if (name == TuvNodeFactoryStartedNotification) {
        understood = _assembler.started(data);
    } else if (name == TuvNodeFactoryResolvedNotification) {
        understood = _assembler.hasStarted() && _assembler.resolved(data);
    } else if (name == TuvNodeFactoryCompletedNotification) {
        understood = _assembler.hasStarted() && _assembler.completed(data);
        _completed = understood;
    } else if (name == TuvNodeFactoryStoppedNotification) {
        _stopped = true;
    }
    if (!understood) fail(name);
}

void NotificationReader::readUnread(std::vector<std::string> folders, const std::vector<std::string>& reasons) {
    for (std::size_t i = 0; i < folders.size(); ++i) _unread.push_back({std::move(folders[i]), reasons[i]});
}

void NotificationReader::fail(std::string_view name) {
    if (!_failure.empty()) return;
    _failure = printable(_path) + ": the server sent data that cannot be read (" + std::string(name) +
               "). What arrived before is kept; run the command again.";
}

void NotificationReader::finish(Measurement& measurement) {
    measurement.root = _assembler.takeTree();
    measurement.unread = std::move(_unread);
    measurement.partial = !_completed;
    if (measurement.failure.empty()) measurement.failure = _failure;
}

}  // namespace kavaro
