set(CMAKE_SYSTEM_PROCESSOR mips)
set(CHRONAL_TRIPLET mips-linux-gnu)
set(CHRONAL_EMULATOR qemu-mips)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
