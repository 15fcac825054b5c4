# Compares the names a Linux shared library exports with the global names of
# its linker version script. Run with -DBINARY=... -DMAP=... -DDUMP=<nm>.
file(READ ${MAP} map)
string(REGEX MATCH "global:([^}]*)local:" global "${map}")
string(REGEX MATCHALL "[A-Za-z_][A-Za-z_0-9]*" expected "${CMAKE_MATCH_1}")
list(SORT expected)

execute_process(COMMAND ${DUMP} -D --defined-only --format=posix ${BINARY}
    OUTPUT_VARIABLE dump RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${DUMP} failed on ${BINARY}")
endif()
string(REGEX MATCHALL "(^|\n)[A-Za-z_0-9@.]+ [TtWwDdBbRrVvi]" found "${dump}")
list(TRANSFORM found REPLACE "^\n?([^ ]+) .*$" "\\1")
list(SORT found)

if(NOT found STREQUAL expected)
    message(FATAL_ERROR "exports differ.\n expected: ${expected}\n found: ${found}")
endif()
list(LENGTH expected count)
message(STATUS "exactly the ${count} names of ${MAP} are exported")
