# The example, from where it is installed.
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)
set(example ${prefix}/share/doc/fenwa/examples/plugin)
set(build ${SDK}/example)
build_and_test(${example} ${build})

run(fenwa check --deny-warnings --plugin-dir ${build} ${example}/graph.toml)
run(fenwa inspect ${build}/libmoving-average.so MovingAverage)
foreach(text "Publishes the mean of the last values" "samples +int +default 10, live" "1 to 1000")
    if(NOT output MATCHES "${text}")
        message(FATAL_ERROR "no '${text}' in\n${output}")
    endif()
endforeach()
