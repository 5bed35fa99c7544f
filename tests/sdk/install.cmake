# Each component where its package brings it; the prefix is that of a package, and not where the
# files are.
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)
file(REMOVE_RECURSE ${SDK})
set(ENV{DESTDIR} ${SDK})
foreach(component plugin runtime host camera dev doc)
    run(${CMAKE_COMMAND} --install ${BUILD} --prefix /usr --component ${component})
endforeach()

# Together they are at least all that is installed: packages have files of their own besides.
file(GLOB_RECURSE parts RELATIVE ${SDK} ${SDK}/*)
set(ENV{DESTDIR} ${SDK}/whole)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix /usr)
file(GLOB_RECURSE whole RELATIVE ${SDK}/whole ${SDK}/whole/*)
list(REMOVE_ITEM whole ${parts})
if(whole)
    message(FATAL_ERROR "in no component: ${whole}")
endif()
file(REMOVE_RECURSE ${SDK}/whole)

# No file for others knows the folder that it was built or installed in.
file(GLOB_RECURSE texts ${SDK}/usr/${LIBDIR}/cmake/* ${SDK}/usr/${LIBDIR}/pkgconfig/*)
foreach(file ${texts})
    file(READ ${file} text)
    foreach(folder ${BUILD} ${SOURCE} ${SDK})
        if(text MATCHES "${folder}")
            message(FATAL_ERROR "${file} names ${folder}")
        endif()
    endforeach()
endforeach()
