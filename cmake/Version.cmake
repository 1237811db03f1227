# What the version record says. One source file gets it, so that a new day does not rebuild the rest.
string(TIMESTAMP KAVARO_DAY "%Y-%m-%d" UTC)
math(EXPR KAVARO_NUMBER "${PROJECT_VERSION_MAJOR} * 10000 + ${PROJECT_VERSION_MINOR} * 100 + ${PROJECT_VERSION_PATCH}")
set(KAVARO_BUILD_COUNT "0" CACHE STRING "Build number of a release")
set_source_files_properties(src/support/Version.cpp PROPERTIES COMPILE_DEFINITIONS
  "KAVARO_BUILD_VERSION=\"${PROJECT_VERSION}\";KAVARO_BUILD_VERSION_NUMBER=\"${KAVARO_NUMBER}\";KAVARO_BUILD_COUNT=\"${KAVARO_BUILD_COUNT}\";KAVARO_BUILD_DAY=\"${KAVARO_DAY}\"")
