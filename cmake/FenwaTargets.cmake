# What every target of ours is compiled with.
add_library(fenwa_options INTERFACE)
target_compile_features(fenwa_options INTERFACE cxx_std_20)
target_compile_options(fenwa_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    $<$<BOOL:${FENWA_WARNINGS_AS_ERRORS}>:-Werror>)
# The constants of sd-bus.h are compound literals, which clang holds against its users.
target_compile_options(fenwa_options INTERFACE $<$<CXX_COMPILER_ID:Clang>:-Wno-c99-extensions>)
# GCC 12 sees overlaps and bounds in std::string, when optimised, that are not there.
target_compile_options(fenwa_options INTERFACE
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-error=array-bounds>
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-error=restrict>)
# GCC collects its garbage whenever its heap has doubled, a seventh of the time to compile a source
# here; with half a gigabyte before the first time it never does, and takes a seventh more memory.
target_compile_options(fenwa_options INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:--param=ggc-min-heapsize=524288>)
# What is shipped has no path of the machine: a build in another folder gives the same bytes. Coverage
# needs whole paths.
set(FENWA_REPRODUCIBLE ON)
if(CMAKE_BUILD_TYPE STREQUAL Debug OR FENWA_COVERAGE)
    set(FENWA_REPRODUCIBLE OFF)
endif()
if(FENWA_REPRODUCIBLE)
    target_compile_options(fenwa_options INTERFACE
        -ffile-prefix-map=${CMAKE_SOURCE_DIR}=. -ffile-prefix-map=${CMAKE_BINARY_DIR}=build)
endif()
target_include_directories(fenwa_options INTERFACE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include)
if(FENWA_COVERAGE)
    target_compile_options(fenwa_options INTERFACE --coverage -fprofile-abs-path -O0)
    target_link_options(fenwa_options INTERFACE --coverage)
endif()
if(FENWA_SANITIZERS)
    target_compile_options(fenwa_options INTERFACE
        -fsanitize=${FENWA_SANITIZERS} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(fenwa_options INTERFACE -fsanitize=${FENWA_SANITIZERS})
endif()

# What the plug-in and the framework's libraries are compiled with besides. First what protects them,
# where the compiler knows it for the target: checks of the stack, and marks of the places that may be
# jumped to (on 32-bit ARM GCC has none).
include(CheckCXXCompilerFlag)
add_library(fenwa_library_options INTERFACE)
foreach(option stack-protector-strong stack-clash-protection cf-protection=full)
    string(MAKE_C_IDENTIFIER FENWA_HAS_${option} known)
    check_cxx_compiler_flag(-f${option} ${known})
    if(${known})
        target_compile_options(fenwa_library_options INTERFACE -f${option})
    endif()
endforeach()
# The start files of Debian's C library lack the marks, so the linker drops the note of the whole
# library: a shadow stack needs none in them and is noted all the same, jump marks are not.
if(FENWA_HAS_cf_protection_full)
    target_link_options(fenwa_library_options INTERFACE LINKER:-z,shstk)
endif()
check_cxx_compiler_flag("-Werror -mbranch-protection=standard" FENWA_HAS_branch_protection)
if(FENWA_HAS_branch_protection)
    target_compile_options(fenwa_library_options INTERFACE -mbranch-protection=standard)
endif()
# Without optimisation the C library knows no sizes to check, and warns.
if(NOT FENWA_COVERAGE)
    target_compile_options(fenwa_library_options INTERFACE
        $<$<NOT:$<OR:$<CONFIG:Debug>,$<CONFIG:>>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()
target_link_options(fenwa_library_options INTERFACE LINKER:-z,relro,-z,now,-z,noexecstack,-z,text)
# The dumps in tests/abi have the virtual tables of classes that a library uses and does not implement
# only where their debug information is whole.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    target_compile_options(fenwa_library_options INTERFACE -femit-class-debug-always)
endif()

# With FENWA_SPLIT_SYMBOLS the library is as it is shipped: what only a debugger reads moves to a file
# beside it.
option(FENWA_SPLIT_SYMBOLS "Strip the libraries and keep their symbols in LIBRARY.debug" OFF)
function(fenwa_split_symbols library)
    if(FENWA_SPLIT_SYMBOLS)
        set(file $<TARGET_FILE:${library}>)
        add_custom_command(TARGET ${library} POST_BUILD VERBATIM
            COMMAND ${CMAKE_OBJCOPY} --only-keep-debug ${file} ${file}.debug
            COMMAND ${CMAKE_OBJCOPY} --strip-unneeded --remove-section=.comment
                    --add-gnu-debuglink=${file}.debug ${file})
    endif()
endfunction()

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
    find_program(CCACHE ccache)
endif()
if(CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()
