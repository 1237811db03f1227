#include "server/RunMode.h"

#include "fsevents/TuvFSEvent.h"
#include "platform/Resources.h"
#include "platform/Text.h"
#include "platform/UserDefaults.h"

namespace kavaro {

std::string logConfigurationPath(const std::string& executablePath) {
    const std::string folder = resourcesFolder(executablePath);
    return folder.empty() ? folder : stringByAppendingPathComponent(folder, "TuvLog.plist");
}

bool runsAsNormalProcess() {
    return UserDefaults::standard().boolForKey("standardLog");
}

void chooseDataCollector() {
    if (UserDefaults::standard().boolForKey("runAsDataCollector")) TuvFSEvent::setRunAsDataCollector(true);
}

}  // namespace kavaro
