include_guard(GLOBAL)
include(CheckCXXCompilerFlag)

# What every target of this project is compiled with.
function(chronal_target target)
  target_compile_features(${target} PRIVATE cxx_std_17)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON
    UNITY_BUILD OFF # files have names of their own, and debug lines the numbers of their lines
  )
  # The same binary from every folder. The build folder comes last, because it wins there and may
  # lie inside the source folder. Debug builds keep true paths for the debugger.
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

# For a target whose code becomes part of a shared library: calls of its own functions are direct,
# calls of others take no detour, and a virtual call does not come with the body of the function that
# it probably reaches.
function(chronal_shared_code target)
  foreach(flag IN ITEMS -fno-semantic-interposition -fno-plt -fno-devirtualize-speculatively
      -ffunction-sections -fdata-sections)
    string(MAKE_C_IDENTIFIER "CHRONAL_HAS${flag}" supported)
    check_cxx_compiler_flag(${flag} ${supported})
    if(${supported})
      target_compile_options(${target} PRIVATE ${flag})
    endif()
  endforeach()
endfunction()

# Nothing is linked that is not used, and nothing used is left out.
function(chronal_shared_link target)
  # The path of the build folder would make the binary depend on it.
  set_target_properties(${target} PROPERTIES BUILD_RPATH_USE_ORIGIN ON)
  target_link_options(${target} PRIVATE LINKER:--as-needed LINKER:--gc-sections)
  # Constant data that holds addresses is write-protected once they are filled in; the linkers of some
  # targets (MIPS) leave it writable by default. Without "-z now": that would resolve every function
  # when an application starts, and still leave the global offset table writable on MIPS.
  target_link_options(${target} PRIVATE LINKER:-z,relro)
  # Clang leaves a sanitizer's run-time library to the executable.
  if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_link_options(${target} PRIVATE LINKER:--no-undefined)
  endif()
endfunction()
