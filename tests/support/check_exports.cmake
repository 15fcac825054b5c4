# Compares the names a provider binary exports with the names in quelmksp.def.
# Run with -DBINARY=... -DDEF=... -DDUMP=<objdump or nm>.
file(STRINGS ${DEF} expected REGEX "^[ \t]+[A-Za-z]")
list(TRANSFORM expected STRIP)
list(SORT expected)

get_filename_component(tool ${DUMP} NAME)
if(tool MATCHES "objdump")
    execute_process(COMMAND ${DUMP} -p ${BINARY} OUTPUT_VARIABLE dump RESULT_VARIABLE rc)
    # The export names sit in the "[Ordinal/Name Pointer] Table" as "[ n] Name".
    string(REGEX MATCH "\\[Ordinal/Name Pointer\\] Table\n(([ \t]+\\[ *[0-9]+\\] [^\n]+\n)*)" table "${dump}")
    string(REGEX REPLACE "[ \t]*\\[ *[0-9]+\\] ([A-Za-z_0-9@]+)\n" "\\1;" found "${CMAKE_MATCH_1}")
    string(REGEX REPLACE ";$" "" found "${found}")
else()
    execute_process(COMMAND ${DUMP} -D --defined-only --format=posix ${BINARY}
        OUTPUT_VARIABLE dump RESULT_VARIABLE rc)
    string(REGEX MATCHALL "(^|\n)[A-Za-z_0-9@.]+ [TtWwDdBbRrVvi]" found "${dump}")
    list(TRANSFORM found REPLACE "^\n?([^ ]+) .*$" "\\1")
endif()
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${DUMP} failed on ${BINARY}")
endif()
list(SORT found)

list(LENGTH expected expected_count)
if(NOT expected_count EQUAL 27)
    message(FATAL_ERROR "quelmksp.def lists ${expected_count} names, not 27")
endif()
if(NOT found STREQUAL expected)
    message(FATAL_ERROR "exports differ.\n expected: ${expected}\n found: ${found}")
endif()
message(STATUS "exactly the ${expected_count} expected names are exported")
