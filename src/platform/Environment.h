#pragma once

#include <cstdint>
#include <string>

namespace kavaro {

std::string executablePath();  // absolute path of the running program; empty when unknown
// Absolute path of an open file or folder as it is named now, or where it last was; empty for none, for what has no
// place in the file system, and for a path longer than the kernel tells.
std::string pathOfDescriptor(int fd);
std::string homeFolder();  // HOME, else the user database's; empty when neither is known
// A folder of the user's by the desktop's rules: the variable's value when it is an absolute path, else the one named
// below the home folder; empty without a home.
std::string baseFolder(const char* variable, const char* belowHome);
std::string stateFolder();  // $XDG_STATE_HOME/kavaro, ~/.local/state/kavaro; empty without a home
std::string cacheFolder();  // $XDG_CACHE_HOME/kavaro, ~/.cache/kavaro; likewise
std::string environmentVariable(const char* name);  // empty when unset
bool isTerminal(int fd);
int terminalColumns(int fd);                    // 0 when fd is no terminal, 80 for one that does not know its size
std::uint64_t peakMemoryOfProcess(int pid);     // VmHWM in bytes, 0 when unknown; pid 0: this process
std::uint64_t currentMemoryOfProcess(int pid);  // VmRSS in bytes, likewise
std::string errorText(int code);                // English text of an errno value

}  // namespace kavaro
