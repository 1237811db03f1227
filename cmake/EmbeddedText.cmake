# kavaro_embed_text(FILE VARIABLE SOURCE): writes the C++ file SOURCE that defines `const char* const VARIABLE` in
# namespace kavaro as the text of FILE.
function(kavaro_embed_text file variable source)
  file(READ ${file} text)
  file(CONFIGURE OUTPUT ${source} CONTENT
    "namespace kavaro {\nextern const char* const ${variable};\nconst char* const ${variable} = R\"text(@text@)text\";\n}  // namespace kavaro\n" @ONLY)
  set_property(DIRECTORY ${CMAKE_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
endfunction()
