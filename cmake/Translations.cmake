# kavaro_translations(): makes Kavaro.app/Resources/locale/LANGUAGE/LC_MESSAGES/kavaro.mo of every po/LANGUAGE.po,
# together with the programs.
find_program(MSGFMT_PROGRAM msgfmt)

function(kavaro_translations)
  if(NOT MSGFMT_PROGRAM)
    message(WARNING "msgfmt was not found (package gettext): built without translations")
    return()
  endif()
  set(catalogs "")
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/po/*.po)
  foreach(source IN LISTS sources)
    get_filename_component(language ${source} NAME_WE)
    set(folder ${CMAKE_BINARY_DIR}/Kavaro.app/Resources/locale/${language}/LC_MESSAGES)
    add_custom_command(OUTPUT ${folder}/kavaro.mo
      COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
      COMMAND ${MSGFMT_PROGRAM} --check-format --check-domain -o ${folder}/kavaro.mo ${source}
      DEPENDS ${source}
      COMMENT "Translations: ${language}" VERBATIM)
    list(APPEND catalogs ${folder}/kavaro.mo)
  endforeach()
  add_custom_target(translations ALL DEPENDS ${catalogs})
  foreach(program IN ITEMS kavaro kavarod)
    if(TARGET ${program})
      add_dependencies(${program} translations)
    endif()
  endforeach()
endfunction()
