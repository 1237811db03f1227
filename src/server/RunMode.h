#pragma once

#include <string>

namespace kavaro {

// The log configuration that belongs to an executable. Its base folder is its path less three components: an installed
// "Kavaro.app" has Resources/TuvLog.plist, a checkout "trunk" Applications/Kavaro/TuvLog.plist; anything else none.
std::string logConfigurationPath(const std::string& executablePath);

// True when the default "standardLog" is there and YES: a normal process, otherwise a daemon.
bool runsAsNormalProcess();

// Hands the default "runAsDataCollector" on to the file-system events when it is YES.
void chooseDataCollector();

}  // namespace kavaro
