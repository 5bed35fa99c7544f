# What `fenwa new` writes builds and passes its own tests at once, also with a second block.
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)
run(fenwa new plugin lamp-control --in ${SDK})
run(fenwa new block LEDLamp --in ${SDK}/lamp-control)
build_and_test(${SDK}/lamp-control ${SDK}/lamp-control/build)
foreach(test LampControlTest LEDLampTest graph scenario)
    if(NOT output MATCHES "${test}")
        message(FATAL_ERROR "no test ${test}")
    endif()
endforeach()

# The plug-in is as ours.
set(library ${SDK}/lamp-control/build/liblamp-control.so)
run(${CMAKE_COMMAND} -D NM=${NM} -D READELF=${READELF} -D LIBRARY=${library}
    -D EXPORTS=lib_register_cpp -D NEEDED=libfenwa-shared.so.0,libfenwa-algo-tools.so.0
    -D SONAME=liblamp-control.so -P ${SOURCE}/tests/abi/check_library.cmake)
run(${READELF} --dynamic --wide ${library})
if(output MATCHES "RPATH|RUNPATH")
    message(FATAL_ERROR "${output}")
endif()

# Installed, it stands where `fenwa` looks for it.
run(${CMAKE_COMMAND} --install ${SDK}/lamp-control/build --prefix ${prefix})
run(fenwa inspect LEDLamp)
if(NOT output MATCHES "the value times the factor")
    message(FATAL_ERROR "${output}")
endif()
