# Builds plug-ins: for this project's own and, as a part of the package, for those of others.
include(GNUInstallDirs)
set(FENWA_EXPORTS_MAP ${CMAKE_CURRENT_LIST_DIR}/exports.map)

# fenwa_add_plugin(NAME SOURCE...): the plug-in libNAME.so, a target of the name NAME.
#
# It exports `lib_register_cpp` alone and needs both of the framework's libraries. A data file
# libNAME.toml beside the sources is put beside it. Its objects are a library of their own,
# NAME-objects, so that tests reach classes that the plug-in does not export: whatever the sources
# need is linked to NAME-objects. `cmake --install` puts it into the folder where `fenwa` looks for
# plug-ins.
function(fenwa_add_plugin name)
    add_library(${name}-objects OBJECT ${ARGN})
    set_target_properties(${name}-objects PROPERTIES
        POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    target_link_libraries(${name}-objects PUBLIC fenwa::interface)

    add_library(${name} SHARED)
    target_link_libraries(${name} PRIVATE ${name}-objects fenwa::shared fenwa::algo-tools)
    # No path to the framework's libraries: who loads the plug-in has them already.
    set_target_properties(${name} PROPERTIES
        PREFIX lib SUFFIX .so LINKER_LANGUAGE CXX
        INSTALL_RPATH "" BUILD_WITH_INSTALL_RPATH ON LINK_DEPENDS ${FENWA_EXPORTS_MAP})
    # Both framework libraries are named as needed, as the platform expects of a plug-in, even where
    # the linker sees no symbol taken from one of them.
    target_link_options(${name} PRIVATE
        LINKER:--no-as-needed LINKER:--version-script=${FENWA_EXPORTS_MAP})
    # A sanitizer's own symbols are in the program that loads the plug-in.
    if(NOT FENWA_SANITIZERS AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
        target_link_options(${name} PRIVATE LINKER:--no-undefined)
    endif()
    install(TARGETS ${name}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/fenwa/plugins COMPONENT plugin)

    set(data lib${name}.toml)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${data})
        get_target_property(folder ${name} LIBRARY_OUTPUT_DIRECTORY)
        if(NOT folder)
            set(folder ${CMAKE_CURRENT_BINARY_DIR})
        endif()
        configure_file(${data} ${folder}/${data} COPYONLY)
        install(FILES ${data}
            DESTINATION ${CMAKE_INSTALL_LIBDIR}/fenwa/plugins COMPONENT plugin)
    endif()
endfunction()
