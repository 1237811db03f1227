#include "server/RunMode.h"

#include "fsevents/TuvFSEvent.h"
#include "platform/Text.h"
#include "platform/UserDefaults.h"

namespace kavaro {

std::string logConfigurationPath(const std::string& executablePath) {
    std::string base = executablePath;
    for (int i = 0; i < 3; ++i) base = stringByDeletingLastPathComponent(base);
    const std::string last = lastPathComponent(base);
    if (last == "Kavaro.app") return stringByAppendingPathComponent(base, "Resources/TuvLog.plist");
    if (last == "trunk") return stringByAppendingPathComponent(base, "Applications/Kavaro/TuvLog.plist");
    return {};
}

bool runsAsNormalProcess() {
    return UserDefaults::standard().boolForKey("standardLog");
}

void chooseDataCollector() {
    if (UserDefaults::standard().boolForKey("runAsDataCollector")) TuvFSEvent::setRunAsDataCollector(true);
}

}  // namespace kavaro
