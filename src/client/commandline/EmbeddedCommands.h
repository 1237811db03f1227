#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "client/Measurement.h"

namespace kavaro {

// A command of the server, done by the engine in this process, with the same arguments and values. Main thread.
CommandReply runEmbeddedCommand(std::string_view member, const std::vector<BusValue>& arguments,
                                const std::function<bool()>& interrupted);

}  // namespace kavaro
