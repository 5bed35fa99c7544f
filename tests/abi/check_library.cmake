# Looks into a shared LIBRARY: its SONAME, the NEEDED libraries that must be among those that it
# names, where EXPORTS is given, that it exports these symbols and no other, and, where IMPORTS is
# given, that it takes nothing but the symbols that this file allows: an expression a line, without
# versions. Lists are separated by commas.

function(run_tool output)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
    set(${output} "${text}" PARENT_SCOPE)
endfunction()

run_tool(dynamic ${READELF} --dynamic --wide ${LIBRARY})
set(mistakes "")

if(NOT dynamic MATCHES "\\(SONAME\\)[^\n]*\\[([^\n]*)\\]")
    string(APPEND mistakes "no soname\n")
elseif(NOT CMAKE_MATCH_1 STREQUAL SONAME)
    string(APPEND mistakes "soname is ${CMAKE_MATCH_1}, not ${SONAME}\n")
endif()

string(REPLACE "," ";" needed "${NEEDED}")
foreach(library IN LISTS needed)
    string(REPLACE "." "\\." pattern ${library})
    if(NOT dynamic MATCHES "\\(NEEDED\\)[^\n]*\\[${pattern}\\]")
        string(APPEND mistakes "${library} is not named as needed\n")
    endif()
endforeach()

if(DEFINED EXPORTS)
    run_tool(symbols ${NM} --dynamic --defined-only --format=posix ${LIBRARY})
    string(REGEX REPLACE " [^\n]*" "" exported "${symbols}")
    string(STRIP "${exported}" exported)
    string(REPLACE "\n" "," exported "${exported}")
    if(NOT exported STREQUAL EXPORTS)
        string(APPEND mistakes "exported are '${exported}', not '${EXPORTS}'\n")
    endif()
endif()

if(DEFINED IMPORTS)
    run_tool(symbols ${NM} --dynamic --undefined-only --format=posix ${LIBRARY})
    string(REGEX REPLACE "[@ ][^\n]*" "" imported "${symbols}")
    string(STRIP "${imported}" imported)
    string(REPLACE "\n" ";" imported "${imported}")
    file(STRINGS ${IMPORTS} allowed REGEX "^[^#]")
    foreach(expression IN LISTS allowed)
        list(FILTER imported EXCLUDE REGEX "^(${expression})$")
    endforeach()
    foreach(symbol IN LISTS imported)
        string(APPEND mistakes "imports ${symbol}\n")
    endforeach()
endif()

if(mistakes)
    message(FATAL_ERROR "${LIBRARY}:\n${mistakes}")
endif()
