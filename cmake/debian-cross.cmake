# Cross-compiles with Debian's compiler for the architecture that the including toolchain file names:
# FENWA_ARCHITECTURE in Debian's word, CMAKE_LIBRARY_ARCHITECTURE as the compiler's triplet. The
# libraries are those that script/sysroot has unpacked. With another sysroot, set FENWA_SYSROOT.
set(CMAKE_SYSTEM_NAME Linux)
if(NOT CMAKE_CXX_COMPILER)  # given on the command line
    set(CMAKE_CXX_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-g++)
endif()
set(CMAKE_STRIP ${CMAKE_LIBRARY_ARCHITECTURE}-strip)

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES FENWA_SYSROOT)
if(NOT FENWA_SYSROOT)
    get_filename_component(
        FENWA_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/${FENWA_ARCHITECTURE}-sysroot ABSOLUTE)
endif()
set(CMAKE_FIND_ROOT_PATH ${FENWA_SYSROOT} /usr/${CMAKE_LIBRARY_ARCHITECTURE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(libraries ${FENWA_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
set(ENV{PKG_CONFIG_LIBDIR}
    ${libraries}/pkgconfig:${FENWA_SYSROOT}/usr/lib/pkgconfig:${FENWA_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${FENWA_SYSROOT})

# Where Debian keeps libraries of several architectures apart.
set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Libraries, below the prefix")

# libsystemd's own dependencies are only looked for, not linked.
set(CMAKE_SHARED_LINKER_FLAGS_INIT
    "-Wl,-rpath-link,${libraries} -Wl,-rpath-link,${FENWA_SYSROOT}/lib/${CMAKE_LIBRARY_ARCHITECTURE}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${CMAKE_SHARED_LINKER_FLAGS_INIT}")
