# Flags that every target of the project gets.
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # The tests' precompiled header is one file for all: what a source defines before it counts, not when it was made.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()

add_library(kavaro_flags INTERFACE)
target_compile_options(kavaro_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align -Wundef
  $<$<BOOL:${KAVARO_WERROR}>:-Werror>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  # GCC 12 sees an overlap in `"literal" + std::string` that is not there (fixed in 13).
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
target_include_directories(kavaro_flags INTERFACE ${CMAKE_SOURCE_DIR}/src)
target_compile_definitions(kavaro_flags INTERFACE _FILE_OFFSET_BITS=64)

# Nothing throws across our own code: every room but the command line (its option parser throws) is built without.
set(KAVARO_NO_EXCEPTIONS -fno-exceptions)

if(KAVARO_SANITIZE)
  target_compile_options(kavaro_flags INTERFACE
    -fsanitize=${KAVARO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1
    # GCC's own checks in the code hide from it what is initialized: it takes every moved variant for suspect.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(kavaro_flags INTERFACE -fsanitize=${KAVARO_SANITIZE})
endif()

# Coverage for the fuzzers, in all of our code.
if(KAVARO_FUZZ)
  target_compile_options(kavaro_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
