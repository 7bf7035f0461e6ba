# Installs a program, with the manual page and the bash completion that it writes itself.
function(chronal_program target)
  if(CHRONAL_INSTALL)
    cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR
      BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR} OUTPUT_VARIABLE libraries)
    string(PREPEND libraries "$ORIGIN/")
    if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
      set(libraries ${CMAKE_INSTALL_LIBDIR}) # does not move with the prefix
    endif()
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "${libraries}")
    install(TARGETS ${target})
  endif()

  if(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
    message(STATUS "chronal-api: ${target} cannot run here (CMAKE_CROSSCOMPILING_EMULATOR is not "
      "set); its manual page and completion are left out")
    return()
  endif()

  set(page ${CMAKE_CURRENT_BINARY_DIR}/${target}.1)
  set(completion ${CMAKE_CURRENT_BINARY_DIR}/${target}.bash)
  add_custom_command(OUTPUT ${page} ${completion}
    COMMAND ${target} --help-man > ${page}
    COMMAND ${target} --help-completion > ${completion}
    DEPENDS ${target}
    COMMENT "Writing the manual page and the completion of ${target}"
    VERBATIM
  )
  add_custom_target(${target}-manual ALL DEPENDS ${page} ${completion})
  if(CHRONAL_INSTALL)
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES ${completion} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
      RENAME ${target})
  endif()
endfunction()
