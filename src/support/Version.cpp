#include "support/Version.h"

namespace kavaro {

const char* const KAVARO_VERSION = KAVARO_BUILD_VERSION;
const char* const KAVARO_VERSION_NUMBER = KAVARO_BUILD_VERSION_NUMBER;
const char* const KAVARO_BUILD_NUMBER = KAVARO_BUILD_COUNT;
const char* const KAVARO_BUILD_DATE = KAVARO_BUILD_DAY;

}  // namespace kavaro
