#pragma once

#include <string>

namespace kavaro {

// The log configuration that belongs to an executable: its resource "TuvLog.plist". Empty when it has no resources.
std::string logConfigurationPath(const std::string& executablePath);

// True when the default "standardLog" is there and YES: a normal process, otherwise a daemon.
bool runsAsNormalProcess();

// Hands the default "runAsDataCollector" on to the file-system events when it is YES.
void chooseDataCollector();

}  // namespace kavaro
