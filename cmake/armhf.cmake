# Cross build for 32-bit ARM with hardware floating point.
set(CPECTL_TARGET armhf)
set(CPECTL_TRIPLE arm-linux-gnueabihf)
set(CPECTL_EMULATOR qemu-arm-static)
set(CMAKE_SYSTEM_PROCESSOR arm)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
