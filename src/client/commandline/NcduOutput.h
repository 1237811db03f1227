#pragma once

#include "client/Measurement.h"
#include "client/commandline/Output.h"

namespace kavaro {

// Writes the whole tree in ncdu's JSON form, version 1.2: own sizes (folders have none), bytes of names as they are.
// `ino` is left out for IDs that are not the file system's own. `timestamp`: seconds since 1970. Needs no stack for
// depth. REQUIRES: measurement.root.
void writeNcdu(Output& output, const Measurement& measurement, double timestamp);

}  // namespace kavaro
