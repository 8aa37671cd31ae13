# A little-endian 32-bit MIPS box on glibc, by Debian's cross compiler; its programs run here under qemu-mipsel.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel -L /usr/mipsel-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/router.cmake)
