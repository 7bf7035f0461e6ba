set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CHRONAL_TRIPLET mipsel-linux-gnu)
set(CHRONAL_EMULATOR qemu-mipsel)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
