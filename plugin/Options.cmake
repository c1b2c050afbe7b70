# What the plug-ins can be told and what they stand on, built alone or with the whole tree.

option(RTMP_STOCK_TRANSPORT "Make every session step with librtmp's own calls alone" OFF)
set(RTMP_DEFAULT_URL
    "rtmps://live.ingest.example:443/rtmp/500172936418254?s_bl=1&s_ps=1&s_sw=0&s_vt=api-s&a=Qm7rTz2LkPw9HsXe"
    CACHE STRING "Address that the command \"rtmp\" publishes to")

# Source paths in log lines and debug information do not tell where the tree was built: its root has
# this name in them. Framework and plug-ins cut as many characters off as __root_path_offset says,
# which on a device is the length of the maker's build root; see docs/device.md.
set(NIMBO_SOURCE_ROOT "/pluginrtmp/"
    CACHE STRING "Name of the sources' root in log lines, as long as __root_path_offset; ends in /")
if(NOT NIMBO_SOURCE_ROOT MATCHES "^[^= ;]*/$")
  message(FATAL_ERROR "NIMBO_SOURCE_ROOT is \"${NIMBO_SOURCE_ROOT}\": it must end in \"/\" and hold no "
                      "blank, \"=\" or \";\", for instance \"/pluginrtmp/\"")
endif()
function(nimbo_map_sources folder)
  add_compile_options("-ffile-prefix-map=${folder}/=${NIMBO_SOURCE_ROOT}")
endfunction()

find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBRTMP REQUIRED IMPORTED_TARGET librtmp)
pkg_check_modules(GNUTLS REQUIRED IMPORTED_TARGET gnutls)
find_package(Threads REQUIRED)
