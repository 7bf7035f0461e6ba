# The default platform of the library: the declarations in this directory and the stand-in for
# development hosts that implements them. docs/porting.md shows a device's own file.

add_subdirectory(${CMAKE_CURRENT_LIST_DIR}/host platform/host)

add_library(chronal-platform INTERFACE)
add_library(chronal::platform ALIAS chronal-platform)
set_target_properties(chronal-platform PROPERTIES EXPORT_NAME platform)
target_link_libraries(chronal-platform INTERFACE fabric::host)
