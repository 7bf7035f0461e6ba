# What the cross toolchains have in common: Debian's compiler for CHRONAL_TRIPLET, and the emulator
# under which ctest runs what it built.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${CHRONAL_TRIPLET}-gcc) # for GoogleTest's build
set(CMAKE_CXX_COMPILER ${CHRONAL_TRIPLET}-g++)

# Where scripts/sysroot puts the target's libraries that a cross compiler does not bring along.
set(CMAKE_LIBRARY_ARCHITECTURE ${CHRONAL_TRIPLET})
cmake_path(SET sysroot NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot/${CHRONAL_TRIPLET})
# The libraries there need one another; what is linked names the place for itself alone.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CHRONAL_EMULATOR} -L /usr/${CHRONAL_TRIPLET}
  -E LD_LIBRARY_PATH=${sysroot}/usr/lib/${CHRONAL_TRIPLET})
set(CMAKE_FIND_ROOT_PATH /usr/${CHRONAL_TRIPLET} ${sysroot} ${sysroot}/usr)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Libraries of headers alone serve every target.
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
