# Describes the Debian packages, which cpack builds from the installed components; scripts/package
# calls it for each target.

find_program(CHRONAL_DPKG_ARCHITECTURE dpkg-architecture)
find_package(Python3 COMPONENTS Interpreter QUIET)
if(NOT CMAKE_LIBRARY_ARCHITECTURE OR NOT CHRONAL_DPKG_ARCHITECTURE OR NOT Python3_FOUND)
  return() # not a Debian system
endif()
execute_process(
  COMMAND ${CHRONAL_DPKG_ARCHITECTURE} -f -t ${CMAKE_LIBRARY_ARCHITECTURE} -q DEB_HOST_ARCH
  OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)

# chronal_package(COMPONENT NAME SECTION DESCRIPTION [DEPENDS PACKAGE] [COMPONENTS COMPONENT...])
# The first line of the description is the package's summary. It depends on the same version of the
# packages of COMPONENTS.
macro(chronal_package component name section description)
  cmake_parse_arguments(package "" "DEPENDS" "COMPONENTS" ${ARGN})
  string(TOUPPER ${component} upper)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${description}")
  set(CPACK_COMPONENT_${upper}_DEPENDS ${package_COMPONENTS})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${package_DEPENDS}" CACHE STRING
    "Packages that ${name} depends on besides those that are found out")
endmacro()

set(host)
set(host_development)
if(TARGET fabric-host)
  set(host host)
  set(host_development host-development)
  chronal_package(host libfabric-host${PROJECT_VERSION} libs
"stand-in for a device's middleware - library
Carries the messages of the time service on a development host.
A device has middleware of its own.")
  chronal_package(host-development libfabric-host-dev libdevel
"stand-in for a device's middleware - development files
Contains the declarations of the middleware that the library is compiled
against, and the interface with which programs on a development host open
sessions and offer services."
    DEPENDS "libboost-dev (>= 1.74)" COMPONENTS host)
endif()

chronal_package(runtime libchronal-api${CHRONAL_ABI_VERSION} libs
"client library for a device's time service - library
Sends commands to the time service, delivers replies and notifications as
callbacks, and computes and prints times." COMPONENTS ${host})
chronal_package(development libchronal-api-dev libdevel
"client library for a device's time service - development files
Contains the headers of the library, and the files with which CMake and
pkg-config find it."
  DEPENDS "libboost-dev (>= 1.74)" COMPONENTS runtime ${host_development})

if(TARGET chronal-devkit)
  chronal_package(devkit chronal-devkit libdevel
"simulated time service and test kit for its clients
Runs an application on a development host, where neither the time service
nor the device's middleware exists, and tests it in a single thread while
time stands still."
    DEPENDS libabsl-dev COMPONENTS development)
endif()
if(TARGET chronalctl)
  chronal_package(tools chronal-tools utils
"programs for a device's time service
chronalctl sends the commands of the library from the shell and monitors
notifications; chronal-simd runs a simulated time service in a process of
its own."
    DEPENDS tzdata COMPONENTS runtime host)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "libchronal-api maintainers <maintainers@chronal-api.example>" CACHE STRING
  "Maintainer of the packages")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE ${PROJECT_NAME})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${PROJECT_BINARY_DIR}/common/fw/chronal/api ${PROJECT_BINARY_DIR}/platform/host
  /usr/${CMAKE_LIBRARY_ARCHITECTURE}/lib) # of a cross compiler
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_STRIP_EXECUTABLE ${CMAKE_STRIP})
set(CPACK_CHRONAL_PYTHON ${Python3_EXECUTABLE})
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/ChronalPackageFiles.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CPACK_PRE_BUILD_SCRIPTS})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_SOURCE_DIR}/build/packages)
include(CPack)
