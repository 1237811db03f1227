#pragma once

#include <string>
#include <vector>

namespace kavaro {

// Stand-ins for programs that a system may lack: stringFromTask() calls one where no program can be run at its path.
// The room that owns a tool registers it before it asks for it, again and again if it likes. Any thread.

// What the program would write to standard output. Safe from any thread.
using BuiltInTool = std::string (*)(const std::vector<std::string>& arguments);

// A second tool under the same path takes the place of the first.
void registerBuiltInTool(const std::string& path, BuiltInTool tool);
// Null when there is none.
BuiltInTool builtInTool(const std::string& path);

}  // namespace kavaro
