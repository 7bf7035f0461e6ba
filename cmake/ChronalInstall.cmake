# Installs headers, libraries, and the files for find_package() and pkg-config, as components that can be
# installed apart. A device's platform is not installed, because its headers and libraries belong to the
# device.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/chronal-api)

# Writes NAME.pc. Its prefix is relative to its own directory, so that the installation can move; a
# directory that is configured as an absolute path stays where it is.
function(chronal_install_pkgconfig name description libs requires)
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE prefix)
  cmake_path(APPEND includedir "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
  cmake_path(APPEND libdir "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/package.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

function(chronal_install_headers)
  install(DIRECTORY ${ARGN} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN *.h)
endfunction()

set(CHRONAL_HAS_HOST FALSE)
set(platform_package)
if(TARGET fabric-host)
  set(CHRONAL_HAS_HOST TRUE)
  set(platform_package fabric-host)
endif()

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
install(TARGETS chronal-api EXPORT chronal-api-targets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)
chronal_install_headers(common/fw/chronal/api/include/)
chronal_install_pkgconfig(chronal-api
  "${PROJECT_DESCRIPTION}" "-lchronal-api" "${platform_package}")
install(EXPORT chronal-api-targets NAMESPACE chronal:: DESTINATION ${package_dir})
configure_package_config_file(cmake/chronal-api-config.cmake.in chronal-api-config.cmake
  INSTALL_DESTINATION ${package_dir})
# Before 1.0 any minor release may change the source interface.
write_basic_package_version_file(chronal-api-config-version.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/chronal-api-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/chronal-api-config-version.cmake
  DESTINATION ${package_dir})

if(TARGET fabric-host)
  # The host platform is installed beside the library, wherever the prefix is.
  set_target_properties(chronal-api PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS chronal-platform EXPORT chronal-api-targets)

  set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME host-development)
  install(TARGETS fabric-host EXPORT fabric-host-targets
    LIBRARY COMPONENT host NAMELINK_COMPONENT host-development)
  install(EXPORT fabric-host-targets NAMESPACE fabric:: DESTINATION ${package_dir})
  chronal_install_headers(platform/include/ platform/host/include/)
  chronal_install_pkgconfig(fabric-host
    "Stand-in for the middleware on development hosts" "-lfabric-host -pthread" "")
endif()

if(TARGET chronal-devkit)
  set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME devkit)
  install(TARGETS chronal-devkit chronal-testing chronal-testing-allocation
    EXPORT chronal-devkit-targets)
  install(EXPORT chronal-devkit-targets NAMESPACE chronal:: DESTINATION ${package_dir})
  chronal_install_headers(simulator/include/ testing/include/)
  chronal_install_pkgconfig(chronal-devkit "Runs clients of the time service on development hosts"
    "-lchronal-devkit" "chronal-api absl_time")
  chronal_install_pkgconfig(chronal-testing "Tests clients of the time service"
    "-lchronal-testing" "chronal-devkit")
endif()

