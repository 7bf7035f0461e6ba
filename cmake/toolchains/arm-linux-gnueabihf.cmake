set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CHRONAL_TRIPLET arm-linux-gnueabihf)
set(CHRONAL_EMULATOR qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
# Silences a note that GCC 7 changed how some arguments are passed.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
