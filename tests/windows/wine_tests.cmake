# How the Windows build's tests run on this machine: GoogleTest built for
# Windows from Debian's sources, and every test executable started under Wine
# by wine_run.sh, which CMake and CTest use as the cross-compiling emulator.
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
# GoogleTest's own locks use the Windows API on Windows.
set(gtest_disable_pthreads ON CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
include(GoogleTest)

# The bridge and the middleware come from the Linux build.
set(QUELMKSP_LINUX_BUILD_DIR ${PROJECT_SOURCE_DIR}/build/linux CACHE PATH
    "Linux build that provides the Wine bridge and the middleware")
set(WINE_PREFIX ${CMAKE_BINARY_DIR}/wineprefix)
set(WINE_RUNNER ${CMAKE_CURRENT_LIST_DIR}/wine_run.sh)
set(CMAKE_CROSSCOMPILING_EMULATOR ${WINE_RUNNER}
    --prefix ${WINE_PREFIX}
    --bridge ${QUELMKSP_LINUX_BUILD_DIR}/winebridge/quelmpkcs11.dll.so
    --middleware ${QUELMKSP_LINUX_BUILD_DIR}/src/libquelmpkcs11.so
    --timeout 60)

# A fresh prefix for each run, made before the first test needs it.
add_test(NAME wine_prefix COMMAND ${WINE_RUNNER} --prefix ${WINE_PREFIX} --fresh)
set_tests_properties(wine_prefix PROPERTIES FIXTURES_SETUP wine TIMEOUT 180)

# What every test under Wine has: the prefix, and the one registry that the
# tests' registry files are imported into, so they never run side by side.
set(WINE_TEST_PROPERTIES FIXTURES_REQUIRED wine RESOURCE_LOCK wine_registry TIMEOUT 90)
