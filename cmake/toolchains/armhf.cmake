# A 32-bit ARM box with hardware floating point on glibc, by Debian's cross compiler; its programs run here under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/router.cmake)
