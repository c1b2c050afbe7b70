# What every target of this project is compiled with.

# Warnings are errors in the presets alone: compilers to come may warn of more.
add_compile_options(-Wall -Wextra -Wconversion -Wshadow)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  add_compile_options(-Wthread-safety -Wthread-safety-beta)  # see sync/Mutex.h
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # Optimising C++20, GCC 12 takes the standard library's own insertions into strings for overlapping
  # copies, and for copies beyond their room.
  add_compile_options(-Wno-restrict -Wno-array-bounds -Wno-stringop-overflow)
endif()

nimbo_map_sources("${CMAKE_SOURCE_DIR}")

# The contract and the registration glue are included by their path from the root.
include_directories("${CMAKE_SOURCE_DIR}/include" "${CMAKE_SOURCE_DIR}")

if(NIMBO_SANITIZE)
  add_compile_options("-fsanitize=${NIMBO_SANITIZE}" -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options("-fsanitize=${NIMBO_SANITIZE}")
endif()

# For folders whose code never runs often: what is instrumented is not optimised as well.
macro(nimbo_build_fast)
  if(NIMBO_SANITIZE)
    add_compile_options(-O0)
  endif()
endmacro()

# What nearly every file of the host and the tests includes is read once a target. Released builds do
# without it, and so tell when a file does not include what it uses.
set(NIMBO_COMMON_HEADERS <algorithm> <atomic> <chrono> <functional> <map> <memory> <mutex> <string>
                         <thread> <vector> <fmt/format.h>)
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  # What ccache asks for where headers are precompiled.
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env
      CCACHE_SLOPPINESS=pch_defines,time_macros "${CCACHE_PROGRAM}")
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT CMAKE_DISABLE_PRECOMPILE_HEADERS)
    add_compile_options(-fpch-preprocess)
  endif()
endif()
