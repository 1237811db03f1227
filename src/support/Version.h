#pragma once

namespace kavaro {

// Values of this build.
extern const char* const KAVARO_VERSION;         // "0.1.0"
extern const char* const KAVARO_VERSION_NUMBER;  // the same as a number, "100": major * 10000 + minor * 100 + patch
extern const char* const KAVARO_BUILD_NUMBER;    // counts builds of a release; "0" for builds from a checkout
extern const char* const KAVARO_BUILD_DATE;      // day of configuring, ISO form

}  // namespace kavaro
