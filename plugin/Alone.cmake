# The plug-ins without the rest of the tree.

set(NIMBO_CONTRACT "" CACHE PATH "Folder of the framework's headers: holds include/ and base/")
foreach(part include/nimbo base/reflect)
  if(NOT IS_DIRECTORY "${NIMBO_CONTRACT}/${part}")
    message(FATAL_ERROR "there is no ${part} in NIMBO_CONTRACT (\"${NIMBO_CONTRACT}\"): name the "
                        "folder of the framework's headers with -DNIMBO_CONTRACT=DIR")
  endif()
endforeach()

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
add_compile_options(-Wall -Wextra -Wconversion -Wshadow)

include(GNUInstallDirs)
include("${CMAKE_CURRENT_LIST_DIR}/Options.cmake")

# What can be included, in one folder: the rooms that go along and the contract, and nothing that
# happens to lie beside them, such as another contract.
get_filename_component(root "${CMAKE_SOURCE_DIR}" DIRECTORY)
set(reach "${CMAKE_BINARY_DIR}/reach")
file(MAKE_DIRECTORY "${reach}")
foreach(room plugin common log sync)
  file(CREATE_LINK "${root}/${room}" "${reach}/${room}" SYMBOLIC)
endforeach()
file(CREATE_LINK "${NIMBO_CONTRACT}/base" "${reach}/base" SYMBOLIC)
include_directories("${NIMBO_CONTRACT}/include" "${reach}")
nimbo_map_sources("${NIMBO_CONTRACT}")
nimbo_map_sources("${root}")
nimbo_map_sources("${reach}")
