# The Debian packages, one for each component of the installation.
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_PACKAGE_SOURCE ${PROJECT_NAME})
set(PACKAGE_MAINTAINER "pluginrtmp maintainers <maintainers@pluginrtmp.example>"
    CACHE STRING "Who answers for the packages: NAME <ADDRESS>; whoever hands them on enters theirs")
set(CPACK_PACKAGE_CONTACT "${PACKAGE_MAINTAINER}")
set(CPACK_STRIP_FILES ON)
set(CPACK_SET_DESTDIR ON)  # for what belongs under /etc
set(CPACK_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_CROSSCOMPILING)
  # The sysroot tells which package has which library; see tools/armhf-sysroot.
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf")
endif()

set(debian_changelog "${CMAKE_CURRENT_BINARY_DIR}/changelog.gz")
add_custom_command(
  OUTPUT "${debian_changelog}"
  COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/debian-changelog" "${PROJECT_VERSION}"
          "${PACKAGE_MAINTAINER}" > changelog
  COMMAND gzip -9nf changelog
  DEPENDS debian-changelog "${CMAKE_SOURCE_DIR}/CHANGELOG.md"
  VERBATIM)
add_custom_target(debian-changelog ALL DEPENDS "${debian_changelog}")

# debian_package(NAME SECTION SUMMARY DESCRIPTION [FIELD VALUE]...)
macro(debian_package name section summary description)
  list(APPEND CPACK_COMPONENTS_ALL ${name})
  string(TOUPPER ${name} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}")
  set(fields ${ARGN})
  while(fields)
    list(POP_FRONT fields field value)
    set(CPACK_DEBIAN_${upper}_PACKAGE_${field} "${value}")
  endwhile()
  # Every package carries the changelog and the licences of all of them.
  install(FILES copyright DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${name}" COMPONENT ${name})
  # There once everything is built, as it is for packages; lintian misses it there.
  install(FILES "${debian_changelog}" DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${name}"
          COMPONENT ${name} OPTIONAL)
endmacro()
set(CPACK_COMPONENTS_ALL)

debian_package(pluginrtmp libs "plug-in that publishes a camera to RTMP servers"
"For hosts of the media framework nimbo: publishes live H.264 and AAC to RTMP
and RTMPS ingest servers and makes lost connections again. A second plug-in
carries what the first one's messages cannot."
  RECOMMENDS ca-certificates ENHANCES nimbo-host)
debian_package(nimbo-host video "runs publishing plug-ins on any Linux machine"
"The reference host of the media framework nimbo and its plug-in pluginrtmp:
publishes elementary streams and, with nimbo-host-av, files, devices, network
cameras and a simulated camera to RTMP servers, from the command line or as a
service."
  DEPENDS "pluginrtmp (= ${PROJECT_VERSION})" RECOMMENDS "nimbo-host-av (= ${PROJECT_VERSION})"
  SUGGESTS nimbo-host-monitor)
set(CPACK_DEBIAN_NIMBO-HOST_PACKAGE_CONTROL_EXTRA "")
foreach(script conffiles postinst prerm postrm)
  list(APPEND CPACK_DEBIAN_NIMBO-HOST_PACKAGE_CONTROL_EXTRA
       "${CMAKE_CURRENT_SOURCE_DIR}/debian/${script}")
endforeach()
if(NIMBO_AV)
  debian_package(nimbo-host-av video "media files, devices and a simulated camera for nimbo-host"
"The module of nimbo-host on the libraries of FFmpeg: opens what libavformat
opens, transcodes what RTMP cannot describe, and simulates a camera."
    DEPENDS "nimbo-host (= ${PROJECT_VERSION})")
endif()
if(TARGET nimbo-monitor)
  debian_package(nimbo-host-monitor video "web page that shows how nimbo-host is publishing"
"The module of nimbo-host that serves a web page on the machine's own loopback
interface: bit rate, quality, events and the picture of what is published, and
its figures for Prometheus."
    DEPENDS "nimbo-host (= ${PROJECT_VERSION})")
endif()
debian_package(nimbo-dev libdevel "headers for plug-ins of the media framework nimbo"
"The framework's interface with a CMake package and an example. A plug-in is
linked with nothing of it: its symbols come from the process that loads it."
  SUGGESTS nimbo-host ARCHITECTURE all)

include(CPack)
