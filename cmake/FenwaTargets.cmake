# What every target of ours is compiled with.
add_library(fenwa_options INTERFACE)
target_compile_features(fenwa_options INTERFACE cxx_std_20)
target_compile_options(fenwa_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    $<$<BOOL:${FENWA_WARNINGS_AS_ERRORS}>:-Werror>)
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

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
    find_program(CCACHE ccache)
endif()
if(CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()
