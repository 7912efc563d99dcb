# A cross build has its tests run by Wine, in a prefix of their own.
find_path(GOOGLETEST_SOURCES googletest/CMakeLists.txt
    PATHS /usr/src/googletest NO_CMAKE_FIND_ROOT_PATH REQUIRED)
set(INSTALL_GTEST OFF)
set(CMAKE_POLICY_DEFAULT_CMP0069 NEW)  # links with link-time optimisation as the rest does
add_subdirectory(${GOOGLETEST_SOURCES}/googletest ${CMAKE_CURRENT_BINARY_DIR}/googletest
    EXCLUDE_FROM_ALL)

set(windowsTests ${CMAKE_CURRENT_SOURCE_DIR}/windows)
set(wine sh ${windowsTests}/in_wine.sh ${CMAKE_BINARY_DIR}/wine)
set(CMAKE_CROSSCOMPILING_EMULATOR ${wine})

# What needs Wine comes after its start, which fills the prefix, and its end.
add_test(NAME windows.start COMMAND ${wine} wineboot --init)
add_test(NAME windows.end COMMAND ${wine} --wait)
set_tests_properties(windows.start PROPERTIES FIXTURES_SETUP wine TIMEOUT 300 LABELS windows)
set_tests_properties(windows.end PROPERTIES FIXTURES_CLEANUP wine LABELS windows)
set(discoveryOptions DISCOVERY_MODE PRE_TEST)  # so that building takes no Wine
set(caseProperties FIXTURES_REQUIRED wine)

# windows_test(NAME SCRIPT ARGUMENT...)
function(windows_test name script)
    add_test(NAME windows.${name} COMMAND bash ${windowsTests}/${script} ${ARGN})
    set_tests_properties(windows.${name} PROPERTIES
        FIXTURES_REQUIRED wine TIMEOUT 300 LABELS windows SKIP_RETURN_CODE 77)
endfunction()
windows_test(imports imports_test.sh ${CMAKE_OBJDUMP} $<TARGET_FILE_DIR:fatvol>)
