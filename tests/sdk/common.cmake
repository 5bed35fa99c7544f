# Where the package stands, as if its packages were unpacked there, and how a project is built
# against it.
set(prefix ${SDK}/usr)
set(ENV{PATH} ${prefix}/bin:$ENV{PATH})
# Sanitizers' reports about a program that is not built with them say nothing.
set(flags)
if(SANITIZERS)
    set(flags -DCMAKE_CXX_FLAGS=-fsanitize=${SANITIZERS} -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=${SANITIZERS})
endif()

# run(COMMAND...): ends the test when the command fails or takes too long. Gives what it has printed
# in `output`.
function(run)
    execute_process(COMMAND ${ARGV} TIMEOUT 240 RESULT_VARIABLE result
        OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        list(JOIN ARGV " " command)
        message(FATAL_ERROR "${command}: ${result}\n${output}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

# build_and_test(FOLDER BUILD): as an author does it. Gives what ctest has printed.
function(build_and_test folder build)
    run(${CMAKE_COMMAND} -S ${folder} -B ${build} -G ${GENERATOR} -DCMAKE_BUILD_TYPE=Debug
        -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER} ${flags})
    run(${CMAKE_COMMAND} --build ${build})
    run(${CMAKE_CTEST_COMMAND} --test-dir ${build} --output-on-failure --no-tests=error)
    set(output "${output}" PARENT_SCOPE)
endfunction()
