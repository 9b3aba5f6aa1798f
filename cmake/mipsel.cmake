# Cross build for 32-bit MIPS, little-endian.
set(CPECTL_TARGET mipsel)
set(CPECTL_TRIPLE mipsel-linux-gnu)
set(CPECTL_EMULATOR qemu-mipsel-static)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
