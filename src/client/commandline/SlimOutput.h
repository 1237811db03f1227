#pragma once

#include "client/commandline/Color.h"
#include "client/commandline/Output.h"
#include "client/commandline/SlimOffer.h"

namespace kavaro {

// As people read it: what could go in all, then a line for each program with what goes of it, then what else it holds
// that this machine does not run. `isFamily`: what goes was not named, but is another family of processors.
void writeSlimOffer(Output& output, const SlimOffer& offer, bool isFamily, ColorDepth color);

// One JSON object without a line end:
//   path, programs, freed, seconds
// and, where they apply: pathRaw, partial (true), lowerBound (true), unread (path, pathRaw, reason each). Each program
// has
//   path, inode, logicalSize, physicalSize, modified, architectures (architecture, size, goes each), freed
// `freed` are bytes of the code that goes. xRaw is x in base64, there when x is not UTF-8.
void writeSlimOfferJson(Output& output, const SlimOffer& offer);

}  // namespace kavaro
