#include "platform/ProcessName.h"

#include <fcntl.h>

#include "platform/FileContent.h"

namespace kavaro {

std::string commandNameOfProcess(int process) {
    constexpr std::size_t kLongest = 256;
    std::string name;
    if (process <= 0 || readFileAtPath("/proc/" + std::to_string(process) + "/comm", kLongest, &name) != 0) return {};
    if (name.ends_with('\n')) name.pop_back();
    return name;
}

}  // namespace kavaro
