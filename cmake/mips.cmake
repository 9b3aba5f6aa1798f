# Cross build for 32-bit MIPS, big-endian. The compiler has its own C library; what else there is
# lies in the sysroot.
set(CPECTL_TARGET mips)
set(CPECTL_TRIPLE mips-linux-gnu)
set(CPECTL_EMULATOR qemu-mips-static)
set(CPECTL_COMPILER_HAS_LIBC ON)
set(CMAKE_SYSTEM_PROCESSOR mips)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
