# A big-endian 32-bit MIPS box on glibc, by Debian's cross compiler; its programs run here under qemu-mips.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mips)
set(CMAKE_C_COMPILER mips-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mips-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mips -L /usr/mips-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/router.cmake)
