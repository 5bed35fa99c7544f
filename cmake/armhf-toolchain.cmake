# Cross-compiles for 32-bit ARM with Debian's compiler, against the sysroot that
# script/armhf-sysroot unpacks; what is built runs under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

get_filename_component(sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot ABSOLUTE)
set(libraries ${sysroot}/usr/lib/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH ${sysroot} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${libraries}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${sysroot})

# The note on an ABI change of GCC 7.1 is of no use: everything here is built by one compiler.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# libsystemd's own dependencies are only looked for, not linked.
set(CMAKE_SHARED_LINKER_FLAGS_INIT
    "-Wl,-rpath-link,${libraries} -Wl,-rpath-link,${sysroot}/lib/arm-linux-gnueabihf")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${CMAKE_SHARED_LINKER_FLAGS_INIT}")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;/usr/arm-linux-gnueabihf;-E;LD_LIBRARY_PATH=${libraries}:${sysroot}/lib/arm-linux-gnueabihf)
