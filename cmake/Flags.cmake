# kavaro_flags_of_countries(): makes Kavaro.app/Resources/48_countryName, together with the programs, out of the
# distribution's flag pictures (package iso-flags-png-320x240). Where they are missing the folder stays empty, and the
# build says so. Made again only when a picture, the list of names or the tool changed.
find_path(FLAG_PICTURES_FOLDER fr.png PATHS /usr/share/iso-flags-png-320x240 NO_DEFAULT_PATH)

function(kavaro_flags_of_countries)
  set(pictures "")
  set(folder "")
  if(FLAG_PICTURES_FOLDER)
    set(folder ${FLAG_PICTURES_FOLDER})
    file(GLOB pictures CONFIGURE_DEPENDS ${folder}/*.png)
  endif()
  # Without the project's flags: it runs during the build, where a sanitizer may not be able to.
  add_executable(make_flags ${CMAKE_SOURCE_DIR}/tools/make_flags.cpp ${CMAKE_SOURCE_DIR}/src/platform/Picture.cpp)
  target_include_directories(make_flags PRIVATE ${CMAKE_SOURCE_DIR}/src)
  target_link_libraries(make_flags PRIVATE PkgConfig::PIXBUF PkgConfig::GLIB PkgConfig::ICU)
  set_target_properties(make_flags PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tools)

  set(names ${CMAKE_SOURCE_DIR}/tools/flagNames.txt)
  set(stamp ${CMAKE_BINARY_DIR}/tools/flags.stamp)
  add_custom_command(OUTPUT ${stamp}
    COMMAND make_flags "${folder}" ${names} ${CMAKE_BINARY_DIR}/Kavaro.app/Resources/48_countryName
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    DEPENDS make_flags ${names} ${pictures}
    COMMENT "Flags" VERBATIM)
  add_custom_target(flags ALL DEPENDS ${stamp})
  foreach(program IN ITEMS kavaro kavarod)
    if(TARGET ${program})
      add_dependencies(${program} flags)
    endif()
  endforeach()
endfunction()
