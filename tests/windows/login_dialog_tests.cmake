# The PIN dialog run for real under Wine. It draws windows, so CTest runs
# under Xvfb (scripts/test.sh) and the Wine runner passes the display on.
add_executable(login_dialog_tests login_dialog_test.cpp)
target_include_directories(login_dialog_tests PRIVATE ${PROJECT_SOURCE_DIR}/tests)
# The dialog is looked for in the module that holds the dialog code: here
# the test itself, so it links the resources as the provider library does.
target_link_libraries(login_dialog_tests PRIVATE
    quelmksp_core quelmksp_resources GTest::gtest_main)
target_compile_definitions(login_dialog_tests PRIVATE
    QUELMPKCS11_PATH="quelmpkcs11.dll"
    QUELMKSP_DLL_PATH="$<TARGET_FILE:quelmksp>"
    QUELMKSP_ARTIFACT_DIR="${CMAKE_BINARY_DIR}/artifacts")
add_dependencies(login_dialog_tests quelmksp)
gtest_discover_tests(login_dialog_tests DISCOVERY_TIMEOUT 120 PROPERTIES ${WINE_TEST_PROPERTIES})
