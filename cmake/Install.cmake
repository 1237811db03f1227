# `cmake --install` puts the one folder Kavaro.app, the same as in the build tree, under the prefix (/opt unless said
# otherwise), and around it what lets the system find it (InstallSystem.cmake).
if(TARGET kavaro AND TARGET kavarod)
  install(TARGETS kavaro kavarod RUNTIME DESTINATION Kavaro.app/Contents/Linux)
  install(DIRECTORY ${CMAKE_BINARY_DIR}/Kavaro.app/Resources DESTINATION Kavaro.app OPTIONAL)
  install(CODE "set(KAVARO_PACKAGING \"${CMAKE_SOURCE_DIR}/packaging\")")
  install(SCRIPT ${CMAKE_SOURCE_DIR}/cmake/InstallSystem.cmake)
endif()
