#pragma once

#include "platform/BusValue.h"
#include "platform/PropertyList.h"

namespace kavaro {

// A property list as a value of the bus: bool b, integer x, double d, string s, data ay, date d (seconds since 1970),
// array av, dictionary a{sv}. Nulls inside are left out, and so is what lies more than 30 containers deep, which a bus
// would refuse. No value for null.
BusValue busValueOf(const PropertyList& value);

}  // namespace kavaro
