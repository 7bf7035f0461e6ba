# The common part of the cross toolchains: Debian's compiler for CHRONAL_TRIPLET, and the emulator
# under which ctest runs the tests.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${CHRONAL_TRIPLET}-gcc) # for GoogleTest's build
set(CMAKE_CXX_COMPILER ${CHRONAL_TRIPLET}-g++)

# scripts/sysroot puts the libraries here that a cross compiler does not include.
set(CMAKE_LIBRARY_ARCHITECTURE ${CHRONAL_TRIPLET})
cmake_path(SET sysroot NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot/${CHRONAL_TRIPLET})
# The libraries there depend on one another, which the run path of a program does not cover.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CHRONAL_EMULATOR} -L /usr/${CHRONAL_TRIPLET}
  -E LD_LIBRARY_PATH=${sysroot}/usr/lib/${CHRONAL_TRIPLET})
set(CMAKE_FIND_ROOT_PATH /usr/${CHRONAL_TRIPLET} ${sysroot} ${sysroot}/usr)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Header-only libraries serve every target.
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
