# Builds the templates of `fenwa new` into a source, so that the program works wherever it is.

# embed_template(VARIABLE FILE PATH): appends host/new/templates/FILE as an initialiser.
function(embed_template variable file path)
    set(source ${CMAKE_CURRENT_SOURCE_DIR}/new/templates/${file})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
    file(READ ${source} text)
    string(APPEND ${variable} "        Template{\"${path}\", R\"fenwa(${text})fenwa\"},\n")
    set(${variable} "${${variable}}" PARENT_SCOPE)
endfunction()

set(PLUGIN_TEMPLATES)
foreach(file CMakeLists.txt README.md lib_register.cpp graph.toml scenario.toml)
    embed_template(PLUGIN_TEMPLATES plugin/${file}.in ${file})
endforeach()
embed_template(PLUGIN_TEMPLATES plugin/data.toml.in lib@NAME@.toml)
set(BLOCK_TEMPLATES)
embed_template(BLOCK_TEMPLATES block/block.hpp.in blocks/@FILE@.hpp)
embed_template(BLOCK_TEMPLATES block/block.cpp.in blocks/@FILE@.cpp)
embed_template(BLOCK_TEMPLATES block/test.cpp.in tests/@FILE@_test.cpp)
set(data ${CMAKE_CURRENT_SOURCE_DIR}/new/templates/block/data.toml.in)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${data})
file(READ ${data} BLOCK_DATA_TEMPLATE)
configure_file(new/templates.cpp.in ${CMAKE_CURRENT_BINARY_DIR}/new/templates.cpp @ONLY)
