# Completes what cpack does for Debian packages. It runs this file twice: with the staged files of each
# component, and with the finished packages.

if(NOT CPACK_PACKAGE_FILES)
  set(changelog ${CPACK_TEMPORARY_DIRECTORY}/changelog)
  execute_process(COMMAND ${CPACK_CHRONAL_PYTHON} ${CMAKE_CURRENT_LIST_DIR}/changelog.py
      ${CMAKE_CURRENT_LIST_DIR}/../CHANGELOG.md ${CPACK_DEBIAN_PACKAGE_SOURCE} ${CPACK_PACKAGE_CONTACT}
    OUTPUT_FILE ${changelog} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND gzip -9n ${changelog} COMMAND_ERROR_IS_FATAL ANY)
  string(TIMESTAMP year %Y UTC)
  foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    set(files ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr)
    set(documents ${files}/share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    file(COPY ${changelog}.gz DESTINATION ${documents})
    file(WRITE ${documents}/copyright "Copyright ${year} the authors of libchronal-api\n\n"
      "No licence has been chosen yet. It will stand in the file LICENSE of the sources.\n")
    file(GLOB pages ${files}/share/man/man1/*)
    foreach(page IN LISTS pages)
      execute_process(COMMAND gzip -9n ${page} COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
    file(GLOB archives ${files}/lib/*/*.a)
    foreach(archive IN LISTS archives)
      execute_process(COMMAND ${CPACK_STRIP_EXECUTABLE} --strip-debug ${archive}
        COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
  endforeach()
  return()
endif()

foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(files ${CPACK_TEMPORARY_DIRECTORY}/unpacked)
  file(REMOVE_RECURSE ${files})
  execute_process(COMMAND dpkg-deb -R ${package} ${files} COMMAND_ERROR_IS_FATAL ANY)
  # A trigger does the same as cpack's scripts, but once for all packages, and it needs no shell.
  file(GLOB scripts ${files}/DEBIAN/post*)
  if(scripts)
    file(REMOVE ${scripts})
    file(WRITE ${files}/DEBIAN/triggers "activate-noawait ldconfig\n")
  endif()
  # On the device, the libraries of a cross compiler have their proper names.
  file(READ ${files}/DEBIAN/control control)
  string(REGEX REPLACE "[:-]${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}(-cross)?" "" control "${control}")
  if(control MATCHES "Package: ([^\n]*)-dbgsym")
    # cpack writes absolute paths.
    execute_process(COMMAND sh -c "find usr -type f | LC_ALL=C sort | xargs md5sum > DEBIAN/md5sums"
      WORKING_DIRECTORY ${files} COMMAND_ERROR_IS_FATAL ANY)
    file(MAKE_DIRECTORY ${files}/usr/share/doc)
    file(CREATE_LINK ${CMAKE_MATCH_1} ${files}/usr/share/doc/${CMAKE_MATCH_1}-dbgsym SYMBOLIC)
  endif()
  if(NOT control MATCHES "Package: chronal-tools")
    string(PREPEND control "Multi-Arch: same\n")
  endif()
  file(WRITE ${files}/DEBIAN/control "${control}")
  execute_process(COMMAND dpkg-deb --root-owner-group -b ${files} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
