#pragma once

#include <string>

namespace kavaro {

// The short name (at most 15 bytes) of a running process's command; empty when there is no such process. Any thread.
std::string commandNameOfProcess(int process);

}  // namespace kavaro
