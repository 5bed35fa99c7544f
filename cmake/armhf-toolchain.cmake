# 32-bit ARM with floating-point registers, the camera's own architecture.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(FENWA_ARCHITECTURE armhf)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)

# The note on an ABI change of GCC 7.1 is of no use: everything here is built by one compiler.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
