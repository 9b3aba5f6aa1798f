# What the cross builds share: Debian's compilers against that architecture's own libraries, which
# lie in a sysroot made by tools/dev/sysroot.sh; programs run through qemu.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${CPECTL_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${CPECTL_TRIPLE}-g++)

get_filename_component(sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/${CPECTL_TARGET} ABSOLUTE)
if(NOT CPECTL_COMPILER_HAS_LIBC)
    set(CMAKE_SYSROOT ${sysroot})
    set(CMAKE_LIBRARY_ARCHITECTURE ${CPECTL_TRIPLE})
endif()
set(CMAKE_FIND_ROOT_PATH ${sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR ${CPECTL_EMULATOR} -L ${sysroot})
