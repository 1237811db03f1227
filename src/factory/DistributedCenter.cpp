#include "factory/DistributedCenter.h"

#include <algorithm>

#include "platform/BusPropertyList.h"
#include "support/ProtocolNames.h"

namespace kavaro {

namespace {

BusValue errorsOf(const std::vector<TrashError>& errors) {
    std::vector<BusValue::Dictionary> all;
    for (const TrashError& error : errors) {
        BusValue::Dictionary entries{{std::string(kReasonKey), BusValue::string(error.reason)},
                                     {std::string(kPathNameKey), BusValue::path(error.pathName)},
                                     {std::string(kAttributesKey), busValueOf(error.attributes)}};
        if (!error.detail.empty()) entries.emplace_back(kDetailKey, BusValue::string(error.detail));
        all.push_back(std::move(entries));
    }
    return BusValue::dictionaries(all);
}

BusValue dictionaryOf(const NotificationUserInfo& userInfo) {
    BusValue::Dictionary entries;
    if (userInfo.serialized) entries.emplace_back(kSerializedKey, BusValue::data(userInfo.serialized->view()));
    if (userInfo.parentInodes) entries.emplace_back(kParentInodesKey, BusValue::uint32s(*userInfo.parentInodes));
    if (userInfo.folders) {
        entries.emplace_back(kFoldersKey, BusValue::paths(*userInfo.folders));
        entries.emplace_back(kReasonsKey, BusValue::strings(userInfo.reasons));
    }
    if (userInfo.errors) entries.emplace_back(kErrorsKey, errorsOf(*userInfo.errors));
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
