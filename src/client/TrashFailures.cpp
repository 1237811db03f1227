#include "client/TrashFailures.h"

#include "platform/Text.h"
#include "support/ProtocolNames.h"

namespace kavaro {

void addTrashFailures(const std::vector<BusValue>& arguments, std::vector<CommandReply::PathFailure>* failures) {
    if (arguments.size() < 2 || arguments[0].asString() != kNotificationObject) return;
    const auto errors = arguments[1].get(kErrorsKey).asDictionaries();
    if (!errors) return;
    for (const BusValue::Dictionary& error : *errors) {
        CommandReply::PathFailure failure;
        std::string reason, detail;
        for (const auto& [key, value] : error) {
            if (key == kPathNameKey) failure.path = value.asPath().value_or("");
            if (key == kReasonKey) reason = printable(value.asString().value_or(""));
            if (key == kDetailKey) detail = printable(value.asString().value_or(""));
        }
        failure.reason = trashReasonText(std::move(reason), detail);
        failures->push_back(std::move(failure));
    }
}

std::string trashReasonText(std::string reason, const std::string& detail) {
    while (reason.ends_with('.')) reason.pop_back();
    return detail.empty() ? reason : reason + " (" + detail + ")";
}

}  // namespace kavaro
