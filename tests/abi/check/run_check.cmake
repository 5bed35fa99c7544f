# Runs PROGRAM with ARGUMENTS, and expects EXIT_CODE and in its output, stderr included, a match of
# each expression in OUTPUT. Arguments are separated by commas, expressions by `~`.
cmake_policy(VERSION 3.25)

string(REPLACE "," ";" command "${PROGRAM},${ARGUMENTS}")
execute_process(COMMAND ${command} RESULT_VARIABLE code OUTPUT_VARIABLE output ERROR_VARIABLE output)

set(mistakes "")
if(NOT code STREQUAL EXIT_CODE)
    string(APPEND mistakes "exit code ${code}, not ${EXIT_CODE}\n")
endif()
string(REPLACE "~" ";" expressions "${OUTPUT}")
foreach(expression IN LISTS expressions)
    if(NOT output MATCHES "${expression}")
        string(APPEND mistakes "no match of: ${expression}\n")
    endif()
endforeach()
if(mistakes)
    message(FATAL_ERROR "${output}\n${mistakes}")
endif()
