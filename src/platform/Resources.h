#pragma once

#include <string>

namespace kavaro {

// Kavaro.app/Resources of the running program, in a build tree as where it is installed; empty for a program that lies
// in no Kavaro.app. Any thread.
std::string resourcesFolder();
// The folder that belongs to a program. Its base is the path less three components: an installed "Kavaro.app" has
// Resources, a checkout "trunk" Applications/Kavaro; anything else none.
std::string resourcesFolder(const std::string& executablePath);
// For programs that lie elsewhere, such as tests. Before the first use of anything that reads resources.
void setResourcesFolder(std::string folder);

}  // namespace kavaro
