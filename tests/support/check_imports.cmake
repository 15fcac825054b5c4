# Fails when a Windows binary imports a DLL that Windows itself does not
# ship, such as the MinGW runtime DLLs, which users would not have.
# Run with -DBINARY=... -DDUMP=<objdump>.
cmake_policy(SET CMP0057 NEW)
execute_process(COMMAND ${DUMP} -p ${BINARY} OUTPUT_VARIABLE dump RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${DUMP} failed on ${BINARY}")
endif()
string(REGEX MATCHALL "DLL Name: [^\n]+" lines "${dump}")
list(TRANSFORM lines REPLACE "DLL Name: " "")
list(TRANSFORM lines STRIP)
if(NOT lines)
    message(FATAL_ERROR "no imports found in ${BINARY}")
endif()

set(system_dlls advapi32 bcrypt comctl32 comdlg32 crypt32 gdi32 kernel32 msvcrt ncrypt ntdll
    ole32 oleaut32 rpcrt4 secur32 shell32 shlwapi user32 userenv uxtheme version winscard ws2_32)
set(foreign "")
foreach(dll IN LISTS lines)
    string(TOLOWER "${dll}" name)
    string(REGEX REPLACE "\\.dll$" "" name "${name}")
    if(NOT name IN_LIST system_dlls AND NOT name MATCHES "^api-ms-win-")
        list(APPEND foreign "${dll}")
    endif()
endforeach()
if(foreign)
    message(FATAL_ERROR "${BINARY} imports DLLs that Windows does not ship: ${foreign}")
endif()
message(STATUS "only system DLLs are imported: ${lines}")
