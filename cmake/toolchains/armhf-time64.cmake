# As armhf, with a time_t of 64 bits, as newer firmwares of that kind are built.
include(${CMAKE_CURRENT_LIST_DIR}/armhf.cmake)
string(APPEND CMAKE_C_FLAGS_INIT " -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64")
string(APPEND CMAKE_CXX_FLAGS_INIT " -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64")
