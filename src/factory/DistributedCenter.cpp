#include "factory/DistributedCenter.h"

#include <algorithm>

#include "support/ProtocolNames.h"

namespace kavaro {

namespace {

BusValue dictionaryOf(const NotificationUserInfo& userInfo) {
    BusValue::Dictionary entries;
    if (userInfo.serialized) entries.emplace_back(kSerializedKey, BusValue::data(userInfo.serialized->view()));
    if (userInfo.parentInodes) entries.emplace_back(kParentInodesKey, BusValue::uint32s(*userInfo.parentInodes));
    if (userInfo.folders) {
        entries.emplace_back(kFoldersKey, BusValue::paths(*userInfo.folders));
        entries.emplace_back(kReasonsKey, BusValue::strings(userInfo.reasons));
    }
    return BusValue::dictionary(entries);
}

}  // namespace

bool BusDistributedCenter::post(std::string_view name, std::string_view object, const NotificationUserInfo& userInfo,
                                std::string* error) {
    const std::vector<BusValue> arguments{BusValue::string(object), dictionaryOf(userInfo)};
    std::vector<std::string> destinations = _receivers;
    if (!_addressed)
        destinations = {std::string()};
    else if (name == TuvNodeFactoryCompletedNotification)
        destinations.push_back(_bus->uniqueName());
    bool posted = true;
    for (const std::string& destination : destinations) {
        BusError failure;
        if (_bus->emit(destination, bus::kNotificationPath, bus::kNotificationInterface, name, arguments, &failure))
            continue;
        posted = false;
        *error = failure.message;
    }
    return posted;
}

void BusDistributedCenter::addressOnly() {
    _addressed = true;
}

void BusDistributedCenter::addReceiver(std::string_view uniqueName) {
    if (std::find(_receivers.begin(), _receivers.end(), uniqueName) != _receivers.end()) return;
    if (_receivers.size() >= kManyReceivers) hasReceivers();
    _receivers.emplace_back(uniqueName);
}

bool BusDistributedCenter::hasReceivers() {
    std::erase_if(_receivers, [this](const std::string& receiver) { return _bus->nameOwner(receiver).empty(); });
    return !_receivers.empty();
}

}  // namespace kavaro
