include_guard(GLOBAL)

# Sets how every target of this project is compiled.
function(chronal_target target)
  target_compile_features(${target} PRIVATE cxx_std_17)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON
    UNITY_BUILD OFF # files define the same names, and debug lines carry line numbers
  )
  # The binary is the same from every directory. The build directory comes last, because the last
  # match wins and it may lie inside the source directory. Debug builds keep true paths for the
  # debugger.
  target_compile_options(${target} PRIVATE
    $<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>
    $<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${PROJECT_BINARY_DIR}=.>
  )
  if(CHRONAL_STRICT_WARNINGS)
    target_compile_options(${target} PRIVATE
      -Werror -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
      -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual
    )
  endif()
endfunction()

# Compiles code for a shared library: calls of its own functions are direct, calls of others bypass the
# procedure linkage table, and virtual calls are not preceded by an inlined guess of their target.
function(chronal_shared_code target)
  target_compile_options(${target} PRIVATE
    -fno-semantic-interposition -fno-plt -ffunction-sections -fdata-sections
    $<$<CXX_COMPILER_ID:GNU>:-fno-devirtualize-speculatively> # Clang never does
  )
endfunction()

# Links only what is used, and reports undefined symbols.
function(chronal_shared_link target)
  # An absolute path would make the binary depend on the build directory.
  set_target_properties(${target} PROPERTIES BUILD_RPATH_USE_ORIGIN ON)
  target_link_options(${target} PRIVATE LINKER:--as-needed LINKER:--gc-sections)
  # Constant data that holds addresses becomes read-only once they are filled in; linkers for MIPS
  # leave it writable by default. "-z now" is not used: it would resolve every function when an
  # application starts and still leave the global offset table writable on MIPS.
  target_link_options(${target} PRIVATE LINKER:-z,relro)
  # Clang links a sanitizer's run-time library to the executable only.
  if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_link_options(${target} PRIVATE LINKER:--no-undefined)
  endif()
endfunction()

# Adds chronal::NAME, a static library for development hosts with its headers in include/.
function(chronal_host_library name)
  add_library(chronal-${name} STATIC ${ARGN})
  add_library(chronal::${name} ALIAS chronal-${name})
  chronal_target(chronal-${name})
  set_target_properties(chronal-${name} PROPERTIES EXPORT_NAME ${name})
  target_include_directories(chronal-${name} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
  )
endfunction()
