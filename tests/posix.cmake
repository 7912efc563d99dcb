find_package(GTest REQUIRED)

# A locale with a one-byte code page, so that names are tested with more than UTF-8 and C.
find_program(LOCALEDEF localedef REQUIRED)
set(localeFolder ${CMAKE_CURRENT_BINARY_DIR}/locales)
file(MAKE_DIRECTORY ${localeFolder})
add_custom_command(
    OUTPUT ${localeFolder}/fatvol_cp1252/LC_CTYPE
    COMMAND ${LOCALEDEF} -i en_US -f CP1252 ${localeFolder}/fatvol_cp1252
    COMMENT "Making the locale fatvol_cp1252"
    VERBATIM)
add_custom_target(test_locale ALL DEPENDS ${localeFolder}/fatvol_cp1252/LC_CTYPE)
target_compile_definitions(fatvol_test_support PRIVATE FATVOL_TEST_LOCALE_DIR="${localeFolder}")
add_dependencies(fatvol_test_support test_locale)

# The include lines.
add_test(NAME tree.includes
    COMMAND sh ${CMAKE_CURRENT_SOURCE_DIR}/tree/includes_test.sh ${PROJECT_SOURCE_DIR}/src)
set_tests_properties(tree.includes PROPERTIES LABELS tree)

# Volumes made and filled by other programs, read by the tool.
foreach(name read large write large_write)
    add_test(NAME interop.${name}
        COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/interop/${name}_interop.sh
            $<TARGET_FILE:fatvol> ${CMAKE_CURRENT_BINARY_DIR}/interop/${name}
            $<TARGET_FILE:first_host>)
    set_tests_properties(interop.${name} PROPERTIES TIMEOUT 900 LABELS interop)
endforeach()
set_property(TEST interop.large interop.large_write APPEND PROPERTY LABELS slow)
