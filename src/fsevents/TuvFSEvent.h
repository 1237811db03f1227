#pragma once

namespace kavaro {

// Changes of the file system. What there is so far is the switch that the process's entry sets before anything listens.
class TuvFSEvent {
  public:
    // Any thread. Set: events that cancel each other out are kept, so that a record of all of them is collected.
    static void setRunAsDataCollector(bool flag);
    static bool runAsDataCollector();
};

}  // namespace kavaro
