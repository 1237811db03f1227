#pragma once

#include <string>

namespace kavaro {

// What the user's desktop does for programs. Main thread. Tests put their own in its place.
class Workspace {
  public:
    virtual ~Workspace() = default;

    // Moves an entry of a folder to the Trash. Success is true and a *tag of 0 or more; otherwise *reason says why, for
    // people, without a full stop. The folder's path is absolute and holds no link.
    virtual bool recycle(const std::string& folder, const std::string& name, int* tag, std::string* reason) = 0;
    // A run of operations is over. Programs that show folders learn of each change from the kernel; what was held open
    // for the run is let go.
    virtual void noteFileSystemChanged() = 0;

    // The real one.
    static Workspace& shared();
};

}  // namespace kavaro
