# A plug-in without CMake.
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)
set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
set(example ${prefix}/share/doc/fenwa/examples/plugin)
set(library ${SDK}/pkg-config/libmoving-average.so)
file(MAKE_DIRECTORY ${SDK}/pkg-config)
run(sh -c "exec g++ -std=c++20 -fPIC -shared -fvisibility=hidden -I${example} -o ${library} \
    ${example}/lib_register.cpp ${example}/blocks/moving_average.cpp \
    -Wl,-soname,libmoving-average.so -Wl,--version-script=$(pkg-config --variable=exports_map fenwa) \
    $(pkg-config --cflags --libs fenwa)")
run(fenwa check --deny-warnings --plugin-dir ${SDK}/pkg-config ${example}/graph.toml)
run(${CMAKE_COMMAND} -D NM=${NM} -D READELF=${READELF} -D LIBRARY=${library}
    -D EXPORTS=lib_register_cpp -D SONAME=libmoving-average.so -P ${SOURCE}/tests/abi/check_library.cmake)
