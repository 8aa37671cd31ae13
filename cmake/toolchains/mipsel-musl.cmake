# A little-endian 32-bit MIPS box on musl; its programs run here under qemu-mipsel with the dynamic loader of
# APPIDENT_TARGET_ROOT, where scripts/router-build has also put the commands of a compiler that carries musl.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_C_COMPILER ${APPIDENT_TARGET_ROOT}/bin/mipsel-linux-musl-cc)
set(CMAKE_CXX_COMPILER ${APPIDENT_TARGET_ROOT}/bin/mipsel-linux-musl-c++)
set(CMAKE_AR ${APPIDENT_TARGET_ROOT}/bin/mipsel-linux-musl-ar)
set(CMAKE_RANLIB ${APPIDENT_TARGET_ROOT}/bin/mipsel-linux-musl-ranlib)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel -L ${APPIDENT_TARGET_ROOT})
include(${CMAKE_CURRENT_LIST_DIR}/router.cmake)
# The dynamic C library to link to; the compiler's own outline of it lacks the calls with a time_t of 64 bits.
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -L${APPIDENT_TARGET_ROOT}/lib/mipsel-linux-musl -l:libc.so")
string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -L${APPIDENT_TARGET_ROOT}/lib/mipsel-linux-musl -l:libc.so")
# The C++ library that comes with this compiler cannot be part of a position-independent program.
set(APPIDENT_PIE OFF)
# Nor can it compile a header by itself.
set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
