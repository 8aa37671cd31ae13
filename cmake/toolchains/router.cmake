# What every router target shares: small code, and libraries from the target's own root only.
#
# APPIDENT_TARGET_ROOT names a directory that holds the target's libnl, cJSON and GoogleTest as usr/include and usr/lib;
# scripts/router-build makes it and hands it over, together with the places pkg-config looks into.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES APPIDENT_TARGET_ROOT)
set(CMAKE_FIND_ROOT_PATH ${APPIDENT_TARGET_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_C_FLAGS_MINSIZEREL_INIT "-Os -DNDEBUG")
set(CMAKE_CXX_FLAGS_MINSIZEREL_INIT "-Os -DNDEBUG")
# A router's pages are of 4 or 16 KiB. For the linkers' 64 each file would be padded by as much.
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-z,max-page-size=16384")
string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -Wl,-z,max-page-size=16384")
# Debian keeps headers that differ between processors below the processor's name.
file(GLOB own_headers LIST_DIRECTORIES true ${APPIDENT_TARGET_ROOT}/usr/include/*-linux-gnu*)
foreach(directory ${own_headers})
  string(APPEND CMAKE_C_FLAGS_INIT " -isystem ${directory}")
  string(APPEND CMAKE_CXX_FLAGS_INIT " -isystem ${directory}")
endforeach()
