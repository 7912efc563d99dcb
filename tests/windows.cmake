# A cross build has its tests run by Wine, in a prefix of their own.
find_path(GOOGLETEST_SOURCES googletest/CMakeLists.txt
    PATHS /usr/src/googletest NO_CMAKE_FIND_ROOT_PATH REQUIRED)
set(INSTALL_GTEST OFF)
set(CMAKE_POLICY_DEFAULT_CMP0069 NEW)  # links with link-time optimisation as the rest does
add_link_options(-Wno-attributes)  # of googletest, at link time
add_subdirectory(${GOOGLETEST_SOURCES}/googletest ${CMAKE_CURRENT_BINARY_DIR}/googletest
    EXCLUDE_FROM_ALL)

set(windowsTests ${CMAKE_CURRENT_SOURCE_DIR}/windows)
set(wine sh ${windowsTests}/in_wine.sh ${CMAKE_BINARY_DIR}/wine)
set(CMAKE_CROSSCOMPILING_EMULATOR ${wine})

# What needs Wine comes after its start, which fills the prefix, and its end.
add_test(NAME windows.start COMMAND ${wine} --start)
add_test(NAME windows.end COMMAND ${wine} --end)
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

# The same from this machine's own build: what both write and show is compared.
set(FATVOL_NATIVE_BUILD ${PROJECT_SOURCE_DIR}/build/release CACHE PATH
    "A build for this machine, with the targets fatvol, first_host and fatvol_fixed_clock")
set(work ${CMAKE_CURRENT_BINARY_DIR}/work)
windows_test(same_image same_image_test.sh ${FATVOL_NATIVE_BUILD}
    $<TARGET_FILE_DIR:fatvol_fixed_clock>/fatvol.exe ${work}/same_image ${wine})
windows_test(same_listing same_listing_test.sh ${FATVOL_NATIVE_BUILD}
    $<TARGET_FILE:first_host> ${work}/same_listing ${wine})
windows_test(tool tool_test.sh $<TARGET_FILE:fatvol> ${work}/tool ${wine})

# A host of MSVC's kind, as far as it can be made here: by a compiler that has the same names, class
# layout and calls, linked to the library by the .def file.
find_program(CLANG clang++)
find_program(LLD_LINK lld-link)
find_program(LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 PATHS /usr/lib/llvm-14/bin)
windows_test(msvc_host msvc_host_test.sh ${PROJECT_SOURCE_DIR}/src/api $<TARGET_FILE:fatvol_shared>
    "${CLANG}" "${LLD_LINK}" "${LLVM_DLLTOOL}" ${work}/msvc_host ${wine})
