# Run by CPack after it has made the packages. Its packages of debug symbols name files by the paths
# of this machine in their md5sums, and have no documentation.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    cmake_path(GET package PARENT_PATH folder)
    list(APPEND folders ${folder})
endforeach()
list(REMOVE_DUPLICATES folders)
list(TRANSFORM folders APPEND /*.ddeb)
file(GLOB packages ${folders})
foreach(package IN LISTS packages)
    set(tree ${CPACK_TOPLEVEL_DIRECTORY}/debug)
    file(REMOVE_RECURSE ${tree})
    execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
    cmake_path(GET package FILENAME name)
    string(REGEX REPLACE "_.*" "" name ${name})
    string(REGEX REPLACE "-dbgsym$" "" base ${name})
    file(MAKE_DIRECTORY ${tree}/usr/share/doc)
    file(CREATE_LINK ${base} ${tree}/usr/share/doc/${name} SYMBOLIC)
    execute_process(COMMAND sh -c "find usr -type f -print0 | sort -z | xargs -0 md5sum >DEBIAN/md5sums"
                    WORKING_DIRECTORY ${tree} COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build ${tree} ${package}
                    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${tree})
endforeach()
