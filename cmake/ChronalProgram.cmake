# Installs a program that finds its libraries wherever the prefix is.
function(chronal_program target)
  if(NOT CHRONAL_INSTALL)
    return()
  endif()
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR
    BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR} OUTPUT_VARIABLE libraries)
  string(PREPEND libraries "$ORIGIN/")
  if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(libraries ${CMAKE_INSTALL_LIBDIR}) # does not move with the prefix
  endif()
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "${libraries}")
  install(TARGETS ${target})
endfunction()

# Makes and installs a program's manual page and its completions for bash, zsh and fish from its
# --help; TARGET.h2m contains the other sections of the page.
function(chronal_documentation target)
  find_program(CHRONAL_HELP2MAN help2man)
  find_package(Python3 COMPONENTS Interpreter QUIET)
  if(CMAKE_CROSSCOMPILING OR NOT CHRONAL_HELP2MAN OR NOT Python3_FOUND)
    message(STATUS "chronal-api: the manual page and the completions of ${target} are left out; they "
      "need a program that runs here, help2man and Python")
    return()
  endif()

  set(script ${PROJECT_SOURCE_DIR}/tools/document.py)
  set(include ${CMAKE_CURRENT_SOURCE_DIR}/${target}.h2m)
  set(page ${CMAKE_CURRENT_BINARY_DIR}/${target}.1)
  add_custom_command(OUTPUT ${page}
    COMMAND Python3::Interpreter ${script} $<TARGET_FILE:${target}> ${include} .
    COMMAND ${CHRONAL_HELP2MAN} --no-info --include=${target}.h2m --output=${page}
      $<TARGET_FILE:${target}>
    DEPENDS ${target} ${script} ${include}
    BYPRODUCTS ${target}.bash _${target} ${target}.fish ${target}.h2m
    COMMENT "Writing the manual page and the completions of ${target}"
    VERBATIM
  )
  add_custom_target(${target}-documentation ALL DEPENDS ${page})
  if(CHRONAL_INSTALL)
    set(built ${CMAKE_CURRENT_BINARY_DIR})
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES ${built}/${target}.bash RENAME ${target}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${built}/_${target} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
    install(FILES ${built}/${target}.fish
      DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
  endif()
endfunction()
