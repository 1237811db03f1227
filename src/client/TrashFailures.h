#pragma once

#include <string>
#include <vector>

#include "client/Measurement.h"
#include "platform/BusValue.h"

namespace kavaro {

// Adds what a notification about the Trash, as the bus delivers it, tells of paths that were not moved. The texts are
// made fit for a terminal.
void addTrashFailures(const std::vector<BusValue>& arguments, std::vector<CommandReply::PathFailure>* failures);

// The server's reason and, in brackets, what stood in the way, when that is known.
std::string trashReasonText(std::string reason, const std::string& detail);

}  // namespace kavaro
